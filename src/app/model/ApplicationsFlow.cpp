#include "app/model/ApplicationsFlow.h"

#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/Notices.h"

namespace tarnbridge::app {

ApplicationsFlow::ApplicationsFlow(AppModel& app)
    : QObject(&app), app_(app),
      inspector_([](const CancellationFlag& flag, const ApplicationInventory::Progress& progress) {
          // The environment is read again at each run.
          return ApplicationInventory().inspect(InventoryPlaces::fromEnvironment(), flag, progress);
      })
{
}

ApplicationsFlow::~ApplicationsFlow() = default;

void ApplicationsFlow::setInspector(Inspector inspector)
{
    if (inspector)
        inspector_ = std::move(inspector);
}

ApplicationsFlow::Inspector ApplicationsFlow::inventoryOver(InventoryPlaces places, ApplicationInventory inventory)
{
    return [places = std::move(places), inventory = std::move(inventory)](
               const CancellationFlag& flag, const ApplicationInventory::Progress& progress) {
        return inventory.inspect(places, flag, progress);
    };
}

const InstalledApplication* ApplicationsFlow::selectedApplication() const
{
    if (!report_ || !selected_)
        return nullptr;
    for (const InstalledApplication& application : report_->apps)
        if (application.path == *selected_)
            return &application;
    return nullptr;
}

void ApplicationsFlow::setSelectedApp(std::optional<std::string> path)
{
    if (selected_ != path) {
        selected_ = std::move(path);
        Q_EMIT changed();
    }
}

void ApplicationsFlow::inspectApplications()
{
    if (inspecting_)
        return;
    cancellation_ = std::make_shared<CancellationFlag>();
    const QUuid token = QUuid::createUuid();
    generation_ = token;
    inspecting_ = true;
    progress_ = QStringLiteral("Discovering applications…");
    Q_EMIT changed();
    Q_EMIT progressChanged();

    auto progress = [this, token](const std::string& name, int finished) {
        const QString text = QString::fromStdString(name) + QStringLiteral(" · ") + QString::number(finished) +
                             QStringLiteral(" apps inspected");
        BackgroundJob::post(this, [this, token, text] { applyProgress(token, text); });
    };
    BackgroundJob::run<ApplicationReport>(
        app_.workPool(), this, cancellation_,
        [inspector = inspector_, progress](const CancellationFlag& flag) { return inspector(flag, progress); },
        [this, token](JobOutcome<ApplicationReport> outcome) { deliver(token, std::move(outcome)); });
}

void ApplicationsFlow::applyProgress(const QUuid& token, const QString& text)
{
    if (generation_ != token || !inspecting_)
        return;
    progress_ = text;
    Q_EMIT progressChanged();
}

void ApplicationsFlow::deliver(const QUuid& token, JobOutcome<ApplicationReport> outcome)
{
    if (generation_ != token)
        return;
    inspecting_ = false;
    if (outcome.value) {
        report_ = std::move(outcome.value);
        progress_.clear();
        Q_EMIT progressChanged();
    }
    Q_EMIT changed();
    // The old report stays when a run fails; the progress line is left as it stood.
    if (outcome.error)
        app_.notices().setError(QString::fromStdString(*outcome.error));
}

void ApplicationsFlow::cancelApplications()
{
    cancellation_->cancel();
    generation_ = QUuid::createUuid();
    inspecting_ = false;
    progress_.clear();
    Q_EMIT changed();
    Q_EMIT progressChanged();
}

std::vector<AppSupportFile> ApplicationsFlow::uninstallSupport(const InstalledApplication& application)
{
    // An item another application also claims stays: it may be that one's data as well.
    std::vector<AppSupportFile> out;
    for (const AppSupportFile& file : application.support)
        if (!file.isShared)
            out.push_back(file);
    return out;
}

std::vector<CleanupEntry> ApplicationsFlow::cleanupEntries(const InstalledApplication& application,
                                                           const std::string& home)
{
    const std::optional<DiskNode> bundle = application.bundleScan.root();
    if (!bundle)
        throw TarnbridgeError("The app bundle could not be measured.");
    const CleanupPolicy policy{home};
    std::vector<CleanupEntry> entries;
    entries.push_back(CleanupEntry::stage(*bundle, application.bundleScan, "Uninstall " + application.name, policy));
    for (const AppSupportFile& file : uninstallSupport(application))
        entries.push_back(CleanupEntry::stage(file.node, file.scan, application.name + " · " + file.category, policy));
    return CleanupEntry::normalized(entries);
}

void ApplicationsFlow::uninstall(const InstalledApplication& application)
{
    if (app_.cleaning() || app_.staging())
        return;
    std::vector<CleanupEntry> entries;
    try {
        entries = cleanupEntries(application, app_.services().home);
    } catch (const std::exception& error) {
        app_.notices().setError(QString::fromStdString(describeError(error)));
        return;
    }
    // Copies kept from duplicate groups in the queue stay protected while the app goes: the
    // move refuses an entry that holds one of them.
    IdentityMap retained;
    for (const CleanupEntry& queued : app_.cleanup().queue())
        for (const auto& [path, identity] : queued.retainedCopies)
            retained.insert_or_assign(path, identity);
    for (CleanupEntry& entry : entries)
        for (const auto& [path, identity] : retained)
            entry.retainedCopies.insert_or_assign(path, identity);
    app_.cleanup().prepareCleanupReview(std::move(entries), QString::fromStdString(application.name));
}

void ApplicationsFlow::addLeftoverToCleanup(const OrphanCandidate& orphan)
{
    app_.cleanup().stage({orphan.node}, orphan.scan, "Possible leftover · verify ownership");
}

void ApplicationsFlow::afterUninstall()
{
    report_.reset();
    selected_.reset();
    Q_EMIT changed();
    inspectApplications();
}

void ApplicationsFlow::stopWork()
{
    cancellation_->cancel();
    generation_ = QUuid::createUuid();
}

} // namespace tarnbridge::app
