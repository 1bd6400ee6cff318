#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "query/FileCategory.h"

namespace tarnbridge {

// A fixed map from lower-case extensions to values, looked up by FileCategory::extensionKey.
// Open addressing: one multiply and usually one probe per name, for lookups that run on every
// file of a walk.
template <class Value, std::size_t Slots = 256>
class ExtensionTable {
    static_assert((Slots & (Slots - 1)) == 0, "a power of two");

public:
    explicit ExtensionTable(Value missing) : missing_(missing) { values_.fill(missing); }

    // Extensions longer than 8 bytes have no key and cannot be added.
    void add(std::string_view extension, Value value)
    {
        const std::uint64_t key = FileCategory::extensionKey(std::string("x.").append(extension));
        if (key == 0 || ++count_ > Slots / 2)
            throw std::logic_error("extension table: unusable extension or table full");
        std::size_t s = slotOf(key);
        while (keys_[s] != 0 && keys_[s] != key)
            s = (s + 1) & (Slots - 1);
        keys_[s] = key;
        values_[s] = value;
    }

    Value find(std::uint64_t key) const
    {
        if (key == 0)
            return missing_;
        for (std::size_t s = slotOf(key);; s = (s + 1) & (Slots - 1)) {
            if (keys_[s] == key)
                return values_[s];
            if (keys_[s] == 0)
                return missing_;
        }
    }

private:
    static std::size_t slotOf(std::uint64_t key)
    {
        constexpr unsigned shift = 64 - std::countr_zero(Slots);
        return std::size_t((key * 0x9E3779B97F4A7C15ull) >> shift);
    }

    std::array<std::uint64_t, Slots> keys_{};
    std::array<Value, Slots> values_{};
    Value missing_;
    std::size_t count_ = 0;
};

} // namespace tarnbridge
