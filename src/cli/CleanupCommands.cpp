#include <sys/stat.h>
#include <unistd.h>

#include <QDateTime>
#include <QLocale>

#include <iostream>
#include <ostream>

#include "Cli.h"
#include "Terminal.h"
#include "cleanup/CleanupWorkflow.h"
#include "model/Errors.h"
#include "model/Formatting.h"
#include "model/Identifiers.h"
#include "model/PathText.h"
#include "model/ScanPaths.h"
#include "platform/AtomicFile.h"
#include "platform/FileFacts.h"
#include "platform/UserFolders.h"
#include "scan/DiskScanner.h"
#include "state/StateFiles.h"
#include "state/AppStorage.h"
#include "storage/ScanJson.h"

namespace tarnbridge::cli {

namespace {

StateFiles stateFiles()
{
    return StateFiles(AppStorage::directory());
}


std::string localTime(double unixSeconds)
{
    return QLocale().toString(QDateTime::fromMSecsSinceEpoch(qint64(unixSeconds * 1000)), QLocale::ShortFormat)
        .toStdString();
}

// A resolved receipt, snapshot or backup by its id, or the first characters of it.
template <class T>
const T& byIdentifier(const std::vector<T>& items, const std::string& id, const char* what)
{
    const T* found = nullptr;
    const QString wanted = QString::fromStdString(id).toUpper();
    for (const T& item : items) {
        if (!QString::fromStdString(item.id).startsWith(wanted))
            continue;
        if (found)
            throw TarnbridgeError(std::string("\"") + id + "\" matches more than one " + what +
                                  ". Give more of its id.");
        found = &item;
    }
    if (!found || id.size() < 4)
        throw TarnbridgeError(std::string("No ") + what + " has the id \"" + id + "\".");
    return *found;
}

// The scan a staged item comes from: the folder itself, or a record of the file alone.
ScanResult scanItem(const std::string& path, Context& context, bool quiet)
{
    const FileStat stat = platform::statPath(path);
    if (stat.identity.isDirectory()) {
        ProgressLine line(context);
        return DiskScanner::scan(path, context.cancellation, nullptr, [&](const ScanProgress& p) {
            if (!quiet)
                line.show(p);
        });
    }
    DiskNode node = DiskNode::make(path, std::nullopt, stat);
    return ScanResult::fromNodes(QUuid::createUuid(), path, now(), 0, {std::move(node)}, {}, 0);
}

bool confirm(Context& context, std::size_t count, std::int64_t bytes)
{
    context.err << "Move " << count << (count == 1 ? " item" : " items") << " (" << formattedBytes(bytes)
                << ") to the Trash? [y/N] " << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer))
        return false;
    return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes";
}

