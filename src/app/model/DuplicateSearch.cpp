#include "app/model/DuplicateSearch.h"

#include <QLocale>

#include <algorithm>

#include "app/model/AppModel.h"
#include "app/model/BackgroundJob.h"
#include "app/model/CleanupFlow.h"
#include "app/model/Notices.h"
#include "app/model/ScanSession.h"
#include "cleanup/CleanupEntry.h"
#include "model/Formatting.h"
#include "model/ScanPaths.h"

namespace tarnbridge::app {

namespace {

QString readingLine(const char* title, const DuplicateProgress& record)
{
    return QLatin1String(title) + displayText(record.fileName) + QStringLiteral(" · ") +
           displayText(formattedBytes(record.bytesRead)) + QStringLiteral(" / ") + displayText(formattedBytes(record.fileSize));
}

bool isWholeDisk(const std::string& root)
{
    const std::string& dataRoot = ScanPaths::linuxProfile().dataRoot;
    return root == "/" || (!dataRoot.empty() && root == dataRoot);
}

DuplicateReport findWithCore(const ScanResult& scan, std::int64_t minimumSize, const std::optional<std::string>& scope,
                             const CancellationFlag& cancellation, const DuplicateFinder::DetailProgress& progress)
{
    return DuplicateFinder().find(scan, minimumSize, scope, cancellation, progress);
}

} // namespace

DuplicateSearch::DuplicateSearch(AppModel& app) : QObject(&app), app_(app), finder_(findWithCore) {}

DuplicateSearch::~DuplicateSearch() = default;

void DuplicateSearch::setFinder(Finder finder) { finder_ = finder ? std::move(finder) : Finder(findWithCore); }

void DuplicateSearch::setDuplicateMinimumMB(int megabytes)
{
    megabytes = std::max(megabytes, 0);
    if (minimumMB_ != megabytes) {
        minimumMB_ = megabytes;
        Q_EMIT changed();
    }
}

bool DuplicateSearch::waitingForScan() const { return app_.scanning() && afterScan_; }

std::string DuplicateSearch::location() const
{
    const ScanSession& session = app_.session();
    if (session.scanning())
        return session.scanRootPath();
    if (scopePath_)
        return *scopePath_;
    return session.scan() ? session.scan()->rootPath() : std::string();
}

void DuplicateSearch::setAfterScan(bool on)
{
    if (afterScan_ != on) {
        afterScan_ = on;
        Q_EMIT changed();
    }
}

void DuplicateSearch::resetForScan(bool thenFind)
{
    cancellation_->cancel();
    generation_ = QUuid::createUuid();
    report_.reset();
    scopePath_.reset();
    finding_ = false;
    afterScan_ = thenFind;
    Q_EMIT changed();
}

QString DuplicateSearch::progressLine(const DuplicateProgress& record)
{
    switch (record.phase) {
    case DuplicateProgress::Phase::grouping:
        break;
    case DuplicateProgress::Phase::sampling: {
        const QLocale locale;
        return QStringLiteral("Checking samples · ") + locale.toString(qlonglong(record.checked)) +
               QStringLiteral(" of ") + locale.toString(qlonglong(record.total)) + QStringLiteral(" candidates");
    }
    case DuplicateProgress::Phase::hashing:
        return readingLine("Reading full contents · ", record);
    case DuplicateProgress::Phase::verifying:
        return readingLine("Verifying identical copies · ", record);
    case DuplicateProgress::Phase::complete:
        return QStringLiteral("Comparison complete");
    }
    return QStringLiteral("Grouping files by size…");
}

void DuplicateSearch::findDuplicates(const std::optional<std::string>& scope)
{
    if (finding_ || app_.cleaning())
        return;
    Notices& notices = app_.notices();
    if (app_.scanning()) {
        if (scope)
            notices.setNotice(QStringLiteral("Wait for the scan to finish before choosing a comparison folder."));
        else
            setAfterScan(true);
        return;
    }
    if (app_.snapshotBusy()) {
        notices.setNotice(QStringLiteral("Wait for the snapshot to finish loading."));
        return;
    }
    const std::optional<ScanResult>& shown = app_.session().scan();
    if (!shown) {
        notices.setNotice(QStringLiteral("Choose Scan Whole Disk before finding duplicates."));
        return;
    }
    const ScanResult scan = *shown;
    scopePath_ = scope ? *scope : scan.rootPath();
    cancellation_ = std::make_shared<CancellationFlag>();
    const QUuid scanId = scan.id();
    const QUuid token = QUuid::createUuid();
    generation_ = token;
    keepers_.clear();
    finding_ = true;
    progressText_ = QStringLiteral("Grouping files by size…");
    report_.reset();
    work_.reset();
    notices.setNotice(std::nullopt);
    Q_EMIT changed();
    Q_EMIT progressChanged();

    // The records come on the worker; each is applied on the GUI thread only if this search is
    // still the current one when it gets there.
    auto progress = [this, token, scanId](const DuplicateProgress& record) {
        BackgroundJob::post(this, [this, token, scanId, record] { applyProgress(token, scanId, record); });
    };
    const std::int64_t minimumSize = std::int64_t(minimumMB_) * 1'000'000;
    BackgroundJob::run<DuplicateReport>(
        app_.workPool(), this, cancellation_,
        [finder = finder_, scan, minimumSize, scope, progress](const CancellationFlag& flag) {
            return finder(scan, minimumSize, scope, flag, progress);
        },
        [this, token, scanId](JobOutcome<DuplicateReport> outcome) {
            deliver(token, scanId, std::move(outcome.value), outcome.error);
        });
}

bool DuplicateSearch::isCurrent(const QUuid& token, const QUuid& scanId) const
{
    // The report must describe the scan on screen: a search of a scan that has been replaced
    // is as stale as one that was superseded.
    const std::optional<ScanResult>& shown = app_.session().scan();
    return generation_ == token && shown && shown->id() == scanId;
}

void DuplicateSearch::applyProgress(const QUuid& token, const QUuid& scanId, const DuplicateProgress& record)
{
    if (!isCurrent(token, scanId) || !finding_)
        return;
    work_ = record;
    progressText_ = progressLine(record);
    Q_EMIT progressChanged();
}

void DuplicateSearch::deliver(const QUuid& token, const QUuid& scanId, std::optional<DuplicateReport> report,
                              const std::optional<std::string>& error)
{
    if (!isCurrent(token, scanId))
        return;
    finding_ = false;
    if (report)
        report_ = std::move(report);
    Q_EMIT changed();
    if (error)
        app_.notices().setError(QString::fromStdString(*error));
}

void DuplicateSearch::findDuplicatesOnWholeDisk()
{
    const ScanSession& session = app_.session();
    if (session.scanning()) {
        if (isWholeDisk(session.scanRootPath()))
            setAfterScan(true);
        else
            app_.notices().setNotice(QStringLiteral("A folder scan is running — Whole Disk needs a whole-disk result."));
        return;
    }
    if (session.scan() && isWholeDisk(session.scan()->rootPath()))
        findDuplicates(std::nullopt);
    else
        app_.notices().setNotice(QStringLiteral("Choose Scan Whole Disk first — then compare the scanned files here."));
}

void DuplicateSearch::cancelDuplicates()
{
    cancellation_->cancel();
    generation_ = QUuid::createUuid();
    finding_ = false;
    Q_EMIT changed();
    app_.notices().setNotice(QStringLiteral("Duplicate search cancelled."));
}

std::string DuplicateSearch::keeper(const DuplicateGroup& group) const
{
    if (const auto chosen = keepers_.find(group.id); chosen != keepers_.end())
        return chosen->second;
    return group.files.empty() ? std::string() : group.files.front().path;
}

DuplicateGroupPage DuplicateSearch::visibleGroups(const QString& filter, std::size_t limit) const
{
    DuplicateGroupPage page;
    if (!report_)
        return page;
    const QString& needle = filter;
    for (const DuplicateGroup& group : report_->groups) {
        const bool passes =
            needle.isEmpty() || std::any_of(group.files.begin(), group.files.end(), [&](const DiskNode& file) {
                return displayText(file.name()).contains(needle, Qt::CaseInsensitive);
            });
        if (!passes)
            continue;
        if (page.groups.size() < limit)
            page.groups.push_back(&group);
        ++page.passing;
    }
    return page;
}

std::int64_t DuplicateSearch::reclaimableBytes() const
{
    std::int64_t total = 0;
    if (report_)
        for (const DuplicateGroup& group : report_->groups)
            total += group.reclaimable();
    return total;
}

void DuplicateSearch::keep(const DuplicateGroup& group, const std::string& path)
{
    keepers_[group.id] = path;
    Q_EMIT changed();
}

void DuplicateSearch::stageDuplicates(const DuplicateGroup& group, const std::string& keeping)
{
    if (!app_.canClean())
        return;
    const std::optional<ScanResult>& scan = app_.session().scan();
    if (!scan)
        return;
    const auto kept = std::find_if(group.files.begin(), group.files.end(),
                                   [&](const DiskNode& file) { return file.path == keeping; });
    if (kept == group.files.end())
        return;
    const CleanupPolicy policy{app_.services().home};
    const std::string reason = "Duplicate · keeping " + std::string(kept->name());
    std::vector<CleanupEntry> entries;
    try {
        for (const DiskNode& file : group.files) {
            if (&file == &*kept)
                continue;
            CleanupEntry entry = CleanupEntry::stage(file, *scan, reason, policy);
            // The identity as scanned: the copy that stays must be the one the user compared.
            entry.retainedCopies = {{kept->path, kept->identity}};
            entries.push_back(std::move(entry));
        }
    } catch (const std::exception& error) {
        app_.notices().setError(QString::fromStdString(describeError(error)));
        return;
    }
    app_.cleanup().addToQueue(std::move(entries));
}

void DuplicateSearch::stageAllDuplicates()
{
    if (!report_)
        return;
    // Staging may touch other parts of the model; work on a copy of what is to be staged.
    const std::vector<DuplicateGroup> groups = report_->groups;
    for (const DuplicateGroup& group : groups)
        if (!group.files.empty())
            stageDuplicates(group, keeper(group));
}

void DuplicateSearch::clearReport()
{
    if (report_) {
        report_.reset();
        Q_EMIT changed();
    }
}

void DuplicateSearch::stopWork()
{
    cancellation_->cancel();
    generation_ = QUuid::createUuid();
}

} // namespace tarnbridge::app
