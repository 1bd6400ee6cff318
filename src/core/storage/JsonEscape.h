#pragma once

#include <string>

namespace tarnbridge::json {

// Unescapes the raw JSON string that starts at `p` (just after its opening quote) and ends at
// the first unescaped quote, into `out`. A lone low surrogate \udc80..\udcff stands for the
// single byte 80..FF of a name that is not UTF-8. Returns false on an escape that means nothing.
bool unescape(const char* p, std::string& out);

} // namespace tarnbridge::json