int cleanCommand(const Arguments& args, Context& context)
{
    std::vector<std::string> paths;
    for (const auto& p : args.positionals)
        paths.push_back(absolutePath(p));
    const bool quiet = args.has("quiet");
    const CleanupPolicy policy{platform::currentHome()};

    // Stage each item from a fresh scan. With --snapshot one scan of the folder that holds
    // them all serves both the staging and the snapshot.
    std::optional<ScanResult> snapshotScan;
    if (args.has("snapshot")) {
        const std::string folder = CleanupWorkflow::snapshotFolder(paths, policy);
        context.err << "Scanning " << shown(folder) << " for the snapshot…\n";
        snapshotScan = scanItem(folder, context, quiet);
    }
    std::vector<CleanupEntry> entries;
    std::vector<std::pair<std::string, std::string>> refused;
    for (const std::string& path : paths) {
        try {
            const ScanResult scan = snapshotScan ? *snapshotScan : scanItem(path, context, quiet);
            const auto node = scan.node(path);
            if (!node)
                throw TarnbridgeError(kNoLongerInScan);
            entries.push_back(CleanupEntry::stage(*node, scan, "Command line", policy));
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            refused.emplace_back(path, describeError(error));
        }
    }
    entries = CleanupEntry::normalized(entries);

    std::int64_t bytes = 0;
    Table review({{"Size on disk", Align::right}, {"Items", Align::right}, {"Path", Align::left}});
    for (const CleanupEntry& e : entries) {
        bytes += e.node.allocatedSize;
        review.add({formattedBytes(e.node.allocatedSize), withSeparators(std::int64_t(e.identities.size())),
                    shown(e.node.path)});
    }
    if (!entries.empty()) {
        context.out << "To move to the Trash:\n";
        review.print(context.out, "  ");
    }
    if (!refused.empty()) {
        context.out << (entries.empty() ? "" : "\n") << "Cannot be moved:\n";
        for (const auto& [path, message] : refused)
            context.out << "  " << shown(path) << ": " << message << '\n';
    }
    if (entries.empty()) {
        context.out << "Nothing was moved.\n";
        return exitFailure;
    }
    context.out.flush();
    if (!args.has("yes") && !confirm(context, entries.size(), bytes)) {
        context.out << "Nothing was moved.\n";
        return exitFailure;
    }

    // A damaged state file stops the run before anything moves, so that the receipts it held
    // are never written over. The folder is not locked during the run: the app may save too.
    const StateFiles files = stateFiles();
    files.loadIntact();
    std::optional<std::string> backupParent;
    if (const auto backup = args.value("backup"))
        backupParent = absolutePath(*backup);
    ProgressLine line(context);
    const CleanupRunResult result = CleanupWorkflow::run(
        entries, backupParent, snapshotScan, files.snapshots(), context.cancellation, [&](const CleanupProgress& p) {
            if (context.progressOnTerminal)
                line.show(p.message);
            else if (!quiet)
                context.err << p.message << '\n';
        });
    line.clear();

    // Whatever happened, what was made is kept: the backup, the receipts, merged into what
    // another program may have saved meanwhile.
    bool saveFailed = false;
    try {
        files.update([&](AppState& state) { state.record(result); });
    } catch (const std::exception& error) {
        // The items are in the Trash either way (their .trashinfo lets a file manager put them
        // back); keep the receipts where the user can find them.
        context.err << describeError(error) << "\nThe receipts of this run follow; keep them to restore:\n";
        for (const TrashReceipt& receipt : result.outcome.receipts) {
            json::Writer w;
            receipt.write(w);
            context.err << w.text() << '\n';
        }
        saveFailed = true;
    }

    if (result.backup)
        context.out << "Backup: " << shown(result.backup->directory) << '\n';
    if (result.snapshot)
        context.out << "Snapshot: " << result.snapshot->id << " (" << shown(result.snapshot->title) << ")\n";
    if (result.cancelled) {
        context.err << "Cancelled. Nothing was moved.\n";
        return exitCancelled;
    }
    if (result.preparationError) {
        context.out << "Nothing was moved: " << *result.preparationError << '\n';
        return exitFailure;
    }
    std::int64_t moved = 0;
    for (const TrashReceipt& receipt : result.outcome.receipts) {
        context.out << "Moved " << shown(receipt.originalPath) << " (receipt " << receipt.id << ")\n";
        moved += receipt.bytes;
    }
    for (const auto& [path, message] : result.outcome.errors)
        context.out << "Not moved " << shown(path) << ": " << message << '\n';
    context.out << result.outcome.receipts.size() << " of " << entries.size() << " moved to the Trash, "
                << formattedBytes(moved) << ". Undo with \"tarnbridge-cli restore ID\".\n";
    return result.outcome.errors.empty() && !saveFailed ? exitOk : exitFailure;
}

std::string jsonString(std::string_view text)
{
    std::string out;
    ScanJson::appendString(out, text);
    return out;
}

int receiptsCommand(const Arguments& args, Context& context)
{
    const auto loaded = stateFiles().load();
    for (const auto& message : loaded.messages)
        context.err << message << '\n';
    const auto& receipts = loaded.state.receipts;
    if (args.has("json")) {
        for (const TrashReceipt& r : receipts) {
            json::Writer w;
            r.write(w);
            context.out << w.text() << '\n';
        }
        return exitOk;
    }
    if (receipts.empty()) {
        context.out << "No items were moved to the Trash by Tarnbridge.\n";
        return exitOk;
    }
    Table table({{"Receipt", Align::left}, {"Moved", Align::left}, {"Size", Align::right},
                 {"In Trash", Align::left}, {"Original location", Align::left}});
    for (const TrashReceipt& r : receipts) {
        struct stat st {};
        table.add({r.id, localTime(r.date), formattedBytes(r.bytes), ::lstat(r.trashPath.c_str(), &st) == 0 ? "yes" : "no",
                   shown(r.originalPath)});
    }
    table.print(context.out);
    return exitOk;
}

int restoreCommand(const Arguments& args, Context& context)
{
    int code = exitOk;
    stateFiles().update([&](AppState& state) {
        for (const std::string& id : args.positionals) {
            try {
                const TrashReceipt receipt = byIdentifier(state.receipts, id, "receipt");
                CleanupService::restore(receipt);
                std::erase_if(state.receipts, [&](const TrashReceipt& r) { return r.id == receipt.id; });
                context.out << "Restored " << shown(receipt.originalPath) << '\n';
            } catch (const std::exception& error) {
                context.out << "Not restored " << id << ": " << describeError(error) << '\n';
                code = exitFailure;
            }
        }
    });
    return code;
}

