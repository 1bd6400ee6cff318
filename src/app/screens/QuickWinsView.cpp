#include "app/screens/QuickWinsView.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolButton>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>

#include "app/itemmodels/QuickWinModel.h"
#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/screens/EmptyState.h"
#include "app/shell/ShellTexts.h"
#include "app/shell/ThemeIcon.h"
#include "app/views/NodeActions.h"
#include "query/ScanPresentation.h"

namespace tarnbridge::app {

namespace {

QString text(std::string_view view) {
    return QString::fromUtf8(view.data(), qsizetype(view.size()));
}

const QuickWin* activeWin(const ExploreState& explore) {
    const auto kind = explore.activeQuickWin();
    if (!kind)
        return nullptr;
    const auto& wins = explore.quickWins();
    const auto at = std::find_if(wins.begin(), wins.end(),
                                 [&](const QuickWin& win) { return win.kind == *kind; });
    return at == wins.end() ? nullptr : &*at;
}

QIcon symbolOf(QuickWinKind kind) {
    const std::string symbol(info(kind).symbol);
    return ShellTexts::icon(symbol.c_str());
}

} // namespace

QuickWinsView::QuickWinsView(AppModel& app, QWidget* parent)
    : QWidget(parent)
    , app_(app) {
    setObjectName(QStringLiteral("quickWins"));
    model_ = new QuickWinModel(this);

    auto* caption = new QLabel(QStringLiteral("Candidates to review"));
    caption->setForegroundRole(QPalette::PlaceholderText);
    name_ = new QLabel;
    name_->setObjectName(QStringLiteral("quickWinName"));
    QFont font = name_->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.3);
    name_->setFont(font);
    name_->setTextFormat(Qt::PlainText);
    explanation_ = new QLabel;
    explanation_->setObjectName(QStringLiteral("quickWinExplanation"));
    explanation_->setWordWrap(true);
    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    texts->addWidget(caption);
    texts->addWidget(name_);
    texts->addWidget(explanation_);

    bytes_ = new QLabel;
    bytes_->setObjectName(QStringLiteral("quickWinBytes"));
    QFont bold = bytes_->font();
    bold.setBold(true);
    bytes_->setFont(bold);
    bytes_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    stage_ = new QPushButton(ShellTexts::icon("list-add"), QString());
    stage_->setObjectName(QStringLiteral("quickWinStage"));
    auto* actions = new QVBoxLayout;
    actions->setSpacing(8);
    actions->addWidget(bytes_, 0, Qt::AlignRight);
    actions->addWidget(stage_, 0, Qt::AlignRight);
    actions->addStretch(1);

    close_ = new QToolButton;
    close_->setObjectName(QStringLiteral("quickWinClose"));
    close_->setIcon(ShellTexts::icon("window-close"));
    close_->setAutoRaise(true);
    close_->setToolTip(QStringLiteral("Close"));
    close_->setAccessibleName(QStringLiteral("Close"));

    symbolSlot_ = new QHBoxLayout;
    symbolSlot_->setContentsMargins(0, 0, 0, 0);
    auto* header = new QHBoxLayout;
    header->setContentsMargins(16, 12, 12, 8);
    header->setSpacing(12);
    header->addLayout(symbolSlot_);
    header->addLayout(texts, 1);
    header->addLayout(actions);
    header->addWidget(close_, 0, Qt::AlignTop);

    list_ = new QTreeView;
    list_->setObjectName(QStringLiteral("quickWinRows"));
    list_->setAccessibleName(QStringLiteral("Candidates to review"));
    list_->setModel(model_);
    list_->setRootIsDecorated(false);
    list_->setUniformRowHeights(true);
    list_->setAllColumnsShowFocus(true);
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    list_->setContextMenuPolicy(Qt::CustomContextMenu);
    list_->header()->setStretchLastSection(false);
    list_->header()->setSectionResizeMode(QuickWinModel::name, QHeaderView::Interactive);
    list_->header()->setSectionResizeMode(QuickWinModel::location, QHeaderView::Stretch);
    list_->header()->setSectionResizeMode(QuickWinModel::size, QHeaderView::ResizeToContents);
    list_->header()->resizeSection(QuickWinModel::name, 260);

    filtered_ = new EmptyState(ShellTexts::icon("edit-find"), QStringLiteral("No matching items"),
                               QStringLiteral("Clear filters to see the other candidates."));
    none_ = new EmptyState(ShellTexts::icon("emblem-ok", "object-select"),
                           QStringLiteral("Nothing to review here"), QString());
    body_ = new QStackedWidget;
    body_->addWidget(list_);
    body_->addWidget(filtered_);
    body_->addWidget(none_);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(header);
    layout->addWidget(body_, 1);

