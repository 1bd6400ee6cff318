#include "app/screens/InspectorPanel.h"

#include <QDateTime>
#include <QFormLayout>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include "app/desktop/DesktopServices.h"
#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/shell/ShellTexts.h"
#include "app/tools/ToolWidgets.h"
#include "app/views/NodeActions.h"

namespace tarnbridge::app {

namespace {

constexpr int kPathRole = Qt::UserRole + 1;

QString date(std::int64_t seconds)
{
    return QLocale().toString(QDateTime::fromSecsSinceEpoch(seconds), QLocale::ShortFormat);
}

} // namespace

InspectorPanel::InspectorPanel(AppModel& app, QWidget* parent) : QWidget(parent), app_(app)
{
    setObjectName(QStringLiteral("inspector"));
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    outer->addWidget(scroll);

    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(12, 12, 12, 12);
    empty_ = ToolWidgets::note(QStringLiteral("Select an item to see its details."));
    layout->addWidget(empty_);

    body_ = new QWidget;
    auto* body = new QVBoxLayout(body_);
    body->setContentsMargins(0, 0, 0, 0);
    title_ = ToolWidgets::heading(QString());
    title_->setObjectName(QStringLiteral("inspectorTitle"));
    title_->setWordWrap(true);
    title_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    path_ = ToolWidgets::note(QString());
    path_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    chips_ = new QLabel;
    chips_->setObjectName(QStringLiteral("inspectorChips"));
    chips_->setWordWrap(true);
    body->addWidget(title_);
    body->addWidget(path_);
    body->addWidget(chips_);

    auto* actions = new QHBoxLayout;
    reveal_ = new QPushButton(ShellTexts::icon("system-file-manager", "folder-open"), QString());
    reveal_->setToolTip(QStringLiteral("Show in File Manager"));
    reveal_->setAccessibleName(reveal_->toolTip());
    copy_ = new QPushButton(ShellTexts::icon("edit-copy"), QString());
    copy_->setToolTip(QStringLiteral("Copy Path"));
    copy_->setAccessibleName(copy_->toolTip());
    stage_ = new QPushButton(ShellTexts::icon("list-add"), QStringLiteral("Add to Cleanup"));
    stage_->setObjectName(QStringLiteral("inspectorStage"));
    actions->addWidget(reveal_);
    actions->addWidget(copy_);
    actions->addWidget(stage_, 1);
    body->addLayout(actions);
    connect(reveal_, &QPushButton::clicked, this, [this] {
        if (shown_)
            DesktopServices::showInFileManager(QString::fromStdString(shown_->path));
    });
    connect(copy_, &QPushButton::clicked, this, [this] {
        if (shown_)
            DesktopServices::copyPath(QString::fromStdString(shown_->path));
    });
    connect(stage_, &QPushButton::clicked, this, [this] {
        if (shown_ && NodeActions::canStage(app_, *shown_))
            NodeActions::stage(app_, *shown_);
    });

    details_ = new QFormLayout;
    details_->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    body->addSpacing(6);
    body->addLayout(details_);

    largestTitle_ = ToolWidgets::heading(QStringLiteral("Largest inside"));
    largest_ = new QListWidget;
    largest_->setObjectName(QStringLiteral("inspectorLargest"));
    largest_->setFrameShape(QFrame::NoFrame);
    largest_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    largest_->setSizeAdjustPolicy(QAbstractScrollArea::AdjustToContents);
    largestEmpty_ = ToolWidgets::note(QStringLiteral("No readable items inside."));
    connect(largest_, &QListWidget::itemActivated, this, &InspectorPanel::openLargest);
    body->addSpacing(6);
    body->addWidget(largestTitle_);
    body->addWidget(largest_);
    body->addWidget(largestEmpty_);

    body->addSpacing(6);
    body->addWidget(ToolWidgets::heading(QStringLiteral("About these sizes")));
    body->addWidget(ToolWidgets::note(QStringLiteral(
        "Hard links count once. Compression savings cover files compressed by the file system. Sparse files "
        "and shared blocks (reflinks, snapshots) can affect reclaimed space.")));
    body->addStretch(1);
    layout->addWidget(body_, 1);
    scroll->setWidget(content);

    auto& session = app_.session();
    connect(&session, &ScanSession::scanChanged, this, &InspectorPanel::refresh);
    connect(&session, &ScanSession::focusChanged, this, &InspectorPanel::refresh);
    connect(&app_.explore(), &ExploreState::displayChanged, this, &InspectorPanel::refresh);
    connect(&app_.cleanup(), &CleanupFlow::changed, this, &InspectorPanel::refresh);
    refresh();
}

void InspectorPanel::refresh()
{
    const auto& session = app_.session();
    shown_ = session.selected();
    if (!shown_)
        shown_ = session.focus();
    empty_->setVisible(!shown_);
    body_->setVisible(bool(shown_));
    if (!shown_)
        return;
    const DiskNode& node = *shown_;
    title_->setText(displayText(node.name().empty() ? std::string_view(node.path) : node.name()));
    path_->setText(displayText(node.path));

    QStringList chips{ShellTexts::kindName(*app_.session().scan(), node)};
    const std::optional<QString> why = NodeActions::refusal(app_, node);
    if (why)
        chips << QStringLiteral("🔒 Protected");
    if (node.isCloudPlaceholder)
        chips << QStringLiteral("Cloud placeholder · contents stay in the cloud");
    chips_->setText(chips.join(QStringLiteral("  ·  ")));
    chips_->setToolTip(why.value_or(QString()));

    stage_->setEnabled(NodeActions::canStage(app_, node));
    stage_->setToolTip(why.value_or(QString()));
    fillDetails(node);
    fillLargest(node);
}

void InspectorPanel::fillDetails(const DiskNode& node)
{
    while (details_->rowCount() > 0)
        details_->removeRow(0);
    const auto row = [this](const QString& label, const QString& value) {
        auto* field = new QLabel(value);
        field->setTextInteractionFlags(Qt::TextSelectableByMouse);
        details_->addRow(label, field);
    };
    row(QStringLiteral("Size on disk"), ShellTexts::bytes(node.allocatedSize));
    row(QStringLiteral("Logical size"), ShellTexts::bytes(node.logicalSize));
    if (node.compressedSavings > 0)
        row(QStringLiteral("Compressed by"), ShellTexts::bytes(node.compressedSavings));
    const auto& scan = app_.session().scan();
    const SizeMeasure measure = app_.explore().measure();
    if (scan && node.parent) {
        if (const auto parent = scan->node(*node.parent); parent && parent->bytes(measure) > 0) {
            const double share = 100.0 * double(node.bytes(measure)) / double(parent->bytes(measure));
            row(QStringLiteral("Of parent"), QString::asprintf("%.1f%%", share));
        }
    }
    if (node.isDirectory)
        row(QStringLiteral("Items"), ShellTexts::number(node.fileCount + node.folderCount));
    if (node.modified > 0)
        row(QStringLiteral("Modified"), date(node.modified));
    if (node.accessed > 0)
        row(QStringLiteral("Last accessed"), date(node.accessed));
    if (node.created > 0)
        row(QStringLiteral("Created"), date(node.created));
}

void InspectorPanel::fillLargest(const DiskNode& node)
{
    largest_->clear();
    largestTitle_->setVisible(node.isDirectory);
    const auto& scan = app_.session().scan();
    if (!node.isDirectory || !scan) {
        largest_->hide();
        largestEmpty_->hide();
        return;
    }
    const SizeMeasure measure = app_.explore().measure();
    const NodeId folder = scan->find(node.path);
    const std::vector<NodeId> ids = folder == kNoNode ? std::vector<NodeId>{} : scan->sortedChildren(folder, measure);
    const ScanData& data = scan->data();
    for (std::size_t i = 0; i < ids.size() && int(i) < kLargestRows; ++i) {
        const DiskNode child = data.nodeWithoutChildren(ids[i], node.path);
        auto* item = new QListWidgetItem(
            ShellTexts::icon(child.isDirectory ? "folder" : "text-x-generic"),
            displayText(child.name()) + QStringLiteral("  —  ") + ShellTexts::bytes(child.bytes(measure)));
        // Names are bytes: keep the path as bytes.
        item->setData(kPathRole, QByteArray::fromStdString(child.path));
        item->setToolTip(displayText(child.path));
        largest_->addItem(item);
    }
    largest_->setVisible(!ids.empty());
    largestEmpty_->setVisible(ids.empty());
}

void InspectorPanel::openLargest(QListWidgetItem* item)
{
    const auto& scan = app_.session().scan();
    if (!item || !scan)
        return;
    const auto node = scan->node(item->data(kPathRole).toByteArray().toStdString());
    if (!node)
        return;
    if (node->isDirectory)
        app_.session().focusOn(*node);
    else
        app_.session().select(node->path);
}

} // namespace tarnbridge::app
