#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnbridge {

// The seven kinds of file, told apart by the extension of the name alone.
class FileCategory {
public:
    enum Value : std::uint8_t { video, audio, image, document, developer, archive, other };

    constexpr FileCategory(Value value) : value_(value) {}
    constexpr operator Value() const { return value_; }

    static FileCategory classify(std::string_view path);
    static const std::array<FileCategory, 7>& allCases();
    static std::optional<FileCategory> fromRawValue(std::string_view raw);

    // The plural heading of lists and filters ("Images").
    std::string_view rawValue() const;
    // The singular word for one file ("Image").
    std::string_view displayName() const;

private:
    Value value_;
};

} // namespace tarnbridge
