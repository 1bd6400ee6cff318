#pragma once

#include <QObject>
#include <QString>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/model/BackgroundJob.h"
#include "applications/ApplicationInventory.h"
#include "cleanup/CleanupEntry.h"
#include "model/CancellationFlag.h"

namespace tarnbridge::app {

class AppModel;

// The installed applications, their leftovers, and their uninstall through the cleanup review.
// The inventory runs on the work pool; a newer run or a cancel changes the generation token,
// and whatever an older run still delivers is dropped.
class ApplicationsFlow : public QObject {
    Q_OBJECT
public:
    // What a run reads the machine with, on the worker. By default the inventory over the
    // folders the environment names; tests point it at a private tree, or hold it.
    using Inspector =
        std::function<ApplicationReport(const CancellationFlag& cancellation, const ApplicationInventory::Progress&)>;

    explicit ApplicationsFlow(AppModel& app);
    ~ApplicationsFlow() override;

    const std::optional<ApplicationReport>& appReport() const { return report_; }
    bool inspectingApps() const { return inspecting_; }
    const QString& appProgress() const { return progress_; }
    const std::optional<std::string>& selectedApp() const { return selected_; }
    // The application of the report that is selected, if there is one.
    const InstalledApplication* selectedApplication() const;
    void setSelectedApp(std::optional<std::string> path);

    // Starts a run unless one is under way; the last report stays until the new one arrives.
    void inspectApplications();
    void cancelApplications();
    // Prepares the review of moving the application and its own data to the Trash.
    void uninstall(const InstalledApplication& application);
    // A leftover's "Add to Cleanup".
    void addLeftoverToCleanup(const OrphanCandidate& orphan);

    // The bundle, then every support item no other application claims, normalized. Throws
    // TarnbridgeError when the bundle was not measured or an item is refused.
    static std::vector<CleanupEntry> cleanupEntries(const InstalledApplication& application, const std::string& home);
    // The support items an uninstall takes: the ones no other installed application claims.
    static std::vector<AppSupportFile> uninstallSupport(const InstalledApplication& application);

    // After an uninstall moved an app: the report and the selection go, and the inventory is
    // read again.
    void afterUninstall();
    void stopWork();

    void setInspector(Inspector inspector);
    static Inspector inventoryOver(InventoryPlaces places, ApplicationInventory inventory = ApplicationInventory());

Q_SIGNALS:
    void changed();         // report, selection, the running state
    void progressChanged(); // appProgress

private:
    void applyProgress(const QUuid& token, const QString& text);
    void deliver(const QUuid& token, JobOutcome<ApplicationReport> outcome);

    AppModel& app_;
    std::optional<ApplicationReport> report_;
    bool inspecting_ = false;
    QString progress_;
    std::optional<std::string> selected_;
    Inspector inspector_;

    std::shared_ptr<CancellationFlag> cancellation_ = std::make_shared<CancellationFlag>();
    QUuid generation_ = QUuid::createUuid();
};

} // namespace tarnbridge::app
