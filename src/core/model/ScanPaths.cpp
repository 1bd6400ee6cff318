#include "model/ScanPaths.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>

#include "model/PathText.h"

namespace tarnbridge::ScanPaths {

const ScanPathsProfile& macOSProfile()
{
    static const ScanPathsProfile profile{"/System/Volumes/Data", {"/var", "/tmp", "/etc"}, "/private"};
    return profile;
}

const ScanPathsProfile& linuxProfile()
{
    static const ScanPathsProfile profile = [] {
        ScanPathsProfile p;
        p.privatePrefix = "/usr";
        for (const char* alias : {"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"}) {
            std::array<char, PATH_MAX> target{};
            const ssize_t n = ::readlink(alias, target.data(), target.size() - 1);
            if (n <= 0)
                continue;
            const std::string_view t(target.data(), size_t(n));
            const std::string expected = std::string("usr") + alias;
            if (t == expected || t == "/" + expected)
                p.aliases.emplace_back(alias);
        }
        return p;
    }();
    return profile;
}

std::string normalize(std::string_view path)
{
    std::vector<std::string_view> parts;
    size_t i = 0;
    while (i <= path.size()) {
        size_t j = path.find('/', i);
        if (j == std::string_view::npos)
            j = path.size();
        const std::string_view part = path.substr(i, j - i);
        if (part.empty() || part == ".") {
        } else if (part == "..") {
            if (!parts.empty())
                parts.pop_back();
        } else {
            parts.push_back(part);
        }
        i = j + 1;
    }
    if (parts.empty())
        return "/";
    std::string out;
    for (auto part : parts) {
        out.push_back('/');
        out.append(part);
    }
    return out;
}

std::vector<std::string> candidates(std::string_view path, const ScanPathsProfile& profile)
{
    if (path.empty() || path.front() != '/' || path.find('\0') != std::string_view::npos)
        return {};
    const std::string normalized = normalize(path);

    std::string visible = normalized;
    if (!profile.dataRoot.empty() && PathText::contains(normalized, profile.dataRoot)) {
        visible.erase(0, profile.dataRoot.size());
        if (visible.empty())
            visible.push_back('/');
    }

    std::vector<std::string> variants{visible};
    for (const auto& alias : profile.aliases) {
        if (PathText::contains(visible, alias))
            variants.push_back(profile.privatePrefix + visible);
        const std::string privateAlias = profile.privatePrefix + alias;
        if (PathText::contains(visible, privateAlias))
            variants.push_back(visible.substr(profile.privatePrefix.size()));
    }

    std::vector<std::string> result{normalized};
    auto add = [&result](std::string value) {
        if (std::find(result.begin(), result.end(), value) == result.end())
            result.push_back(std::move(value));
    };
    for (const auto& variant : variants) {
        add(variant);
        if (!profile.dataRoot.empty())
            add(variant == "/" ? profile.dataRoot : profile.dataRoot + variant);
    }
    return result;
}

} // namespace tarnbridge::ScanPaths