int backupsCommand(const Arguments& args, Context& context)
{
    const auto loaded = stateFiles().load();
    for (const auto& message : loaded.messages)
        context.err << message << '\n';
    const auto& backups = loaded.state.backups;
    if (args.has("json")) {
        for (const BackupReceipt& b : backups) {
            json::Writer w;
            b.write(w);
            context.out << w.text() << '\n';
        }
        return exitOk;
    }
    if (backups.empty()) {
        context.out << "No backups were made before cleanup.\n";
        return exitOk;
    }
    Table table({{"Made", Align::left}, {"Items", Align::right}, {"Size", Align::right}, {"Folder", Align::left}});
    for (const BackupReceipt& b : backups) {
        std::int64_t bytes = 0;
        for (const auto& item : b.items)
            bytes += item.bytes;
        struct stat st {};
        const bool there = ::stat(b.directory.c_str(), &st) == 0;
        table.add({localTime(b.createdAt), withSeparators(std::int64_t(b.items.size())), formattedBytes(bytes),
                   shown(b.directory) + (there ? "" : " (missing)")});
    }
    table.print(context.out);
    return exitOk;
}

int snapshotSaveCommand(const Arguments& args, Context& context)
{
    const std::string path = absolutePath(args.positionals.at(0));
    const ScanResult scan = scanItem(path, context, args.has("quiet"));
    const auto root = scan.root();
    const std::string title = args.value("title").value_or(root ? std::string(PathText::name(root->path)) : "Scan");
    const SnapshotRecord record = stateFiles().snapshots().save(scan, title);
    context.out << "Saved snapshot " << record.id << " (" << shown(record.title) << ", "
                << formattedBytes(record.bytes) << ", " << withSeparators(record.fileCount) << " files)\n";
    return exitOk;
}

int snapshotListCommand(const Arguments& args, Context& context)
{
    const SnapshotCatalog catalog = stateFiles().snapshots().catalog();
    if (args.has("json")) {
        for (const SnapshotRecord& r : catalog.records) {
            json::Writer w;
            r.write(w);
            context.out << w.text() << '\n';
        }
        for (const auto& issue : catalog.issues)
            context.out << "{\"issue\":" << jsonString(issue.path) << ",\"message\":" << jsonString(issue.message)
                        << "}\n";
        return exitOk;
    }
    if (catalog.records.empty())
        context.out << (catalog.issues.empty() ? "No saved scans\n" : "No available snapshots\n");
    else {
        Table table({{"Id", Align::left}, {"Saved", Align::left}, {"Size", Align::right}, {"Files", Align::right},
                     {"Title", Align::left}, {"Root", Align::left}});
        for (const SnapshotRecord& r : catalog.records)
            table.add({r.id.substr(0, 8), localTime(r.createdAt), formattedBytes(r.bytes), withSeparators(r.fileCount),
                       shown(r.title), shown(r.rootPath)});
        table.print(context.out);
    }
    if (!catalog.issues.empty()) {
        const auto n = catalog.issues.size();
        context.out << '\n' << n << " saved scan" << (n == 1 ? " is" : "s are") << " unavailable\n";
        for (const auto& issue : catalog.issues)
            context.out << "  " << shown(issue.path) << ": " << issue.message << '\n';
    }
    return exitOk;
}

