#include "query/FileCategory.h"

#include <string>

#include "model/PathText.h"
#include "query/ExtensionTable.h"

namespace tarnbridge {

namespace {

struct Entry {
    std::string_view extension;
    FileCategory::Value category;
};

// The whole rule, deliberately short: "tif", "ppt" and "mpg" are Other.
constexpr Entry kExtensions[] = {
    {"mov", FileCategory::video}, {"mp4", FileCategory::video}, {"mkv", FileCategory::video},
    {"avi", FileCategory::video}, {"webm", FileCategory::video}, {"m4v", FileCategory::video},
    {"mp3", FileCategory::audio}, {"wav", FileCategory::audio}, {"flac", FileCategory::audio},
    {"aac", FileCategory::audio}, {"m4a", FileCategory::audio}, {"aiff", FileCategory::audio},
    {"png", FileCategory::image}, {"jpg", FileCategory::image}, {"jpeg", FileCategory::image},
    {"heic", FileCategory::image}, {"gif", FileCategory::image}, {"webp", FileCategory::image},
    {"tiff", FileCategory::image}, {"raw", FileCategory::image}, {"svg", FileCategory::image},
    {"psd", FileCategory::image},
    {"pdf", FileCategory::document}, {"doc", FileCategory::document}, {"docx", FileCategory::document},
    {"txt", FileCategory::document}, {"md", FileCategory::document}, {"rtf", FileCategory::document},
    {"pages", FileCategory::document}, {"xls", FileCategory::document}, {"xlsx", FileCategory::document},
    {"csv", FileCategory::document}, {"pptx", FileCategory::document}, {"key", FileCategory::document},
    {"numbers", FileCategory::document},
    {"swift", FileCategory::developer}, {"js", FileCategory::developer}, {"ts", FileCategory::developer},
    {"tsx", FileCategory::developer}, {"jsx", FileCategory::developer}, {"py", FileCategory::developer},
    {"go", FileCategory::developer}, {"rs", FileCategory::developer}, {"c", FileCategory::developer},
    {"cpp", FileCategory::developer}, {"h", FileCategory::developer}, {"json", FileCategory::developer},
    {"html", FileCategory::developer}, {"css", FileCategory::developer}, {"map", FileCategory::developer},
    {"o", FileCategory::developer}, {"a", FileCategory::developer}, {"dylib", FileCategory::developer},
    {"class", FileCategory::developer}, {"xcassets", FileCategory::developer},
    {"zip", FileCategory::archive}, {"gz", FileCategory::archive}, {"tar", FileCategory::archive},
    {"dmg", FileCategory::archive}, {"pkg", FileCategory::archive}, {"7z", FileCategory::archive},
    {"rar", FileCategory::archive}, {"xz", FileCategory::archive},
};

constexpr std::string_view kRaw[] = {"Video", "Audio", "Images", "Documents", "Developer", "Archives", "Other"};
constexpr std::string_view kDisplay[] = {"Video", "Audio", "Image", "Document", "Developer", "Archive", "Other"};

} // namespace

const ExtensionTable<FileCategory::Value, 256>& FileCategory::keyTable()
{
    static const ExtensionTable<FileCategory::Value> table = [] {
        ExtensionTable<FileCategory::Value> t(FileCategory::other);
        for (const Entry& entry : kExtensions)
            t.add(entry.extension, entry.category);
        return t;
    }();
    return table;
}

FileCategory FileCategory::classifyKey(std::uint64_t key)
{
    return keyTable().find(key);
}

FileCategory FileCategory::classify(std::string_view path)
{
    return classifyKey(extensionKey(PathText::name(path)));
}

const std::array<FileCategory, 7>& FileCategory::allCases()
{
    static const std::array<FileCategory, 7> cases{video, audio, image, document, developer, archive, other};
    return cases;
}

std::optional<FileCategory> FileCategory::fromRawValue(std::string_view raw)
{
    for (FileCategory c : allCases())
        if (c.rawValue() == raw)
            return c;
    return std::nullopt;
}

std::string_view FileCategory::rawValue() const { return kRaw[value_]; }
std::string_view FileCategory::displayName() const { return kDisplay[value_]; }

} // namespace tarnbridge
