#include "app/tools/ApplicationsScreen.h"

#include <QAction>
#include <QCheckBox>
#include <QDateTime>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <cmath>

#include "app/desktop/DesktopServices.h"
#include "app/model/AppModel.h"
#include "app/model/ApplicationsFlow.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/screens/EmptyState.h"
#include "app/shell/ShellTexts.h"
#include "app/tools/ToolWidgets.h"
#include "model/PathText.h"

namespace tarnbridge::app {

namespace {

using namespace ToolWidgets;

enum AppColumn { nameColumn, sizeColumn, leftoverColumn };

bool nameMatches(std::string_view name, const QString& filter)
{
    return filter.isEmpty() || displayText(name).contains(filter, Qt::CaseInsensitive);
}

// "Used today", "Used 3 days ago", "Used 2 months ago": numeric, in whole units.
QString usedText(std::int64_t unixSeconds)
{
    const qint64 days = QDateTime::fromSecsSinceEpoch(unixSeconds).daysTo(QDateTime::currentDateTime());
    auto unit = [](qint64 count, const char* one, const char* many) { return counted(count, one, many) + QStringLiteral(" ago"); };
    if (days < 1)
        return QStringLiteral("Used today");
    if (days < 31)
        return QStringLiteral("Used ") + unit(days, " day", " days");
    if (days < 365)
        return QStringLiteral("Used ") + unit(days / 30, " month", " months");
    return QStringLiteral("Used ") + unit(days / 365, " year", " years");
}

QWidget* paneWith(QVBoxLayout** layout)
{
    auto* pane = new QWidget;
    *layout = new QVBoxLayout(pane);
    (*layout)->setContentsMargins(16, 8, 8, 8);
    (*layout)->setSpacing(8);
    return pane;
}

} // namespace

QIcon ApplicationsScreen::applicationIcon(const std::string& icon)
{
    static QHash<QString, QIcon> cache;
    const QString name = displayText(icon);
    const auto known = cache.constFind(name);
    if (known != cache.constEnd())
        return *known;
    QIcon result;
    if (!name.isEmpty() && QFileInfo(name).isAbsolute())
        result = QIcon(name);
    else if (!name.isEmpty())
        result = QIcon::fromTheme(name);
    if (result.isNull())
        result = QIcon::fromTheme(QStringLiteral("application-x-executable"),
                                  QIcon(QStringLiteral(":/tarnbridge/tarnbridge.svg")));
    cache.insert(name, result);
    return result;
}

ApplicationsScreen::ApplicationsScreen(AppModel& app, QWidget* parent) : QWidget(parent), app_(app)
{
    setObjectName(QStringLiteral("applicationsScreen"));
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(24, 16, 24, 16);
    outer->setSpacing(8);
    auto* top = new QHBoxLayout;
    top->addWidget(titleBlock(QStringLiteral("Applications"), QStringLiteral("Installed apps and the files they leave behind")), 1);
    measuring_ = new QLabel;
    measuring_->setObjectName(QStringLiteral("appProgress"));
    top->addWidget(measuring_);
    cancel_ = new QPushButton(QStringLiteral("Cancel"));
    top->addWidget(cancel_);
    rescan_ = new QPushButton(ShellTexts::icon("view-refresh"), {});
    rescan_->setToolTip(QStringLiteral("Rescan applications"));
    rescan_->setAccessibleName(QStringLiteral("Rescan applications"));
    top->addWidget(rescan_);
    outer->addLayout(top);

    auto* controls = new QHBoxLayout;
    search_ = new QLineEdit;
    search_->setPlaceholderText(QStringLiteral("Search apps..."));
    search_->setClearButtonEnabled(true);
    if (auto* clear = search_->findChild<QAction*>())
        clear->setText(QStringLiteral("Clear app search"));
    controls->addWidget(search_, 1);
    showSystem_ = new QCheckBox(QStringLiteral("Show system apps"));
    showOrphans_ = new QCheckBox(QStringLiteral("Leftovers from removed apps"));
    controls->addWidget(showSystem_);
    controls->addWidget(showOrphans_);
    notes_ = note({});
    controls->addWidget(notes_);
    outer->addLayout(controls);

    auto* splitter = new QSplitter(Qt::Horizontal);
    auto* left = new QWidget;
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    listHeading_ = note({});
    leftLayout->addWidget(listHeading_);
    apps_ = list({QStringLiteral("Name"), QStringLiteral("Size"), QStringLiteral("Leftovers")}, QStringLiteral("Applications"));
    apps_->setObjectName(QStringLiteral("appList"));
    apps_->setIconSize(QSize(24, 24));
    leftLayout->addWidget(apps_, 1);
    noMatch_ = new EmptyState(ShellTexts::icon("system-search", "edit-find"), QStringLiteral("No matching applications"), {});
    clearSearch_ = new QPushButton(QStringLiteral("Clear search"));
    static_cast<EmptyState*>(noMatch_)->buttons()->addWidget(clearSearch_);
    leftLayout->addWidget(noMatch_, 1);
    splitter->addWidget(left);

    panes_ = new QStackedWidget;
    placeholder_ = new EmptyState(ShellTexts::sectionIcon(AppSection::applications), QStringLiteral("Select an app"),
                                  QStringLiteral("View its size and associated files."));
    panes_->addWidget(placeholder_);
    QVBoxLayout* pane = nullptr;
    appPane_ = paneWith(&pane);
    appPane_->setObjectName(QStringLiteral("applicationPane"));
    appName_ = heading({}, 1.4);
    pane->addWidget(appName_);
    appIdentity_ = note({});
    pane->addWidget(appIdentity_);
    appPath_ = note({});
    appPath_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    pane->addWidget(appPath_);
    appUsed_ = note({});
    pane->addWidget(appUsed_);
    auto* footprintRow = new QHBoxLayout;
    footprintRow->addWidget(new QLabel(QStringLiteral("Total footprint")));
    footprint_ = heading({}, 1.2);
    footprintRow->addWidget(footprint_, 1, Qt::AlignRight);
    pane->addLayout(footprintRow);
    split_ = new QProgressBar;
    split_->setTextVisible(false);
    split_->setMaximumHeight(10);
    split_->setRange(0, 1000);
    pane->addWidget(split_);
    auto* legends = new QHBoxLayout;
    bundleLegend_ = note({});
    supportLegend_ = note({});
    legends->addWidget(bundleLegend_);
    legends->addStretch(1);
    legends->addWidget(supportLegend_);
    pane->addLayout(legends);
    incomplete_ = new QLabel;
    incomplete_->setWordWrap(true);
    pane->addWidget(incomplete_);
    uninstall_ = new QPushButton(ShellTexts::icon("user-trash"), QStringLiteral("Uninstall Completely"));
    pane->addWidget(uninstall_, 0, Qt::AlignLeft);
    pane->addWidget(heading(QStringLiteral("Associated files"), 1.1));
    noSupport_ = note(QStringLiteral("No associated files found."));
    pane->addWidget(noSupport_);
    support_ = list({QStringLiteral("Name"), QStringLiteral("Kind"), QStringLiteral("Match"), QStringLiteral("Size"), QString()},
                    QStringLiteral("Associated files"));
    support_->setObjectName(QStringLiteral("supportList"));
    pane->addWidget(support_, 1);
    pane->addStretch(0); // keeps the pane at the top when there is no list to fill it
    panes_->addWidget(appPane_);

    leftoverPane_ = paneWith(&pane);
    leftoverPane_->setObjectName(QStringLiteral("leftoverPane"));
    pane->addWidget(heading(QStringLiteral("Leftovers from removed apps"), 1.3));
    pane->addWidget(note(QStringLiteral("Review before cleanup — apps stored elsewhere may still use these files.")));
    leftovers_ = list({QStringLiteral("Name"), QStringLiteral("Identifier"), QStringLiteral("Size"), QString()},
                      QStringLiteral("Leftovers from removed apps"));
    leftovers_->setObjectName(QStringLiteral("leftoverList"));
    pane->addWidget(leftovers_, 1);
    panes_->addWidget(leftoverPane_);
    splitter->addWidget(panes_);
    splitter->setStretchFactor(0, 1);
    splitter->setStretchFactor(1, 1);
    outer->addWidget(splitter, 1);

    connectControls();
    refresh();
}

void ApplicationsScreen::connectControls()
{
    ApplicationsFlow& flow = app_.applications();
    connect(cancel_, &QPushButton::clicked, this, [this] { app_.applications().cancelApplications(); });
    connect(rescan_, &QPushButton::clicked, this, [this] { app_.applications().inspectApplications(); });
    connect(search_, &QLineEdit::textChanged, this, [this](const QString& text) { app_.explore().setFilter(text); });
    connect(clearSearch_, &QPushButton::clicked, this, [this] { app_.explore().setFilter({}); });
    connect(showSystem_, &QCheckBox::toggled, this, &ApplicationsScreen::refresh);
    connect(showOrphans_, &QCheckBox::toggled, this, &ApplicationsScreen::refresh);
    connect(apps_, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem* item) {
        if (item)
            app_.applications().setSelectedApp(item->data(nameColumn, Qt::UserRole).toString().toStdString());
    });
    connect(uninstall_, &QPushButton::clicked, this, [this] {
        if (const InstalledApplication* selected = app_.applications().selectedApplication())
            app_.applications().uninstall(*selected);
    });
    connect(&flow, &ApplicationsFlow::changed, this, &ApplicationsScreen::refresh);
    connect(&flow, &ApplicationsFlow::progressChanged, this, &ApplicationsScreen::showHeader);
    connect(&app_.explore(), &ExploreState::filtersChanged, this, &ApplicationsScreen::refresh);
    connect(&app_.cleanup(), &CleanupFlow::changed, this, &ApplicationsScreen::showPane);
}

