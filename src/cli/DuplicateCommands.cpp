#include <unistd.h>

#include <cstdlib>
#include <ostream>

#include "Cli.h"
#include "duplicates/DuplicateFinder.h"
#include "model/Formatting.h"
#include "model/PathText.h"
#include "model/ScanPaths.h"
#include "storage/ScanJson.h"
#include "Terminal.h"

namespace tarnbridge::cli {

namespace {

// The app's minimum size by default: 1 MB, decimal.
constexpr std::int64_t kDefaultMinimum = 1'000'000;


std::string progressText(const DuplicateProgress& p) {
    using Phase = DuplicateProgress::Phase;
    switch (p.phase) {
    case Phase::grouping:
        return "Grouping files by size…";
    case Phase::sampling:
        return "Checking samples · " + withSeparators(p.checked) + " of " +
               withSeparators(p.total) + " candidates";
    case Phase::hashing:
        return "Reading full contents · " + shown(p.fileName) + " · " +
               formattedBytes(p.bytesRead) + " / " + formattedBytes(p.fileSize);
    case Phase::verifying:
        return "Verifying identical copies · " + shown(p.fileName) + " · " +
               formattedBytes(p.bytesRead) + " / " + formattedBytes(p.fileSize);
    case Phase::complete:
        return "Comparison complete";
    }
    return {};
}

std::string issuesCaption(std::int64_t skipped) {
    if (skipped == 0)
        return "No comparison issues";
    return withSeparators(skipped) + (skipped == 1 ? " comparison issue" : " comparison issues");
}

void printJson(const DuplicateReport& report, std::int64_t reclaimable, std::ostream& out) {
    for (const DuplicateGroup& group : report.groups) {
        std::string line = "{\"kind\":\"group\",\"id\":\"" + group.id + "\"";
        line += ",\"logicalSize\":" + std::to_string(group.files.front().logicalSize);
        line += ",\"reclaimable\":" + std::to_string(group.reclaimable());
        line += ",\"files\":[";
        for (std::size_t i = 0; i < group.files.size(); ++i) {
            line += i ? ",{\"path\":" : "{\"path\":";
            ScanJson::appendString(line, group.files[i].path);
            line += ",\"allocatedSize\":" + std::to_string(group.files[i].allocatedSize) + "}";
        }
        out << line << "]}\n";
    }
    std::string line = "{\"kind\":\"totals\",\"groups\":" + std::to_string(report.groups.size());
    line += ",\"reclaimable\":" + std::to_string(reclaimable);
    line += ",\"checked\":" + std::to_string(report.checked);
    line += ",\"skipped\":" + std::to_string(report.skipped);
    line += ",\"issues\":[";
    for (std::size_t i = 0; i < report.issues.size(); ++i) {
        if (i)
            line += ',';
        ScanJson::appendString(line, report.issues[i]);
    }
    out << line << "]}\n";
}

void printText(const DuplicateReport& report, std::int64_t reclaimable, const std::string& where,
               std::int64_t minimum, std::ostream& out) {
    out << "Identical files below " << shown(where);
    if (minimum > 0)
        out << " (" << formattedBytes(minimum) << " or more)";
    out << "\n\n";
    Table totals({{"", Align::left}, {"", Align::right}, {"", Align::left}});
    if (report.groups.empty()) {
        out << "No duplicates found\nNo identical files match the minimum size.\n\n";
    } else {
        totals.add({"Extra copies", formattedBytes(reclaimable), "Allocated size estimate"});
        totals.add({"Duplicate groups", withSeparators(std::int64_t(report.groups.size())),
                    "Content verified"});
    }
    totals.add(
        {"Candidates checked", withSeparators(report.checked), issuesCaption(report.skipped)});
    totals.print(out, "  ");

    for (const DuplicateGroup& group : report.groups) {
        out << '\n'
            << withSeparators(std::int64_t(group.files.size())) << " identical files · "
            << formattedBytes(group.files.front().logicalSize) << " each · "
            << formattedBytes(group.reclaimable()) << " in extra copies\n";
        Table files({{"", Align::left}, {"", Align::left}});
        for (std::size_t i = 0; i < group.files.size(); ++i)
            files.add({i == 0 ? "KEEP" : "EXTRA COPY", shown(group.files[i].path)});
        files.print(out, "  ");
    }

    if (!report.issues.empty()) {
        out << "\nComparison details (" << withSeparators(std::int64_t(report.issues.size()))
            << ")\n";
        for (const std::string& issue : report.issues)
            out << "  " << shown(issue) << '\n';
        if (report.skipped > std::int64_t(report.issues.size()))
            out << "  … and " << withSeparators(report.skipped - std::int64_t(report.issues.size()))
                << " more\n";
    }
}

int duplicatesCommand(const Arguments& args, Context& context) {
    if (!args.has("from") && args.positionals.empty())
        throw UsageError("\"duplicates\" needs PATH, or --from FILE.");
    const std::int64_t minimum =
        args.has("min-size") ? parseByteCount(*args.value("min-size")) : kDefaultMinimum;
    std::optional<std::string> scope;
    if (const auto dir = args.value("scope"))
        scope = absolutePath(*dir);
    const bool quiet = args.has("quiet");

    const ScanResult scan =
        obtainScan(args, context, args.positionals.empty() ? "" : args.positionals[0]);
    ProgressLine line(context);
    const DuplicateReport report = DuplicateFinder().find(
        scan, minimum, scope, context.cancellation, [&](const DuplicateProgress& p) {
            if (!quiet)
                line.show(progressText(p));
        });
    line.clear();

    std::int64_t reclaimable = 0;
    for (const DuplicateGroup& group : report.groups)
        reclaimable += group.reclaimable();
    if (args.has("json"))
        printJson(report, reclaimable, context.out);
    else // the search succeeded, so a scope is a folder of the scan
        printText(report, reclaimable, scope ? scan.directory(*scope)->path : scan.rootPath(),
                  minimum, context.out);
    return exitOk;
}

} // namespace

std::vector<Command> duplicateCommands() {
    return {
        {{"duplicates",
          "PATH [--from FILE] [--min-size SIZE] [--scope DIR] [--json]",
          "Find identical files: same size, same SHA-256, equal byte for byte.",
          {{"from", "FILE", "Use a saved scan file or an ncdu or gdu export instead of scanning PATH."},
           {"min-size", "SIZE",
            "Only files of at least SIZE (decimal units; default 1MB; 0 for any size)."},
           {"scope", "DIR", "Compare only the files below this folder of the scan."},
           {"json", "", "One JSON object per group, then one with the totals, instead of text."},
           {"quiet", "", "No progress line."}},
          0,
          1},
         duplicatesCommand},
    };
}

} // namespace tarnbridge::cli
