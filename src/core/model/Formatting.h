#pragma once

#include <cstdint>
#include <string>

namespace tarnbridge {

// A byte count in decimal units (1 kB = 1000 bytes), in the user's locale: "999 bytes",
// "12 kB", "3.4 MB", "1.25 GB".
std::string formattedBytes(std::int64_t value);

// A share of a total: "—" without a total, "0%", "<0.1%", else one decimal ("33.3%").
std::string formattedShare(std::int64_t value, std::int64_t total);

// `unixSeconds` written by strftime's `format`, in UTC or in the local time zone.
enum class ClockZone : std::uint8_t { utc, local };
std::string formattedTime(std::int64_t unixSeconds, const char* format, ClockZone zone);

// "10MB", "1.5 GB", "2000" (bytes) -> bytes, decimal units. Throws TarnbridgeError when the text
// is not a size.
std::int64_t parseByteCount(const std::string& text);

} // namespace tarnbridge