void ApplicationsScreen::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    ApplicationsFlow& flow = app_.applications();
    if (!flow.appReport() && !flow.inspectingApps())
        flow.inspectApplications();
}

QWidget* ApplicationsScreen::currentPane() const
{
    return panes_->currentWidget();
}

std::vector<const InstalledApplication*> ApplicationsScreen::shownApplications() const
{
    std::vector<const InstalledApplication*> out;
    const auto& report = app_.applications().appReport();
    if (!report)
        return out;
    const QString& filter = app_.explore().filter();
    for (const InstalledApplication& application : report->apps)
        if ((showSystem_->isChecked() || !application.isSystem()) && nameMatches(application.name, filter))
            out.push_back(&application);
    return out;
}

void ApplicationsScreen::refresh()
{
    if (search_->text() != app_.explore().filter()) {
        const QSignalBlocker blocker(search_);
        search_->setText(app_.explore().filter());
    }
    showHeader();
    showList();
    showPane();
}

void ApplicationsScreen::showHeader()
{
    const ApplicationsFlow& flow = app_.applications();
    const bool running = flow.inspectingApps();
    measuring_->setVisible(running);
    measuring_->setText(QStringLiteral("Measuring apps…  ") + flow.appProgress());
    cancel_->setVisible(running);
    rescan_->setVisible(!running);
    const auto& report = flow.appReport();
    const std::size_t issues = report ? report->issues.size() : 0;
    notes_->setVisible(issues > 0);
    notes_->setText(number(qint64(issues)) + QStringLiteral(" access ") +
                    (issues == 1 ? QStringLiteral("note") : QStringLiteral("notes")));
    if (report) {
        QStringList lines;
        for (const std::string& issue : report->issues)
            lines << displayText(issue);
        notes_->setToolTip(lines.join(QLatin1Char('\n')));
    }
}

