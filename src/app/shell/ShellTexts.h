#pragma once

#include <QIcon>
#include <QString>

#include <cstdint>
#include <string>

#include "app/model/AppTypes.h"
#include "model/ScanResult.h"

namespace tarnbridge::app {

class AppModel;

// The names and icons the shell shows for the model's enumerations, and the few texts more
// than one part of the window needs.
namespace ShellTexts {

QString sectionName(AppSection section);
QIcon sectionIcon(AppSection section);
QString storageViewName(StorageView view);
// The footer's word for what runs now: the first of scanning, staging, comparing files and
// reading applications, else "Ready".
QString statusWord(const AppModel& app, bool inspectingApps);
QString bytes(std::int64_t value);
// The record's kind as the table sorts it: "Folder", "Symbolic link", "Application", or the
// file's category ("Video", "Document", …).
QString kindName(const ScanResult& scan, const DiskNode& node);
QString number(std::int64_t value);
// The symbolic freedesktop icon `name` (else `alternative`, else `name` in full colour),
// drawn in the palette's text colour.
QIcon icon(const char* name, const char* alternative = nullptr);

inline constexpr AppSection kSections[] = {AppSection::explore,      AppSection::duplicates,
                                           AppSection::applications, AppSection::monitor,
                                           AppSection::snapshots,    AppSection::cleanup};
inline constexpr StorageView kStorageViews[] = {
    StorageView::treemap,  StorageView::folders, StorageView::sunburst,
    StorageView::flame,    StorageView::bubbles, StorageView::mindMap,
    StorageView::topSizes, StorageView::ageMap,  StorageView::table};

} // namespace ShellTexts
} // namespace tarnbridge::app
