#include <simdjson.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

#include "model/Errors.h"
#include "model/PathText.h"
#include "model/LargeMemory.h"
#include "storage/JsonEscape.h"
#include "storage/ScanJson.h"

namespace tarnbridge::ScanJson {

namespace od = simdjson::ondemand;
using json::unescape;

namespace {

[[noreturn]] void damaged(const std::string& what)
{
    throw TarnbridgeError("The scan file is damaged: " + what);
}

std::string inQuotes(std::string_view text)
{
    std::string out;
    out.reserve(text.size() + 2);
    out.push_back('"');
    out.append(text);
    out.push_back('"');
    return out;
}

// A key as it stands in the file; keys we know need no unescaping.
std::string_view rawKey(od::raw_json_string key)
{
    const char* start = key.raw();
    const char* end = start;
    while (*end != '"') {
        if (*end == '\\')
            return {}; // an escaped key is none of ours
        ++end;
    }
    return {start, std::size_t(end - start)};
}

// Every path of the file once, interned to a dense index: nodes refer to their parent and
// children by index, not by string.
class PathTable {
public:
    std::uint32_t intern(std::string_view path)
    {
        if ((paths_.size() + 1) * 2 > slots_.size())
            grow();
        const std::size_t hash = std::hash<std::string_view>()(path);
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
            const std::uint32_t slot = slots_[i];
            if (slot == 0) {
                const auto index = std::uint32_t(paths_.size());
                paths_.push_back(store(path));
                hashes_.push_back(hash);
                slots_[i] = index + 1;
                return index;
            }
            if (hashes_[slot - 1] == hash && paths_[slot - 1] == path)
                return slot - 1;
        }
    }
    std::uint32_t find(std::string_view path) const
    {
        if (slots_.empty())
            return kNoNode;
        const std::size_t hash = std::hash<std::string_view>()(path);
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
            const std::uint32_t slot = slots_[i];
            if (slot == 0)
                return kNoNode;
            if (hashes_[slot - 1] == hash && paths_[slot - 1] == path)
                return slot - 1;
        }
    }
    std::string_view operator[](std::uint32_t index) const { return paths_[index]; }
    std::size_t size() const { return paths_.size(); }

private:
    std::string_view store(std::string_view path)
    {
        if (path.size() > kChunk - used_) {
            chunks_.push_back(std::make_unique_for_overwrite<char[]>(std::max(kChunk, path.size())));
            used_ = 0;
        }
        char* at = chunks_.back().get() + used_;
        std::memcpy(at, path.data(), path.size());
        used_ += path.size();
        return {at, path.size()};
    }
    void grow()
    {
        LargeVector<std::uint32_t> bigger(slots_.empty() ? 4096 : slots_.size() * 2, 0);
        const std::size_t mask = bigger.size() - 1;
        for (std::uint32_t index = 0; index < paths_.size(); ++index) {
            std::size_t i = hashes_[index] & mask;
            while (bigger[i] != 0)
                i = (i + 1) & mask;
            bigger[i] = index + 1;
        }
        slots_.swap(bigger);
    }

    static constexpr std::size_t kChunk = 4 << 20;
    std::vector<std::unique_ptr<char[]>> chunks_;
    std::size_t used_ = kChunk;
    // The big tables of a reading grow to hundreds of megabytes: huge pages spare the faults.
    LargeVector<std::string_view> paths_;
    LargeVector<std::size_t> hashes_;
    LargeVector<std::uint32_t> slots_;
};

struct Entry {
    NodeRecord record;
    std::uint32_t parent = kNoNode;
    std::uint32_t childBegin = 0;
    std::uint32_t childCount = 0;
    std::uint32_t seen = 0; // bit per required key
    bool defined = false;
    bool hasParentKey = false;
};

