#pragma once

#include <QUuid>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "model/CancellationFlag.h"
#include "monitor/SystemSampler.h"
#include "scan/ScanProgress.h"

namespace tarnbridge::app {

// A path or name for the screen: names are bytes, and a byte that is not UTF-8 shows as U+FFFD.
inline QString displayText(std::string_view bytes)
{
    return QString::fromUtf8(bytes.data(), qsizetype(bytes.size()));
}

// The sidebar's sections, in their order.
enum class AppSection { explore, duplicates, applications, monitor, snapshots, cleanup };
// The storage views, in their order.
enum class StorageView { treemap, folders, sunburst, flame, bubbles, mindMap, topSizes, ageMap, table };
enum class ColorMode { folder, type, age };
enum class AppTheme { paper, linen, sage, mist, slate };

// The views a running scan can show: the charts and the folder list.
bool showsDuringScan(StorageView view);

// "Paper", "Linen", …: the name kept in the settings.
const char* themeName(AppTheme theme);
// An unknown name gives paper.
AppTheme themeNamed(const QString& name);

enum class ToastAction { cleanup };

struct TarnbridgeToast {
    QUuid id;
    QString title;
    QString detail;
    std::optional<ToastAction> action;
    QString actionTitle;
};

// What the folder panel is asked for.
struct FolderRequest {
    QString title;   // the window title; may be empty
    QString prompt;  // the accept button
    QString message; // the line above the list
    QString startFolder;
};

// What the file dialog is asked for: a file to save (`suggestedName` offered) or to open.
struct FileRequest {
    QString title;
    QString suggestedName;
    QString filter; // as Qt's dialogs take it: "CSV files (*.csv)"
    bool save = true;
};

// What the model takes from the desktop and the machine, so that tests can stand in for both.
struct AppServices {
    // The folder panel: the chosen folder, or nothing when the user cancels.
    std::function<std::optional<std::string>(const FolderRequest&)> chooseFolder;
    // The file dialog: the chosen path, or nothing when the user cancels (or no dialog is set).
    std::function<std::optional<std::string>(const FileRequest&)> chooseFile;
    // Makes the monitor's source of readings; each call of the result is one reading, made on a
    // worker thread, one at a time. A SystemSampler by default.
    std::function<std::function<MonitorSample()>()> makeSampler;
    // The local system-snapshot names of a volume (SystemSampler::timeMachineSnapshots by default).
    std::function<std::vector<std::string>(const std::string&)> systemSnapshots;
    // The user's home folder, links resolved (platform::currentHome() by default).
    std::string home;
    // Walks a tree on the scan's worker thread (DiskScanner::scan by default); tests wrap it
    // to hold the worker at a point of their choosing.
    std::function<ScanResult(const std::string& root, const CancellationFlag&, ScanNavigation*,
                             const ScanProgressCallback&)>
        scan;
};

} // namespace tarnbridge::app
