#include <ostream>

#include "Cli.h"
#include "Terminal.h"
#include "model/Errors.h"
#include "model/Formatting.h"
#include "model/PathText.h"
#include "query/FileCategory.h"
#include "query/ScanQuery.h"
#include "storage/ScanJson.h"

namespace tarnbridge::cli {

namespace {

std::vector<OptionSpec> filterOptions()
{
    return {
        {"from", "FILE", "Use a saved scan file instead of scanning PATH."},
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

// The folder a command looks at: --focus, else the scan's root. It must be a folder of the scan.
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

std::string jsonRow(const DiskNode& node)
{
    std::string out = "{\"path\":";
    ScanJson::appendString(out, node.path);
    out += ",\"name\":";
    ScanJson::appendString(out, node.name());
    out += ",\"isDirectory\":";
    out += node.isDirectory ? "true" : "false";
    out += ",\"allocatedSize\":" + std::to_string(node.allocatedSize);
    out += ",\"logicalSize\":" + std::to_string(node.logicalSize);
    out += ",\"fileCount\":" + std::to_string(node.fileCount);
    out += ",\"folderCount\":" + std::to_string(node.folderCount);
    out += ",\"modified\":" + std::to_string(node.modified);
    out += "}";
    return out;
}

int topCommand(const Arguments& args, Context& context)
{
    const ScanQuery query = queryFrom(args);
    RankingScope scope = RankingScope::files;
    if (const auto s = args.value("scope")) {
        if (*s == "current")
            scope = RankingScope::current;
        else if (*s == "files")
            scope = RankingScope::files;
        else if (*s == "folders")
            scope = RankingScope::folders;
        else
            throw UsageError("--scope takes current, files or folders.");
    }
    const std::int64_t limit = args.integer("limit", 20, 0, 1'000'000'000);
    if (!args.has("from") && args.positionals.empty())
        throw UsageError("\"top\" needs PATH, or --from FILE.");
    const ScanResult scan = obtainScan(args, context, args.positionals.empty() ? "" : args.positionals[0]);
    const NodeId focus = focusOf(args, scan);
    const RankedPage page = query.rankedPage(scan, scan->path(focus), scope, limit, &context.cancellation);
    if (args.has("json")) {
        for (const DiskNode& row : page.rows)
            context.out << jsonRow(row) << '\n';
        return exitOk;
    }
    const std::int64_t total = scan.data()[scope == RankingScope::current ? focus : ScanData::rootId].bytes(query.measure);
    context.out << rawValue(scope) << ": " << withSeparators(page.count) << " matching, the "
                << withSeparators(std::int64_t(page.rows.size())) << " biggest below\n\n";
    Table table({{query.measure == SizeMeasure::logical ? "Logical size" : "Size on disk", Align::right},
                 {"Share", Align::right},
                 {"Items", Align::right},
                 {"Path", Align::left}});
    for (const DiskNode& row : page.rows)
        table.add({formattedBytes(row.bytes(query.measure)), formattedShare(row.bytes(query.measure), total),
                   withSeparators(row.isDirectory ? row.fileCount + row.folderCount : 1),
                   shown(row.path) + (row.isDirectory ? "/" : "")});
    table.print(context.out);
    return exitOk;
}

} // namespace

std::vector<Command> queryCommands()
{
    auto withFilters = [](std::vector<OptionSpec> own) {
        for (auto& option : filterOptions())
            own.push_back(option);
        return own;
    };
    return {
        {{"top",
          "PATH [--scope current|files|folders] [--limit N] [--focus DIR] [filters]",
          "List the biggest files or folders of a scan, or of one folder.",
          withFilters({{"scope", "SCOPE", "current (one folder), files or folders (anywhere); default files."},
                       {"limit", "N", "How many to list (default 20)."},
                       {"focus", "DIR", "The folder for --scope current (default: the scanned folder)."}}),
          0,
          1},
         topCommand},
    };
}

} // namespace tarnbridge::cli