enum NodeKey : std::uint32_t {
    kPath, kParent, kIsDirectory, kIsSymbolicLink, kIsCloudPlaceholder, kLogicalSize,
    kAllocatedSize, kOwnLogicalSize, kOwnAllocatedSize, kCompressedSavings, kFileCount,
    kFolderCount, kChildren, kCreated, kModified, kAccessed, kIdentity, kNodeKeyCount
};
constexpr const char* kNodeKeyNames[] = {
    "path", "parent", "isDirectory", "isSymbolicLink", "isCloudPlaceholder", "logicalSize",
    "allocatedSize", "ownLogicalSize", "ownAllocatedSize", "compressedSavings", "fileCount",
    "folderCount", "children", "created", "modified", "accessed", "identity"};
enum IdentityKey : std::uint32_t {
    kDevice, kInode, kSize, kModifiedSeconds, kModifiedNanos, kChangedSeconds, kChangedNanos,
    kMode, kLinkCount, kIdentityKeyCount
};
constexpr const char* kIdentityKeyNames[] = {"device", "inode", "size", "modifiedSeconds",
                                             "modifiedNanos", "changedSeconds", "changedNanos",
                                             "mode", "linkCount"};

template <std::size_t N>
int keyIndex(std::string_view key, const char* const (&names)[N])
{
    // Length and first letter tell every known key apart; one compare confirms it.
    if (key.empty())
        return -1;
    for (std::size_t i = 0; i < N; ++i) {
        const char* name = names[i];
        if (name[0] == key[0] && std::char_traits<char>::length(name) == key.size() &&
            std::memcmp(name, key.data(), key.size()) == 0)
            return int(i);
    }
    return -1;
}

class Reader {
public:
    ScanResult read(simdjson::padded_string_view text);

private:
    void readNode(std::string_view key, od::value value);
    void readIdentity(od::value value, Entry& entry, std::string_view path);
    // `what` describes the value for an error message; it is called only on failure.
    template <class What>
    std::string_view string(od::value value, What&& what);
    std::int64_t integer(od::value value, const char* key, std::string_view path,
                         std::int64_t min = std::numeric_limits<std::int64_t>::min(),
                         std::int64_t max = std::numeric_limits<std::int64_t>::max());
    double number(od::value value, const char* key, std::string_view path);
    bool boolean(od::value value, const char* key, std::string_view path);
    [[noreturn]] void wrongType(const char* key, std::string_view path)
    {
        damaged(path.empty() ? "\"" + std::string(key) + "\" has the wrong type."
                             : "\"" + std::string(key) + "\" of the node " + inQuotes(path) +
                                   " has the wrong type.");
    }
    Entry& entry(std::uint32_t index)
    {
        if (index >= entries_.size())
            entries_.resize(index + 1);
        return entries_[index];
    }
    ScanResult assemble();

    PathTable paths_;
    LargeVector<Entry> entries_;
    LargeVector<std::uint32_t> childLists_;
    std::string scratch_;
    std::string scratch2_;

    QUuid id_;
    std::string rootPath_;
    double scannedAt_ = 0, duration_ = 0;
    std::vector<ScanIssue> issues_;
    std::int64_t skippedCount_ = 0;
};

template <class What>
std::string_view Reader::string(od::value value, What&& what)
{
    od::raw_json_string raw;
    if (value.get_raw_json_string().get(raw))
        damaged(std::string(what()) + " is not a string.");
    // Most strings hold no escape: use them where they stand in the text, uncopied.
    const char* end = raw.raw();
    while (*end != '"' && *end != '\\')
        ++end;
    if (*end == '"')
        return {raw.raw(), std::size_t(end - raw.raw())};
    if (!unescape(raw.raw(), scratch_))
        damaged(std::string(what()) + " holds an invalid escape.");
    return scratch_;
}

std::int64_t Reader::integer(od::value value, const char* key, std::string_view path,
                             std::int64_t min, std::int64_t max)
{
    std::int64_t v = 0;
    if (value.get_int64().get(v) || v < min || v > max)
        wrongType(key, path);
    return v;
}

