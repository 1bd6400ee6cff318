#include "visual/Paper.h"

#include <algorithm>

#include "model/PathText.h"
#include "query/FileCategory.h"

namespace tarnbridge {

namespace {

constexpr std::string_view kColorModes[] = {"By folder", "By type", "By age"};
constexpr std::string_view kViews[] = {"Treemap",  "Folders",   "Sunburst", "Flame", "Bubbles",
                                       "Mind Map", "Top Sizes", "Age Map",  "Table"};

QColor hex(unsigned rgb)
{
    return QColor::fromRgb(int(rgb >> 16), int((rgb >> 8) & 0xFF), int(rgb & 0xFF));
}

} // namespace

std::string_view rawValue(ColorMode mode)
{
    return kColorModes[std::size_t(mode)];
}

std::optional<ColorMode> colorModeFromRaw(std::string_view raw)
{
    for (std::size_t i = 0; i < std::size(kColorModes); ++i)
        if (kColorModes[i] == raw)
            return ColorMode(i);
    return std::nullopt;
}

std::string_view rawValue(StorageView view)
{
    return kViews[std::size_t(view)];
}

std::optional<StorageView> storageViewFromRaw(std::string_view raw)
{
    for (std::size_t i = 0; i < std::size(kViews); ++i)
        if (kViews[i] == raw)
            return StorageView(i);
    return std::nullopt;
}

bool isGraph(StorageView view)
{
    return view == StorageView::treemap || view == StorageView::sunburst || view == StorageView::flame ||
           view == StorageView::bubbles || view == StorageView::mindMap;
}

bool supportsColor(StorageView view)
{
    return isGraph(view) || view == StorageView::folders || view == StorageView::topSizes;
}

namespace Paper {

const std::array<Adaptive, 9>& colors()
{
    static const std::array<Adaptive, 9> table{{
        {hex(0xEFDDB5), hex(0x66583D)},
        {hex(0xE9CCD4), hex(0x694B53)},
        {hex(0xD9DFCB), hex(0x4D5D47)},
        {hex(0xD2E1EC), hex(0x415D69)},
        {hex(0xDBD6E8), hex(0x574D69)},
        {hex(0xE8D3C2), hex(0x67503E)},
        {hex(0xCBE0D9), hex(0x3B6257)},
        {hex(0xE9DFCD), hex(0x665F4A)},
        {hex(0xD6DCD7), hex(0x485B51)},
    }};
    return table;
}

std::uint64_t djb2(std::string_view bytes)
{
    std::uint64_t hash = 5381;
    for (unsigned char c : bytes)
        hash = hash * 33 + c;
    return hash;
}

std::size_t folderIndex(std::string_view name)
{
    static constexpr std::pair<std::string_view, std::size_t> kFixed[] = {
        {"Library", 0}, {"Downloads", 1}, {"Documents", 2}, {"Movies", 3}, {"Developer", 4},
        {"Pictures", 5}, {".npm", 6},     {"Music", 7},     {"Desktop", 8}};
    for (const auto& [folder, index] : kFixed)
        if (folder == name)
            return index;
    return std::size_t(djb2(name) % colors().size());
}

Adaptive color(FileCategory category)
{
    const auto& palette = colors();
    const auto& all = FileCategory::allCases();
    const auto position = std::size_t(std::find(all.begin(), all.end(), category) - all.begin());
    return palette[position % palette.size()];
}

Adaptive color(std::string_view path, std::int64_t modified, ColorMode mode, std::string_view root, double now)
{
    const auto& palette = colors();
    switch (mode) {
    case ColorMode::type: return color(FileCategory::classify(path));
    case ColorMode::age: {
        const double days = (now - double(modified)) / 86400.0;
        if (days < 30)
            return palette[6];
        if (days < 180)
            return palette[2];
        if (days < 365)
            return palette[0];
        return palette[1];
    }
    case ColorMode::folder: break;
    }
    const std::string_view name = PathText::name(path);
    std::string_view relative = name;
    if (root == "/" ? (path.size() > 1 && path.front() == '/')
                    : (path.size() > root.size() + 1 && path.substr(0, root.size()) == root && path[root.size()] == '/'))
        relative = path.substr(root == "/" ? 1 : root.size() + 1);
    std::string_view first = name;
    std::size_t start = 0;
    while (start < relative.size() && relative[start] == '/')
        ++start;
    if (start < relative.size())
        first = relative.substr(start, relative.find('/', start) - start);
    const std::size_t index = folderIndex(first);
    if (relative.find('/') == std::string_view::npos)
        return palette[index];

    // A shade of the top folder's base colour, the same for the same place every time.
    static constexpr unsigned kBase[] = {0xD8C6A7, 0xCA99B3, 0xAABE96, 0x9FBFD4, 0xB1A7C9,
                                         0xD3B697, 0x94BFB1, 0xC3B699, 0xA9BDB0};
    const double delta = double(djb2(relative) % 25) / 100.0 - 0.12;
    const unsigned base = kBase[index];
    int light[3], dark[3];
    for (int channel = 0; channel < 3; ++channel) {
        const double c = double((base >> (16 - 8 * channel)) & 0xFF);
        const double v = std::clamp(c / 255.0 + delta, 0.0, 1.0);
        light[channel] = int(v * 255);
        dark[channel] = int(v * 100 + 22);
    }
    return {QColor::fromRgb(light[0], light[1], light[2]), QColor::fromRgb(dark[0], dark[1], dark[2])};
}

Theme theme(bool dark)
{
    if (dark)
        return {hex(0xEDE6D8), hex(0x2C2823), hex(0x1E1B17), hex(0x1E1B17)};
    return {hex(0x2B2620), hex(0xFBF8F1), hex(0xF6F1E6), hex(0xF6F1E6)};
}

} // namespace Paper
} // namespace tarnbridge
