#include "cleanup/CSVExport.h"

#include <ctime>
#include <optional>

#include "cleanup/CleanupService.h"
#include "model/Formatting.h"
#include "model/Identifiers.h"
#include "model/PathText.h"
#include "platform/AtomicFile.h"
#include "query/FileCategory.h"

namespace tarnbridge::CSVExport {

namespace {

void appendRow(std::string& out, const DiskNode& node)
{
    const std::string_view name = PathText::name(node.path);
    out += protectedText(node.path);
    out += ',';
    out += protectedText(name);
    out += ',';
    out += std::to_string(node.logicalSize);
    out += ',';
    out += std::to_string(node.allocatedSize);
    out += ',';
    out += std::to_string(node.fileCount);
    out += ',';
    out += protectedText(node.isDirectory ? std::string_view("Folder") : FileCategory::classify(name).rawValue());
    out += ',';
    out += protectedText(formattedTime(node.modified, "%Y-%m-%dT%H:%M:%SZ", ClockZone::utc));
    out += "\r\n";
}

} // namespace

std::string protectedText(std::string_view value)
{
    std::string out = "\"";
    if (!value.empty() && (value[0] == '=' || value[0] == '+' || value[0] == '-' || value[0] == '@' ||
                           value[0] == '\t' || value[0] == '\r'))
        out += '\'';
    for (char c : value) {
        if (c == '"')
            out += '"';
        out += c;
    }
    out += '"';
    return out;
}

std::string encode(const std::vector<DiskNode>& nodes)
{
    std::string out = kHeader;
    for (const DiskNode& node : nodes)
        appendRow(out, node);
    return out;
}

namespace {

// Streams the rows `next` gives (nothing when done) to a hidden temporary beside `destination`,
// then renames it over the destination.
template <class Next>
void writeRows(const std::string& destination, const CancellationFlag& cancellation, Next&& next)
{
    cancellation.check();
    AtomicFile file(destination, ".Tarnbridge-export-" + newIdentifier());
    constexpr std::size_t kFlushAt = 256 * 1024;
    std::string buffer = kHeader;
    buffer.reserve(kFlushAt + 4096);
    while (const auto row = next()) {
        cancellation.check();
        appendRow(buffer, *row);
        if (buffer.size() >= kFlushAt) {
            file.write(buffer);
            buffer.clear();
        }
    }
    file.write(buffer);
    cancellation.check();
    file.commit();
}

} // namespace

void write(const std::vector<std::string>& paths, const ScanResult& scan, const std::string& destination,
           const CancellationFlag& cancellation)
{
    std::size_t at = 0;
    writeRows(destination, cancellation, [&]() -> std::optional<DiskNode> {
        while (at < paths.size()) {
            const NodeId id = scan.isEmpty() ? kNoNode : scan.find(paths[at++]);
            if (id != kNoNode)
                return scan->nodeWithoutChildren(id);
        }
        return std::nullopt;
    });
}

void write(const std::vector<NodeId>& ids, const ScanResult& scan, const std::string& destination,
           const CancellationFlag& cancellation)
{
    std::size_t at = 0;
    writeRows(destination, cancellation, [&]() -> std::optional<DiskNode> {
        while (at < ids.size()) {
            const NodeId id = ids[at++];
            if (id < scan.nodeCount())
                return scan->nodeWithoutChildren(id);
        }
        return std::nullopt;
    });
}

} // namespace tarnbridge::CSVExport
