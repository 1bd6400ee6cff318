#pragma once

#include <QString>

#include <string>

class QMimeData;

namespace tarnbridge::app::DesktopServices {

// Asks the file manager to show the item selected in its folder (org.freedesktop.FileManager1);
// without one on the session bus, opens the parent folder instead. Never blocks.
void showInFileManager(const QString& path);

// Shows the file in the desktop's previewer (org.gnome.NautilusPreviewer) where it runs;
// otherwise opens it with its default program. Never blocks.
void preview(const QString& path);

// Puts the path on the clipboard as text and as a file URL.
void copyPath(const QString& path);

// A path as the clipboard and drag and drop carry it: text and a file URL, byte for byte.
QMimeData* fileData(const std::string& path);

} // namespace tarnbridge::app::DesktopServices
