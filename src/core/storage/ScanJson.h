#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "model/ScanResult.h"

namespace tarnbridge::ScanJson {

// Seconds between the Unix epoch and 2001-01-01 00:00:00 UTC, the epoch of dates in our JSON.
inline constexpr double kReferenceDateOffset = 978307200.0;

// Receives the encoded text in pieces, in order.
using Sink = std::function<void(const char* data, std::size_t size)>;

// Streams the JSON form of a scan: one object, no document tree in memory. Names that are not
// UTF-8 are written with the \udcXX escape per stray byte, so they read back byte for byte.
void write(const ScanResult& scan, const Sink& sink);
std::string toString(const ScanResult& scan);

// Appends `bytes` as a quoted JSON string, with the \udcXX escape for bytes that are not UTF-8.
void appendString(std::string& out, std::string_view bytes);

// Writes the scan to `path` atomically (a hidden temporary in the same folder, then rename);
// a destination that is not a regular file (/dev/null, a pipe) is written in place.
void writeFile(const ScanResult& scan, const std::string& path);

// Reads a scan. Throws TarnbridgeError naming the key that is missing, of the wrong type, or
// breaks the tree (a child or parent that is not a node).
ScanResult parse(std::string_view json);
ScanResult readFile(const std::string& path);

} // namespace tarnbridge::ScanJson