void ApplicationsScreen::showList()
{
    const auto& report = app_.applications().appReport();
    const std::vector<const InstalledApplication*> shown = shownApplications();
    listHeading_->setText(QStringLiteral("APPLICATIONS ") + number(qint64(shown.size())));
    const QSignalBlocker blocker(apps_);
    apps_->clear();
    const auto& selected = app_.applications().selectedApp();
    for (const InstalledApplication* application : shown) {
        auto* item = new QTreeWidgetItem(apps_);
        item->setIcon(nameColumn, applicationIcon(application->icon));
        item->setText(nameColumn, displayText(application->name));
        item->setData(nameColumn, Qt::UserRole, displayText(application->path));
        item->setText(sizeColumn, bytes(application->bytes()));
        item->setTextAlignment(sizeColumn, Qt::AlignRight | Qt::AlignVCenter);
        const std::int64_t support = application->supportBytes();
        item->setText(leftoverColumn, support < 1 ? QStringLiteral("App bundle only")
                                                  : QStringLiteral("+") + bytes(support) + QStringLiteral(" leftovers"));
        if (selected && *selected == application->path) {
            apps_->setCurrentItem(item);
            item->setData(nameColumn, Qt::AccessibleDescriptionRole, QStringLiteral("Selected"));
        }
    }
    // Before the first report the list is simply empty; afterwards an empty list says why.
    const bool none = report && shown.empty();
    apps_->setVisible(!none);
    noMatch_->setVisible(none);
}

