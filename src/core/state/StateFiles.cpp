#include "state/StateFiles.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <unordered_set>

#include "model/Errors.h"
#include "model/PathText.h"
#include "platform/AtomicFile.h"
#include "platform/FileIO.h"

namespace tarnbridge {

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
    save(state, encodeQueue(state.queue));
}

void StateFiles::save(const AppState& state, const std::string& queueData) const
{
    try {
        std::error_code error;
        std::filesystem::create_directories(directory_, error);
        if (error)
            throw systemError(error.value());
        AtomicFile::write(PathText::join(directory_, "cleanup.json"), queueData);
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

AppState StateFiles::loadIntact() const
{
    Loaded loaded = load();
    if (loaded.messages.empty())
        return std::move(loaded.state);
    std::string text;
    for (const std::string& message : loaded.messages)
        text += message + '\n';
    throw TarnbridgeError(text + "Tarnbridge's saved state in " + directory_ + " could not be read. " +
                          kStateDamagedAdvice);
}

AppState StateFiles::update(const std::function<void(AppState&)>& change) const
{
    const Lock lock(*this);
    AppState state = loadIntact();
    change(state);
    save(state);
    return state;
}

AppState StateFiles::saveMerged(const AppState& base, const AppState& mine,
                                const std::optional<std::string>& queueData) const
{
    const Lock lock(*this);
    const AppState merged = mergedState(base, mine, load().state);
    const bool queueAsMine = merged.queue.size() == mine.queue.size() &&
                             std::equal(merged.queue.begin(), merged.queue.end(), mine.queue.begin(),
                                        [](const CleanupEntry& a, const CleanupEntry& b) {
                                            return a.node.path == b.node.path;
                                        });
    if (queueData && queueAsMine)
        save(merged, *queueData);
    else
        save(merged);
    return merged;
}

namespace {

const std::string& keyOf(const CleanupEntry& entry) { return entry.node.path; }
template <class T>
const std::string& keyOf(const T& item)
{
    return item.id;
}

// Theirs, without what this side removed since `base`, with what this side added: in this
// side's order first (new receipts go to the front), then the rest of theirs in their order.
template <class T>
std::vector<T> merged(const std::vector<T>& base, const std::vector<T>& mine, const std::vector<T>& theirs)
{
    std::unordered_set<std::string> inBase, inMine, inTheirs;
    for (const T& item : base)
        inBase.insert(keyOf(item));
    for (const T& item : mine)
        inMine.insert(keyOf(item));
    for (const T& item : theirs)
        inTheirs.insert(keyOf(item));
    std::vector<T> out;
    std::unordered_set<std::string> taken;
    for (const T& item : mine) {
        const std::string& key = keyOf(item);
        // Kept by this side: present in theirs, or added here since `base`.
        if ((inTheirs.count(key) || !inBase.count(key)) && taken.insert(key).second)
            out.push_back(item);
    }
    for (const T& item : theirs) {
        const std::string& key = keyOf(item);
        const bool removedHere = inBase.count(key) && !inMine.count(key);
        if (!removedHere && taken.insert(key).second)
            out.push_back(item);
    }
    return out;
}

} // namespace

AppState mergedState(const AppState& base, const AppState& mine, const AppState& theirs)
{
    AppState out;
    out.queue = merged(base.queue, mine.queue, theirs.queue);
    out.receipts = merged(base.receipts, mine.receipts, theirs.receipts);
    out.backups = merged(base.backups, mine.backups, theirs.backups);
    return out;
}

void AppState::record(const CleanupRunResult& result)
{
    if (result.backup)
        backups.insert(backups.begin(), *result.backup);
    receipts.insert(receipts.begin(), result.outcome.receipts.begin(), result.outcome.receipts.end());
    std::erase_if(queue, [&](const CleanupEntry& entry) {
        for (const TrashReceipt& receipt : result.outcome.receipts)
            if (PathText::contains(entry.node.path, receipt.originalPath))
                return true;
        return false;
    });
}

} // namespace tarnbridge
