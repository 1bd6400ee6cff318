#include "cleanup/CleanupService.h"

#include <QUuid>

#include <sys/stat.h>

#include <algorithm>

#include "model/Identifiers.h"
#include "platform/FileFacts.h"
#include "platform/Trash.h"
#include "model/Errors.h"
#include "model/PathText.h"
#include "model/ScanPaths.h"
#include "platform/AtomicFile.h"
#include "platform/FileIO.h"
#include "platform/UserFolders.h"

namespace tarnbridge {

void TrashReceipt::write(json::Writer& w) const
{
    w.beginObject();
    w.key("id").string(id);
    w.key("originalPath").string(originalPath);
    w.key("trashPath").string(trashPath);
    w.key("date").date(date);
    w.key("bytes").integer(bytes);
    w.key("identity");
    json::write(w, identity);
    w.endObject();
}

TrashReceipt TrashReceipt::read(const json::Value& v)
{
    TrashReceipt r;
    r.id = v.stringAt("id");
    if (QUuid::fromString(QString::fromStdString(r.id)).isNull())
        throw TarnbridgeError("The key \"id\" holds no identifier.");
    r.originalPath = v.stringAt("originalPath");
    r.trashPath = v.stringAt("trashPath");
    r.date = json::dateAt(v, "date");
    r.bytes = v.integerAt("bytes");
    r.identity = json::readIdentity(v.at("identity"));
    return r;
}

namespace CleanupService {

bool hasRetainedCopyConflict(const std::vector<CleanupEntry>& entries)
{
    if (std::none_of(entries.begin(), entries.end(), [](const CleanupEntry& e) { return !e.retainedCopies.empty(); }))
        return false;
    // Every spelling of every staged path, worked out once rather than once per kept copy.
    std::vector<std::string> staged;
    for (const CleanupEntry& e : entries)
        for (std::string& p : ScanPaths::candidates(e.node.path))
            staged.push_back(std::move(p));
    for (const CleanupEntry& holder : entries)
        for (const auto& [kept, identity] : holder.retainedCopies)
            for (const std::string& c : ScanPaths::candidates(kept))
                for (const std::string& p : staged)
                    if (PathText::contains(c, p))
                        return true;
    return false;
}

CleanupOutcome moveToTrash(const std::vector<CleanupEntry>& entries, bool requireAllValid)
{
    CleanupOutcome outcome;
    const std::vector<CleanupEntry> clean = CleanupEntry::normalized(entries);
    if (hasRetainedCopyConflict(clean)) {
        for (const CleanupEntry& e : clean)
            outcome.errors[e.node.path] = kConflictNothingMoved;
        return outcome;
    }
    if (requireAllValid) {
        for (const CleanupEntry& e : clean) {
            try {
                e.validate(CleanupPolicy{platform::currentHome()});
            } catch (const std::exception& error) {
                outcome.errors[e.node.path] = describeError(error);
            }
        }
        if (!outcome.errors.empty())
            return outcome;
    }
    for (const CleanupEntry& e : clean) {
        const std::string& path = e.node.path;
        bool keptCopyStaged = false;
        for (const auto& [kept, identity] : e.retainedCopies)
            for (const CleanupEntry& other : clean)
                keptCopyStaged = keptCopyStaged || PathText::contains(kept, other.node.path);
        if (keptCopyStaged) {
            outcome.errors[path] = kConflictThisItem;
            continue;
        }
        std::string trashPath;
        try {
            // The last check, right before this item's own move.
            e.validate(CleanupPolicy{platform::currentHome()});
            trashPath = Trash::moveToTrash(path);
        } catch (const std::exception& error) {
            outcome.errors[path] = describeError(error);
            continue;
        }
        if (trashPath.empty()) {
            outcome.errors[path] = kMovedWithoutLocation;
            continue;
        }
        outcome.receipts.push_back({newIdentifier(), path, trashPath, now(), e.node.allocatedSize, e.node.identity});
    }
    return outcome;
}

void restore(const TrashReceipt& receipt)
{
    struct stat st {};
    if (::lstat(receipt.originalPath.c_str(), &st) == 0)
        throw TarnbridgeError(kRestoreOccupied);
    const FileIdentity inTrash = platform::statPath(receipt.trashPath).identity;
    const FileIdentity& was = receipt.identity;
    // Moving into the Trash changes the change time, so only what a move keeps is compared.
    if (inTrash.device != was.device || inTrash.inode != was.inode || inTrash.size != was.size ||
        inTrash.modifiedSeconds != was.modifiedSeconds || inTrash.modifiedNanos != was.modifiedNanos)
        throw TarnbridgeError(kRestoreChanged);
    const std::string parent = parentFolder(receipt.originalPath);
    if (::stat(parent.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || platform::resolvedPath(parent) != parent)
        throw TarnbridgeError(kRestoreParentMissing);
    Trash::putBack(receipt.trashPath, receipt.originalPath);
}

} // namespace CleanupService

} // namespace tarnbridge
