#include <QDate>
#include <QDateTime>
#include <QLocale>

#include <algorithm>
#include <cstdio>
#include <ostream>

#include "Cli.h"
#include "QueryOptions.h"
#include "Terminal.h"
#include "model/Errors.h"
#include "model/Formatting.h"
#include "model/PathText.h"
#include "query/AgeSummary.h"
#include "query/FileCategory.h"
#include "query/ScanPresentation.h"
#include "cleanup/CSVExport.h"
#include "query/ScanQuery.h"
#include "storage/ScanJson.h"

namespace tarnbridge::cli {

namespace {

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
    const ScanResult scan = scanFor(args, context, "top");
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

void addTotalsRows(Table& table, const FileTypeTotals& totals, SizeMeasure measure, std::int64_t whole)
{
    for (FileCategory c : FileCategory::allCases()) {
        const auto& values = totals.values(measure);
        const auto it = values.find(c);
        if (it == values.end())
            continue;
        table.add({std::string(c.rawValue()), formattedBytes(it->second), formattedShare(it->second, whole)});
    }
}

std::string shortDate(std::int64_t unixSeconds)
{
    return QLocale().toString(QDateTime::fromSecsSinceEpoch(unixSeconds).date(), QLocale::ShortFormat).toStdString();
}

int lsCommand(const Arguments& args, Context& context)
{
    const ScanQuery query = queryFrom(args);
    ScanSortField field = query.measure == SizeMeasure::logical ? ScanSortField::logicalSize : ScanSortField::allocatedSize;
    if (const auto sort = args.value("sort")) {
        const std::pair<const char*, ScanSortField> fields[] = {
            {"name", ScanSortField::name}, {"allocated", ScanSortField::allocatedSize},
            {"logical", ScanSortField::logicalSize}, {"items", ScanSortField::itemCount},
            {"kind", ScanSortField::kindName}, {"modified", ScanSortField::modified}};
        const auto it = std::find_if(std::begin(fields), std::end(fields), [&](const auto& f) { return *sort == f.first; });
        if (it == std::end(fields))
            throw UsageError("--sort takes name, allocated, logical, items, kind or modified.");
        field = it->second;
    }
    const SortOrder order = args.has("asc") ? SortOrder::ascending : SortOrder::descending;
    const ScanResult scan = scanFor(args, context, "ls");
    const NodeId focus = focusOf(args, scan);
    const bool recursive = args.has("recursive");
    const auto ids = query.sortedIds(scan, scan->path(focus), recursive, field, order, &context.cancellation);
    const ScanData& d = scan.data();
    if (args.has("json")) {
        for (NodeId id : ids)
            context.out << jsonRow(d.node(id)) << '\n';
        return exitOk;
    }
    Table table({{query.measure == SizeMeasure::logical ? "Logical size" : "Size on disk", Align::right},
                 {"Items", Align::right},
                 {"Kind", Align::left},
                 {"Modified", Align::left},
                 {recursive ? "Path" : "Name", Align::left}});
    for (NodeId id : ids) {
        const NodeRecord& r = d[id];
        const std::string name = recursive ? shown(d.path(id)) : shown(d.name(id));
        table.add({formattedBytes(r.bytes(query.measure)), withSeparators(itemCount(r)),
                   std::string(kindName(d, id)), shortDate(r.modifiedSeconds), name + (r.isDirectory() ? "/" : "")});
    }
    table.print(context.out);
    return exitOk;
}

int ageCommand(const Arguments& args, Context& context)
{
    const ScanQuery query = queryFrom(args);
    std::optional<AgeRange> range;
    std::optional<ModificationMonth> month;
    if (const auto r = args.value("range")) {
        const std::pair<const char*, AgeRange> names[] = {
            {"week", AgeRange::week}, {"month", AgeRange::month}, {"quarter", AgeRange::quarter},
            {"year", AgeRange::year}, {"two-years", AgeRange::twoYears}, {"older", AgeRange::older}};
        const auto it = std::find_if(std::begin(names), std::end(names), [&](const auto& n) { return *r == n.first; });
        if (it == std::end(names))
            throw UsageError("--range takes week, month, quarter, year, two-years or older.");
        range = it->second;
    }
    if (const auto m = args.value("month")) {
        const QDate date = QDate::fromString(QString::fromStdString(*m), QStringLiteral("yyyy-MM"));
        if (!date.isValid())
            throw UsageError("--month takes a month as YYYY-MM, for example 2024-03.");
        month = ModificationMonth{date.year(), date.month()};
    }
    const ScanResult scan = scanFor(args, context, "age");
    const NodeId focus = focusOf(args, scan);
    MonthCalendar calendar;
    const AgeSummary summary =
        AgeSummary::make(scan, scan->path(focus), query, currentTime(), calendar, &context.cancellation);
    const AgeListing listing = summary.listing(range, month, &context.cancellation);
    if (args.has("json")) {
        for (NodeId id : listing.ids)
            context.out << jsonRow(scan->node(id)) << '\n';
        return exitOk;
    }
    std::int64_t whole = 0;
    for (std::int64_t bytes : summary.totals)
        whole += bytes;
    context.out << "Age of the files below " << shown(scan->path(focus)) << "\n\n";
    Table classes({{"Last changed", Align::left}, {"Size", Align::right}, {"Share", Align::right}});
    for (AgeRange r : allAgeRanges())
        classes.add({std::string(title(r)), formattedBytes(summary.totals[std::size_t(r)]),
                     formattedShare(summary.totals[std::size_t(r)], whole)});
    classes.print(context.out, "  ");
    if (!summary.months.empty()) {
        context.out << "\nBy month (most recent 12)\n\n";
        Table months({{"Month", Align::left}, {"Size", Align::right}});
        int shownMonths = 0;
        for (auto it = summary.months.rbegin(); it != summary.months.rend() && shownMonths < 12; ++it, ++shownMonths) {
            char label[16];
            std::snprintf(label, sizeof label, "%04d-%02d", it->first.year, it->first.month);
            months.add({label, formattedBytes(it->second)});
        }
        months.print(context.out, "  ");
    }
    context.out << "\n";
    if (month) {
        char label[16];
        std::snprintf(label, sizeof label, "%04d-%02d", month->year, month->month);
        context.out << "Changed in " << label;
    } else if (range) {
        context.out << title(*range);
    } else {
        context.out << "Large files untouched for a year (40 MB or more, neither changed nor opened)";
    }
    context.out << ": " << withSeparators(std::int64_t(listing.ids.size())) << " files, "
                << formattedBytes(listing.bytes) << "\n";
    const std::size_t limit = std::size_t(args.integer("limit", 20, 0, 1'000'000'000));
    for (std::size_t i = 0; i < listing.ids.size() && i < limit; ++i)
        context.out << "  " << shown(scan->path(listing.ids[i])) << '\n';
    if (listing.ids.size() > limit)
        context.out << "  … and " << withSeparators(std::int64_t(listing.ids.size() - limit)) << " more\n";
    return exitOk;
}

int typesCommand(const Arguments& args, Context& context)
{
    const SizeMeasure measure = args.has("logical") ? SizeMeasure::logical : SizeMeasure::allocated;
    const ScanResult scan = scanFor(args, context, "types");
    const NodeId focus = focusOf(args, scan);
    const TypeDistribution d = distribution(scan, scan->path(focus), &context.cancellation);
    context.cancellation.check();
    if (args.has("json")) {
        auto object = [&](const FileTypeTotals& totals) {
            std::string out = "{";
            bool first = true;
            for (FileCategory c : FileCategory::allCases()) {
                const auto it = totals.values(measure).find(c);
                if (it == totals.values(measure).end())
                    continue;
                out += (first ? "\"" : ",\"") + std::string(c.rawValue()) + "\":" + std::to_string(it->second);
                first = false;
            }
            return out + "}";
        };
        std::string line = "{\"path\":";
        ScanJson::appendString(line, scan->path(focus));
        context.out << line << ",\"types\":" << object(d.total) << "}\n";
        for (const auto& [path, totals] : d.folders) {
            line = "{\"path\":";
            ScanJson::appendString(line, path);
            context.out << line << ",\"types\":" << object(totals) << "}\n";
        }
        return exitOk;
    }
    std::int64_t whole = 0;
    for (const auto& [category, bytes] : d.total.values(measure))
        whole += bytes;
    context.out << "File types below " << shown(scan->path(focus)) << "\n\n";
    Table table({{"Type", Align::left}, {measure == SizeMeasure::logical ? "Logical size" : "Size on disk", Align::right},
                 {"Share", Align::right}});
    addTotalsRows(table, d.total, measure, whole);
    table.print(context.out, "  ");
    // Child folders, biggest first, with their largest type.
    std::vector<std::pair<std::int64_t, std::string>> folders;
    for (const auto& [path, totals] : d.folders) {
        std::int64_t sum = 0;
        for (const auto& [category, bytes] : totals.values(measure))
            sum += bytes;
        folders.emplace_back(sum, path);
    }
    std::sort(folders.begin(), folders.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    if (folders.empty())
        return exitOk;
    context.out << "\nBy folder\n\n";
    Table byFolder({{"Folder", Align::left}, {"Size", Align::right}, {"Mostly", Align::left}});
    for (const auto& [sum, path] : folders) {
        const auto& values = d.folders.at(path).values(measure);
        const auto top = std::max_element(values.begin(), values.end(),
                                          [](const auto& a, const auto& b) { return a.second < b.second; });
        byFolder.add({shown(PathText::name(path)) + "/", formattedBytes(sum),
                      top == values.end() ? "" : std::string(FileCategory(top->first).rawValue()) + " " +
                                                     formattedShare(top->second, sum)});
    }
    byFolder.print(context.out, "  ");
    return exitOk;
}

int winsCommand(const Arguments& args, Context& context)
{
    const ScanResult scan = scanFor(args, context, "wins");
    const ScanPresentation p = ScanPresentation::make(scan, &context.cancellation);
    context.cancellation.check();
    if (args.has("json")) {
        for (const QuickWin& win : p.quickWins) {
            for (const DiskNode& node : win.nodes) {
                std::string line = "{\"kind\":";
                ScanJson::appendString(line, info(win.kind).rawValue);
                line += ",\"path\":";
                ScanJson::appendString(line, node.path);
                line += ",\"allocatedSize\":" + std::to_string(node.allocatedSize) + "}";
                context.out << line << '\n';
            }
        }
        return exitOk;
    }
    bool any = false;
    for (const QuickWin& win : p.quickWins) {
        if (win.nodes.empty())
            continue;
        any = true;
        context.out << info(win.kind).rawValue << " — " << formattedBytes(win.bytes()) << " in "
                    << withSeparators(std::int64_t(win.nodes.size())) << (win.nodes.size() == 1 ? " item\n" : " items\n");
        context.out << "  " << info(win.kind).explanation << "\n";
        Table table({{"", Align::right}, {"", Align::left}});
        const std::size_t shownCount = std::min<std::size_t>(win.nodes.size(), 10);
        for (std::size_t i = 0; i < shownCount; ++i)
            table.add({formattedBytes(win.nodes[i].allocatedSize),
                       shown(win.nodes[i].path) + (win.nodes[i].isDirectory ? "/" : "")});
        table.print(context.out, "    ");
        if (win.nodes.size() > shownCount)
            context.out << "    … and " << withSeparators(std::int64_t(win.nodes.size() - shownCount)) << " more\n";
        context.out << '\n';
    }
    if (!any)
        context.out << "No suggestions: none of the well-known kinds of clutter was found.\n";
    else
        context.out << "All suggestions together: " << formattedBytes(p.uniqueQuickWinBytes)
                    << " (items inside others counted once)\n";
    return exitOk;
}

// The rows "ls" would list, as a CSV file for a spreadsheet.
int exportCsvCommand(const Arguments& args, Context& context)
{
    const auto out = args.value("out");
    if (!out)
        throw UsageError("\"export-csv\" needs --out FILE.");
    const ScanQuery query = queryFrom(args);
    const ScanResult scan = scanFor(args, context, "export-csv");
    const NodeId focus = focusOf(args, scan);
    const auto ids = query.sortedIds(scan, scan->path(focus), args.has("recursive"),
                                     query.measure == SizeMeasure::logical ? ScanSortField::logicalSize
                                                                           : ScanSortField::allocatedSize,
                                     SortOrder::descending, &context.cancellation);
    std::vector<std::string> paths;
    paths.reserve(ids.size());
    for (NodeId id : ids)
        paths.push_back(scan->path(id));
    CSVExport::write(paths, scan, *out, context.cancellation);
    context.out << "Wrote " << withSeparators(std::int64_t(paths.size())) << " rows to " << shown(*out) << '\n';
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
        {{"ls",
          "PATH [--focus DIR] [--recursive] [--sort name|allocated|logical|items|kind|modified] [--asc] [filters]",
          "List a folder's items (or everything below it) in any column order.",
          withFilters({{"focus", "DIR", "The folder to list (default: the scanned folder)."},
                       {"recursive", "", "Everything below the folder, not only its direct items."},
                       {"sort", "FIELD", "name, allocated, logical, items, kind or modified (default: size)."},
                       {"asc", "", "Ascending instead of descending."}}),
          0,
          1},
         lsCommand},
        {{"age",
          "PATH [--focus DIR] [--range CLASS|--month YYYY-MM] [--limit N] [filters]",
          "Show how old the files are, by age class and month, and list one class or month.",
          withFilters({{"focus", "DIR", "A folder of the scan (default: the scanned folder)."},
                       {"range", "CLASS", "List one class: week, month, quarter, year, two-years, older."},
                       {"month", "YYYY-MM", "List the files last changed in one month."},
                       {"limit", "N", "How many files of the listing to print (default 20)."}}),
          0,
          1},
         ageCommand},
        {{"types",
          "PATH [--focus DIR] [--logical] [--json]",
          "Show how the bytes split by file type, in total and by folder.",
          {{"focus", "DIR", "A folder of the scan (default: the scanned folder)."},
           {"from", "FILE", "Use a saved scan file or an ncdu or gdu export instead of scanning PATH."},
           {"logical", "", "Measure logical size instead of size on disk."},
           {"json", "", "One JSON object per line instead of tables."},
           {"quiet", "", "No progress line while scanning."}},
          0,
          1},
         typesCommand},
        {{"wins",
          "PATH [--json]",
          "Suggest well-known clutter: caches, build output, installers, trash…",
          {{"from", "FILE", "Use a saved scan file or an ncdu or gdu export instead of scanning PATH."},
           {"json", "", "One JSON object per item instead of the list."},
           {"quiet", "", "No progress line while scanning."}},
          0,
          1},
         winsCommand},
        {{"export-csv",
          "PATH --out FILE [--focus DIR] [--recursive] [filters]",
          "Write a folder's items (or everything below it) as a CSV file, largest first.",
          withFilters({{"out", "FILE", "The CSV file to write (replaced only once complete)."},
                       {"focus", "DIR", "The folder to export (default: the scanned folder)."},
                       {"recursive", "", "Everything below the folder, not only its direct items."}}),
          0,
          1},
         exportCsvCommand},
    };
}

} // namespace tarnbridge::cli
