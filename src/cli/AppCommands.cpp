#include <QDateTime>
#include <QLocale>

#include <ostream>

#include "applications/ApplicationInventory.h"
#include "Cli.h"
#include "model/Formatting.h"
#include "storage/ScanJson.h"
#include "Terminal.h"

namespace tarnbridge::cli {

namespace {

std::string quoted(std::string_view bytes)
{
    std::string out;
    ScanJson::appendString(out, bytes);
    return out;
}

std::string appJson(const InstalledApplication& app)
{
    const auto bundle = app.bundleScan.root();
    std::string out = "{\"name\":" + quoted(app.name);
    out += ",\"bundleID\":" + quoted(app.bundleID);
    out += ",\"path\":" + quoted(app.path);
    out += ",\"kind\":" + quoted(rawValue(app.kind));
    out += ",\"version\":" + quoted(app.version);
    out += ",\"system\":";
    out += app.isSystem() ? "true" : "false";
    out += ",\"lastUsed\":" + (app.lastUsed ? std::to_string(*app.lastUsed) : std::string("null"));
    out += ",\"bytes\":" + std::to_string(app.bytes());
    out += ",\"bundleBytes\":" + std::to_string(bundle ? bundle->allocatedSize : 0);
    out += ",\"unreadable\":" + std::to_string(app.bundleScan.skippedCount());
    out += ",\"support\":[";
    for (std::size_t i = 0; i < app.support.size(); ++i) {
        const AppSupportFile& file = app.support[i];
        out += i ? ",{" : "{";
        out += "\"path\":" + quoted(file.node.path);
        out += ",\"category\":" + quoted(file.category);
        out += ",\"match\":" + quoted(file.match);
        out += ",\"isShared\":";
        out += file.isShared ? "true" : "false";
        out += ",\"allocatedSize\":" + std::to_string(file.node.allocatedSize);
        out += "}";
    }
    return out + "]}";
}

std::string leftoverJson(const OrphanCandidate& orphan)
{
    std::string out = "{\"bundleID\":" + quoted(orphan.bundleID);
    out += ",\"path\":" + quoted(orphan.node.path);
    out += ",\"category\":" + quoted(orphan.category);
    out += ",\"isDirectory\":";
    out += orphan.node.isDirectory ? "true" : "false";
    out += ",\"allocatedSize\":" + std::to_string(orphan.node.allocatedSize);
    out += ",\"logicalSize\":" + std::to_string(orphan.node.logicalSize);
    return out + "}";
}

void printApp(const InstalledApplication& app, std::ostream& out)
{
    out << shown(app.name) << "  ·  " << shown(app.bundleID) << "  ·  "
        << formattedBytes(app.bytes()) << "\n";
    out << "  " << rawValue(app.kind) << " · " << shown(app.path);
    if (app.version != "—")
        out << " · version " << shown(app.version);
    if (app.lastUsed)
        out << " · Used "
            << QLocale()
                   .toString(QDateTime::fromSecsSinceEpoch(*app.lastUsed).date(),
                             QLocale::ShortFormat)
                   .toStdString();
    out << "\n";
    const std::int64_t bundle = app.bytes() - app.supportBytes();
    out << "  Bundle " << formattedBytes(bundle) << " · "
        << (app.supportBytes() < 1 ? std::string("App bundle only")
                                   : std::string("+").append(formattedBytes(app.supportBytes())).append(" leftovers"))
        << "\n";
    if (app.bundleScan.skippedCount() > 0)
        out << "  " << withSeparators(app.bundleScan.skippedCount())
            << " bundle paths could not be read. This footprint is incomplete.\n";
    if (app.support.empty())
        return;
    Table table({{"Size", Align::right},
                 {"Category", Align::left},
                 {"Tie", Align::left},
                 {"Path", Align::left}});
    for (const AppSupportFile& file : app.support)
        table.add({formattedBytes(file.node.allocatedSize), file.category,
                   file.isShared ? file.match + " — kept during uninstall" : file.match,
                   shown(file.node.path) + (file.node.isDirectory ? "/" : "")});
    table.print(out, "    ");
}

void printIssues(const std::vector<std::string>& issues, std::ostream& out)
{
    if (issues.empty())
        return;
    out << "\n" << issues.size() << " access " << (issues.size() == 1 ? "note" : "notes") << ":\n";
    for (const std::string& issue : issues)
        out << "  " << shown(issue) << "\n";
}

int appsCommand(const Arguments& args, Context& context)
{
    const bool json = args.has("json");
    ProgressLine line(context);
    line.show("Discovering applications…");
    const ApplicationReport report = ApplicationInventory().inspect(
        InventoryPlaces::fromEnvironment(), context.cancellation,
        [&](const std::string& name, int done) {
            line.show(shown(name) + " · " + std::to_string(done) + " apps inspected");
        });
    line.clear();

    if (args.has("leftovers")) {
        if (json) {
            for (const OrphanCandidate& orphan : report.orphans)
                context.out << leftoverJson(orphan) << '\n';
            printIssues(report.issues, context.err);
            return exitOk;
        }
        context.out
            << "Leftovers from removed apps\n"
            << "Review before cleanup — apps stored elsewhere may still use these files.\n\n";
        if (report.orphans.empty()) {
            context.out << "No leftovers found.\n";
        } else {
            Table table({{"Size", Align::right},
                         {"Possible app", Align::left},
                         {"Category", Align::left},
                         {"Path", Align::left}});
            std::int64_t total = 0;
            for (const OrphanCandidate& orphan : report.orphans) {
                total += orphan.node.allocatedSize;
                table.add({formattedBytes(orphan.node.allocatedSize), shown(orphan.bundleID),
                           orphan.category,
                           shown(orphan.node.path) + (orphan.node.isDirectory ? "/" : "")});
            }
            table.print(context.out, "  ");
            context.out << "\n"
                        << withSeparators(std::int64_t(report.orphans.size())) << " leftovers, "
                        << formattedBytes(total) << "\n";
        }
        printIssues(report.issues, context.out);
        return exitOk;
    }

    const bool withSystem = args.has("system");
    std::size_t hidden = 0;
    std::vector<const InstalledApplication*> listed;
    for (const InstalledApplication& app : report.apps) {
        if (!withSystem && app.isSystem())
            ++hidden;
        else
            listed.push_back(&app);
    }
    if (json) {
        for (const InstalledApplication* app : listed)
            context.out << appJson(*app) << '\n';
        printIssues(report.issues, context.err);
        return exitOk;
    }
    context.out << "APPLICATIONS " << listed.size() << ", largest footprint first";
    if (hidden)
        context.out << " (" << hidden << " system apps hidden; --system shows them)";
    context.out << "\n";
    if (listed.empty())
        context.out << "\nNo applications found.\n";
    for (const InstalledApplication* app : listed) {
        context.out << "\n";
        printApp(*app, context.out);
    }
    printIssues(report.issues, context.out);
    return exitOk;
}

} // namespace

std::vector<Command> appCommands()
{
    return {
        {{"apps",
          "[--leftovers] [--system] [--json]",
          "List installed applications by footprint with the data tied to them, or leftovers of "
          "removed ones.",
          {{"leftovers", "", "List data that no installed application claims instead."},
           {"system", "", "Show the system's own applications too."},
           {"json", "", "One JSON object per application (or leftover) instead of the list."}},
          0,
          0},
         appsCommand},
    };
}

} // namespace tarnbridge::cli
