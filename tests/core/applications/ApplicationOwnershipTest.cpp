#include <gtest/gtest.h>

#include "applications/ApplicationOwnership.h"

using namespace tarnbridge;

using Ids = std::set<std::string>;

TEST(ApplicationOwnership, IdentifiersComeFromTheEntryAndItsProgram)
{
    auto app = [](ApplicationKind kind, std::string id, std::string program, std::string flatpak = {},
                  std::string wmClass = {}, std::string snap = {}) {
        DesktopApplication a;
        a.kind = kind;
        a.desktopId = std::move(id);
        a.program = std::move(program);
        a.flatpakId = std::move(flatpak);
        a.startupWMClass = std::move(wmClass);
        a.snapName = std::move(snap);
        return a;
    };
    const struct {
        DesktopApplication app;
        Ids expected;
    } cases[] = {
        {app(ApplicationKind::system, "org.gnome.TextEditor", "/usr/bin/gnome-text-editor", "", "TextEd"),
         {"org.gnome.TextEditor", "gnome-text-editor", "TextEd"}},
        // The Flatpak launcher names no application; the sandbox id does.
        {app(ApplicationKind::flatpak, "org.mozilla.firefox", "/usr/bin/flatpak", "org.mozilla.firefox"),
         {"org.mozilla.firefox"}},
        {app(ApplicationKind::snap, "tool_tool", "/snap/bin/tool", "", "", "tool"), {"tool_tool", "tool"}},
        {app(ApplicationKind::system, "runner", "sh"), {"runner"}},
        {app(ApplicationKind::home, "launcher", "python3"), {"launcher"}},
        {app(ApplicationKind::appImage, "tool", "/home/u/Tool.AppImage"), {"tool", "Tool.AppImage"}},
        {app(ApplicationKind::system, "x", ""), {"x"}},
        // Names that could leave a folder never become identifiers.
        {app(ApplicationKind::system, "x", "/usr/bin/y", "", ".."), {"x", "y"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ApplicationOwnership::read(c.app).identifiers, c.expected) << c.app.desktopId;
}

TEST(ApplicationOwnership, NamesMatchAnIdentifierOrItsDottedExtensions)
{
    const ApplicationOwnership ownership{{"org.example.App", "tool", "com"}};
    const struct {
        const char* name;
        bool matches;
    } cases[] = {
        {"org.example.App", true},          {"org.example.App.Helper", true},
        {"org.example.Application", false}, {"org.example.app", false}, // exact case
        {"org.example", false},             {"tool", true},
        {"tool.conf", true},                {"tools", false},
        {"tool-2", false},                  {"com.anything.at.all", true}, // no minimum length
        {"", false},                        {".tool", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ownership.matches(c.name), c.matches) << c.name;
    EXPECT_FALSE(ApplicationOwnership{}.matches("anything"));
}

TEST(ApplicationOwnership, KnownProductFoldersByDesktopId)
{
    using Known = std::vector<ApplicationOwnership::KnownFolder>;
    EXPECT_EQ(ApplicationOwnership::supportSubpaths("google-chrome"),
              (Known{{"Config", "google-chrome"}, {"Cache", "google-chrome"}}));
    EXPECT_EQ(ApplicationOwnership::supportSubpaths("brave-browser"),
              (Known{{"Config", "BraveSoftware/Brave-Browser"}, {"Cache", "BraveSoftware/Brave-Browser"}}));
    EXPECT_EQ(ApplicationOwnership::supportSubpaths("code"), (Known{{"Config", "Code"}, {"Cache", "Code"}}));
    EXPECT_EQ(ApplicationOwnership::supportSubpaths("chromium"),
              (Known{{"Config", "chromium"}, {"Cache", "chromium"}}));
    EXPECT_EQ(ApplicationOwnership::supportSubpaths("firefox"),
              (Known{{"Cache", "mozilla/firefox"}, {"Home", ".mozilla"}}));
    for (const char* other : {"Code", "org.mozilla.firefox", "firefox-esr", ""})
        EXPECT_TRUE(ApplicationOwnership::supportSubpaths(other).empty()) << other;
}
