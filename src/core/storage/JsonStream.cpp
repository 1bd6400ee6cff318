#include "storage/JsonStream.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "model/Errors.h"
#include "storage/GzipFile.h"
#include "storage/JsonEscape.h"

namespace tarnbridge {

JsonStream::JsonStream(ByteSource& source, std::string damaged)
    : source_(source), buffer_(new char[kChunk * 2 + kPadding]), damaged_(std::move(damaged))
{
    p_ = end_ = buffer_.get();
    std::memset(buffer_.get(), 0, kPadding);
    refill();
}

[[noreturn]] void JsonStream::fail(const std::string& what) const
{
    const std::uint64_t at = before_ + std::uint64_t(p_ - buffer_.get());
    throw TarnbridgeError(damaged_ + " at byte " + std::to_string(at) + ": " + what);
}

[[noreturn]] void JsonStream::failValue(std::string_view key, const char* what) const
{
    std::string text = "\"";
    text.append(key).append("\" ").append(what);
    fail(text);
}

void JsonStream::unexpected(const char* what)
{
    if (peek())
        fail(std::string("expected ") + what + ".");
    fail(std::string("it ends too early, where ") + what + " was expected.");
}

// Moves what is left to the front and reads more after it. False at the end of the input.
bool JsonStream::refill()
{
    if (eof_)
        return false;
    char* base = buffer_.get();
    const std::size_t left = std::size_t(end_ - p_);
    if (left >= kChunk)
        fail("a value is longer than 1 MiB.");
    if (p_ != base) {
        std::memmove(base, p_, left);
        before_ += std::uint64_t(p_ - base);
    }
    p_ = base;
    end_ = base + left;
    const std::size_t got = source_.read(base + left, kChunk * 2 - left);
    if (got == 0) {
        eof_ = true;
        std::memset(base + left, 0, kPadding);
        return false;
    }
    end_ += got;
    std::memset(const_cast<char*>(end_), 0, kPadding);
    return true;
}

std::string_view JsonStream::string()
{
    expect('"', "a string");
    for (;;) {
        // Most strings hold no escape: the closing quote is the first quote.
        const char* quote = static_cast<const char*>(std::memchr(p_, '"', std::size_t(end_ - p_)));
        if (quote) {
            const char* start = p_;
            const char* slash = static_cast<const char*>(std::memchr(start, '\\', std::size_t(quote - start)));
            if (!slash) {
                p_ = quote + 1;
                return {start, std::size_t(quote - start)};
            }
            const char* q = slash;
            while (q < end_ && *q != '"')
                q += *q == '\\' ? 2 : 1;
            if (q < end_) {
                if (!json::unescape(start, scratch_))
                    fail("a string holds an invalid escape.");
                p_ = q + 1;
                return scratch_;
            }
        }
        if (!refill())
            fail("it ends inside a string.");
    }
}

std::string_view JsonStream::shortString()
{
    expect('"', "a string");
    // A plain loop beats memchr on a few bytes; anything unusual goes the general way.
    const char* q = p_;
    while (q < end_ && *q != '"' && *q != '\\' && q - p_ < 24)
        ++q;
    if (q < end_ && *q == '"') {
        const std::string_view text(p_, std::size_t(q - p_));
        p_ = q + 1;
        return text;
    }
    --p_; // back to the opening quote, still in the buffer
    return string();
}

std::string_view JsonStream::numberToken()
{
    skipSpace();
    for (;;) {
        const char* q = p_;
        while (q < end_ && ((*q >= '0' && *q <= '9') || *q == '-' || *q == '+' || *q == '.' || *q == 'e' || *q == 'E'))
            ++q;
        if (q < end_ || eof_) {
            const std::string_view token(p_, std::size_t(q - p_));
            p_ = q;
            return token;
        }
        refill();
    }
}

std::int64_t JsonStream::integer(std::string_view key, std::int64_t min)
{
    // The usual case, a short run of digits, read in place: the padding ends the run.
    skipSpace();
    ensure(24);
    const char* q = p_;
    const bool negative = *q == '-';
    q += negative ? 1 : 0;
    std::uint64_t digits = 0;
    const char* first = q;
    while (*q >= '0' && *q <= '9' && q - first < 18)
        digits = digits * 10 + std::uint64_t(*q++ - '0');
    if (q != first && !(*q >= '0' && *q <= '9') && *q != '.' && *q != 'e' && *q != 'E') {
        const std::int64_t value = negative ? -std::int64_t(digits) : std::int64_t(digits);
        if (value < min)
            failValue(key, "is not a number in range.");
        p_ = q;
        return value;
    }
    const std::string_view token = numberToken();
    std::int64_t value = 0;
    const auto [ptr, error] = std::from_chars(token.data(), token.data() + token.size(), value);
    if (error == std::errc() && ptr == token.data() + token.size() && !token.empty() && value >= min)
        return value;
    // A number with a fraction or an exponent: its whole part.
    double real = 0;
    const auto [rptr, rerror] = std::from_chars(token.data(), token.data() + token.size(), real);
    if (rerror == std::errc() && rptr == token.data() + token.size() && !token.empty() &&
        std::isfinite(real) && real >= double(min) && real < 9.2e18)
        return std::int64_t(real);
    failValue(key, "is not a number in range.");
}

std::uint64_t JsonStream::unsignedInteger(std::string_view key)
{
    const std::string_view token = numberToken();
    std::uint64_t value = 0;
    const auto [ptr, error] = std::from_chars(token.data(), token.data() + token.size(), value);
    if (error != std::errc() || ptr != token.data() + token.size() || token.empty())
        failValue(key, "is not a number in range.");
    return value;
}

bool JsonStream::boolean(std::string_view key)
{
    skipSpace();
    ensure(5);
    if (std::memcmp(p_, "true", 4) == 0) {
        p_ += 4;
        return true;
    }
    if (std::memcmp(p_, "false", 5) == 0) {
        p_ += 5;
        return false;
    }
    failValue(key, "is not true or false.");
}

// Skips a value of a key we do not use, however deeply nested.
void JsonStream::skipValue()
{
    std::string open; // the containers we are inside: '{' or '['
    for (;;) {
        const char c = peek();
        if (c == '{' || c == '[') {
            ++p_;
            if (peek() == (c == '{' ? '}' : ']')) {
                ++p_;
            } else {
                open.push_back(c);
                if (c == '{') {
                    string();
                    expect(':', "\":\"");
                }
                continue;
            }
        } else if (c == '"') {
            string();
        } else if (c == 't' || c == 'f') {
            boolean("a value");
        } else if (c == 'n') {
            ensure(4);
            if (std::memcmp(p_, "null", 4) != 0)
                fail("expected a value.");
            p_ += 4;
        } else if (c == '-' || (c >= '0' && c <= '9')) {
            numberToken();
        } else {
            fail(c ? "expected a value." : "it ends too early, where a value was expected.");
        }
        // A value is complete: a comma (then a key in an object) or the end of its container.
        for (;;) {
            if (open.empty())
                return;
            const char after = next();
            if (after == ',') {
                if (open.back() == '{') {
                    string();
                    expect(':', "\":\"");
                }
                break;
            }
            if (after != (open.back() == '{' ? '}' : ']'))
                fail(after ? "expected \",\" or the end of a list." : "it ends too early, inside a list.");
            open.pop_back();
        }
    }
}

} // namespace tarnbridge
