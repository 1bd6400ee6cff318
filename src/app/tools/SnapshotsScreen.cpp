#include "app/tools/SnapshotsScreen.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QToolButton>
#include <QTreeView>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "app/model/SnapshotFlow.h"
#include "app/screens/EmptyState.h"
#include "app/shell/ShellTexts.h"
#include "app/tools/ToolWidgets.h"
#include "model/PathText.h"

namespace tarnbridge::app {

namespace {

using namespace ToolWidgets;

// The catalog's columns; the last three hold the row's actions.
enum CatalogColumn {
    titleColumn,
    rootColumn,
    dateColumn,
    sizeColumn,
    openColumn,
    useBeforeColumn,
    compareBeforeColumn,
    compareCurrentColumn,
    deleteColumn
};

QString signedBytes(std::int64_t before, std::int64_t after)
{
    if (after >= before)
        return QStringLiteral("+") + bytes(after - before);
    return QStringLiteral("−") + bytes(before - after);
}

} // namespace

void ChangeTableModel::setRows(std::vector<const SnapshotChange*> rows, std::optional<std::string> root)
{
    beginResetModel();
    rows_ = std::move(rows);
    root_ = std::move(root);
    endResetModel();
}

int ChangeTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(rows_.size());
}

int ChangeTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(kColumns);
}

QVariant ChangeTableModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= int(rows_.size()))
        return {};
    const SnapshotChange& row = *rows_[std::size_t(index.row())];
    if (role == Qt::DisplayRole) {
        switch (index.column()) {
        case pathColumn:
            if (root_ && row.path != *root_ && PathText::contains(row.path, *root_))
                return displayText(std::string_view(row.path).substr(root_->size() == 1 ? 1 : root_->size() + 1));
            return displayText(row.path);
        case statusColumn:
            return QString::fromUtf8(statusText(row.status));
        case beforeColumn:
            return bytes(row.before);
        case afterColumn:
            return bytes(row.after);
        case changeColumn:
            return signedBytes(row.before, row.after);
        default:
            return {};
        }
    }
    if (role == Qt::ToolTipRole && index.column() == pathColumn)
        return displayText(row.path);
    if (role == Qt::TextAlignmentRole && index.column() >= beforeColumn)
        return QVariant(Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

QVariant ChangeTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const char* const heads[] = {"Path", "Status", "Before", "After", "Change"};
    return section >= 0 && section < int(kColumns) ? QVariant(QLatin1String(heads[section])) : QVariant();
}

