#pragma once

#include <string>

// The freedesktop.org Trash, kept by us so that file managers, gio and trash-cli see our items
// as their own. Items are only ever renamed: never copied, never deleted.
namespace tarnbridge::Trash {

// $XDG_DATA_HOME/Trash (default ~/.local/share/Trash).
std::string homeTrash();

struct TrashFolder {
    std::string path;      // holds files/ and info/
    std::string volumeTop; // the volume's top folder; empty for the home trash
};

// The trash folder that takes `path`: the home trash when the item is on its file system, else
// the volume's own. Creates what is missing, mode 0700. Throws TarnbridgeError when the volume
// has no usable trash.
TrashFolder trashFor(const std::string& path);

// Moves `path` into its trash and returns the item's new absolute path. The .trashinfo is
// written first and removed again when the move fails, so nothing is in the trash without it.
std::string moveToTrash(const std::string& path);

// Moves a trashed item back to `originalPath` (never over an existing item) and removes its
// .trashinfo and its directorysizes line. Throws std::system_error when the move fails.
void putBack(const std::string& trashPath, const std::string& originalPath);

// Percent-encoding of a path as .trashinfo files hold it, and back.
std::string encodePath(const std::string& path);
std::string decodePath(const std::string& text);

inline constexpr const char* kNoUsableTrash = "This volume has no usable Trash folder. Nothing was moved.";

} // namespace tarnbridge::Trash
