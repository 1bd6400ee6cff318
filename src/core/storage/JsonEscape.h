#pragma once

#include <string>

#include "model/TextEncoding.h"

namespace tarnbridge::json {

// Unescapes the raw JSON string that starts at `p` (just after its opening quote) and ends at
// the first unescaped quote, into `out`. A lone low surrogate \udc80..\udcff stands for the
// single byte 80..FF of a name that is not UTF-8. Returns false on an escape that means nothing.
// Inline: the scan-file reader calls it for every path.
inline bool unescape(const char* p, std::string& out);


namespace detail {

inline bool readHex4(const char* p, unsigned& out)
{
    out = 0;
    for (int i = 0; i < 4; ++i) {
        const int v = hexDigitValue(p[i]);
        if (v < 0)
            return false;
        out = out << 4 | unsigned(v);
    }
    return true;
}

inline void appendUtf8(std::string& out, unsigned cp)
{
    if (cp < 0x80) {
        out.push_back(char(cp));
    } else if (cp < 0x800) {
        out.push_back(char(0xC0 | (cp >> 6)));
        out.push_back(char(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(char(0xE0 | (cp >> 12)));
        out.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(char(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(char(0xF0 | (cp >> 18)));
        out.push_back(char(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(char(0x80 | (cp & 0x3F)));
    }
}

} // namespace detail

inline bool unescape(const char* p, std::string& out)
{
    using namespace detail;
    out.clear();
    for (;;) {
        const char* run = p;
        while (*run != '"' && *run != '\\')
            ++run;
        out.append(p, std::size_t(run - p));
        if (*run == '"')
            return true;
        p = run + 1; // after the backslash
        switch (*p) {
        case '"': out.push_back('"'); break;
        case '\\': out.push_back('\\'); break;
        case '/': out.push_back('/'); break;
        case 'b': out.push_back('\b'); break;
        case 'f': out.push_back('\f'); break;
        case 'n': out.push_back('\n'); break;
        case 'r': out.push_back('\r'); break;
        case 't': out.push_back('\t'); break;
        case 'u': {
            unsigned cp = 0;
            if (!readHex4(p + 1, cp))
                return false;
            p += 4;
            if (cp >= 0xD800 && cp <= 0xDBFF) {
                unsigned low = 0;
                if (p[1] == '\\' && p[2] == 'u' && readHex4(p + 3, low) && low >= 0xDC00 && low <= 0xDFFF) {
                    appendUtf8(out, 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00));
                    p += 6;
                } else {
                    return false;
                }
            } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
                if (cp < 0xDC80 || cp > 0xDCFF)
                    return false;
                out.push_back(char(cp - 0xDC00));
            } else {
                appendUtf8(out, cp);
            }
            break;
        }
        default: return false;
        }
        p += 1;
    }
}

} // namespace tarnbridge::json