double Reader::number(od::value value, const char* key, std::string_view path)
{
    double v = 0;
    if (value.get_double().get(v) || !std::isfinite(v))
        wrongType(key, path);
    return v;
}

bool Reader::boolean(od::value value, const char* key, std::string_view path)
{
    bool v = false;
    if (value.get_bool().get(v))
        wrongType(key, path);
    return v;
}

std::int64_t unixDate(double referenceSeconds)
{
    return std::llround(referenceSeconds + kReferenceDateOffset);
}

void Reader::readIdentity(od::value value, Entry& e, std::string_view path)
{
    od::object object;
    if (value.get_object().get(object))
        wrongType("identity", path);
    std::uint32_t seen = 0;
    NodeRecord& r = e.record;
    for (auto fieldResult : object) {
        od::field field;
        if (std::move(fieldResult).get(field))
            damaged("the identity of " + inQuotes(path) + " is not valid JSON.");
        const int k = keyIndex(rawKey(field.key()), kIdentityKeyNames);
        if (k < 0)
            continue;
        od::value v = field.value();
        const char* name = kIdentityKeyNames[k];
        switch (IdentityKey(k)) {
        case kDevice: r.device = std::int32_t(integer(v, name, path, INT32_MIN, INT32_MAX)); break;
        case kInode: {
            std::uint64_t inode = 0;
            if (v.get_uint64().get(inode))
                wrongType(name, path);
            r.inode = inode;
            break;
        }
        case kSize: r.statSize = integer(v, name, path); break;
        case kModifiedSeconds: r.modifiedSeconds = integer(v, name, path); break;
        case kModifiedNanos: r.modifiedNanos = std::int32_t(integer(v, name, path, INT32_MIN, INT32_MAX)); break;
        case kChangedSeconds: r.changedSeconds = integer(v, name, path); break;
        case kChangedNanos: r.changedNanos = std::int32_t(integer(v, name, path, INT32_MIN, INT32_MAX)); break;
        case kMode: r.mode = std::uint16_t(integer(v, name, path, 0, 65535)); break;
        case kLinkCount: r.linkCount = std::uint16_t(integer(v, name, path, 0, 65535)); break;
        case kIdentityKeyCount: break;
        }
        seen |= 1u << k;
    }
    for (std::uint32_t k = 0; k < kIdentityKeyCount; ++k)
        if (!(seen & (1u << k)))
            damaged("the identity of " + inQuotes(path) + " has no \"" + kIdentityKeyNames[k] + "\".");
    r.flags &= ~(NodeRecord::regularFile);
    if ((r.mode & S_IFMT) == S_IFREG)
        r.flags |= NodeRecord::regularFile;
}

