#include "model/TextEncoding.h"

namespace tarnbridge {

// Length of the valid UTF-8 sequence at `s` (1..4), or 0 if it is not one.
size_t utf8SequenceLength(const unsigned char* s, size_t left) noexcept
{
    const unsigned char c = s[0];
    if (c < 0x80)
        return 1;
    if (c < 0xC2)
        return 0;
    if (c < 0xE0)
        return (left >= 2 && (s[1] & 0xC0) == 0x80) ? 2 : 0;
    if (c < 0xF0) {
        if (left < 3 || (s[1] & 0xC0) != 0x80 || (s[2] & 0xC0) != 0x80)
            return 0;
        if (c == 0xE0 && s[1] < 0xA0)
            return 0; // overlong
        if (c == 0xED && s[1] >= 0xA0)
            return 0; // surrogate
        return 3;
    }
    if (c < 0xF5) {
        if (left < 4 || (s[1] & 0xC0) != 0x80 || (s[2] & 0xC0) != 0x80 || (s[3] & 0xC0) != 0x80)
            return 0;
        if (c == 0xF0 && s[1] < 0x90)
            return 0;
        if (c == 0xF4 && s[1] >= 0x90)
            return 0;
        return 4;
    }
    return 0;
}

bool isValidUtf8(std::string_view text) noexcept
{
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    size_t i = 0, n = text.size();
    while (i < n) {
        if (s[i] < 0x80) {
            ++i;
            continue;
        }
        const size_t len = utf8SequenceLength(s + i, n - i);
        if (len == 0)
            return false;
        i += len;
    }
    return true;
}

QString displayText(std::string_view bytes)
{
    // QString::fromUtf8 already turns each invalid byte into U+FFFD.
    return QString::fromUtf8(bytes.data(), qsizetype(bytes.size()));
}

std::string decodeHexEscapes(std::string_view text, std::string_view introducer)
{
    std::string out;
    out.reserve(text.size());
    const std::size_t n = introducer.size();
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i + n + 1 < text.size() && text.compare(i, n, introducer) == 0) {
            const int high = hexDigitValue(text[i + n]), low = hexDigitValue(text[i + n + 1]);
            if (high >= 0 && low >= 0) {
                out.push_back(char(high * 16 + low));
                i += n + 1;
                continue;
            }
        }
        out.push_back(text[i]);
    }
    return out;
}

} // namespace tarnbridge
