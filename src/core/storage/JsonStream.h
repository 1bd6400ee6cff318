#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

namespace tarnbridge {

class ByteSource;

// JSON read token by token from a stream, through a buffer of a few MiB: no document in
// memory. Each error names the byte where it was found.
class JsonStream {
public:
    // `damaged` starts every error: "<damaged> at byte N: what."
    JsonStream(ByteSource& source, std::string damaged);

    // The next byte that is not white space, left in place; 0 at the end.
    char peek()
    {
        skipSpace();
        return p_ < end_ ? *p_ : 0;
    }
    // The same, consumed.
    char next()
    {
        const char c = peek();
        if (c)
            ++p_;
        return c;
    }
    void advance() { ++p_; } // past what peek() gave
    void expect(char c, const char* what)
    {
        if (peek() != c)
            unexpected(what);
        ++p_;
    }
    std::string_view string(); // valid until the next read
    std::string_view shortString(); // the same, quicker for a key
    std::int64_t integer(std::string_view key, std::int64_t min = std::numeric_limits<std::int64_t>::min());
    std::uint64_t unsignedInteger(std::string_view key);
    bool boolean(std::string_view key);
    // Skips a value, however deeply nested.
    void skipValue();
    [[noreturn]] void fail(const std::string& what) const;
    [[noreturn]] void failValue(std::string_view key, const char* what) const;

private:
    bool refill();
    void skipSpace()
    {
        for (;;) {
            while (p_ < end_ && (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t'))
                ++p_;
            if (p_ < end_ || !refill())
                return;
        }
    }
    [[noreturn]] void unexpected(const char* what);
    // At least `bytes` buffered from p_ on, unless the input ends first.
    void ensure(std::ptrdiff_t bytes)
    {
        while (end_ - p_ < bytes && refill()) {
        }
    }
    std::string_view numberToken();

    static constexpr std::size_t kChunk = 1 << 20;
    // Bytes kept zero after the data: a literal or a number is looked at without a bounds test.
    static constexpr std::size_t kPadding = 64;

    ByteSource& source_;
    std::unique_ptr<char[]> buffer_;
    const char* p_ = nullptr;
    const char* end_ = nullptr;
    std::uint64_t before_ = 0; // bytes of the input that lie before buffer_
    bool eof_ = false;
    std::string scratch_;
    std::string damaged_;
};

} // namespace tarnbridge
