#pragma once

#include <QString>
#include <string>
#include <string_view>

namespace tarnbridge {

bool isValidUtf8(std::string_view text) noexcept;

// Length (1..4) of the valid UTF-8 sequence starting at `s`, or 0 if none starts there.
size_t utf8SequenceLength(const unsigned char* s, size_t left) noexcept;

// A file name or path for display: valid UTF-8 as it is, each stray byte as U+FFFD.
QString displayText(std::string_view bytes);

} // namespace tarnbridge