SnapshotsScreen::SnapshotsScreen(AppModel& app, QWidget* parent) : QWidget(parent), app_(app)
{
    setObjectName(QStringLiteral("snapshotsScreen"));
    QVBoxLayout* page = scrolledPage(this);
    page->addWidget(titleBlock(QStringLiteral("Snapshots"), QStringLiteral("Compare saved scans to see what changed.")));

    auto* actions = new QHBoxLayout;
    save_ = new QPushButton(ShellTexts::icon("document-save"), QStringLiteral("Save current scan"));
    reload_ = new QPushButton(ShellTexts::icon("view-refresh"), QStringLiteral("Refresh saved scans"));
    actions->addWidget(save_);
    actions->addWidget(reload_);
    status_ = note({});
    status_->setObjectName(QStringLiteral("snapshotStatus"));
    actions->addWidget(status_, 1);
    page->addLayout(actions);
    enabled_ = new QCheckBox(QStringLiteral("Save scan snapshots"));
    page->addWidget(enabled_);
    page->addWidget(note(QStringLiteral(
        "Sizes and paths for comparison — no file contents. File backups are offered separately before cleanup.")));

    issuesToggle_ = new QToolButton;
    issuesToggle_->setCheckable(true);
    issuesToggle_->setAutoRaise(true);
    issuesToggle_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    issuesToggle_->setArrowType(Qt::RightArrow);
    page->addWidget(issuesToggle_);
    issues_ = list({QStringLiteral("File"), QStringLiteral("Problem")}, QStringLiteral("Unavailable saved scans"));
    issues_->hide();
    page->addWidget(issues_);

    empty_ = new EmptyState(ShellTexts::icon("document-open-recent"), {}, {});
    empty_->setMinimumHeight(220);
    page->addWidget(empty_);

    before_ = note({});
    before_->setObjectName(QStringLiteral("beforeLine"));
    page->addWidget(before_);
    compareCard_ = new QFrame;
    static_cast<QFrame*>(compareCard_)->setFrameShape(QFrame::StyledPanel);
    auto* card = new QVBoxLayout(compareCard_);
    card->addWidget(heading(QStringLiteral("Compare snapshots")));
    card->addWidget(note(QStringLiteral("Select Before, then After.")));
    auto* pickers = new QHBoxLayout;
    pickBefore_ = new QComboBox;
    pickBefore_->setPlaceholderText(QStringLiteral("Select Before"));
    pickBefore_->setAccessibleName(QStringLiteral("Select Before"));
    pickAfter_ = new QComboBox;
    pickAfter_->setPlaceholderText(QStringLiteral("Select After"));
    pickAfter_->setAccessibleName(QStringLiteral("Select After"));
    pickers->addWidget(pickBefore_, 1);
    pickers->addWidget(new QLabel(QStringLiteral("→")));
    pickers->addWidget(pickAfter_, 1);
    card->addLayout(pickers);
    page->addWidget(compareCard_);

    catalog_ = list({QStringLiteral("Saved scan"), QStringLiteral("Folder"), QStringLiteral("Saved"), QStringLiteral("Size"),
                     QString(), QString(), QString(), QString(), QString()},
                    QStringLiteral("Saved scans"));
    catalog_->setObjectName(QStringLiteral("snapshotCatalog"));
    page->addWidget(catalog_);

    results_ = new QWidget;
    auto* results = new QVBoxLayout(results_);
    results->setContentsMargins(0, 8, 0, 0);
    comparisonTitle_ = heading({}, 1.15);
    comparisonTitle_->setObjectName(QStringLiteral("comparisonTitle"));
    results->addWidget(comparisonTitle_);
    measure_ = note({});
    results->addWidget(measure_);
    incomplete_ = new QLabel(QStringLiteral("The current scan is incomplete. Some apparent removals may be inaccessible paths."));
    incomplete_->setWordWrap(true);
    incomplete_->setObjectName(QStringLiteral("incompleteWarning"));
    results->addWidget(incomplete_);
    auto* controls = new QHBoxLayout;
    controls->addWidget(heading(QStringLiteral("Changes")));
    controls->addStretch(1);
    topLevel_ = new QCheckBox(QStringLiteral("Top level only"));
    controls->addWidget(topLevel_);
    auto* minimumLabel = new QLabel(QStringLiteral("Minimum change"));
    controls->addWidget(minimumLabel);
    minimum_ = new QComboBox;
    minimum_->setAccessibleName(QStringLiteral("Minimum change"));
    for (const MinimumChangeChoice& choice : SnapshotFlow::minimumChangeChoices())
        minimum_->addItem(choice.label, QVariant::fromValue(qlonglong(choice.bytes)));
    minimumLabel->setBuddy(minimum_);
    controls->addWidget(minimum_);
    results->addLayout(controls);
    none_ = note(QStringLiteral("No size changes in this view."));
    results->addWidget(none_);
    model_ = new ChangeTableModel(this);
    changes_ = new QTreeView;
    changes_->setObjectName(QStringLiteral("changeList"));
    changes_->setAccessibleName(QStringLiteral("Changes"));
    changes_->setRootIsDecorated(false);
    changes_->setUniformRowHeights(true);
    changes_->setModel(model_);
    changes_->header()->setStretchLastSection(false);
    changes_->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    changes_->header()->setSectionResizeMode(ChangeTableModel::pathColumn, QHeaderView::Stretch);
    changes_->setMinimumHeight(320);
    results->addWidget(changes_);
    more_ = new QPushButton(QStringLiteral("Show 300 more changes"));
    results->addWidget(more_, 0, Qt::AlignHCenter);
    page->addWidget(results_);
    page->addStretch(1);

    connectControls();
    refresh();
}

