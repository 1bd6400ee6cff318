#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

#include "model/Errors.h"
#include "model/PathText.h"
#include "model/TextEncoding.h"
#include "platform/AtomicFile.h"
#include "platform/FileIO.h"
#include "storage/ScanJson.h"

namespace tarnbridge::ScanJson {

namespace {

// Which bytes cannot be copied into a JSON string as they are.
constexpr std::array<bool, 256> makeAttentionTable()
{
    std::array<bool, 256> table{};
    for (int c = 0; c < 256; ++c)
        table[std::size_t(c)] = c < 0x20 || c == '"' || c == '\\' || c >= 0x80;
    return table;
}
constexpr auto kAttention = makeAttentionTable();
constexpr char kHex[] = "0123456789abcdef";

// Appends the JSON string body of `bytes` (no quotes): escapes as JSON needs them, and each
// byte that is not part of valid UTF-8 as \udcXX so that it reads back as that byte.
void appendEscaped(std::string& out, std::string_view bytes)
{
    const auto* s = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::size_t n = bytes.size();
    std::size_t i = 0;
    while (i < n) {
        std::size_t run = i;
        while (run < n && !kAttention[s[run]])
            ++run;
        out.append(bytes.data() + i, run - i);
        if (run == n)
            return;
        i = run;
        const unsigned char c = s[i];
        if (c >= 0x80) {
            const std::size_t length = utf8SequenceLength(s + i, n - i);
            if (length) {
                out.append(bytes.data() + i, length);
                i += length;
            } else {
                const char escape[] = {'\\', 'u', 'd', 'c', kHex[c >> 4], kHex[c & 15]};
                out.append(escape, sizeof escape);
                ++i;
            }
            continue;
        }
        switch (c) {
        case '"': out.append("\\\""); break;
        case '\\': out.append("\\\\"); break;
        case '\n': out.append("\\n"); break;
        case '\r': out.append("\\r"); break;
        case '\t': out.append("\\t"); break;
        case '\b': out.append("\\b"); break;
        case '\f': out.append("\\f"); break;
        default: {
            const char escape[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15]};
            out.append(escape, sizeof escape);
        }
        }
        ++i;
    }
}

class Writer {
public:
    explicit Writer(const Sink& sink) : sink_(sink) { buffer_.reserve(kFlushAt + 64 * 1024); }

    void raw(std::string_view text) { buffer_.append(text); }
    void raw(char c) { buffer_.push_back(c); }
    // An already escaped string body, quoted.
    void quotedEscaped(std::string_view escaped)
    {
        buffer_.push_back('"');
        buffer_.append(escaped);
        buffer_.push_back('"');
    }
    void string(std::string_view bytes)
    {
        buffer_.push_back('"');
        appendEscaped(buffer_, bytes);
        buffer_.push_back('"');
    }
    template <class Integer>
    void integer(Integer value)
    {
        char digits[24];
        const auto result = std::to_chars(digits, digits + sizeof digits, value);
        buffer_.append(digits, result.ptr);
    }
    void number(double value)
    {
        if (!std::isfinite(value))
            value = 0; // JSON has no NaN or infinity; a broken clock gives the epoch
        char digits[32];
        const auto result = std::to_chars(digits, digits + sizeof digits, value);
        buffer_.append(digits, result.ptr);
    }
    // Dates: seconds since 2001-01-01 UTC. Node dates are whole seconds, written as integers.
    void date(std::int64_t unixSeconds) { integer(unixSeconds - std::int64_t(kReferenceDateOffset)); }
    void date(double unixSeconds) { number(unixSeconds - kReferenceDateOffset); }

