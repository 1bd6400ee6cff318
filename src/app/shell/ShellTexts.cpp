#include "app/shell/ShellTexts.h"
#include "query/FileCategory.h"
#include "query/ScanPresentation.h"

#include <QLocale>

#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/DuplicateSearch.h"
#include "app/shell/ThemeIcon.h"
#include "model/Formatting.h"

namespace tarnbridge::app::ShellTexts {

QString sectionName(AppSection section) {
    switch (section) {
    case AppSection::explore:
        return QStringLiteral("Explore");
    case AppSection::duplicates:
        return QStringLiteral("Duplicates");
    case AppSection::applications:
        return QStringLiteral("Applications");
    case AppSection::monitor:
        return QStringLiteral("Monitor");
    case AppSection::snapshots:
        return QStringLiteral("Snapshots");
    case AppSection::cleanup:
        break;
    }
    return QStringLiteral("Cleanup");
}

QIcon sectionIcon(AppSection section) {
    switch (section) {
    case AppSection::explore:
        return icon("drive-harddisk");
    case AppSection::duplicates:
        return icon("edit-copy");
    case AppSection::applications:
        return icon("view-app-grid", "applications-system-symbolic");
    case AppSection::monitor:
        return icon("utilities-system-monitor", "computer-symbolic");
    case AppSection::snapshots:
        return icon("document-open-recent");
    case AppSection::cleanup:
        break;
    }
    return icon("user-trash");
}

QString storageViewName(StorageView view) {
    switch (view) {
    case StorageView::treemap:
        return QStringLiteral("Treemap");
    case StorageView::folders:
        return QStringLiteral("Folders");
    case StorageView::sunburst:
        return QStringLiteral("Sunburst");
    case StorageView::flame:
        return QStringLiteral("Flame");
    case StorageView::bubbles:
        return QStringLiteral("Bubbles");
    case StorageView::mindMap:
        return QStringLiteral("Mind Map");
    case StorageView::topSizes:
        return QStringLiteral("Top Sizes");
    case StorageView::ageMap:
        return QStringLiteral("Age Map");
    case StorageView::table:
        break;
    }
    return QStringLiteral("Table");
}

QString statusWord(const AppModel& app, bool inspectingApps) {
    if (app.scanning())
        return QStringLiteral("Scanning");
    if (app.staging())
        return QStringLiteral("Preparing cleanup…");
    if (app.duplicates().findingDuplicates())
        return QStringLiteral("Comparing files…");
    if (inspectingApps)
        return QStringLiteral("Reading applications…");
    return QStringLiteral("Ready");
}

QString bytes(std::int64_t value) {
    return QString::fromStdString(formattedBytes(value));
}

QString kindName(const ScanResult& scan, const DiskNode& node) {
    if (const NodeId id = scan.isEmpty() ? kNoNode : scan.find(node.path); id != kNoNode)
        return displayText(tarnbridge::kindName(scan.data(), id));
    return node.isDirectory ? QStringLiteral("Folder")
                            : QString::fromUtf8(FileCategory::classify(node.path).displayName());
}

QString number(std::int64_t value) {
    return QLocale().toString(qlonglong(value));
}

QIcon icon(const char* name, const char* alternative) {
    const std::string symbolic = std::string(name) + "-symbolic";
    if (alternative)
        return themeIcon({symbolic.c_str(), alternative, name});
    return themeIcon({symbolic.c_str(), name});
}

} // namespace tarnbridge::app::ShellTexts
