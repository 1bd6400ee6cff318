#include "app/model/SnapshotFlow.h"

#include <algorithm>
#include <utility>

#include "app/model/AppModel.h"
#include "app/model/BackgroundJob.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/ExploreState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "model/Errors.h"
#include "query/ScanPresentation.h"
#include "storage/ScanFile.h"

namespace tarnbridge::app {

namespace {

struct Comparison {
    std::vector<SnapshotChange> changes;
    std::string root;
};

struct OpenedScan {
    ScanResult scan;
    ScanPresentation presentation;
};


} // namespace

SnapshotFlow::SnapshotFlow(AppModel& app) : QObject(&app), app_(app) {}

std::optional<QUuid> SnapshotFlow::beginSnapshot(const QString& status)
{
    if (busy_ || app_.scanning() || app_.cleaning())
        return std::nullopt;
    generation_ = QUuid::createUuid();
    cancellation_ = std::make_shared<CancellationFlag>();
    busy_ = true;
    status_ = status;
    Q_EMIT changed();
    return generation_;
}

template <class T>
void SnapshotFlow::launch(const QUuid& token, Work<T> work, Apply<T> apply)
{
    // The store is a plain value: the task gets its own copy.
    BackgroundJob::run<T>(
        app_.workPool(), this, cancellation_,
        [store = app_.store(), work = std::move(work)](const CancellationFlag& flag) { return work(store, flag); },
        [this, token, apply = std::move(apply)](JobOutcome<T> outcome) {
            if (token != generation_)
                return; // newer work owns the busy state now
            busy_ = false;
            status_.clear();
            if (outcome.value)
                apply(std::move(*outcome.value));
            else if (outcome.error)
                fail(displayText(*outcome.error));
            Q_EMIT changed();
        });
}

void SnapshotFlow::fail(const QString& message)
{
    app_.notices().setError(message);
}

void SnapshotFlow::supersede()
{
    cancellation_->cancel();
    cancellation_ = std::make_shared<CancellationFlag>();
    generation_ = QUuid::createUuid();
    const bool wasShown = busy_ || !status_.isEmpty();
    busy_ = false;
    status_.clear();
    if (wasShown)
        Q_EMIT changed();
}

void SnapshotFlow::stopWork()
{
    cancellation_->cancel();
    generation_ = QUuid::createUuid();
}

void SnapshotFlow::clearComparison()
{
    if (changes_.empty() && !comparisonTitle_ && !comparisonRoot_)
        return;
    changes_.clear();
    changes_.shrink_to_fit(); // a whole-disk comparison can hold millions of rows
    comparisonTitle_.reset();
    comparisonRoot_.reset();
    Q_EMIT changed();
}

void SnapshotFlow::setComparison(std::vector<SnapshotChange> changes, QString title, std::string root)
{
    changes_ = std::move(changes);
    comparisonTitle_ = std::move(title);
    comparisonRoot_ = std::move(root);
}

void SnapshotFlow::readSnapshotCatalog()
{
    SnapshotCatalog catalog = app_.store().catalog();
    snapshots_ = std::move(catalog.records);
    issues_ = std::move(catalog.issues);
    if (beforeSnapshot_) {
        const bool listed = std::any_of(snapshots_.begin(), snapshots_.end(), [&](const SnapshotRecord& record) {
            return record.id == beforeSnapshot_->id;
        });
        if (!listed)
            beforeSnapshot_.reset();
    }
    Q_EMIT changed();
}

void SnapshotFlow::refreshSnapshots()
{
    if (busy_)
        return;
    try {
        readSnapshotCatalog();
    } catch (const std::exception& error) {
        fail(QStringLiteral("Saved scans: ") + displayText(describeError(error)));
    }
}

void SnapshotFlow::saveSnapshot()
{
    const std::optional<ScanResult>& current = app_.session().scan();
    if (!app_.preferences().snapshotsEnabled() || !current)
        return;
    const auto token = beginSnapshot(QStringLiteral("Saving snapshot…"));
    if (!token)
        return;
    const auto root = current->root();
    const std::string title = root ? std::string(root->name()) : std::string("Scan");
    launch<SnapshotRecord>(
        *token,
        [scan = *current, title](const SnapshotStore& store, const CancellationFlag&) { return store.save(scan, title); },
        [this](SnapshotRecord) {
            try {
                readSnapshotCatalog();
            } catch (const std::exception& error) {
                fail(displayText(describeError(error)));
                return;
            }
            app_.notices().setNotice(QStringLiteral("Snapshot saved."));
        });
}

void SnapshotFlow::compareSnapshot(const SnapshotRecord& record)
{
    const std::optional<ScanResult>& current = app_.session().scan();
    if (!current) {
        fail(QStringLiteral("Scan ") + displayText(record.rootPath) + QStringLiteral(" first, then compare."));
        return;
    }
    const auto token = beginSnapshot(QStringLiteral("Comparing snapshots…"));
    if (!token)
        return;
    const bool logical = app_.explore().logical();
    QString title = displayText(record.title) + QStringLiteral(" → current scan");
    launch<Comparison>(
        *token,
        [record, scan = *current, logical](const SnapshotStore& store, const CancellationFlag&) {
            const ScanResult saved = store.load(record);
            return Comparison{SnapshotStore::compare(saved, scan, logical), scan.rootPath()};
        },
        [this, title](Comparison result) { setComparison(std::move(result.changes), title, std::move(result.root)); });
}

void SnapshotFlow::compareSavedSnapshots(const SnapshotRecord& record)
{
    if (!beforeSnapshot_) {
        useAsBefore(record);
        return;
    }
    const auto token = beginSnapshot(QStringLiteral("Comparing snapshots…"));
    if (!token)
        return;
    const bool logical = app_.explore().logical();
    const SnapshotRecord before = *beforeSnapshot_;
    QString title = displayText(before.title) + QStringLiteral(" → ") + displayText(record.title);
    launch<Comparison>(
        *token,
        [before, record, logical](const SnapshotStore& store, const CancellationFlag& flag) {
            const ScanResult older = store.load(before);
            flag.check();
            const ScanResult newer = store.load(record);
            return Comparison{SnapshotStore::compare(older, newer, logical), newer.rootPath()};
        },
        [this, title](Comparison result) { setComparison(std::move(result.changes), title, std::move(result.root)); });
}

void SnapshotFlow::openSnapshot(const SnapshotRecord& record)
{
    openSaved(QStringLiteral("Opening saved scan…"),
              QStringLiteral("Viewing a saved snapshot. Rescan before staging cleanup."),
              [record](const SnapshotStore& store) { return store.load(record); });
}

void SnapshotFlow::openScanFile(std::optional<std::string> path)
{
    if (!path && app_.services().chooseFile) {
        FileRequest request;
        request.title = QStringLiteral("Open Scan File");
        request.filter = QStringLiteral("Scan files (*.json *.json.gz *.gz);;All files (*)");
        request.save = false;
        path = app_.services().chooseFile(request);
    }
    if (!path)
        return;
    openSaved(QStringLiteral("Opening scan file…"),
              QStringLiteral("Viewing a saved scan file. Rescan before staging cleanup."),
              [file = *path](const SnapshotStore&) { return ScanFile::open(file); });
}

// Loads a scan on the worker and shows it as a saved one: explored and compared, never staged.
void SnapshotFlow::openSaved(const QString& status, const QString& notice,
                             std::function<ScanResult(const SnapshotStore&)> load)
{
    const auto token = beginSnapshot(status);
    if (!token)
        return;
    // The duplicate report belongs to the scan that is about to be replaced.
    app_.duplicates().resetForScan(false);
    launch<OpenedScan>(
        *token,
        [load = std::move(load)](const SnapshotStore& store, const CancellationFlag& flag) {
            ScanResult scan = load(store);
            flag.check();
            ScanPresentation presentation = ScanPresentation::make(scan, &flag);
            flag.check();
            return OpenedScan{std::move(scan), std::move(presentation)};
        },
        [this, notice](OpenedScan opened) {
            const std::string root = opened.scan.rootPath();
            app_.session().installScan(std::move(opened.scan), std::move(opened.presentation), root, true);
            app_.setSection(AppSection::explore);
            app_.explore().setActiveQuickWin(std::nullopt);
            app_.notices().setNotice(notice);
        });
}

void SnapshotFlow::deleteSnapshot(const SnapshotRecord& record)
{
    if (busy_)
        return;
    try {
        app_.store().remove(record);
        readSnapshotCatalog();
        clearComparison();
    } catch (const std::exception& error) {
        fail(displayText(describeError(error)));
    }
}

void SnapshotFlow::useAsBefore(const SnapshotRecord& record)
{
    beforeSnapshot_ = record;
    Q_EMIT changed();
}

void SnapshotFlow::compareWithBefore(const SnapshotRecord& record)
{
    if (beforeSnapshot_ && beforeSnapshot_->id != record.id)
        compareSavedSnapshots(record);
    else
        useAsBefore(record);
}

ChangePage SnapshotFlow::visibleChanges(std::int64_t minimumChange, ChangeLevel level, std::size_t limit) const
{
    ChangePage page;
    page.rows = SnapshotStore::visibleChanges(changes_, minimumChange, level, comparisonRoot_);
    page.passing = page.rows.size();
    if (page.rows.size() > limit)
        page.rows.resize(limit);
    return page;
}

const std::vector<MinimumChangeChoice>& SnapshotFlow::minimumChangeChoices()
{
    static const std::vector<MinimumChangeChoice> choices{
        {QStringLiteral("All changes"), 0},
        {QStringLiteral("10 MB"), 10'000'000},
        {QStringLiteral("100 MB"), 100'000'000},
        {QStringLiteral("1 GB"), 1'000'000'000},
    };
    return choices;
}

QString SnapshotFlow::unavailableHeading(std::size_t count)
{
    return QString::number(count) + QStringLiteral(" saved scan") +
           (count == 1 ? QStringLiteral(" is") : QStringLiteral("s are")) + QStringLiteral(" unavailable");
}

} // namespace tarnbridge::app
