#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace tarnbridge {

template <class Value, std::size_t Slots>
class ExtensionTable;

// The seven kinds of file, told apart by the extension of the name alone.
class FileCategory {
public:
    enum Value : std::uint8_t { video, audio, image, document, developer, archive, other };

    constexpr FileCategory(Value value) : value_(value) {}
    constexpr operator Value() const { return value_; }

    static FileCategory classify(std::string_view path);
    // The same for a key from extensionKey: for walks that look at each name once.
    static FileCategory classifyKey(std::uint64_t key);
    // The table behind classifyKey, for a walk to hold on to and look keys up in place.
    static const ExtensionTable<Value, 256>& keyTable();
    // The extension of a name (no slash in it) lower-cased and packed into one number, first
    // byte highest; 0 when there is none or it is longer than 8 bytes, as no rule knows one.
    static std::uint64_t extensionKey(std::string_view name)
    {
        if (name.size() < 9)
            return extensionKeyOfShortName(name);
        // Eight bytes at a time, without a branch per byte: the last eight bytes, first byte
        // highest, and the byte before them.
        std::uint64_t tail;
        std::memcpy(&tail, name.data() + name.size() - 8, 8);
        if constexpr (std::endian::native == std::endian::little)
            tail = __builtin_bswap64(tail);
        constexpr std::uint64_t ones = 0x0101010101010101ull, low7 = 0x7F7F7F7F7F7F7F7Full;
        const std::uint64_t x = tail ^ (ones * '.');
        const std::uint64_t dots = ~(((x & low7) + low7) | x | low7); // 0x80 in each '.' byte
        std::size_t length; // of the extension
        if (dots != 0)
            length = std::size_t(std::countr_zero(dots)) / 8; // the lowest dot is the last one
        else if (name[name.size() - 9] == '.' && name.size() > 9)
            length = 8;
        else
            return 0;
        if (length == 0)
            return 0;
        // 'A'..'Z' to lower case, bytes of 0x80 and above untouched.
        const std::uint64_t seven = tail & low7;
        const std::uint64_t atLeastA = seven + ones * (0x80 - 'A');
        const std::uint64_t aboveZ = seven + ones * (0x80 - 'Z' - 1);
        const std::uint64_t upper = atLeastA & ~aboveZ & ~tail & (ones * 0x80);
        const std::uint64_t lowered = tail | upper >> 2;
        return length == 8 ? lowered : lowered & ((std::uint64_t(1) << (8 * length)) - 1);
    }
    static const std::array<FileCategory, 7>& allCases();
    static std::optional<FileCategory> fromRawValue(std::string_view raw);

    // The plural heading of lists and filters ("Images").
    std::string_view rawValue() const;
    // The singular word for one file ("Image").
    std::string_view displayName() const;

private:
    static std::uint64_t extensionKeyOfShortName(std::string_view name)
    {
        for (std::size_t i = name.size(); i-- > 0;) {
            if (name[i] != '.')
                continue;
            if (i == 0)
                return 0; // ".bashrc": a hidden name, not an extension
            std::uint64_t key = 0;
            for (std::size_t k = i + 1; k < name.size(); ++k) {
                const char c = name[k];
                key = key << 8 | std::uint8_t(c >= 'A' && c <= 'Z' ? c + 32 : c);
            }
            return key;
        }
        return 0;
    }

    Value value_;
};

} // namespace tarnbridge