    void maybeFlush()
    {
        if (buffer_.size() >= kFlushAt)
            flush();
    }
    void flush()
    {
        if (!buffer_.empty())
            sink_(buffer_.data(), buffer_.size());
        buffer_.clear();
    }

private:
    static constexpr std::size_t kFlushAt = 256 * 1024;
    const Sink& sink_;
    std::string buffer_;
};

void writeNode(Writer& w, const ScanData& d, NodeId id, std::string_view path,
               std::string_view parentPath, std::string& childPath)
{
    const NodeRecord& r = d[id];
    w.quotedEscaped(path);
    w.raw(":{\"path\":");
    w.quotedEscaped(path);
    if (r.parent != kNoNode) {
        w.raw(",\"parent\":");
        w.quotedEscaped(parentPath);
    }
    w.raw(r.isDirectory() ? ",\"isDirectory\":true" : ",\"isDirectory\":false");
    w.raw(r.isSymbolicLink() ? ",\"isSymbolicLink\":true" : ",\"isSymbolicLink\":false");
    w.raw(r.isCloudPlaceholder() ? ",\"isCloudPlaceholder\":true" : ",\"isCloudPlaceholder\":false");
    w.raw(",\"logicalSize\":");
    w.integer(r.logicalSize);
    w.raw(",\"allocatedSize\":");
    w.integer(r.allocatedSize);
    w.raw(",\"ownLogicalSize\":");
    w.integer(r.ownLogicalSize());
    w.raw(",\"ownAllocatedSize\":");
    w.integer(r.ownAllocatedSize());
    w.raw(",\"compressedSavings\":");
    w.integer(r.compressedSavings);
    w.raw(",\"fileCount\":");
    w.integer(r.fileCount);
    w.raw(",\"folderCount\":");
    w.integer(r.folderCount);
    w.raw(",\"children\":[");
    for (std::uint32_t i = 0; i < r.childCount; ++i) {
        if (i)
            w.raw(',');
        childPath.assign(path);
        if (childPath != "/")
            childPath.push_back('/');
        appendEscaped(childPath, d.name(r.firstChild + i));
        w.quotedEscaped(childPath);
    }
    w.raw("],\"created\":");
    w.date(r.createdSeconds);
    w.raw(",\"modified\":");
    w.date(r.modifiedSeconds);
    w.raw(",\"accessed\":");
    w.date(r.accessedSeconds);
    w.raw(",\"identity\":{\"device\":");
    w.integer(r.device);
    w.raw(",\"inode\":");
    w.integer(r.inode);
    w.raw(",\"size\":");
    w.integer(r.statSize);
    w.raw(",\"modifiedSeconds\":");
    w.integer(r.modifiedSeconds);
    w.raw(",\"modifiedNanos\":");
    w.integer(r.modifiedNanos);
    w.raw(",\"changedSeconds\":");
    w.integer(r.changedSeconds);
    w.raw(",\"changedNanos\":");
    w.integer(r.changedNanos);
    w.raw(",\"mode\":");
    w.integer(r.mode);
    w.raw(",\"linkCount\":");
    w.integer(r.linkCount);
    w.raw("}}");
}

} // namespace

void write(const ScanResult& scan, const Sink& sink)
{
    const ScanData& d = scan.data();
    Writer w(sink);
    w.raw("{\"id\":");
    w.string(d.id.toString(QUuid::WithoutBraces).toUpper().toStdString());
    w.raw(",\"rootPath\":");
    w.string(d.rootPath);
    w.raw(",\"scannedAt\":");
    w.date(d.scannedAt);
    w.raw(",\"duration\":");
    w.number(d.duration);
    w.raw(",\"nodes\":{");
    if (!d.empty()) {
        // Depth first with one escaped path per level: a path is its parent's escaped path, a
        // slash and its own escaped name, so no name is escaped more than twice.
        std::string escapedRoot;
        appendEscaped(escapedRoot, d.rootPath);
        struct Level {
            NodeId folder;
            std::uint32_t next;
            std::size_t pathLength;
        };
        std::string path = escapedRoot, childPath;
        std::vector<Level> stack;
        writeNode(w, d, ScanData::rootId, path, {}, childPath);
        stack.push_back({ScanData::rootId, 0, path.size()});
        while (!stack.empty()) {
            Level& level = stack.back();
            const NodeRecord& folder = d[level.folder];
            if (level.next == folder.childCount) {
                stack.pop_back();
                continue;
            }
            const NodeId child = folder.firstChild + level.next++;
            path.resize(level.pathLength);
            const std::size_t parentLength = path.size();
            if (path != "/")
                path.push_back('/');
            appendEscaped(path, d.name(child));
            w.raw(',');
            writeNode(w, d, child, path, std::string_view(path).substr(0, parentLength), childPath);
            w.maybeFlush();
            if (d[child].childCount)
                stack.push_back({child, 0, path.size()});
        }
    }
    w.raw("},\"issues\":[");
    for (std::size_t i = 0; i < d.issues.size(); ++i) {
        w.raw(i ? ",{\"path\":" : "{\"path\":");
        w.string(d.issues[i].path);
        w.raw(",\"message\":");
        w.string(d.issues[i].message);
        w.raw('}');
    }
    w.raw("],\"skippedCount\":");
    w.integer(d.skippedCount);
    w.raw('}');
    w.flush();
}

void appendString(std::string& out, std::string_view bytes)
{
    out.push_back('"');
    appendEscaped(out, bytes);
    out.push_back('"');
}

std::string toString(const ScanResult& scan)
{
    std::string out;
    write(scan, [&out](const char* data, std::size_t size) { out.append(data, size); });
    return out;
}


void writeFile(const ScanResult& scan, const std::string& path)
{
    struct stat existing {};
    if (::stat(path.c_str(), &existing) == 0 && !S_ISREG(existing.st_mode)) {
        if (S_ISDIR(existing.st_mode))
            throw TarnbridgeError("\"" + path + "\" is a folder. Choose a file name to save the scan to.");
        // A device or a pipe (/dev/null, a process substitution): write straight into it.
        const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (fd < 0)
            throw systemError(errno);
        try {
            write(scan, [fd](const char* data, std::size_t size) { platform::writeFully(fd, data, size); });
        } catch (...) {
            ::close(fd);
            throw;
        }
        ::close(fd);
        return;
    }

    // The destination is never half-written: the old file or the new one.
    AtomicFile file(path);
    write(scan, [&file](const char* data, std::size_t size) { file.write({data, size}); });
    file.commit();
}

} // namespace tarnbridge::ScanJson
