#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <unordered_set>

#include "model/Errors.h"
#include "model/LargeMemory.h"
#include "scan/DiskScanner.h"
#include "storage/GzipFile.h"
#include "storage/JsonStream.h"
#include "storage/NcduJson.h"

namespace tarnbridge::NcduJson {

namespace {

// What one entry's object says.
struct Info {
    std::string name;
    std::int64_t asize = 0, dsize = 0, nlink = 0, mtime = 0, mode = 0;
    std::uint64_t dev = 0, ino = 0;
    bool hasName = false, hasDev = false, hasMtime = false, hasMode = false;
    bool hlnkc = false, readError = false, notreg = false;
    std::string excluded;
};

// One open folder of the export, from the root down to the entry being read.
struct Frame {
    NodeId id;             // kNoNode: a folder left out, whose contents are dropped too
    NodeId lastChild;      // the previous child, whose sibling link the next one fills in
    std::uint32_t childCount;
    std::uint64_t device;
    std::size_t pathStart; // length of path_ before this folder's name
};

enum class Key { name, asize, dsize, dev, ino, hlnkc, nlink, readError, notreg, excluded, mtime, mode, other };

// Keys by length first: each compare is then of a known size.
Key keyOf(std::string_view k)
{
    switch (k.size()) {
    case 3: return k == "dev" ? Key::dev : k == "ino" ? Key::ino : Key::other;
    case 4: return k == "name" ? Key::name : k == "mode" ? Key::mode : Key::other;
    case 5:
        return k == "asize" ? Key::asize
             : k == "dsize" ? Key::dsize
             : k == "mtime" ? Key::mtime
             : k == "hlnkc" ? Key::hlnkc
             : k == "nlink" ? Key::nlink
                            : Key::other;
    case 6: return k == "notreg" ? Key::notreg : Key::other;
    case 8: return k == "excluded" ? Key::excluded : Key::other;
    case 10: return k == "read_error" ? Key::readError : Key::other;
    default: return Key::other;
    }
}

class Reader {
public:
    explicit Reader(ByteSource& source) : in_(source, "This ncdu export is damaged") {}
    ScanResult run();

private:
    void header();
    void entry(bool isRoot);
    void info(Info& out);
    void accept(Info& info, bool isDirectory, bool isRoot);
    void close();
    void addIssue(std::string path, const char* message);
    ScanResult assemble();

    JsonStream in_;

