#include "app/tools/DuplicatesScreen.h"

#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>

#include "app/desktop/DesktopServices.h"
#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/model/SnapshotFlow.h"
#include "app/screens/EmptyState.h"
#include "app/shell/ShellTexts.h"
#include "app/tools/ToolWidgets.h"
#include "model/PathText.h"

namespace tarnbridge::app {

namespace {

using namespace ToolWidgets;

const int kMinimumChoices[] = {0, 1, 10, 100};

// A path as the group card shows it: below the scan's root, relative to it.
QString readablePath(const std::string& path, const std::string& root)
{
    if (!root.empty() && root != "/" && PathText::contains(path, root) && path.size() > root.size())
        return displayText(std::string_view(path).substr(root.size() + 1));
    return displayText(path);
}

QString nameOf(const std::string& path)
{
    return displayText(PathText::name(path));
}

} // namespace

DuplicateGroupCard::DuplicateGroupCard(AppModel& app, const DuplicateGroup& group, QWidget* parent)
    : QFrame(parent), app_(app), group_(group)
{
    setFrameShape(QFrame::StyledPanel);
    auto* layout = new QGridLayout(this);
    layout->setContentsMargins(12, 8, 12, 8);
    layout->setHorizontalSpacing(12);
    layout->setVerticalSpacing(4);
    auto* head = new QHBoxLayout;
    head->setSpacing(12);
    head->addWidget(heading(counted(qint64(group.files.size()), " identical files", " identical files")));
    const std::int64_t each = group.files.empty() ? 0 : group.files.front().logicalSize;
    head->addWidget(note(bytes(each) + QStringLiteral(" each")), 1);
    stage_ = new QPushButton(QStringLiteral("Add extras to Cleanup"));
    head->addWidget(stage_);
    layout->addLayout(head, 0, 0, 1, 5);

    const std::string root = app.session().scan() ? app.session().scan()->rootPath() : std::string();
    int row = 1;
    for (const DiskNode& file : group.files) {
        auto* tag = new QLabel;
        tag->setMinimumWidth(tag->fontMetrics().horizontalAdvance(QStringLiteral("EXTRA COPY")) + 12);
        tags_.push_back(tag);
        layout->addWidget(tag, row, 0);
        const QString name = nameOf(file.path);
        layout->addWidget(new QLabel(name), row, 1);
        auto* where = note(readablePath(file.path, root));
        where->setWordWrap(false);
        where->setMinimumWidth(1);
        where->setToolTip(displayText(file.path));
        layout->addWidget(where, row, 2);
        auto* keep = new QPushButton(QStringLiteral("Keep"));
        keep->setCheckable(true);
        keep->setAccessibleName(QStringLiteral("Keep ") + name);
        keeps_.push_back(keep);
        layout->addWidget(keep, row, 3);
        auto* show = new QPushButton(QStringLiteral("Show in File Manager"));
        show->setAccessibleName(QStringLiteral("Show ") + name + QStringLiteral(" in File Manager"));
        layout->addWidget(show, row, 4);
        connect(keep, &QPushButton::clicked, this, [this, path = file.path] {
            app_.duplicates().keep(group_, path);
            refresh(); // the choice shows at once, even when the model's signal is queued behind others
        });
        connect(show, &QPushButton::clicked, this,
                [path = displayText(file.path)] { DesktopServices::showInFileManager(path); });
        ++row;
    }
    layout->setColumnStretch(2, 1);
    connect(stage_, &QPushButton::clicked, this,
            [this] { app_.duplicates().stageDuplicates(group_, app_.duplicates().keeper(group_)); });
    refresh();
}

void DuplicateGroupCard::refresh()
{
    const std::string kept = app_.duplicates().keeper(group_);
    for (std::size_t i = 0; i < group_.files.size(); ++i) {
        const bool isKept = group_.files[i].path == kept;
        tags_[i]->setText(isKept ? QStringLiteral("KEEP") : QStringLiteral("EXTRA COPY"));
        tags_[i]->setForegroundRole(isKept ? QPalette::Highlight : QPalette::PlaceholderText);
        QFont font = tags_[i]->font();
        font.setBold(isKept);
        tags_[i]->setFont(font);
        keeps_[i]->setChecked(isKept);
        keeps_[i]->setAccessibleDescription(isKept ? QStringLiteral("Selected") : QString());
    }
    stage_->setEnabled(app_.canClean());
}

DuplicatesScreen::DuplicatesScreen(AppModel& app, QWidget* parent) : QWidget(parent), app_(app)
{
    setObjectName(QStringLiteral("duplicatesScreen"));
    QVBoxLayout* page = scrolledPage(this);
    page->addWidget(titleBlock(QStringLiteral("Duplicates"), QStringLiteral("Find identical files")));
    location_ = note({});
    location_->setObjectName(QStringLiteral("duplicateLocation"));
    page->addWidget(location_);

    auto* choices = new QHBoxLayout;
    wholeDisk_ = new QPushButton(ShellTexts::icon("drive-harddisk"), QStringLiteral("Whole Disk"));
    wholeDisk_->setToolTip(QStringLiteral("Compare files from the existing whole-disk scan."));
    chooseFolder_ = new QPushButton(ShellTexts::icon("folder-open"), QStringLiteral("Choose folder…"));
    currentScan_ = new QPushButton(ShellTexts::icon("view-refresh"), QStringLiteral("Current scan"));
    currentScan_->setToolTip(QStringLiteral("Compare the scanned files — no rescan. Changed or missing files are skipped."));
    for (QPushButton* choice : {wholeDisk_, chooseFolder_, currentScan_})
        choices->addWidget(choice);
    choices->addSpacing(16);
    auto* minimumLabel = new QLabel(QStringLiteral("Minimum size"));
    choices->addWidget(minimumLabel);
    minimum_ = new QComboBox;
    minimum_->setAccessibleName(QStringLiteral("Minimum size"));
    for (const char* label : {"Any size", "1 MB+", "10 MB+", "100 MB+"})
        minimum_->addItem(QLatin1String(label));
    minimumLabel->setBuddy(minimum_);
    choices->addWidget(minimum_);
    choices->addStretch(1);
    cancel_ = new QPushButton(QStringLiteral("Cancel"));
    cancel_->setObjectName(QStringLiteral("duplicateCancel"));
    choices->addWidget(cancel_);
    page->addLayout(choices);

    card_ = new ProgressCard;
    card_->setObjectName(QStringLiteral("duplicateProgress"));
    card_->cancelButton()->hide(); // the Cancel above serves both the wait and the search
    page->addWidget(card_);

    empty_ = new EmptyState(ShellTexts::icon("edit-copy"), {}, {});
    empty_->setMinimumHeight(280);
    clearSearch_ = new QPushButton(QStringLiteral("Clear search"));
    empty_->buttons()->addWidget(clearSearch_);
    page->addWidget(empty_);

    results_ = new QWidget;
    auto* results = new QVBoxLayout(results_);
    results->setContentsMargins(0, 0, 0, 0);
    results->setSpacing(12);
    auto* tiles = new QHBoxLayout;
    extra_ = new Tile(QStringLiteral("Extra copies"));
    groupsTile_ = new Tile(QStringLiteral("Duplicate groups"));
    checked_ = new Tile(QStringLiteral("Candidates checked"));
    for (Tile* tile : {extra_, groupsTile_, checked_})
        tiles->addWidget(tile, 1);
    results->addLayout(tiles);
    details_ = new QToolButton;
    details_->setCheckable(true);
    details_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    details_->setArrowType(Qt::RightArrow);
    details_->setAutoRaise(true);
    results->addWidget(details_);
    issues_ = list({QStringLiteral("Issue")}, QStringLiteral("Comparison details"));
    issues_->setHeaderHidden(true);
    issues_->hide();
    results->addWidget(issues_);
    auto* above = new QHBoxLayout;
    showing_ = note({});
    showing_->setObjectName(QStringLiteral("duplicateShowing"));
    above->addWidget(showing_, 1);
    stageAll_ = new QPushButton(QStringLiteral("Add all extras to Cleanup"));
    stageAll_->setToolTip(QStringLiteral("Add extra copies from every group, including groups hidden by the name filter."));
    above->addWidget(stageAll_);
    results->addLayout(above);
    groupList_ = new QVBoxLayout;
    groupList_->setSpacing(8);
    results->addLayout(groupList_);
    more_ = new QPushButton(QStringLiteral("Show 30 more groups"));
    results->addWidget(more_, 0, Qt::AlignHCenter);
    page->addWidget(results_);
    page->addStretch(1);

    DuplicateSearch& search = app_.duplicates();
    connect(wholeDisk_, &QPushButton::clicked, this, [this] { app_.duplicates().findDuplicatesOnWholeDisk(); });
    connect(chooseFolder_, &QPushButton::clicked, this, [this] { app_.session().chooseFolder(true, false); });
    connect(currentScan_, &QPushButton::clicked, this, [this] { app_.duplicates().findDuplicates(std::nullopt); });
    connect(minimum_, &QComboBox::activated, this,
            [this](int index) { app_.duplicates().setDuplicateMinimumMB(kMinimumChoices[index]); });
    connect(cancel_, &QPushButton::clicked, this, [this] {
        if (app_.duplicates().waitingForScan())
            app_.session().cancelScan();
        else
            app_.duplicates().cancelDuplicates();
    });
    connect(clearSearch_, &QPushButton::clicked, this, [this] { app_.explore().setFilter({}); });
    connect(details_, &QToolButton::toggled, this, [this](bool open) {
        details_->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
        issues_->setVisible(open);
    });
    connect(stageAll_, &QPushButton::clicked, this, [this] { app_.duplicates().stageAllDuplicates(); });
    connect(more_, &QPushButton::clicked, this, [this] {
        limit_ += DuplicateSearch::kGroupPageSize;
        showGroups();
    });
    connect(&search, &DuplicateSearch::changed, this, &DuplicatesScreen::refresh);
    connect(&search, &DuplicateSearch::progressChanged, this, &DuplicatesScreen::showProgress);
    connect(&app_.explore(), &ExploreState::filtersChanged, this, &DuplicatesScreen::showGroups);
    connect(&app_.session(), &ScanSession::progressChanged, this, &DuplicatesScreen::refresh);
    connect(&app_.session(), &ScanSession::scanChanged, this, &DuplicatesScreen::refresh);
    connect(&app_.cleanup(), &CleanupFlow::changed, this, &DuplicatesScreen::showGroups);
    connect(&app_.snapshots(), &SnapshotFlow::changed, this, &DuplicatesScreen::showGroups);
    refresh();
}

void DuplicatesScreen::refresh()
{
    showSearch();
    showProgress();
    showReport();
}

void DuplicatesScreen::showSearch()
{
    const DuplicateSearch& search = app_.duplicates();
    location_->setText(displayText(search.location()));
    location_->setVisible(!search.location().empty());
    const int minimum = search.duplicateMinimumMB();
    const auto* choice = std::find(std::begin(kMinimumChoices), std::end(kMinimumChoices), minimum);
    minimum_->setCurrentIndex(choice == std::end(kMinimumChoices) ? 1 : int(choice - std::begin(kMinimumChoices)));
    const bool busy = search.findingDuplicates() || search.waitingForScan();
    cancel_->setVisible(busy);
    minimum_->setEnabled(!search.findingDuplicates());
}

void DuplicatesScreen::showProgress()
{
    const DuplicateSearch& search = app_.duplicates();
    const bool waiting = search.waitingForScan();
    card_->setVisible(waiting || search.findingDuplicates());
    if (waiting) {
        const ScanProgress* progress = app_.session().scanProgress().get();
        card_->setTexts(QStringLiteral("Scanning ") + app_.session().scanRootName(),
                        QStringLiteral("Comparison starts after the scan."), displayText(search.location()));
        card_->setFraction(std::nullopt);
        card_->setFacts({{QStringLiteral("Files"), number(progress ? progress->files : 0)},
                         {QStringLiteral("Folders"), number(progress ? progress->folders : 0)},
                         {QStringLiteral("Size on disk"), bytes(progress ? progress->bytes : 0)}});
        return;
    }
    if (!search.findingDuplicates())
        return;
    const auto& work = search.duplicateWork();
    using Phase = DuplicateProgress::Phase;
    if (work && (work->phase == Phase::hashing || work->phase == Phase::verifying)) {
        card_->setTexts(work->phase == Phase::hashing ? QStringLiteral("Reading full contents")
                                                      : QStringLiteral("Verifying identical copies"),
                        displayText(work->fileName), displayText(search.location()));
        std::optional<double> fraction;
        if (work->fileSize >= 1)
            fraction = std::clamp(double(work->bytesRead) / double(work->fileSize), 0.0, 1.0);
        card_->setFraction(fraction);
        card_->setFacts({{QStringLiteral("Read from this file"), bytes(work->bytesRead)},
                         {QStringLiteral("File size"), bytes(work->fileSize)}});
        return;
    }
    card_->setTexts(QStringLiteral("Comparing your files"), search.duplicateProgress(), displayText(search.location()));
    card_->setFraction(std::nullopt);
    card_->setFacts({{QStringLiteral("Candidates checked"), number(work ? work->checked : 0)},
                     {QStringLiteral("Candidates found"), number(work ? work->total : 0)}});
}

void DuplicatesScreen::showReport()
{
    const DuplicateSearch& search = app_.duplicates();
    const auto& report = search.duplicateReport();
    if (report) {
        extra_->setFigure(bytes(search.reclaimableBytes()), QStringLiteral("Allocated size estimate"));
        groupsTile_->setFigure(number(qint64(report->groups.size())), QStringLiteral("Content verified"));
        const std::int64_t skipped = report->skipped;
        checked_->setFigure(number(report->checked),
                            skipped == 0 ? QStringLiteral("No comparison issues")
                                         : counted(skipped, " comparison issue", " comparison issues"));
        details_->setText(QStringLiteral("Comparison details (") + number(qint64(report->issues.size())) +
                          QStringLiteral(")"));
        details_->setVisible(!report->issues.empty());
        issues_->clear();
        for (const std::string& issue : report->issues)
            new QTreeWidgetItem(issues_, {displayText(issue)});
        fitHeight(issues_, 8);
        issues_->setVisible(details_->isChecked() && !report->issues.empty());
    }
    showGroups();
}

void DuplicatesScreen::showGroups()
{
    const DuplicateSearch& search = app_.duplicates();
    const auto& report = search.duplicateReport();
    const QString& filter = app_.explore().filter();
    const bool busy = search.findingDuplicates() || search.waitingForScan();
    const DuplicateReport* current = report ? &*report : nullptr;
    const DuplicateGroup* groups = current ? current->groups.data() : nullptr;
    if (groups != shownGroups_) {
        limit_ = DuplicateSearch::kGroupPageSize; // a new report starts at its first page
        shownGroups_ = groups;
    }

    const DuplicateGroupPage groupPage = search.visibleGroups(filter, limit_);
    const bool hasGroups = current && !current->groups.empty();
    results_->setVisible(hasGroups && !busy && groupPage.passing > 0);
    empty_->setVisible(!busy && (!hasGroups || groupPage.passing == 0));
    clearSearch_->setVisible(hasGroups && groupPage.passing == 0);
    if (!current)
        empty_->setTexts(QStringLiteral("Find duplicate files"), QStringLiteral("Choose a location above to start."));
    else if (!hasGroups)
        empty_->setTexts(QStringLiteral("No duplicates found"), QStringLiteral("No identical files match the minimum size."));
    else if (groupPage.passing == 0)
        empty_->setTexts(QStringLiteral("No matching duplicates"), QStringLiteral("Try another filename or clear the search."));
    if (!hasGroups) {
        ToolWidgets::clearLayout(groupList_);
        cards_.clear();
        return;
    }
    const std::size_t total = current->groups.size();
    showing_->setText(filter.isEmpty() ? QStringLiteral("Choose a copy to keep.")
                                       : QStringLiteral("Showing ") + number(qint64(groupPage.passing)) +
                                             QStringLiteral(" of ") + counted(qint64(total), " group", " groups"));
    stageAll_->setEnabled(app_.canClean());
    more_->setVisible(groupPage.hasMore());

    // The same groups as before only change their tags and buttons; new ones get new cards.
    const bool same = std::equal(cards_.begin(), cards_.end(), groupPage.groups.begin(), groupPage.groups.end(),
                                 [](const DuplicateGroupCard* card, const DuplicateGroup* group) {
                                     return &card->group() == group;
                                 });
    if (same) {
        for (DuplicateGroupCard* card : cards_)
            card->refresh();
        return;
    }
    results_->setUpdatesEnabled(false);
    ToolWidgets::clearLayout(groupList_);
    cards_.clear();
    for (const DuplicateGroup* group : groupPage.groups) {
        auto* card = new DuplicateGroupCard(app_, *group);
        groupList_->addWidget(card);
        card->show(); // at once, not when the event loop next runs
        cards_.push_back(card);
    }
    results_->setUpdatesEnabled(true);
}

} // namespace tarnbridge::app
