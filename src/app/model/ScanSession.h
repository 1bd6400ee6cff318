#pragma once

#include <QObject>
#include <QUuid>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/CancellationFlag.h"
#include "monitor/VolumeInfo.h"
#include "query/FolderNavigationHistory.h"
#include "query/ScanPresentation.h"
#include "scan/ScanProgress.h"

namespace tarnbridge::app {

class AppModel;

// One scan from start to installed result, and the moves through its folders: in the
// finished scan, and in the running one through its live preview. A newer start or a cancel
// changes the generation token, and whatever the older run still delivers is dropped.
class ScanSession : public QObject {
    Q_OBJECT
public:
    explicit ScanSession(AppModel& app);
    ~ScanSession() override;

    const std::optional<ScanResult>& scan() const { return scan_; }
    const std::optional<std::string>& focusPath() const { return focusPath_; }
    const std::optional<std::string>& selection() const { return selection_; }
    bool scanning() const { return scanning_; }
    // The last progress record of the running scan; none otherwise.
    const std::shared_ptr<const ScanProgress>& scanProgress() const { return scanProgress_; }
    const QString& scanRootName() const { return scanRootName_; }
    const std::string& scanRootPath() const { return scanRootPath_; }
    const std::optional<std::string>& liveFocusPath() const { return liveFocusPath_; }
    const FolderNavigationHistory& navigation() const { return navigation_; }
    const FolderNavigationHistory& liveNavigation() const { return liveNavigation_; }
    bool isHistorical() const { return isHistorical_; }

    void startScan(const std::string& path, bool thenFindDuplicates = false);
    void cancelScan();
    void refresh();
    void chooseFolder(bool thenFindDuplicates, bool scanNew);
    // Makes `scan` the shown result (its presentation built off the GUI thread), opened at `focus`.
    void installScan(ScanResult scan, ScanPresentation presentation, const std::string& focus, bool historical);
    // After a cleanup moved files, the scan no longer matches the disk and may stage no more.
    void markHistorical();
    // Stops the running scan's work without a word (the app is closing).
    void stopWork();

    void browseLocation(const std::string& path);
    void focusOn(const DiskNode& node);
    // Selects a record of the installed scan without opening it (a click in a chart).
    void select(const std::string& path);
    void goUp();
    void goBack();
    void goForward();

    // The focus record: the one at focusPath, else the scan's root; none without a scan.
    std::optional<DiskNode> focus() const;
    NodeId focusId() const;
    // The focus record's path, empty without a scan; makes no record.
    std::string focusedPath() const;
    std::optional<DiskNode> selected() const;
    std::vector<DiskNode> breadcrumbs() const;
    std::vector<DiskNode> navigationBreadcrumbs() const;
    const FolderNavigationHistory& displayedNavigation() const;
    std::string displayedFolderPath() const;
    bool canGoUp() const;
    std::optional<VolumeInfo> volume() const;
    // A record's label in the sidebar and the status line: "Home" for the home folder in any
    // spelling, "System Disk" for the root of the whole disk, else its name.
    QString displayName(const DiskNode& node) const;

Q_SIGNALS:
    void scanChanged();     // a result was installed, or marked historical
    void focusChanged();    // focus, selection or either history
    void progressChanged(); // scanning, scanProgress, the live focus
    void recentChanged();

private:
    struct Outcome;
    void applyProgress(const QUuid& token, std::shared_ptr<const ScanProgress> record);
    void setProgress(std::shared_ptr<const ScanProgress> record);
    void finish(const QUuid& token, ScanResult result, ScanPresentation presentation);
    void fail(const QUuid& token, const std::optional<std::string>& error);
    void navigateLive(const std::string& path, bool recordHistory);
    // Back or forward, in the live history while scanning.
    void step(std::optional<std::string> (FolderNavigationHistory::*move)());
    void setFocusPath(std::optional<std::string> path);
    QString cancelledNotice() const;
    QString rootName(const std::string& path) const;

    AppModel& app_;
    std::optional<ScanResult> scan_;
    std::optional<std::string> focusPath_;
    std::optional<std::string> selection_;
    bool scanning_ = false;
    std::shared_ptr<const ScanProgress> scanProgress_;
    QString scanRootName_;
    std::string scanRootPath_;
    std::optional<std::string> liveFocusPath_;
    FolderNavigationHistory navigation_;
    FolderNavigationHistory liveNavigation_;
    bool isHistorical_ = false;

    std::shared_ptr<CancellationFlag> scanCancellation_ = std::make_shared<CancellationFlag>();
    std::shared_ptr<ScanNavigation> scanNavigation_ = std::make_shared<ScanNavigation>();
    QUuid scanGeneration_ = QUuid::createUuid();
};

} // namespace tarnbridge::app
