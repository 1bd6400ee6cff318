#include "applications/ApplicationOwnership.h"

#include <algorithm>
#include <array>

#include "model/PathText.h"

namespace tarnbridge {

namespace {

// Programs that start something else: their name says nothing about whose data a folder is.
constexpr std::array<std::string_view, 10> kLaunchers{
    "flatpak", "env", "sh", "bash", "dash", "zsh", "perl", "python3", "python", "java"};

} // namespace

std::string_view rawValue(ApplicationKind kind)
{
    switch (kind) {
    case ApplicationKind::flatpak:
        return "flatpak";
    case ApplicationKind::snap:
        return "snap";
    case ApplicationKind::appImage:
        return "appimage";
    case ApplicationKind::home:
        return "home";
    case ApplicationKind::system:
        break;
    }
    return "system";
}

ApplicationOwnership ApplicationOwnership::read(const DesktopApplication& app)
{
    ApplicationOwnership out;
    auto add = [&](std::string_view id) {
        if (!id.empty() && id != "." && id != ".." && id.find('/') == std::string_view::npos)
            out.identifiers.emplace(id);
    };
    add(app.desktopId);
    add(app.flatpakId);
    add(app.startupWMClass);
    add(app.snapName);
    if (app.kind != ApplicationKind::flatpak && !app.program.empty()) {
        const std::string_view base = PathText::name(app.program);
        if (std::find(kLaunchers.begin(), kLaunchers.end(), base) == kLaunchers.end())
            add(base);
    }
    return out;
}

bool ApplicationOwnership::matches(std::string_view name) const
{
    for (const std::string& id : identifiers)
        if (name == id ||
            (name.size() > id.size() && name.starts_with(id) && name[id.size()] == '.'))
            return true;
    return false;
}

std::vector<ApplicationOwnership::KnownFolder>
ApplicationOwnership::supportSubpaths(std::string_view desktopId)
{
    using namespace LibraryRootKey;
    auto both = [](const char* subpath) {
        return std::vector<KnownFolder>{{config, subpath}, {cache, subpath}};
    };
    if (desktopId == "google-chrome")
        return both("google-chrome");
    if (desktopId == "chromium")
        return both("chromium");
    if (desktopId == "brave-browser")
        return both("BraveSoftware/Brave-Browser");
    if (desktopId == "code")
        return both("Code");
    if (desktopId == "firefox")
        return {{cache, "mozilla/firefox"}, {home, ".mozilla"}};
    return {};
}

} // namespace tarnbridge
