#pragma once

#include <QString>
#include <string>
#include <string_view>

namespace tarnbridge {

bool isValidUtf8(std::string_view text) noexcept;

// Length (1..4) of the valid UTF-8 sequence starting at `s`, or 0 if none starts there.
size_t utf8SequenceLength(const unsigned char* s, size_t left) noexcept;

// The value of one hexadecimal digit, or -1.
constexpr int hexDigitValue(char c) noexcept
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// `text` with each `introducer` followed by two hexadecimal digits ("%20", "\x20") replaced by
// that byte; anything else is kept as it stands.
std::string decodeHexEscapes(std::string_view text, std::string_view introducer);

// `text` without any of the `spaces` bytes at either end.
inline std::string_view trimmed(std::string_view text, std::string_view spaces = " \t\n\r\v\f")
{
    const auto first = text.find_first_not_of(spaces);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

// A file name or path for display: valid UTF-8 as it is, each stray byte as U+FFFD.
QString displayText(std::string_view bytes);

} // namespace tarnbridge
