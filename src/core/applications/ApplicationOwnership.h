#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tarnbridge {

// How an application came onto the machine; decides what its "bundle" is.
enum class ApplicationKind : std::uint8_t {
    flatpak,  // the deployment folder …/flatpak/app/ID
    snap,     // /snap/NAME
    appImage, // the image file
    home,     // a program unpacked in the home folder: its top folder there
    system,   // anything else: the resolved executable alone
};
std::string_view rawValue(ApplicationKind kind);

// One installed application as its desktop entry and its program describe it, before anything
// is measured.
struct DesktopApplication {
    std::string desktopId; // the desktop-file id without ".desktop"
    std::string entryPath; // the .desktop file that won
    std::string name;      // Name in the user's language
    std::string plainName; // Name without localisation
    std::string program;   // the Exec program as written, after any "env VAR=…"
    std::string flatpakId;
    std::string snapName;
    std::string startupWMClass;
    std::string icon;
    ApplicationKind kind = ApplicationKind::system;
    std::string path;       // what is measured, and what an uninstall would move
    std::string executable; // the program file whose access time says when it was last used
    std::string version = "—";
};

// The names under which an application keeps data in the user's folders, and the test of a
// folder name against them.
struct ApplicationOwnership {
    std::set<std::string> identifiers;

    // The desktop-file id, the Flatpak id, StartupWMClass, the Exec program's base name (not
    // for a launcher such as "flatpak" or "sh", which names no application) and the snap name.
    static ApplicationOwnership read(const DesktopApplication& app);

    // `name` is an identifier or starts with one followed by "." ("org.gimp.GIMP.Settings"),
    // in exact case.
    bool matches(std::string_view name) const;

    // Data folders of well-known products that carry no identifier of theirs, by desktop-file id:
    // the library root's key and the path below it.
    struct KnownFolder {
        std::string root;
        std::string subpath;
        bool operator==(const KnownFolder&) const = default;
    };
    static std::vector<KnownFolder> supportSubpaths(std::string_view desktopId);
};

// Keys of the library folders the inventory reads.
namespace LibraryRootKey {
inline constexpr const char* config = "Config";
inline constexpr const char* cache = "Cache";
inline constexpr const char* data = "Data";
inline constexpr const char* state = "State";
inline constexpr const char* sandbox = "Sandbox";
inline constexpr const char* snap = "Snap";
inline constexpr const char* home = "Home";
inline constexpr const char* autostart = "Autostart";
} // namespace LibraryRootKey

} // namespace tarnbridge
