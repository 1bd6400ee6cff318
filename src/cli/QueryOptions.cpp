#include "QueryOptions.h"

#include <QString>

#include "Terminal.h"
#include "model/Errors.h"
#include "model/Formatting.h"

namespace tarnbridge::cli {

std::vector<OptionSpec> filterOptions()
{
    return {
        {"from", "FILE", "Use a saved scan file or an ncdu or gdu export instead of scanning PATH."},
        {"name", "TEXT", "Only items whose name contains TEXT (any case)."},
        {"no-hidden", "", "Leave out items whose name starts with a dot."},
        {"min-size", "SIZE", "Only items of at least SIZE (decimal units: 10MB, 1.5GB)."},
        {"type", "CATEGORY", "Only files of one kind: Video, Audio, Images, Documents, Developer, Archives, Other."},
        {"older-than", "DAYS", "Only items last modified at least DAYS days ago."},
        {"logical", "", "Measure logical size instead of size on disk."},
        {"json", "", "One JSON object per line instead of a table."},
        {"quiet", "", "No progress line while scanning."},
    };
}

ScanQuery queryFrom(const Arguments& args)
{
    ScanQuery q;
    q.text = args.value("name").value_or("");
    q.showHidden = !args.has("no-hidden");
    if (const auto size = args.value("min-size"))
        q.minimumBytes = parseByteCount(*size);
    if (const auto type = args.value("type")) {
        q.category = FileCategory::fromRawValue(*type);
        if (!q.category) {
            // Accept the singular word and any case too: "image", "images", "Image".
            for (FileCategory c : FileCategory::allCases()) {
                const QString typed = QString::fromStdString(*type);
                if (typed.compare(QString::fromUtf8(c.rawValue().data(), qsizetype(c.rawValue().size())), Qt::CaseInsensitive) == 0 ||
                    typed.compare(QString::fromUtf8(c.displayName().data(), qsizetype(c.displayName().size())), Qt::CaseInsensitive) == 0)
                    q.category = c;
            }
        }
        if (!q.category)
            throw UsageError("--type takes one of Video, Audio, Images, Documents, Developer, Archives, Other.");
    }
    q.modifiedBeforeDays = args.integer("older-than", 0, 0, 1'000'000);
    q.measure = args.has("logical") ? SizeMeasure::logical : SizeMeasure::allocated;
    return q;
}

NodeId focusOf(const Arguments& args, const ScanResult& scan)
{
    const auto focus = args.value("focus");
    if (!focus)
        return ScanData::rootId;
    const NodeId id = scan.find(*focus);
    if (id == kNoNode || !scan.data()[id].isDirectory())
        throw TarnbridgeError("\"" + *focus + "\" is not a folder of this scan. Give a folder below " +
                              shown(scan.rootPath()) + ".");
    return id;
}

ScanResult scanFor(const Arguments& args, Context& context, const char* command)
{
    if (!args.has("from") && args.positionals.empty())
        throw UsageError(std::string("\"") + command + "\" needs PATH, or --from FILE.");
    return obtainScan(args, context, args.positionals.empty() ? "" : args.positionals[0]);
}

} // namespace tarnbridge::cli
