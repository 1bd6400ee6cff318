#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <memory>
#include <map>
#include <set>
#include <unordered_map>

#include "model/Errors.h"
#include "model/PathText.h"
#include "platform/AtomicFile.h"
#include "platform/FileIO.h"
#include "scan/DiskScanner.h"
#include "storage/GzipFile.h"
#include "storage/NcduJson.h"

namespace tarnbridge::NcduJson {

namespace {

// Bytes that need an escape in a JSON string. Bytes of 0x80 and above go out as they are,
// valid UTF-8 or not: ncdu writes names byte for byte and reads them back so.
constexpr std::array<bool, 256> makeAttentionTable()
{
    std::array<bool, 256> table{};
    for (int c = 0; c < 256; ++c)
        table[std::size_t(c)] = c < 0x20 || c == '"' || c == '\\' || c == 0x7f;
    return table;
}
constexpr auto kAttention = makeAttentionTable();
constexpr char kHex[] = "0123456789abcdef";

// Writes `bytes` quoted at `w`, which has room for six bytes per byte and two.
char* putName(char* w, std::string_view bytes)
{
    *w++ = '"';
    const auto* s = reinterpret_cast<const unsigned char*>(bytes.data());
    std::size_t i = 0;
    while (i < bytes.size()) {
        std::size_t run = i;
        while (run < bytes.size() && !kAttention[s[run]])
            ++run;
        std::memcpy(w, bytes.data() + i, run - i);
        w += run - i;
        if (run == bytes.size())
            break;
        const unsigned char c = s[run];
        if (c == '"' || c == '\\') {
            *w++ = '\\';
            *w++ = char(c);
        } else {
            const char escape[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15]};
            std::memcpy(w, escape, sizeof escape);
            w += sizeof escape;
        }
        i = run + 1;
    }
    *w++ = '"';
    return w;
}

template <std::size_t N>
char* put(char* w, const char (&text)[N])
{
    std::memcpy(w, text, N - 1);
    return w + N - 1;
}

template <class Integer>
char* putInteger(char* w, Integer value)
{
    return std::to_chars(w, w + 24, value).ptr;
}

using IdentityKey = std::pair<std::int32_t, std::uint64_t>;
struct KeyHash {
    std::size_t operator()(const IdentityKey& key) const
    {
        return std::hash<std::uint64_t>()(key.second * 0x9E3779B97F4A7C15ull ^ std::uint32_t(key.first));
    }
};

// What the scan's issues add to the export: entries a scan left out, and folders it could not
// read.
struct IssueEntries {
    std::map<NodeId, std::vector<std::pair<std::string, const char*>>> leftOut; // by parent
    std::set<NodeId> unreadable;
};

std::string_view parentOf(std::string_view path)
{
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return {};
    return slash == 0 ? path.substr(0, 1) : path.substr(0, slash);
}

IssueEntries issueEntries(const ScanResult& scan)
{
    IssueEntries out;
    for (const ScanIssue& issue : scan.issues()) {
        const NodeId id = scan.find(issue.path);
        const bool nested = issue.message == DiskScanner::kNestedVolume;
        if (id != kNoNode) {
            if (!nested && scan.data()[id].isDirectory())
                out.unreadable.insert(id);
            continue;
        }
        const NodeId parent = scan.find(parentOf(issue.path));
        if (parent == kNoNode || !scan.data()[parent].isDirectory())
            continue;
        const char* kind = nested ? "\"excluded\":\"othfs\"}"
                                  : (issue.message == kExcluded ? "\"excluded\":\"pattern\"}" : "\"read_error\":true}");
        out.leftOut[parent].emplace_back(std::string(PathText::name(issue.path)), kind);
    }
    return out;
}

class Writer {
public:
    Writer(const ScanResult& scan, const Sink& sink)
        : scan_(scan), d_(scan.data()), sink_(sink), buffer_(new char[kFlushAt + kLargestEntry])
    {
    }
    void run();

private:
    char* entry(char* w, NodeId id, std::int32_t parentDevice);
    // The blocks of every hard-linked file, by identity: made once, when a later name of one
    // needs them (it may come before the first in this order).
    void findLinkBlocks()
    {
        if (linkBlocksFound_)
            return;
        linkBlocksFound_ = true;
        for (NodeId id = 0; id < d_.size(); ++id) {
            const NodeRecord& r = d_[id];
            if (r.isRegularFile() && r.linkCount > 1 && r.inode != 0 && r.allocatedSize > 0)
                linkBlocks_.emplace(IdentityKey{r.device, r.inode}, r.allocatedSize);
        }
    }
    // Where the next bytes go: at least kLargestEntry bytes free from there.
    char* room()
    {
        if (used_ >= kFlushAt) {
            sink_(buffer_.get(), used_);
            used_ = 0;
        }
        return buffer_.get() + used_;
    }
    void done(char* w) { used_ = std::size_t(w - buffer_.get()); }