void Reader::readNode(std::string_view key, od::value value)
{
    const std::uint32_t index = paths_.intern(key);
    // The key's own text lives on in the table; `key` may point at scratch space.
    const std::string_view path = paths_[index];
    Entry& e = entry(index);
    if (e.defined)
        damaged("the node " + inQuotes(path) + " is listed twice.");
    e.defined = true;
    od::object object;
    if (value.get_object().get(object))
        damaged("the node " + inQuotes(path) + " is not an object.");
    std::uint32_t seen = 0;
    for (auto fieldResult : object) {
        od::field field;
        if (std::move(fieldResult).get(field))
            damaged("the node " + inQuotes(path) + " is not valid JSON.");
        const int k = keyIndex(rawKey(field.key()), kNodeKeyNames);
        if (k < 0)
            continue;
        od::value v = field.value();
        const char* name = kNodeKeyNames[k];
        switch (NodeKey(k)) {
        case kPath:
            if (string(v, [&] { return std::string("\"path\" of the node " + inQuotes(path)); }) != path)
                damaged("the node " + inQuotes(path) + " has another \"path\".");
            break;
        case kParent: {
            od::json_type type;
            if (v.type().get(type))
                wrongType(name, path);
            if (type == od::json_type::null)
                break;
            const std::string_view parent = string(v, [&] { return std::string("\"parent\" of the node " + inQuotes(path)); });
            entries_[index].parent = paths_.intern(parent);
            entry(entries_[index].parent); // may grow the table: `e` is not used below this
            entries_[index].hasParentKey = true;
            break;
        }
        case kIsDirectory:
            if (boolean(v, name, path))
                entries_[index].record.flags |= NodeRecord::directory;
            break;
        case kIsSymbolicLink:
            if (boolean(v, name, path))
                entries_[index].record.flags |= NodeRecord::symbolicLink;
            break;
        case kIsCloudPlaceholder:
            if (boolean(v, name, path))
                entries_[index].record.flags |= NodeRecord::cloudPlaceholder;
            break;
        case kLogicalSize: entries_[index].record.logicalSize = integer(v, name, path); break;
        case kAllocatedSize: entries_[index].record.allocatedSize = integer(v, name, path); break;
        case kOwnLogicalSize:
        case kOwnAllocatedSize: integer(v, name, path); break; // derived from the sizes
        case kCompressedSavings: entries_[index].record.compressedSavings = integer(v, name, path); break;
        case kFileCount: entries_[index].record.fileCount = std::uint32_t(integer(v, name, path, 0, UINT32_MAX)); break;
        case kFolderCount: entries_[index].record.folderCount = std::uint32_t(integer(v, name, path, 0, UINT32_MAX)); break;
        case kChildren: {
            od::array array;
            if (v.get_array().get(array))
                wrongType(name, path);
            const auto begin = std::uint32_t(childLists_.size());
            for (auto item : array) {
                od::value child;
                if (std::move(item).get(child))
                    wrongType(name, path);
                const std::string_view childPath = string(child, [&] { return std::string("a child of the node " + inQuotes(path)); });
                childLists_.push_back(paths_.intern(childPath));
            }
            Entry& self = entries_[index];
            self.childBegin = begin;
            self.childCount = std::uint32_t(childLists_.size()) - begin;
            break;
        }
        case kCreated: entries_[index].record.createdSeconds = unixDate(number(v, name, path)); break;
        case kModified: number(v, name, path); break; // the identity's modification time
        case kAccessed: entries_[index].record.accessedSeconds = unixDate(number(v, name, path)); break;
        case kIdentity: {
            readIdentity(v, entries_[index], path); // `path` lives in the table: stable
            break;
        }
        case kNodeKeyCount: break;
        }
        seen |= 1u << k;
    }
    for (std::uint32_t k = 0; k < kNodeKeyCount; ++k)
        if (k != kParent && !(seen & (1u << k)))
            damaged("the node " + inQuotes(path) + " has no \"" + kNodeKeyNames[k] + "\".");
}

