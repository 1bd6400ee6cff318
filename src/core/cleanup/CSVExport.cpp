#include "cleanup/CSVExport.h"

#include <ctime>

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

void write(const std::vector<std::string>& paths, const ScanResult& scan, const std::string& destination,
           const CancellationFlag& cancellation)
{
    cancellation.check();
    AtomicFile file(destination, ".Tarnbridge-export-" + newIdentifier());
    constexpr std::size_t kFlushAt = 256 * 1024;
    std::string buffer = kHeader;
    buffer.reserve(kFlushAt + 4096);
    for (const std::string& path : paths) {
        cancellation.check();
        const NodeId id = scan.isEmpty() ? kNoNode : scan.find(path);
        if (id == kNoNode)
            continue;
        appendRow(buffer, scan->nodeWithoutChildren(id));
        if (buffer.size() >= kFlushAt) {
            file.write(buffer);
            buffer.clear();
        }
    }
    file.write(buffer);
    cancellation.check();
    file.commit();
}

} // namespace tarnbridge::CSVExport
