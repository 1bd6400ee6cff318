#pragma once

#include <string>

#include "model/ScanResult.h"

namespace tarnbridge::ScanFile {

// Opens a scan file of either kind: our own scan file or an ncdu or gdu export, each plain or
// gzip-compressed, told apart by their first bytes. Throws TarnbridgeError naming what was
// expected when the file is neither.
ScanResult open(const std::string& path);

} // namespace tarnbridge::ScanFile
