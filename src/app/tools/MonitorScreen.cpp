#include "app/tools/MonitorScreen.h"

#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QProgressBar>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

#include "app/model/AppModel.h"
#include "app/shell/ShellTexts.h"
#include "app/tools/Sparkline.h"
#include "app/tools/ToolWidgets.h"

namespace tarnbridge::app {

namespace {

using namespace ToolWidgets;

QString percent(double value)
{
    return QString::asprintf("%.1f%%", value);
}

QString load(double value)
{
    return QString::asprintf("%.2f", value);
}

// A row of small figures under a tile's chart; returns the value labels in order.
std::vector<QLabel*> smallFigureRow(Tile* tile, std::initializer_list<const char*> names)
{
    auto* row = new QHBoxLayout;
    row->setSpacing(16);
    std::vector<QLabel*> values;
    for (const char* name : names) {
        auto* column = new QVBoxLayout;
        column->setSpacing(0);
        auto* caption = note(QLatin1String(name));
        caption->setObjectName(QStringLiteral("smallName"));
        column->addWidget(caption);
        auto* value = heading({});
        value->setProperty("figureName", QLatin1String(name));
        column->addWidget(value);
        row->addLayout(column);
        values.push_back(value);
    }
    row->addStretch(1);
    tile->body()->addLayout(row);
    return values;
}

template <class Field>
std::vector<double> series(const std::vector<MonitorSample>& history, Field field)
{
    std::vector<double> values;
    values.reserve(history.size());
    for (const MonitorSample& sample : history)
        values.push_back(double(field(sample)));
    return values;
}

double peak(const std::vector<double>& values, double floor)
{
    double top = floor;
    for (double value : values)
        top = std::max(top, value);
    return top;
}

} // namespace

MonitorScreen::MonitorScreen(AppModel& app, QWidget* parent) : QWidget(parent), app_(app)
{
    setObjectName(QStringLiteral("monitorScreen"));
    QVBoxLayout* page = scrolledPage(this);
    page->addWidget(titleBlock(QStringLiteral("Monitor"), QStringLiteral("Processor, memory, network and storage")));

    auto* tiles = new QGridLayout;
    tiles->setSpacing(12);
    cpu_ = new Tile(QStringLiteral("CPU"));
    memory_ = new Tile(QStringLiteral("Memory"));
    network_ = new Tile(QStringLiteral("Network"));
    storage_ = new Tile(QStringLiteral("Storage"));
    cpu_->sparkline()->setColor(QColor(0x3b, 0x82, 0xc4));
    memory_->sparkline()->setColor(QColor(0x8e, 0x5c, 0xc2));
    network_->sparkline()->setColor(QColor(0x2f, 0x9e, 0x6e));
    cpuFigures_ = smallFigureRow(cpu_, {"USER", "SYSTEM", "LOAD"});
    loadLine_ = note({});
    cpu_->body()->addWidget(loadLine_);
    memoryFigures_ = smallFigureRow(memory_, {"WIRED", "COMPRESSED", "TOTAL"});
    cachedLine_ = note({});
    memory_->body()->addWidget(cachedLine_);
    networkFigures_ = smallFigureRow(network_, {"DOWN", "UP", "SESSION IN"});
    sessionLine_ = note({});
    network_->body()->addWidget(sessionLine_);
    volumes_ = new QVBoxLayout;
    volumes_->setSpacing(6);
    storage_->body()->addLayout(volumes_);
    storage_->body()->addWidget(
        note(QStringLiteral("Free space is what your account can use. Volumes on one pool (btrfs, LVM) may share space.")));
    storage_->setFigure({});
    tiles->addWidget(cpu_, 0, 0);
    tiles->addWidget(memory_, 0, 1);
    tiles->addWidget(network_, 1, 0);
    tiles->addWidget(storage_, 1, 1);
    page->addLayout(tiles);

    auto* head = new QHBoxLayout;
    processTitle_ = heading({}, 1.15);
    head->addWidget(processTitle_);
    processCount_ = note({});
    head->addWidget(processCount_, 1);
    order_ = new QComboBox;
    order_->addItem(QStringLiteral("CPU"));
    order_->addItem(QStringLiteral("Memory"));
    order_->setToolTip(QStringLiteral("Rank processes by CPU or memory"));
    order_->setAccessibleName(QStringLiteral("Rank processes by CPU or memory"));
    head->addWidget(order_);
    page->addLayout(head);
    processes_ = list({QStringLiteral("PROCESS"), QStringLiteral("CPU"), QStringLiteral("MEMORY")}, QStringLiteral("Processes"));
    processes_->setObjectName(QStringLiteral("processList"));
    processes_->setSelectionMode(QAbstractItemView::NoSelection);
    processes_->headerItem()->setTextAlignment(1, Qt::AlignRight);
    processes_->headerItem()->setTextAlignment(2, Qt::AlignRight);
    for (std::size_t i = 0; i < ActivityMonitor::kProcessRows; ++i) {
        auto* item = new QTreeWidgetItem(processes_);
        item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        item->setTextAlignment(2, Qt::AlignRight | Qt::AlignVCenter);
        item->setHidden(true);
    }
    // Fixed columns: a reading changes texts only, never the layout.
    processes_->header()->setSectionResizeMode(1, QHeaderView::Fixed);
    processes_->header()->setSectionResizeMode(2, QHeaderView::Fixed);
    processes_->header()->resizeSection(1, 90);
    processes_->header()->resizeSection(2, 110);
    processes_->setMinimumHeight(360);
    page->addWidget(processes_);

    page->addWidget(heading(QStringLiteral("System snapshots"), 1.15));
    snapshotStatus_ = note({});
    snapshotStatus_->setObjectName(QStringLiteral("systemSnapshotStatus"));
    page->addWidget(snapshotStatus_);
    snapshotNames_ = new QLabel;
    snapshotNames_->setWordWrap(true);
    snapshotNames_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    page->addWidget(snapshotNames_);

    page->addWidget(heading(QStringLiteral("About these metrics"), 1.15));
    page->addWidget(note(QStringLiteral(
        "Charts show 60 samples. Memory includes active, wired and compressed pages. Network covers Ethernet and "
        "Wi-Fi. Process CPU can exceed 100% across multiple cores; process memory is resident size.")));
    page->addStretch(1);

    connect(order_, &QComboBox::currentIndexChanged, this, &MonitorScreen::showProcesses);
    connect(&app_.monitor(), &ActivityMonitor::changed, this, &MonitorScreen::showSample);
    connect(&app_.monitor(), &ActivityMonitor::timeMachineChanged, this, &MonitorScreen::showSnapshots);
    showSample();
    showSnapshots();
}

QStringList MonitorScreen::smallFigures(const Tile* tile) const
{
    const std::vector<QLabel*>* labels = tile == cpu_ ? &cpuFigures_ : tile == memory_ ? &memoryFigures_ : &networkFigures_;
    QStringList out;
    for (const QLabel* label : *labels)
        out << label->property("figureName").toString() + QLatin1Char(' ') + label->text();
    return out;
}

void MonitorScreen::showSample()
{
    const ActivityMonitor& monitor = app_.monitor();
    const MonitorSample& sample = monitor.sample();
    const auto& history = monitor.history();

    cpu_->setFigure(percent(sample.cpu));
    const std::vector<double> cpu = series(history, [](const MonitorSample& s) { return s.cpu; });
    cpu_->sparkline()->setValues(cpu, peak(cpu, 100));
    const double one = sample.loadAverages.empty() ? 0 : sample.loadAverages[0];
    cpuFigures_[0]->setText(percent(sample.userCPU));
    cpuFigures_[1]->setText(percent(sample.systemCPU));
    cpuFigures_[2]->setText(load(one));
    QStringList loads;
    for (std::size_t i = 0; i < 3; ++i)
        loads << load(i < sample.loadAverages.size() ? sample.loadAverages[i] : 0);
    loadLine_->setText(QStringLiteral("Load (1 / 5 / 15 min): ") + loads.join(QStringLiteral(" / ")));

    memory_->setFigure(bytes(sample.memoryUsed));
    const std::vector<double> used = series(history, [](const MonitorSample& s) { return s.memoryUsed; });
    memory_->sparkline()->setValues(used, peak(used, double(sample.memoryTotal)));
    memoryFigures_[0]->setText(bytes(sample.wired));
    memoryFigures_[1]->setText(bytes(sample.compressed));
    memoryFigures_[2]->setText(bytes(sample.memoryTotal));
    cachedLine_->setText(QStringLiteral("File-backed pages: ") + bytes(sample.cached));

    network_->setFigure(bytes(sample.download));
    const std::vector<double> down = series(history, [](const MonitorSample& s) { return s.download; });
    network_->sparkline()->setValues(down, peak(down, 1));
    networkFigures_[0]->setText(bytes(sample.download));
    networkFigures_[1]->setText(bytes(sample.upload));
    networkFigures_[2]->setText(bytes(sample.received));
    sessionLine_->setText(QStringLiteral("This session: ") + bytes(sample.received) + QStringLiteral(" received · ") +
                          bytes(sample.sent) + QStringLiteral(" sent"));
    showVolumes();
    showProcesses();
}

void MonitorScreen::showVolumes()
{
    const auto& volumes = app_.monitor().sample().volumes;
    std::vector<std::string> paths;
    for (const VolumeInfo& volume : volumes)
        paths.push_back(volume.path);
    // The rows stay while the same volumes are mounted; only their figures change.
    if (paths != shownVolumes_) {
        ToolWidgets::clearLayout(volumes_);
        for (const VolumeInfo& volume : volumes) {
            auto* row = new QWidget;
            auto* layout = new QGridLayout(row);
            layout->setContentsMargins(0, 0, 0, 0);
            layout->setVerticalSpacing(2);
            auto* name = new QLabel(displayText(volume.name));
            name->setToolTip(displayText(volume.path));
            layout->addWidget(name, 0, 0);
            auto* free = note({});
            free->setObjectName(QStringLiteral("volumeFree"));
            free->setAlignment(Qt::AlignRight);
            layout->addWidget(free, 0, 1);
            auto* bar = new QProgressBar;
            bar->setRange(0, 1000);
            bar->setTextVisible(false);
            bar->setMaximumHeight(8);
            bar->setAccessibleName(displayText(volume.name));
            layout->addWidget(bar, 1, 0, 1, 2);
            volumes_->addWidget(row);
            row->show();
        }
        shownVolumes_ = paths;
    }
    for (std::size_t i = 0; i < volumes.size(); ++i) {
        QWidget* row = volumes_->itemAt(int(i))->widget();
        row->findChild<QLabel*>(QStringLiteral("volumeFree"))->setText(bytes(volumes[i].free) + QStringLiteral(" free"));
        row->findChild<QProgressBar*>()->setValue(int(std::lround(volumes[i].fraction() * 1000)));
    }
}

void MonitorScreen::showProcesses()
{
    const bool byMemory = order_->currentIndex() == 1;
    processTitle_->setText(byMemory ? QStringLiteral("Top processes by memory") : QStringLiteral("Top processes by CPU"));
    const std::vector<ProcessInfoRow> rows =
        ActivityMonitor::processRows(app_.monitor().sample(), byMemory ? ProcessOrder::byMemory : ProcessOrder::byCPU);
    processCount_->setText(number(qint64(rows.size())) + QStringLiteral(" shown"));
    for (int i = 0; i < processes_->topLevelItemCount(); ++i) {
        QTreeWidgetItem* item = processes_->topLevelItem(i);
        const bool used = std::size_t(i) < rows.size();
        if (used) {
            const ProcessInfoRow& row = rows[std::size_t(i)];
            item->setText(0, displayText(row.name));
            item->setText(1, percent(row.cpu));
            item->setText(2, bytes(row.memory));
        }
        if (item->isHidden() == used)
            item->setHidden(!used);
    }
}

void MonitorScreen::showSnapshots()
{
    const ActivityMonitor& monitor = app_.monitor();
    snapshotStatus_->setText(monitor.timeMachineStatus());
    QStringList names;
    for (const std::string& name : monitor.timeMachine())
        names << displayText(name);
    snapshotNames_->setText(names.join(QStringLiteral(" · ")));
    snapshotNames_->setVisible(!names.isEmpty());
}

void MonitorScreen::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // The list is read when the screen is first seen, not at every start of the app.
    if (app_.monitor().timeMachineStatus().isEmpty())
        app_.monitor().refreshTimeMachine();
}

} // namespace tarnbridge::app
