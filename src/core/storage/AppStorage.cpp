#include "storage/AppStorage.h"

#include <QSettings>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "cleanup/CleanupPolicy.h"
#include "model/Errors.h"
#include "model/PathText.h"
#include "platform/AtomicFile.h"
#include "platform/FileIO.h"

namespace tarnbridge {

namespace AppStorage {

namespace {

std::string dataHome()
{
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && *data == '/')
        return data;
    return PathText::join(CleanupPolicy::currentHome(), ".local/share");
}

} // namespace

std::string resolve(const std::string& dataFolder)
{
    const std::string current = PathText::join(dataFolder, "Tarnbridge");
    const std::string legacy = PathText::join(dataFolder, "Oarstitch");
    struct stat st {};
    if (::lstat(current.c_str(), &st) == 0)
        return current;
    if (::stat(legacy.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        return legacy;
    return current;
}

std::string directory()
{
    const char* redirect = std::getenv("TARNBRIDGE_STATE_DIR");
    if (redirect && *redirect == '/')
        return redirect;
    return resolve(dataHome());
}

const std::vector<QString>& preferenceKeys()
{
    static const std::vector<QString> keys{"darkAppearance",      "colorTheme",       "recentFolders",
                                           "backupBeforeCleanup", "snapshotsEnabled", "lastBackupParent"};
    return keys;
}

void migratePreferences(QSettings& into, const QVariantMap& legacy)
{
    for (const QString& key : preferenceKeys())
        if (!into.contains(key) && legacy.contains(key))
            into.setValue(key, legacy.value(key));
}

QVariantMap legacyPreferences()
{
    const char* config = std::getenv("XDG_CONFIG_HOME");
    const std::string folder =
        config && *config == '/' ? std::string(config) : PathText::join(CleanupPolicy::currentHome(), ".config");
    const std::string file = PathText::join(folder, "Oarstitch/Oarstitch.conf");
    QVariantMap out;
    if (!std::filesystem::exists(file))
        return out;
    QSettings legacy(QString::fromStdString(file), QSettings::IniFormat);
    for (const QString& key : legacy.allKeys())
        out.insert(key, legacy.value(key));
    return out;
}

} // namespace AppStorage

namespace {

template <class T>
std::string encodeArray(const std::vector<T>& items)
{
    json::Writer w;
    w.beginArray();
    for (const T& item : items)
        item.write(w);
    w.endArray();
    return w.take();
}

template <class T>
std::vector<T> decodeArray(std::string_view text)
{
    const json::Value document = json::parse(text);
    std::vector<T> out;
    const auto& items = document.array("The file");
    out.reserve(items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        try {
            out.push_back(T::read(items[i]));
        } catch (const TarnbridgeError& error) {
            throw TarnbridgeError("Item " + std::to_string(i + 1) + ": " + error.what());
        }
    }
    return out;
}

} // namespace

std::string encodeQueue(const std::vector<CleanupEntry>& queue)
{
    return encodeArray(queue);
}
std::string encodeReceipts(const std::vector<TrashReceipt>& receipts)
{
    return encodeArray(receipts);
}
std::string encodeBackups(const std::vector<BackupReceipt>& backups)
{
    return encodeArray(backups);
}
std::vector<CleanupEntry> decodeQueue(std::string_view json)
{
    return decodeArray<CleanupEntry>(json);
}
std::vector<TrashReceipt> decodeReceipts(std::string_view json)
{
    return decodeArray<TrashReceipt>(json);
}
std::vector<BackupReceipt> decodeBackups(std::string_view json)
{
    return decodeArray<BackupReceipt>(json);
}

SnapshotStore StateFiles::snapshots() const
{
    return SnapshotStore(PathText::join(directory_, "Snapshots"));
}

namespace {

// Reads one state file into `out`; a missing file leaves it empty, any other failure adds
// `label` and the description to `messages`.
template <class Decode, class T>
void loadFile(const std::string& path, const char* label, Decode decode, T& out, std::vector<std::string>& messages)
{
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 && errno == ENOENT)
        return;
    try {
        out = decode(platform::readWholeFile(path));
    } catch (const std::exception& error) {
        messages.push_back(label + describeError(error));
    }
}

} // namespace

StateFiles::Loaded StateFiles::load() const
{
    Loaded loaded;
    loadFile(PathText::join(directory_, "cleanup.json"), "Cleanup queue: ", decodeQueue, loaded.state.queue,
             loaded.messages);
    loadFile(PathText::join(directory_, "receipts.json"), "Trash history: ", decodeReceipts, loaded.state.receipts,
             loaded.messages);
    loadFile(PathText::join(directory_, "backups.json"), "Backups: ", decodeBackups, loaded.state.backups,
             loaded.messages);
    return loaded;
}

void StateFiles::save(const AppState& state) const
{
    try {
        std::error_code error;
        std::filesystem::create_directories(directory_, error);
        if (error)
            throw systemError(error.value());
        AtomicFile::write(PathText::join(directory_, "cleanup.json"), encodeQueue(state.queue));
        AtomicFile::write(PathText::join(directory_, "receipts.json"), encodeReceipts(state.receipts));
        AtomicFile::write(PathText::join(directory_, "backups.json"), encodeBackups(state.backups));
    } catch (const std::exception& error) {
        throw TarnbridgeError("Could not save cleanup state: " + describeError(error));
    }
}

StateFiles::Lock::Lock(const StateFiles& files)
{
    std::error_code error;
    std::filesystem::create_directories(files.directory(), error);
    fd_ = ::open(PathText::join(files.directory(), ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ >= 0)
        ::flock(fd_, LOCK_EX);
}

StateFiles::Lock::~Lock()
{
    if (fd_ >= 0)
        ::close(fd_);
}

} // namespace tarnbridge