void SnapshotsScreen::connectControls()
{
    SnapshotFlow& flow = app_.snapshots();
    connect(save_, &QPushButton::clicked, this, [this] { app_.snapshots().saveSnapshot(); });
    connect(reload_, &QPushButton::clicked, this, [this] { app_.snapshots().refreshSnapshots(); });
    connect(enabled_, &QCheckBox::toggled, this, [this](bool on) { app_.preferences().setSnapshotsEnabled(on); });
    connect(issuesToggle_, &QToolButton::toggled, this, [this](bool open) {
        issuesToggle_->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
        issues_->setVisible(open);
    });
    connect(pickBefore_, &QComboBox::activated, this, [this](int index) {
        const auto& records = app_.snapshots().snapshots();
        if (index >= 0 && std::size_t(index) < records.size())
            app_.snapshots().useAsBefore(records[std::size_t(index)]);
    });
    connect(pickAfter_, &QComboBox::activated, this, [this](int index) {
        const auto& records = app_.snapshots().snapshots();
        if (index >= 0 && std::size_t(index) < records.size())
            app_.snapshots().compareWithBefore(records[std::size_t(index)]);
    });
    connect(topLevel_, &QCheckBox::toggled, this, [this] {
        limit_ = SnapshotFlow::kChangePageSize;
        showChanges();
    });
    connect(minimum_, &QComboBox::currentIndexChanged, this, [this] {
        limit_ = SnapshotFlow::kChangePageSize;
        showChanges();
    });
    connect(more_, &QPushButton::clicked, this, [this] {
        limit_ += SnapshotFlow::kChangePageSize;
        showChanges();
    });
    connect(&flow, &SnapshotFlow::changed, this, &SnapshotsScreen::refresh);
    connect(&app_.preferences(), &Preferences::changed, this, &SnapshotsScreen::refresh);
    connect(&app_.session(), &ScanSession::scanChanged, this, &SnapshotsScreen::refresh);
    connect(&app_.session(), &ScanSession::progressChanged, this, &SnapshotsScreen::updateButtons);
    connect(&app_.cleanup(), &CleanupFlow::changed, this, &SnapshotsScreen::updateButtons);
}

void SnapshotsScreen::refresh()
{
    // The rows point into the model's comparison: a new one (or none) drops them before
    // anything else may ask the list for its data.
    const auto& changes = app_.snapshots().changes();
    if ((changes.empty() ? nullptr : changes.data()) != shownChanges_)
        model_->setRows({}, std::nullopt);
    showCatalog();
    showComparison();
    updateButtons();
}

void SnapshotsScreen::showCatalog()
{
    const SnapshotFlow& flow = app_.snapshots();
    const bool snapshotsOn = app_.preferences().snapshotsEnabled();
    {
        const QSignalBlocker blocker(enabled_);
        enabled_->setChecked(snapshotsOn);
    }
    const auto& issues = flow.snapshotIssues();
    issuesToggle_->setVisible(!issues.empty());
    issuesToggle_->setText(SnapshotFlow::unavailableHeading(issues.size()));
    issues_->clear();
    for (const SnapshotCatalogIssue& issue : issues)
        new QTreeWidgetItem(issues_, {displayText(PathText::name(issue.path)), displayText(issue.message)});
    fitHeight(issues_, 6);
    issues_->setVisible(issuesToggle_->isChecked() && !issues.empty());

    const auto& records = flow.snapshots();
    empty_->setVisible(records.empty());
    empty_->setTexts(issues.empty() ? QStringLiteral("No saved scans") : QStringLiteral("No available snapshots"),
                     snapshotsOn ? QStringLiteral("Save a scan, then compare it with a later scan.")
                                 : QStringLiteral("Enable snapshots to save scans for comparison."));
    const auto& before = flow.beforeSnapshot();
    before_->setVisible(before.has_value());
    if (before)
        before_->setText(QStringLiteral("Before snapshot: ") + displayText(before->title) +
                         QStringLiteral(". Choose Compare with Before on another snapshot."));
    compareCard_->setVisible(records.size() >= 2);
    catalog_->setVisible(!records.empty());

    pickBefore_->clear();
    pickAfter_->clear();
    catalog_->clear();
    const QLocale locale;
    int beforeIndex = -1;
    for (std::size_t i = 0; i < records.size(); ++i) {
        const SnapshotRecord& record = records[i];
        const QString date = locale.toString(QDateTime::fromSecsSinceEpoch(qint64(record.createdAt)), QLocale::ShortFormat);
        const QString title = displayText(record.title);
        pickBefore_->addItem(title + QStringLiteral(" · ") + date);
        pickAfter_->addItem(title + QStringLiteral(" · ") + date);
        if (before && before->id == record.id)
            beforeIndex = int(i);
        auto* item = new QTreeWidgetItem(catalog_);
        item->setText(titleColumn, title);
        item->setText(rootColumn, displayText(record.rootPath));
        item->setText(dateColumn, date);
        item->setText(sizeColumn, bytes(record.bytes));
        item->setTextAlignment(sizeColumn, Qt::AlignRight | Qt::AlignVCenter);
        auto* open = rowButton(catalog_, item, openColumn, QStringLiteral("Open"), QStringLiteral("Open ") + title);
        auto* useBefore = rowButton(catalog_, item, useBeforeColumn, QStringLiteral("Use as Before"),
                                    QStringLiteral("Use ") + title + QStringLiteral(" as Before"));
        auto* compareBefore = rowButton(catalog_, item, compareBeforeColumn, QStringLiteral("Compare with Before"),
                                        QStringLiteral("Compare ") + title + QStringLiteral(" with Before"));
        auto* compareCurrent = rowButton(catalog_, item, compareCurrentColumn, QStringLiteral("Compare with current scan"),
                                         QStringLiteral("Compare ") + title + QStringLiteral(" with current scan"));
        auto* remove = rowButton(catalog_, item, deleteColumn, {}, QStringLiteral("Delete ") + title);
        remove->setIcon(ShellTexts::icon("edit-delete", "user-trash"));
        remove->setToolTip(QStringLiteral("Delete saved snapshot"));
        connect(open, &QPushButton::clicked, this, [this, record] { app_.snapshots().openSnapshot(record); });
        connect(useBefore, &QPushButton::clicked, this, [this, record] { app_.snapshots().useAsBefore(record); });
        connect(compareBefore, &QPushButton::clicked, this,
                [this, record] { app_.snapshots().compareWithBefore(record); });
        connect(compareCurrent, &QPushButton::clicked, this, [this, record] { app_.snapshots().compareSnapshot(record); });
        connect(remove, &QPushButton::clicked, this, [this, record] { askToDelete(record); });
    }
    pickBefore_->setCurrentIndex(beforeIndex);
    pickAfter_->setCurrentIndex(-1);
    fitHeight(catalog_, 10);
}

