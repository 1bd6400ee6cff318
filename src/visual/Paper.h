#pragma once

#include <QColor>

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "model/DiskNode.h"
#include "query/FileCategory.h"

namespace tarnbridge {

enum class ColorMode : std::uint8_t { folder, type, age };
std::string_view rawValue(ColorMode mode); // "By folder", "By type", "By age"
std::optional<ColorMode> colorModeFromRaw(std::string_view raw);

enum class StorageView : std::uint8_t { treemap, folders, sunburst, flame, bubbles, mindMap, topSizes, ageMap, table };
std::string_view rawValue(StorageView view); // "Treemap", …, "Mind Map", …
std::optional<StorageView> storageViewFromRaw(std::string_view raw);
bool isGraph(StorageView view);
bool supportsColor(StorageView view);

// The product's colours: a palette with a light and a dark value per entry, and the shades of
// nested items derived from it.
namespace Paper {

struct Adaptive {
    QColor light;
    QColor dark;
    QColor resolved(bool dark) const { return dark ? this->dark : light; }
};

const std::array<Adaptive, 9>& colors();

// The colour of a file category: the charts' "by type" colours, also the type bars'.
Adaptive color(FileCategory category);

// The fixed table of well-known top-level folders, else djb2 of the name.
std::size_t folderIndex(std::string_view name);
std::uint64_t djb2(std::string_view bytes);

// The colour of a record: by its top folder below `root` (shaded when deeper), by its file
// type, or by its age at `now` (Unix seconds).
Adaptive color(std::string_view path, std::int64_t modified, ColorMode mode, std::string_view root, double now);
inline Adaptive color(const DiskNode& node, ColorMode mode, std::string_view root, double now)
{
    return color(node.path, node.modified, mode, root, now);
}

// The colours around the marks.
struct Theme {
    QColor ink;        // label text
    QColor surface;    // centre discs
    QColor background; // behind the chart
    QColor border;     // mark outlines
};
Theme theme(bool dark);

} // namespace Paper
} // namespace tarnbridge