    bool gdu_ = false;
    std::int64_t timestamp_ = 0;
    std::shared_ptr<ScanData> data_ = std::make_shared<ScanData>();
    std::vector<Frame> stack_;
    std::uint32_t rootChildren_ = 0;
    std::string path_;
    Info info_;
};

void Reader::info(Info& out)
{
    out.hasName = out.hasDev = out.hasMtime = out.hasMode = false;
    out.hlnkc = out.readError = out.notreg = false;
    out.asize = out.dsize = out.nlink = out.mtime = out.mode = 0;
    out.dev = out.ino = 0;
    out.excluded.clear();
    in_.expect('{', "an entry's object");
    if (in_.peek() == '}') {
        in_.advance();
        in_.fail("an entry has no \"name\".");
    }
    for (;;) {
        const Key key = keyOf(in_.shortString());
        in_.expect(':', "\":\"");
        switch (key) {
        case Key::name:
            out.name.assign(in_.string());
            out.hasName = true;
            break;
        case Key::asize: out.asize = in_.integer("asize", 0); break;
        case Key::dsize: out.dsize = in_.integer("dsize", 0); break;
        case Key::dev:
            out.dev = in_.unsignedInteger("dev");
            out.hasDev = true;
            break;
        case Key::ino: out.ino = in_.unsignedInteger("ino"); break;
        case Key::hlnkc: out.hlnkc = in_.boolean("hlnkc"); break;
        case Key::nlink: out.nlink = in_.integer("nlink", 0); break;
        case Key::readError: out.readError = in_.boolean("read_error"); break;
        case Key::notreg: out.notreg = in_.boolean("notreg"); break;
        case Key::excluded:
            // A string naming why ("othfs", "pattern", …); very old exports wrote true.
            if (in_.peek() == '"')
                out.excluded.assign(in_.string());
            else if (in_.boolean("excluded"))
                out.excluded = "pattern";
            break;
        case Key::mtime:
            out.mtime = in_.integer("mtime");
            out.hasMtime = true;
            break;
        case Key::mode:
            out.mode = in_.integer("mode", 0);
            out.hasMode = true;
            break;
        case Key::other: in_.skipValue(); break; // uid, gid and what later versions add
        }
        const char c = in_.next();
        if (c == '}')
            break;
        if (c != ',')
            in_.fail(c ? "expected \",\" or \"}\" in an entry." : "it ends too early, inside an entry.");
    }
    if (!out.hasName)
        in_.fail("an entry has no \"name\".");
    if (out.name.empty() || out.name.size() > 0xFFFF)
        in_.fail("an entry's \"name\" is empty or too long.");
    if (out.name.find('\0') != std::string::npos)
        in_.fail("an entry's \"name\" holds a zero byte.");
}

void Reader::header()
{
    if (in_.peek() != '[')
        throw TarnbridgeError("This file is not an ncdu or gdu export: it does not start with \"[\".");
    in_.advance();
    const std::int64_t major = in_.integer("major version");
    if (major != 1)
        throw TarnbridgeError("This ncdu export has format version " + std::to_string(major) +
                              "; Tarnbridge reads version 1, which ncdu 1.x and 2.x and gdu write with -o.");
    in_.expect(',', "\",\" after the version");
    in_.integer("minor version");
    in_.expect(',', "\",\" after the version");
    in_.expect('{', "the export's metadata object");
    if (in_.peek() == '}') {
        in_.advance();
    } else {
        for (;;) {
            const std::string key(in_.string());
            in_.expect(':', "\":\"");
            if (key == "progname" && in_.peek() == '"')
                gdu_ = in_.string() == "gdu";
            else if (key == "timestamp" && in_.peek() != '"')
                timestamp_ = in_.integer(key);
            else
                in_.skipValue();
            const char c = in_.next();
            if (c == '}')
                break;
            if (c != ',')
                in_.fail("expected \",\" or \"}\" in the metadata.");
        }
    }
    in_.expect(',', "\",\" and the root folder after the metadata");
}

void Reader::addIssue(std::string path, const char* message)
{
    ++data_->skippedCount;
    if (data_->issues.size() < DiskScanner::kIssueLimit)
        data_->issues.push_back({std::move(path), message});
}

void Reader::entry(bool isRoot)
{
    const char c = in_.peek();
    if (c == '[') {
        in_.advance();
        info(info_);
        accept(info_, true, isRoot);
    } else if (c == '{') {
        if (isRoot)
            in_.fail("the root is not a folder.");
        info(info_);
        accept(info_, false, false);
    } else {
        in_.fail(c ? "expected an entry (\"{\" or \"[\")." : "it ends too early, where an entry was expected.");
    }
}

void Reader::accept(Info& in, bool isDirectory, bool isRoot)
{
    NodeRecord r;
    std::uint64_t device = in.dev;
    if (!isRoot) {
        if (in.name.find('/') != std::string::npos || in.name == "." || in.name == "..")
            in_.fail("the name \"" + in.name + "\" is not a file name.");
        Frame& parent = stack_.back();
        if (!in.hasDev)
            device = parent.device;
        if (parent.id == kNoNode) {
            if (isDirectory)
                stack_.push_back({kNoNode, kNoNode, 0, device, path_.size()});
            return;
        }
        const bool skip = !in.excluded.empty() || (in.readError && !isDirectory);
        if (skip || in.readError) {
            std::string path = path_;
            if (path.empty() || path.back() != '/')
                path.push_back('/');
            path.append(in.name);
            const bool nested = in.excluded == "othfs" || in.excluded == "otherfs";
            addIssue(std::move(path), !in.excluded.empty() ? (nested ? DiskScanner::kNestedVolume : kExcluded)
                                                           : kReadError);
        }
        if (skip) {
            if (isDirectory)
                stack_.push_back({kNoNode, kNoNode, 0, device, path_.size()});
            return;
        }
    }
    r.device = std::int32_t(device);
    r.inode = in.ino;
    r.statSize = in.asize;
    r.modifiedSeconds = in.hasMtime ? in.mtime : 0;
    r.linkCount = std::uint16_t(std::min<std::int64_t>(in.nlink ? in.nlink : (in.hlnkc ? 2 : 1), 65535));
    if (in.hasMode)
        r.mode = std::uint16_t(in.mode);
    else
        r.mode = isDirectory ? S_IFDIR : (in.notreg ? 0 : S_IFREG);
    if (isDirectory) {
        r.flags = NodeRecord::directory;
    } else {
        if (in.hasMode ? S_ISREG(r.mode) : !in.notreg)
            r.flags |= NodeRecord::regularFile;
        if (in.hasMode && S_ISLNK(r.mode))
            r.flags |= NodeRecord::symbolicLink;
        r.logicalSize = in.asize;
        // gdu marks only the second and later names of a file: they add no blocks.
        r.allocatedSize = gdu_ && in.hlnkc ? 0 : in.dsize;
        r.fileCount = 1;
    }

    if (isRoot) {
        std::string root = in.name;
        while (root.size() > 1 && root.back() == '/')
            root.pop_back();
        data_->addRoot(root, r);
        path_ = root;
        if (in.readError)
            addIssue(root, kReadError);
        stack_.push_back({ScanData::rootId, kNoNode, 0, device, 0});
        return;
    }
    // Every entry is appended below the root for now, in the order of the file; the tree's
    // links are made right in assemble(). firstChild holds the next sibling meanwhile.
    Frame& parent = stack_.back();
    const NodeId id = data_->append(ScanData::rootId, r, in.name);
    NodeRecord& added = data_->at(id);
    added.parent = parent.id;
    added.firstChild = kNoNode;
    if (parent.lastChild != kNoNode)
        data_->at(parent.lastChild).firstChild = id;
    parent.lastChild = id;
    ++parent.childCount;
    if (isDirectory) {
        const std::size_t start = path_.size();
        if (path_.back() != '/')
            path_.push_back('/');
        path_.append(in.name);
        stack_.push_back({id, kNoNode, 0, device, start});
    }
}

void Reader::close()
{
    const Frame frame = stack_.back();
    stack_.pop_back();
    if (frame.id == ScanData::rootId)
        rootChildren_ = frame.childCount;
    else if (frame.id != kNoNode)
        data_->at(frame.id).childCount = frame.childCount;
    if (frame.id != kNoNode && frame.id != ScanData::rootId)
        path_.resize(frame.pathStart);
}

ScanResult Reader::run()
{
    header();
    entry(true);
    while (!stack_.empty()) {
        const char c = in_.next();
        if (c == ',')
            entry(false);
        else if (c == ']')
            close();
        else
            in_.fail(c ? "expected \",\" or \"]\" in a folder." : "it ends too early: a folder is not closed.");
    }
    in_.expect(']', "\"]\" closing the export");
    if (in_.peek() != 0)
        in_.fail("there is more after the end of the export.");
    return assemble();
}

// (device, inode) pairs of the regular files that name their inode.
struct IdentityHash {
    std::size_t operator()(const std::pair<std::int32_t, std::uint64_t>& key) const
    {
        return std::hash<std::uint64_t>()(key.second * 0x9E3779B97F4A7C15ull ^ std::uint32_t(key.first));
    }
};

ScanResult Reader::assemble()
{
    ScanData& d = *data_;
    const std::size_t n = d.size();
    // Final ids in the order a scan of the tree makes them: each folder's children together,
    // folders entered depth first. Hard links count at the name such a scan meets first. The
    // links are made final on the way; firstChild holds a sibling link until it is read.
    LargeVector<NodeId> order(n);
    d.at(ScanData::rootId).childCount = rootChildren_;
    NodeId nextId = 1;
    std::vector<NodeId> pending{ScanData::rootId}, folders;
    std::unordered_set<std::pair<std::int32_t, std::uint64_t>, IdentityHash> seen;
    while (!pending.empty()) {
        const NodeId folder = pending.back();
        pending.pop_back();
        NodeRecord& f = d.at(folder);
        const std::uint32_t count = f.childCount;
        const NodeId parentId = order[folder];
        f.firstChild = nextId;
        folders.clear();
        NodeId child = folder + 1;
        for (std::uint32_t i = 0; i < count; ++i) {
            order[child] = nextId++;
            NodeRecord& r = d.at(child);
            const NodeId sibling = r.firstChild;
            r.parent = parentId;
            if (r.isDirectory() && r.childCount) {
                folders.push_back(child);
            } else {
                r.firstChild = 0;
                if (r.isRegularFile() && r.inode != 0 && !seen.insert({r.device, r.inode}).second)
                    r.allocatedSize = 0;
            }
            child = sibling;
        }
        pending.insert(pending.end(), folders.rbegin(), folders.rend());
    }
    if (rootChildren_ == 0)
        d.at(ScanData::rootId).firstChild = 0;
    // Put each record at its final id, following the permutation's cycles; the next record of a
    // cycle is fetched while the current one moves.
    for (NodeId i = 0; i < n; ++i) {
        while (order[i] != i) {
            const NodeId j = order[i];
            const NodeId after = order[j];
            const char* ahead = reinterpret_cast<const char*>(&d[after]);
            __builtin_prefetch(ahead);
            __builtin_prefetch(ahead + 64);
            __builtin_prefetch(ahead + 119);
            __builtin_prefetch(&order[after]);
            std::swap(d.at(i), d.at(j));
            order[i] = after;
            order[j] = j;
        }
    }
    // Parents come before their contents: one backward pass adds everything up.
    for (std::size_t i = n; i-- > 1;) {
        const NodeRecord& r = d[NodeId(i)];
        d.at(r.parent).addTotals(r);
    }
    d.id = QUuid::createUuid();
    d.scannedAt = double(timestamp_);
    d.duration = 0;
    d.seal();
    return ScanResult(std::move(data_));
}

} // namespace

ScanResult read(ByteSource& source)
{
    Reader reader(source);
    return reader.run();
}

ScanResult parse(std::string_view text)
{
    MemorySource source(text);
    return read(source);
}

ScanResult readFile(const std::string& path)
{
    InputFile file(path);
    return read(file);
}

} // namespace tarnbridge::NcduJson