    static constexpr std::size_t kFlushAt = 256 * 1024;
    // A name of 65,535 bytes, each escaped, with every field.
    static constexpr std::size_t kLargestEntry = 6 * 65536 + 512;
    const ScanResult& scan_;
    const ScanData& d_;
    const Sink& sink_;
    std::unique_ptr<char[]> buffer_;
    std::size_t used_ = 0;
    std::unordered_map<IdentityKey, std::int64_t, KeyHash> linkBlocks_;
    bool linkBlocksFound_ = false;
    IssueEntries issues_;
};

char* Writer::entry(char* w, NodeId id, std::int32_t parentDevice)
{
    const NodeRecord& r = d_[id];
    w = put(w, "{\"name\":");
    w = putName(w, id == ScanData::rootId ? std::string_view(d_.rootPath) : d_.name(id));
    if (!r.isDirectory()) {
        // A second name of a file holds no blocks of its own in a scan; ncdu wants the file's
        // blocks on every name and counts them once by inode.
        std::int64_t blocks = r.allocatedSize;
        const bool linked = r.isRegularFile() && r.linkCount > 1 && r.inode != 0;
        if (linked && blocks == 0) {
            findLinkBlocks();
            const auto found = linkBlocks_.find({r.device, r.inode});
            if (found != linkBlocks_.end())
                blocks = found->second;
        }
        if (r.logicalSize > 0) {
            w = put(w, ",\"asize\":");
            w = putInteger(w, r.logicalSize);
        }
        if (blocks > 0) {
            w = put(w, ",\"dsize\":");
            w = putInteger(w, blocks);
        }
        if (linked) {
            w = put(w, ",\"ino\":");
            w = putInteger(w, r.inode);
            w = put(w, ",\"hlnkc\":true,\"nlink\":");
            w = putInteger(w, r.linkCount);
        }
        if (!r.isRegularFile())
            w = put(w, ",\"notreg\":true");
    }
    if (id == ScanData::rootId || r.device != parentDevice) {
        w = put(w, ",\"dev\":");
        w = putInteger(w, std::uint32_t(r.device));
    }
    if (r.mode & 07777) {
        w = put(w, ",\"mode\":");
        w = putInteger(w, r.mode);
    }
    if (r.modifiedSeconds != 0) {
        w = put(w, ",\"mtime\":");
        w = putInteger(w, r.modifiedSeconds);
    }
    if (!issues_.unreadable.empty() && issues_.unreadable.contains(id))
        w = put(w, ",\"read_error\":true");
    *w++ = '}';
    return w;
}

void Writer::run()
{
    if (d_.empty())
        throw TarnbridgeError("This scan is empty: there is nothing to export.");
    issues_ = issueEntries(scan_);

    char* w = room();
    w = put(w, "[1,2,{\"progname\":\"tarnbridge\",\"progver\":\"1\",\"timestamp\":");
    w = putInteger(w, std::int64_t(std::isfinite(scan_.scannedAt()) ? scan_.scannedAt() : 0));
    w = put(w, "},\n[");
    w = entry(w, ScanData::rootId, d_[ScanData::rootId].device);
    done(w);

    // Depth first, each folder an array opened by its own object.
    struct Open {
        NodeId folder;
        std::uint32_t next;
    };
    std::vector<Open> stack{{ScanData::rootId, 0}};
    while (!stack.empty()) {
        Open& top = stack.back();
        const NodeRecord& folder = d_[top.folder];
        w = room();
        if (top.next == folder.childCount) {
            if (const auto found = issues_.leftOut.find(top.folder); found != issues_.leftOut.end()) {
                for (const auto& [name, kind] : found->second) {
                    w = put(w, ",\n{\"name\":");
                    w = putName(w, name);
                    *w++ = ',';
                    const std::size_t length = std::strlen(kind);
                    std::memcpy(w, kind, length);
                    done(w + length);
                    w = room();
                }
            }
            *w++ = ']';
            done(w);
            stack.pop_back();
            continue;
        }
        const NodeId child = folder.firstChild + top.next++;
        w = put(w, ",\n");
        if (d_[child].isDirectory()) {
            *w++ = '[';
            done(entry(w, child, folder.device));
            stack.push_back({child, 0}); // `top` is not used below this
        } else {
            done(entry(w, child, folder.device));
        }
    }
    w = room();
    w = put(w, "]\n");
    done(w);
    sink_(buffer_.get(), used_);
    used_ = 0;
}

// Passes text on to `sink`, through gzip when asked.
void writeThrough(const ScanResult& scan, bool gzip, const Sink& sink)
{
    if (!gzip) {
        write(scan, sink);
        return;
    }
    GzipWriter compressor(
        [](void* context, const char* data, std::size_t size) { (*static_cast<const Sink*>(context))(data, size); },
        const_cast<Sink*>(&sink));
    write(scan, [&compressor](const char* data, std::size_t size) { compressor.write(data, size); });
    compressor.finish();
}

} // namespace

void write(const ScanResult& scan, const Sink& sink)
{
    Writer writer(scan, sink);
    writer.run();
}

std::string toString(const ScanResult& scan)
{
    std::string out;
    write(scan, [&out](const char* data, std::size_t size) { out.append(data, size); });
    return out;
}

void writeFile(const ScanResult& scan, const std::string& path)
{
    const bool gzip = path.size() > 3 && path.ends_with(".gz");
    struct stat existing {};
    if (::stat(path.c_str(), &existing) == 0 && !S_ISREG(existing.st_mode)) {
        if (S_ISDIR(existing.st_mode))
            throw TarnbridgeError("\"" + path + "\" is a folder. Choose a file name to save the export to.");
        // A device or a pipe (/dev/null, a process substitution): write straight into it.
        const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (fd < 0)
            throw systemError(errno);
        try {
            writeThrough(scan, gzip, [fd](const char* data, std::size_t size) { platform::writeFully(fd, data, size); });
        } catch (...) {
            ::close(fd);
            throw;
        }
        ::close(fd);
        return;
    }
    // The destination is never half-written: the old file or the new one.
    AtomicFile file(path);
    writeThrough(scan, gzip, [&file](const char* data, std::size_t size) { file.write({data, size}); });
    file.commit();
}

} // namespace tarnbridge::NcduJson
