#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "model/ScanResult.h"

namespace tarnbridge {
class ByteSource;
}

// The export format of ncdu and gdu ("ncdu -o", "gdu -o"): JSON format 1, a folder an array
// whose first element is its own object. Read and written as a stream: no document tree.
namespace tarnbridge::NcduJson {

// The issue of an entry the export marks unreadable.
inline constexpr const char* kReadError = "This item could not be read when the scan file was made.";
// The issue of an entry left out of the export on purpose (other than a nested volume).
inline constexpr const char* kExcluded = "Excluded when the scan file was made.";

using Sink = std::function<void(const char* data, std::size_t size)>;

// Streams a scan in the export format. Names go out byte for byte, as ncdu writes them.
void write(const ScanResult& scan, const Sink& sink);
std::string toString(const ScanResult& scan);
// Writes atomically (see ScanJson::writeFile); gzip-compressed when `path` ends in ".gz".
void writeFile(const ScanResult& scan, const std::string& path);

// Reads an export (already inflated). Throws TarnbridgeError saying what is wrong and where.
ScanResult read(ByteSource& source);
ScanResult parse(std::string_view text);
// The file as it is, or inflated when it is gzip-compressed.
ScanResult readFile(const std::string& path);

} // namespace tarnbridge::NcduJson