void SnapshotsScreen::showComparison()
{
    const SnapshotFlow& flow = app_.snapshots();
    results_->setVisible(flow.comparisonTitle().has_value());
    comparisonTitle_->setText(flow.comparisonTitle().value_or(QString()));
    measure_->setText((app_.explore().logical() ? QStringLiteral("Logical") : QStringLiteral("Allocated")) +
                      QStringLiteral(" bytes. Parent rows include child changes; do not add all rows together."));
    const auto& scan = app_.session().scan();
    incomplete_->setVisible(scan && scan->skippedCount() > 0);
    const SnapshotChange* changes = flow.changes().empty() ? nullptr : flow.changes().data();
    if (changes != shownChanges_) {
        limit_ = SnapshotFlow::kChangePageSize; // a new comparison starts at its first page
        shownChanges_ = changes;
    }
    showChanges();
}

void SnapshotsScreen::showChanges()
{
    const SnapshotFlow& flow = app_.snapshots();
    const std::int64_t minimum = minimum_->currentData().toLongLong();
    const ChangeLevel level = topLevel_->isChecked() ? ChangeLevel::topLevelOnly : ChangeLevel::everyLevel;
    ChangePage changePage = flow.visibleChanges(minimum, level, limit_);
    none_->setVisible(changePage.passing == 0);
    changes_->setVisible(changePage.passing > 0);
    more_->setVisible(changePage.hasMore());
    model_->setRows(std::move(changePage.rows), flow.comparisonRoot());
}

void SnapshotsScreen::updateButtons()
{
    const SnapshotFlow& flow = app_.snapshots();
    const bool busy = flow.busy();
    status_->setText(busy ? flow.status() : QString());
    save_->setEnabled(app_.preferences().snapshotsEnabled() && app_.session().scan() && !busy && !app_.scanning() &&
                      !app_.cleaning());
    reload_->setEnabled(!busy);
    for (QPushButton* button : catalog_->findChildren<QPushButton*>())
        button->setEnabled(!busy && !app_.scanning() && !app_.cleaning());
}

void SnapshotsScreen::askToDelete(const SnapshotRecord& record)
{
    if (confirm_)
        return;
    deleting_ = record;
    confirm_ = new QMessageBox(QMessageBox::Warning, QStringLiteral("Delete saved scan?"), QStringLiteral("Delete saved scan?"),
                               QMessageBox::NoButton, this);
    confirm_->setObjectName(QStringLiteral("deleteSnapshot"));
    confirm_->setInformativeText(
        QStringLiteral("Only Tarnbridge's saved metadata is removed. Your scanned files are unaffected."));
    QPushButton* remove = confirm_->addButton(QStringLiteral("Delete snapshot"), QMessageBox::DestructiveRole);
    QPushButton* cancel = confirm_->addButton(QMessageBox::Cancel);
    // Deleting is never what Enter does.
    confirm_->setDefaultButton(cancel);
    remove->setAutoDefault(false);
    confirm_->setAttribute(Qt::WA_DeleteOnClose);
    connect(confirm_, &QMessageBox::finished, this, [this, remove] {
        const bool confirmed = confirm_->clickedButton() == remove;
        confirm_ = nullptr;
        const auto record = std::exchange(deleting_, std::nullopt);
        if (confirmed && record)
            app_.snapshots().deleteSnapshot(*record);
    });
    confirm_->open();
}

} // namespace tarnbridge::app