    ExploreState& explore = app_.explore();
    connect(&explore, &ExploreState::derivedChanged, this, &QuickWinsView::update);
    connect(&explore, &ExploreState::filtersChanged, this, &QuickWinsView::update);
    // What may be staged changes with the scan, the work running and the queue.
    connect(&app_.session(), &ScanSession::scanChanged, this, &QuickWinsView::updateStaging);
    connect(&app_.session(), &ScanSession::progressChanged, this, &QuickWinsView::updateStaging);
    connect(&app_.cleanup(), &CleanupFlow::changed, this, &QuickWinsView::updateStaging);
    connect(close_, &QToolButton::clicked, this,
            [this] { app_.explore().setActiveQuickWin(std::nullopt); });
    connect(stage_, &QPushButton::clicked, this, &QuickWinsView::stageAll);
    connect(list_, &QTreeView::clicked, this, [this](const QModelIndex& index) {
        if (const DiskNode* node = model_->record(index.row()))
            app_.session().select(node->path);
    });
    connect(list_, &QTreeView::activated, this, [this](const QModelIndex& index) {
        const DiskNode* node = model_->record(index.row());
        if (!node)
            return;
        if (node->isDirectory)
            app_.session().focusOn(DiskNode(*node)); // a copy: opening a folder clears the rows
        else
            app_.session().select(node->path);
    });
    connect(list_, &QTreeView::customContextMenuRequested, this, &QuickWinsView::showMenu);
    update();
}

void QuickWinsView::update() {
    const ExploreState& explore = app_.explore();
    const QuickWin* win = activeWin(explore);
    shown_.clear();
    if (win)
        std::copy_if(win->nodes.begin(), win->nodes.end(), std::back_inserter(shown_),
                     [&](const DiskNode& node) { return explore.matches(node); });
    model_->setNodes(shown_);

    const int kind = win ? int(win->kind) : -1;
    if (kind != symbolKind_) {
        delete symbol_;
        symbol_ = win ? new IconLabel(symbolOf(win->kind), 40) : nullptr;
        if (symbol_)
            symbolSlot_->addWidget(symbol_, 0, Qt::AlignTop);
        symbolKind_ = kind;
    }
    const QString name = win ? text(info(win->kind).rawValue) : QString();
    name_->setText(name);
    explanation_->setText(win ? text(info(win->kind).explanation) : QString());
    bytes_->setText(win ? ShellTexts::bytes(win->bytes()) : QString());
    none_->setTexts(QStringLiteral("Nothing to review here"),
                    QStringLiteral("No ") + name +
                        QStringLiteral(" candidates were found in this scan."));
    if (!win || win->nodes.empty())
        body_->setCurrentWidget(none_);
    else
        body_->setCurrentWidget(shown_.empty() ? static_cast<QWidget*>(filtered_) : list_);
    updateStaging();
}

void QuickWinsView::updateStaging() {
    stageable_.clear();
    std::optional<QString> refused;
    for (const DiskNode& node : shown_) {
        if (auto why = NodeActions::refusal(app_, node)) {
            if (!refused)
                refused = std::move(why);
        } else {
            stageable_.push_back(node.path);
        }
    }
    // The count of what the action would add; with nothing acceptable, of what is listed.
    const std::size_t count = stageable_.empty() ? shown_.size() : stageable_.size();
    stage_->setText(QStringLiteral("Add ") + QLocale().toString(qulonglong(count)) +
                    (count == 1 ? QStringLiteral(" item") : QStringLiteral(" items")) +
                    QStringLiteral(" to Cleanup"));
    stage_->setVisible(!shown_.empty());
    stage_->setEnabled(app_.canClean() && !stageable_.empty());
    QString tip;
    if (refused)
        tip = *refused;
    else if (app_.session().isHistorical())
        tip = QStringLiteral("Rescan to stage files from a saved scan.");
    stage_->setToolTip(tip);
}

void QuickWinsView::stageAll() {
    const QuickWin* win = activeWin(app_.explore());
    if (!win || stageable_.empty() || !app_.canClean())
        return;
    app_.cleanup().stagePaths(stageable_, std::string(info(win->kind).rawValue));
}

void QuickWinsView::showMenu(const QPoint& at) {
    const DiskNode* node = model_->record(list_->indexAt(at).row());
    if (!node)
        return;
    auto* menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("quickWinMenu"));
    menu->setAttribute(Qt::WA_DeleteOnClose);
    NodeActions::addTo(*menu, app_, *node);
    menu->popup(list_->viewport()->mapToGlobal(at));
}

} // namespace tarnbridge::app
