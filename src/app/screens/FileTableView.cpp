#include "app/screens/FileTableView.h"

#include <QCheckBox>
#include <QGraphicsOpacityEffect>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>

#include "app/itemmodels/FileTableModel.h"
#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ExportFlow.h"
#include "app/model/FileTableState.h"
#include "app/model/ScanSession.h"
#include "app/screens/EmptyState.h"
#include "app/shell/ShellTexts.h"
#include "app/views/NodeActions.h"

namespace tarnbridge::app {

FileTableView::FileTableView(AppModel& app, QWidget* parent) : QWidget(parent), app_(app)
{
    setObjectName(QStringLiteral("fileTable"));
    FileTableState& state = app_.table();
    model_ = new FileTableModel(state, this);

    recursive_ = new QCheckBox(QStringLiteral("Include everything below"));
    recursive_->setObjectName(QStringLiteral("tableRecursive"));
    status_ = new QLabel;
    status_->setObjectName(QStringLiteral("tableStatus"));
    busy_ = new QProgressBar;
    busy_->setRange(0, 0);
    busy_->setMaximumWidth(80);
    busy_->setTextVisible(false);
    more_ = new QPushButton(QStringLiteral("Show 500 more"));
    more_->setObjectName(QStringLiteral("tableMore"));
    export_ = new QPushButton(ShellTexts::icon("document-export", "document-save-as"), QStringLiteral("Export CSV"));
    export_->setObjectName(QStringLiteral("tableExport"));

    auto* bar = new QHBoxLayout;
    bar->setContentsMargins(12, 8, 12, 4);
    bar->addWidget(recursive_);
    bar->addStretch(1);
    bar->addWidget(busy_);
    bar->addWidget(status_);
    bar->addWidget(more_);
    bar->addWidget(export_);

    table_ = new QTableView;
    table_->setObjectName(QStringLiteral("tableRows"));
    table_->setModel(model_);
    table_->setSortingEnabled(true);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    table_->setContextMenuPolicy(Qt::CustomContextMenu);
    table_->setWordWrap(false);
    table_->verticalHeader()->hide();
    // Rows of one height let the view skip measuring a million of them.
    table_->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table_->horizontalHeader()->setSectionResizeMode(FileTableModel::name, QHeaderView::Stretch);
    table_->horizontalHeader()->setSortIndicator(FileTableModel::allocated, Qt::DescendingOrder);
    dim_ = new QGraphicsOpacityEffect(table_);
    dim_->setOpacity(0.45);
    dim_->setEnabled(false);
    table_->setGraphicsEffect(dim_);

    empty_ = new EmptyState(ShellTexts::icon("edit-find"), QStringLiteral("No matching items"),
                            QStringLiteral("Clear filters to see the other items."));
    body_ = new QStackedWidget;
    body_->addWidget(table_);
    body_->addWidget(empty_);

    auto* hint = new QLabel(QStringLiteral("Double-click a folder to open it."));
    hint->setForegroundRole(QPalette::PlaceholderText);
    hint->setContentsMargins(12, 2, 12, 6);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(bar);
    layout->addWidget(body_, 1);
    layout->addWidget(hint);

    connect(recursive_, &QCheckBox::toggled, &state, &FileTableState::setRecursive);
    connect(more_, &QPushButton::clicked, &state, &FileTableState::showMore);
    connect(export_, &QPushButton::clicked, &state, &FileTableState::exportCSV);
    connect(&state, &FileTableState::rowsChanged, this, &FileTableView::update);
    connect(&state, &FileTableState::limitChanged, this, &FileTableView::update);
    connect(&state, &FileTableState::pendingChanged, this, &FileTableView::update);
    connect(&app_.exports(), &ExportFlow::changed, this, &FileTableView::update);
    connect(table_, &QTableView::clicked, this, [this](const QModelIndex& index) {
        if (const auto node = model_->record(index.row()))
            app_.session().select(node->path);
    });
    connect(table_, &QTableView::activated, this, [this](const QModelIndex& index) {
        if (const auto node = model_->record(index.row()); node && node->isDirectory)
            app_.session().focusOn(*node);
    });
    connect(table_, &QTableView::customContextMenuRequested, this, &FileTableView::showMenu);
    update();
}

void FileTableView::update()
{
    const FileTableState& state = app_.table();
    const bool pending = state.isPending();
    status_->setText(state.status());
    busy_->setVisible(pending);
    dim_->setEnabled(pending);
    more_->setVisible(state.shownCount() < state.rowCount());
    export_->setEnabled(!pending && state.rowCount() > 0 && app_.exports().canExport());
    recursive_->setChecked(state.recursive());
    const bool empty = !pending && state.rowCount() == 0;
    if (empty) {
        const bool filtered = !app_.explore().activeFilters().empty();
        empty_->setTexts(filtered ? QStringLiteral("No matching items") : QStringLiteral("Nothing here"),
                         filtered ? QStringLiteral("Clear filters to see the other items.")
                                  : QStringLiteral("This folder is empty or contains no readable items."));
    }
    body_->setCurrentWidget(empty ? static_cast<QWidget*>(empty_) : table_);
}

void FileTableView::showMenu(const QPoint& at)
{
    const auto node = model_->record(table_->indexAt(at).row());
    if (!node)
        return;
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    NodeActions::addTo(*menu, app_, *node);
    menu->popup(table_->viewport()->mapToGlobal(at));
}

} // namespace tarnbridge::app