ScanResult Reader::read(simdjson::padded_string_view text)
{
    od::parser parser;
    od::document document;
    if (parser.iterate(text).get(document))
        throw TarnbridgeError("This file is not a Tarnbridge scan.");
    od::object top;
    if (document.get_object().get(top))
        throw TarnbridgeError("This file is not a Tarnbridge scan.");
    enum : std::uint32_t { kId = 1, kRoot = 2, kScannedAt = 4, kDuration = 8, kNodes = 16, kIssues = 32, kSkipped = 64 };
    std::uint32_t seen = 0;
    for (auto fieldResult : top) {
        od::field field;
        if (std::move(fieldResult).get(field))
            throw TarnbridgeError("This file is not a Tarnbridge scan.");
        const std::string_view key = rawKey(field.key());
        od::value v = field.value();
        if (key == "id") {
            id_ = QUuid::fromString(QString::fromStdString(std::string(string(v, [&] { return std::string("\"id\""); }))));
            if (id_.isNull())
                damaged("\"id\" is not a UUID.");
            seen |= kId;
        } else if (key == "rootPath") {
            rootPath_ = string(v, [&] { return std::string("\"rootPath\""); });
            seen |= kRoot;
        } else if (key == "scannedAt") {
            scannedAt_ = number(v, "scannedAt", {}) + kReferenceDateOffset;
            seen |= kScannedAt;
        } else if (key == "duration") {
            duration_ = number(v, "duration", {});
            seen |= kDuration;
        } else if (key == "skippedCount") {
            skippedCount_ = integer(v, "skippedCount", {}, 0);
            seen |= kSkipped;
        } else if (key == "nodes") {
            od::object nodes;
            if (v.get_object().get(nodes))
                wrongType("nodes", {});
            for (auto nodeResult : nodes) {
                od::field node;
                if (std::move(nodeResult).get(node))
                    damaged("\"nodes\" is not valid JSON.");
                const char* key = node.key().raw();
                const char* end = key;
                while (*end != '"' && *end != '\\')
                    ++end;
                if (*end == '"') {
                    readNode({key, std::size_t(end - key)}, node.value());
                    continue;
                }
                if (!unescape(key, scratch2_))
                    damaged("a key of \"nodes\" holds an invalid escape.");
                readNode(scratch2_, node.value());
            }
            seen |= kNodes;
        } else if (key == "issues") {
            od::array array;
            if (v.get_array().get(array))
                wrongType("issues", {});
            for (auto item : array) {
                od::object issue;
                if (item.get_object().get(issue))
                    damaged("an issue is not an object.");
                ScanIssue entry;
                std::uint32_t has = 0;
                for (auto fieldResult2 : issue) {
                    od::field f;
                    if (std::move(fieldResult2).get(f))
                        damaged("an issue is not valid JSON.");
                    const std::string_view k = rawKey(f.key());
                    if (k == "path") {
                        entry.path = string(f.value(), [&] { return std::string("\"path\" of an issue"); });
                        has |= 1;
                    } else if (k == "message") {
                        entry.message = string(f.value(), [&] { return std::string("\"message\" of an issue"); });
                        has |= 2;
                    }
                }
                if (!(has & 1))
                    damaged("an issue has no \"path\".");
                if (!(has & 2))
                    damaged("an issue has no \"message\".");
                issues_.push_back(std::move(entry));
            }
            seen |= kIssues;
        }
    }
    const std::pair<std::uint32_t, const char*> required[] = {
        {kId, "id"}, {kRoot, "rootPath"}, {kScannedAt, "scannedAt"}, {kDuration, "duration"},
        {kNodes, "nodes"}, {kIssues, "issues"}, {kSkipped, "skippedCount"}};
    for (const auto& [bit, name] : required)
        if (!(seen & bit))
            damaged("it has no \"" + std::string(name) + "\".");
    return assemble();
}

// Whether `childPath` is `parentPath` joined with `name`, compared in place: no string per child.
bool isPathOfChild(std::string_view parentPath, std::string_view name, std::string_view childPath)
{
    const bool slash = parentPath.empty() || parentPath.back() != '/';
    return childPath.size() == parentPath.size() + (slash ? 1 : 0) + name.size() &&
           childPath.starts_with(parentPath) && (!slash || childPath[parentPath.size()] == '/') &&
           childPath.ends_with(name);
}