int snapshotCompareCommand(const Arguments& args, Context& context)
{
    const SnapshotStore store = stateFiles().snapshots();
    const SnapshotCatalog catalog = store.catalog();
    const auto current = args.value("current");
    if (args.positionals.size() != (current ? 1u : 2u))
        throw UsageError("Give two snapshot ids, or one id and --current PATH.");
    const SnapshotRecord& older = byIdentifier(catalog.records, args.positionals[0], "snapshot");
    ScanResult before = store.load(older);
    ScanResult after;
    std::string title;
    if (current) {
        after = scanItem(absolutePath(*current), context, args.has("quiet"));
        title = older.title + " → current scan";
    } else {
        const SnapshotRecord& newer = byIdentifier(catalog.records, args.positionals[1], "snapshot");
        after = store.load(newer);
        title = older.title + " → " + newer.title;
    }
    const bool logical = args.has("logical");
    const auto changes = SnapshotStore::compare(before, after, logical);
    const std::int64_t minimum = args.value("min-change") ? parseByteCount(*args.value("min-change")) : 0;
    const bool topLevel = args.has("top-level");
    const std::size_t limit = std::size_t(args.integer("limit", 300, 1, 100'000'000));
    const std::vector<const SnapshotChange*> shownRows = SnapshotStore::visibleChanges(
        changes, minimum, topLevel ? ChangeLevel::topLevelOnly : ChangeLevel::everyLevel, after.rootPath());
    if (args.has("json")) {
        for (const SnapshotChange* c : shownRows)
            context.out << "{\"path\":" << jsonString(c->path) << ",\"before\":" << c->before << ",\"after\":"
                        << c->after << ",\"status\":" << jsonString(statusText(c->status)) << "}\n";
        return exitOk;
    }
    context.out << shown(title) << '\n'
                << (logical ? "Logical" : "Allocated")
                << " bytes. Parent rows include child changes; do not add all rows together.\n";
    if (after.skippedCount() > 0)
        context.out << "The current scan is incomplete. Some apparent removals may be inaccessible paths.\n";
    context.out << '\n';
    if (shownRows.empty()) {
        context.out << "No size changes in this view.\n";
        return exitOk;
    }
    Table table({{"Change", Align::right}, {"Before", Align::right}, {"After", Align::right},
                 {"Status", Align::left}, {"Path", Align::left}});
    for (std::size_t i = 0; i < shownRows.size() && i < limit; ++i) {
        const SnapshotChange& c = *shownRows[i];
        const std::string sign = c.after >= c.before ? "+" : "−";
        table.add({sign + formattedBytes(std::int64_t(c.magnitude())), formattedBytes(c.before), formattedBytes(c.after),
                   statusText(c.status), shown(c.path)});
    }
    table.print(context.out);
    if (shownRows.size() > limit)
        context.out << "… and " << withSeparators(std::int64_t(shownRows.size() - limit))
                    << " more changes (--limit N shows more).\n";
    return exitOk;
}

int snapshotDeleteCommand(const Arguments& args, Context& context)
{
    const SnapshotStore store = stateFiles().snapshots();
    const SnapshotCatalog catalog = store.catalog();
    const SnapshotRecord& record = byIdentifier(catalog.records, args.positionals.at(0), "snapshot");
    store.remove(record);
    context.out << "Deleted saved snapshot " << record.id << " (" << shown(record.title)
                << "). Your scanned files are unaffected.\n";
    return exitOk;
}

} // namespace

std::vector<Command> cleanupCommands()
{
    return {
        {{"clean",
          "PATH... [--backup DIR] [--snapshot] [--yes]",
          "Move files or folders to the Trash after checking them again, with a receipt for each.",
          {{"backup", "DIR", "First copy the items into a verified backup folder inside DIR."},
           {"snapshot", "", "Scan the folder holding the items and save it as a snapshot first."},
           {"yes", "", "Do not ask for confirmation."},
           {"quiet", "", "No progress output."}},
          1,
          100000},
         cleanCommand},
        {{"receipts", "[--json]", "List the items Tarnbridge moved to the Trash.", {{"json", "", "One JSON object per line."}}, 0, 0},
         receiptsCommand},
        {{"restore", "ID...", "Put items back from the Trash by their receipt id (or its first characters).", {}, 1, 100000},
         restoreCommand},
        {{"backups", "[--json]", "List the verified backups made before cleanup.", {{"json", "", "One JSON object per line."}}, 0, 0},
         backupsCommand},
        {{"snapshot save",
          "PATH [--title T]",
          "Scan PATH and save the scan for later comparison (sizes and paths only).",
          {{"title", "T", "The snapshot's title (default: the folder's name)."}, {"quiet", "", "No progress line."}},
          1,
          1},
         snapshotSaveCommand},
        {{"snapshot list", "[--json]", "List the saved snapshots.", {{"json", "", "One JSON object per line."}}, 0, 0},
         snapshotListCommand},
        {{"snapshot compare",
          "OLDER NEWER | OLDER --current PATH [--min-change SIZE] [--top-level] [--logical] [--limit N]",
          "Show what grew, shrank, appeared or vanished between two scans of one folder.",
          {{"current", "PATH", "Compare with a fresh scan of PATH instead of a second snapshot."},
           {"min-change", "SIZE", "Only changes of at least SIZE (decimal units: 10MB)."},
           {"top-level", "", "Only the direct items of the scanned folder."},
           {"logical", "", "Compare logical sizes instead of sizes on disk."},
           {"limit", "N", "How many changes to list (default 300)."},
           {"json", "", "One JSON object per line."},
           {"quiet", "", "No progress line."}},
          1,
          2},
         snapshotCompareCommand},
        {{"snapshot delete", "ID", "Delete a saved snapshot (only Tarnbridge's saved data).", {}, 1, 1},
         snapshotDeleteCommand},
    };
}

} // namespace tarnbridge::cli
