#pragma once

#include <QVariantMap>

#include <string>
#include <vector>

#include "cleanup/CleanupBackup.h"
#include "cleanup/CleanupService.h"
#include "snapshots/SnapshotStore.h"

class QSettings;

namespace tarnbridge {

// Where the product keeps its state, and how the state of its former name is carried over.
namespace AppStorage {

// The state folder: $TARNBRIDGE_STATE_DIR when it is an absolute path (tests and separate
// installs), else resolve($XDG_DATA_HOME).
std::string directory();

// "Tarnbridge" in `dataFolder` if anything is there; else the former "Oarstitch" folder if it
// is a folder (used where it lies, not copied); else "Tarnbridge", made at the first write.
std::string resolve(const std::string& dataFolder);

// The six preference keys, in their order.
const std::vector<QString>& preferenceKeys();

// Copies each key that `into` lacks and `legacy` has. A value already present is never
// overwritten, whatever it is.
void migratePreferences(QSettings& into, const QVariantMap& legacy);

// The former product's preferences (~/.config/Oarstitch/Oarstitch.conf), empty without them.
QVariantMap legacyPreferences();

} // namespace AppStorage

struct AppState {
    std::vector<CleanupEntry> queue;
    std::vector<TrashReceipt> receipts;
    std::vector<BackupReceipt> backups;
};

// The three JSON files of the state folder ("cleanup.json", "receipts.json", "backups.json")
// and the snapshot folder beside them.
class StateFiles {
public:
    explicit StateFiles(std::string directory) : directory_(std::move(directory)) {}
    const std::string& directory() const { return directory_; }
    SnapshotStore snapshots() const;

    struct Loaded {
        AppState state;
        // One line per file that could not be read ("Trash history: …"); that part stays empty.
        std::vector<std::string> messages;
    };
    // A missing file is no failure. The snapshot catalog is read by whoever lists snapshots,
    // not here: most callers never need it.
    Loaded load() const;

    // Writes the three files, each atomically. Throws TarnbridgeError
    // "Could not save cleanup state: …" at the first failure.
    void save(const AppState& state) const;

    // Holds an exclusive lock on the state folder while a read-change-write runs, so that two
    // programs sharing the folder do not overwrite each other's changes.
    class Lock {
    public:
        explicit Lock(const StateFiles& files);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        int fd_ = -1;
    };

private:
    std::string directory_;
};

std::string encodeQueue(const std::vector<CleanupEntry>& queue);
std::string encodeReceipts(const std::vector<TrashReceipt>& receipts);
std::string encodeBackups(const std::vector<BackupReceipt>& backups);
std::vector<CleanupEntry> decodeQueue(std::string_view json);
std::vector<TrashReceipt> decodeReceipts(std::string_view json);
std::vector<BackupReceipt> decodeBackups(std::string_view json);

} // namespace tarnbridge