ScanResult Reader::assemble()
{
    entries_.resize(paths_.size());
    for (std::uint32_t i = 0; i < entries_.size(); ++i) {
        const Entry& e = entries_[i];
        if (e.defined)
            continue;
        // Interned from a reference only: a child or a parent that is not a node.
        for (std::uint32_t j = 0; j < entries_.size(); ++j) {
            const Entry& other = entries_[j];
            if (!other.defined)
                continue;
            if (other.parent == i)
                damaged("the parent " + inQuotes(paths_[i]) + " of " + inQuotes(paths_[j]) + " is not a node.");
            for (std::uint32_t c = 0; c < other.childCount; ++c)
                if (childLists_[other.childBegin + c] == i)
                    damaged("the child " + inQuotes(paths_[i]) + " of " + inQuotes(paths_[j]) + " is not a node.");
        }
        damaged(inQuotes(paths_[i]) + " is not a node.");
    }
    const std::uint32_t root = paths_.find(rootPath_);
    if (root == kNoNode || root >= entries_.size())
        damaged("the root " + inQuotes(rootPath_) + " is not a node.");
    if (entries_[root].parent != kNoNode)
        damaged("the root " + inQuotes(rootPath_) + " has a parent.");

    auto data = std::make_shared<ScanData>();
    data->id = id_;
    data->scannedAt = scannedAt_;
    data->duration = duration_;
    data->issues = std::move(issues_);
    data->skippedCount = skippedCount_;

    std::vector<std::uint8_t> placed(entries_.size(), 0);
    placed[root] = 1;
    data->addRoot(rootPath_, entries_[root].record);
    std::vector<std::pair<std::uint32_t, NodeId>> stack{{root, ScanData::rootId}};
    std::vector<std::pair<std::uint32_t, NodeId>> pushed;
    while (!stack.empty()) {
        const auto [index, folder] = stack.back();
        stack.pop_back();
        const Entry& parent = entries_[index];
        const std::string_view parentPath = paths_[index];
        pushed.clear();
        for (std::uint32_t c = 0; c < parent.childCount; ++c) {
            const std::uint32_t childIndex = childLists_[parent.childBegin + c];
            const Entry& child = entries_[childIndex];
            const std::string_view childPath = paths_[childIndex];
            const std::string_view name = PathText::name(childPath);
            if (child.parent != index || !isPathOfChild(parentPath, name, childPath))
                damaged("the child " + inQuotes(childPath) + " of " + inQuotes(parentPath) +
                        " does not name it as its parent.");
            if (placed[childIndex])
                damaged(inQuotes(childPath) + " is listed as a child twice.");
            placed[childIndex] = 1;
            const NodeId id = data->append(folder, child.record, name);
            if (child.childCount)
                pushed.emplace_back(childIndex, id);
        }
        stack.insert(stack.end(), pushed.rbegin(), pushed.rend());
    }
    for (std::uint32_t i = 0; i < entries_.size(); ++i)
        if (!placed[i])
            damaged(inQuotes(paths_[i]) + " is not among the children of its parent.");
    data->seal();
    return ScanResult(std::move(data));
}

} // namespace

ScanResult parse(std::string_view json)
{
    const simdjson::padded_string text(json);
    Reader reader;
    return reader.read(text);
}

ScanResult readFile(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw systemError(errno);
    struct Closer {
        int fd;
        ~Closer() { ::close(fd); }
    } closer{fd};
    struct stat info {};
    if (::fstat(fd, &info) != 0)
        throw systemError(errno);
    if (S_ISDIR(info.st_mode))
        throw TarnbridgeError("\"" + path + "\" is a folder, not a scan file.");
    // Read into a huge-page buffer with simdjson's padding after the text.
    const std::size_t size = std::size_t(info.st_size);
    const std::size_t capacity = size + simdjson::SIMDJSON_PADDING;
    struct Buffer {
        char* data;
        std::size_t capacity;
        ~Buffer() { freeLarge(data, capacity); }
    } buffer{static_cast<char*>(allocateLarge(capacity)), capacity};
    std::size_t got = 0;
    while (got < size) {
        const ssize_t n = ::read(fd, buffer.data + got, size - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            throw systemError(errno);
        if (n == 0)
            break; // the file shrank while we read it: parse what is there
        got += std::size_t(n);
    }
    std::memset(buffer.data + got, 0, capacity - got);
    Reader reader;
    return reader.read(simdjson::padded_string_view(buffer.data, got, capacity));
}

} // namespace tarnbridge::ScanJson