void ApplicationsScreen::showPane()
{
    const ApplicationsFlow& flow = app_.applications();
    if (showOrphans_->isChecked() && flow.appReport()) {
        showLeftovers();
        panes_->setCurrentWidget(leftoverPane_);
    } else if (const InstalledApplication* application = flow.selectedApplication()) {
        showApplication(*application);
        panes_->setCurrentWidget(appPane_);
    } else {
        panes_->setCurrentWidget(placeholder_);
    }
}

void ApplicationsScreen::showApplication(const InstalledApplication& application)
{
    appName_->setText(displayText(application.name));
    appIdentity_->setText(displayText(application.bundleID) + QStringLiteral(" · ") + displayText(application.version));
    appPath_->setText(displayText(application.path));
    appUsed_->setVisible(application.lastUsed.has_value());
    if (application.lastUsed)
        appUsed_->setText(usedText(*application.lastUsed));
    const std::int64_t total = application.bytes();
    const std::int64_t support = application.supportBytes();
    const std::int64_t bundle = total - support;
    footprint_->setText(bytes(total));
    split_->setValue(total < 1 ? 0 : int(std::lround(1000.0 * double(bundle) / double(total))));
    bundleLegend_->setText(QStringLiteral("Bundle  ") + bytes(bundle));
    supportLegend_->setText(QStringLiteral("Support files  ") + bytes(support));
    const std::int64_t skipped = application.bundleScan.skippedCount();
    incomplete_->setVisible(skipped >= 1);
    incomplete_->setText(number(skipped) +
                         QStringLiteral(" bundle paths could not be read. This footprint is incomplete."));
    uninstall_->setEnabled(!app_.cleaning() && !app_.staging());

    noSupport_->setVisible(application.support.empty());
    support_->setVisible(!application.support.empty());
    support_->clear();
    for (const AppSupportFile& file : application.support) {
        auto* item = new QTreeWidgetItem(support_);
        const QString name = displayText(file.node.name());
        item->setText(0, name);
        item->setToolTip(0, displayText(file.node.path));
        item->setText(1, displayText(file.category));
        item->setText(2, file.isShared ? QStringLiteral("Shared — kept during uninstall") : displayText(file.match));
        item->setText(3, bytes(file.node.allocatedSize));
        item->setTextAlignment(3, Qt::AlignRight | Qt::AlignVCenter);
        auto* show = rowButton(support_, item, 4, QStringLiteral("Show in File Manager"),
                               QStringLiteral("Show ") + name + QStringLiteral(" in File Manager"));
        connect(show, &QPushButton::clicked, this,
                [path = displayText(file.node.path)] { DesktopServices::showInFileManager(path); });
    }
}

void ApplicationsScreen::showLeftovers()
{
    leftovers_->clear();
    const auto& report = app_.applications().appReport();
    const QString& filter = app_.explore().filter();
    const bool canStage = !app_.cleaning() && !app_.staging();
    for (const OrphanCandidate& orphan : report->orphans) {
        if (!nameMatches(orphan.node.name(), filter))
            continue;
        auto* item = new QTreeWidgetItem(leftovers_);
        const QString name = displayText(orphan.node.name());
        item->setText(0, name);
        item->setToolTip(0, displayText(orphan.node.path));
        item->setText(1, displayText(orphan.bundleID));
        item->setText(2, bytes(orphan.node.allocatedSize));
        item->setTextAlignment(2, Qt::AlignRight | Qt::AlignVCenter);
        auto* add = rowButton(leftovers_, item, 3, QStringLiteral("Add to Cleanup"),
                              QStringLiteral("Add ") + name + QStringLiteral(" to Cleanup"));
        add->setEnabled(canStage);
        connect(add, &QPushButton::clicked, this, [this, orphan] { app_.applications().addLeftoverToCleanup(orphan); });
    }
}

} // namespace tarnbridge::app
