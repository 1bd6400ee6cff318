#include <gtest/gtest.h>

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QStackedWidget>
#include <QTest>
#include <QToolButton>

#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/shell/MainMenus.h"
#include "app/shell/SettingsDialog.h"
#include "app/shell/ShellTexts.h"
#include "app/shell/TopBar.h"
#include "ShellFixture.h"

namespace tarnbridge::test {
namespace {

using app::AppSection;
namespace ShellTexts = app::ShellTexts;

template <class T> T* named(QWidget& parent, const char* name) {
    return parent.findChild<T*>(QLatin1String(name));
}

// What the window says in each state, with the words a user reads there.
struct StateTexts {
    const char* state;
    std::function<void(ShellFixture&)> enter;
    QStringList shown;
    QStringList absent;
};

TEST(MainWindowTexts, EachStateShowsItsWords) {
    const std::vector<StateTexts> states = {
        {"welcome",
         [](ShellFixture&) {},
         {QStringLiteral("Explore"), QStringLiteral("Explore your storage"),
          QStringLiteral("Scan a folder to see what’s taking up space."),
          QStringLiteral("Scan Whole Disk"), QStringLiteral("Scan a folder"),
          QStringLiteral("Ready"), QStringLiteral("Filter by name"),
          QStringLiteral("No files measured yet"), QStringLiteral("External & mounted volumes"),
          QStringLiteral("Disk storage"), QStringLiteral("File types")},
         {QStringLiteral("Open last scan"), QStringLiteral("Cancel scan")}},
        {"scanning",
         [](ShellFixture& f) {
             f.holdScans = true;
             f.app().session().startScan(f.root());
             ASSERT_TRUE(
                 waitUntil([&] { return f.gate.reached() && f.app().session().scanProgress(); }));
         },
         {QStringLiteral("Scanning scanned"), QStringLiteral("Cancel scan"),
          QStringLiteral("Scanning"), QStringLiteral("4 files"), QStringLiteral("2 folders"),
          QStringLiteral("Media"), QStringLiteral("notes.txt")},
         {QStringLiteral("Explore your storage"), QStringLiteral("Ready")}},
        {"explore",
         [](ShellFixture& f) { ASSERT_TRUE(f.scanToEnd()); },
         {QStringLiteral("Ready"), QStringLiteral("Video"), QStringLiteral("Audio"),
          QStringLiteral("Documents"), QStringLiteral("scanned")},
         {QStringLiteral("Explore your storage"), QStringLiteral("Cancel scan"),
          QStringLiteral("No files measured yet")}},
        {"duplicates",
         [](ShellFixture& f) { f.app().setSection(AppSection::duplicates); },
         {QStringLiteral("Duplicates")},
         {QStringLiteral("Explore your storage")}},
        {"applications",
         [](ShellFixture& f) { f.app().setSection(AppSection::applications); },
         {QStringLiteral("Applications")},
         {QStringLiteral("Explore your storage")}},
        {"monitor",
         [](ShellFixture& f) { f.app().setSection(AppSection::monitor); },
         {QStringLiteral("Monitor")},
         {QStringLiteral("Explore your storage")}},
        {"snapshots",
         [](ShellFixture& f) { f.app().setSection(AppSection::snapshots); },
         {QStringLiteral("Snapshots")},
         {QStringLiteral("Explore your storage")}},
        {"cleanup",
         [](ShellFixture& f) { f.app().setSection(AppSection::cleanup); },
         {QStringLiteral("Cleanup")},
         {QStringLiteral("Explore your storage")}},
    };
    for (const StateTexts& state : states) {
        SCOPED_TRACE(state.state);
        ShellFixture f;
        state.enter(f);
        spin(50);
        const QStringList texts = f.visibleTexts();
        for (const QString& text : state.shown)
            EXPECT_TRUE(texts.contains(text))
                << text.toStdString()
                << " missing from: " << texts.join(QStringLiteral(" | ")).toStdString();
        for (const QString& text : state.absent)
            EXPECT_FALSE(texts.contains(text)) << text.toStdString() << " shown";
    }
}

TEST(MainWindowTexts, SectionTitleAndScreenFollowTheSidebar) {
    ShellFixture f;
    auto* title = named<QLabel>(*f.window, "sectionTitle");
    ASSERT_NE(title, nullptr);
    const std::pair<AppSection, const char*> screens[] = {
        {AppSection::duplicates, "duplicatesScreen"}, {AppSection::applications, "applicationsScreen"},
        {AppSection::monitor, "monitorScreen"},       {AppSection::snapshots, "snapshotsScreen"},
        {AppSection::cleanup, "cleanupScreen"}};
    for (const auto& [section, screen] : screens) {
        f.app().setSection(section);
        EXPECT_EQ(title->text(), ShellTexts::sectionName(section));
        EXPECT_EQ(f.window->currentScreen()->objectName(), QLatin1String(screen));
    }
    f.app().setSection(AppSection::explore);
    EXPECT_EQ(title->text(), QStringLiteral("Explore"));
    EXPECT_EQ(f.window->currentScreen()->objectName(), QStringLiteral("exploreScreen"));
}

TEST(MainWindowScan, ScanAFolderFromTheWelcomeScreen) {
    ShellFixture f;
    f.fixture.nextFolder = f.root();
    auto* button = named<QPushButton>(*f.window, "scanAFolder");
    ASSERT_NE(button, nullptr);
    ASSERT_TRUE(button->isVisible());
    QTest::mouseClick(button, Qt::LeftButton);
    ASSERT_TRUE(f.fixture.lastRequest);
    EXPECT_EQ(f.fixture.lastRequest->prompt, QStringLiteral("Scan folder"));
    ASSERT_TRUE(waitUntil([&] { return !f.app().scanning() && f.app().session().scan(); }));
    EXPECT_EQ(f.app().session().scan()->rootPath(), f.root());
    auto* explore = named<QWidget>(*f.window, "exploreContent");
    ASSERT_NE(explore, nullptr);
    EXPECT_TRUE(explore->isVisible());
    EXPECT_FALSE(named<QPushButton>(*f.window, "scanAFolder")->isVisible());
    EXPECT_TRUE(f.window->menus().rescan->isEnabled());
    EXPECT_FALSE(f.window->menus().cancelScan->isEnabled());
}

TEST(MainWindowScan, CancellingARescanKeepsTheOldResult) {
    ShellFixture f;
    EXPECT_FALSE(f.window->menus().rescan->isEnabled());
    EXPECT_FALSE(f.window->menus().cancelScan->isEnabled());
    ASSERT_TRUE(f.scanToEnd());
    const QUuid shown = f.app().session().scan()->id();

    f.holdScans = true;
    QTest::keyClick(f.window.get(), Qt::Key_R, Qt::ControlModifier);
    ASSERT_TRUE(waitUntil([&] { return f.gate.reached(); }));
    ASSERT_TRUE(waitUntil([&] { return f.app().scanning(); }));
    EXPECT_TRUE(named<QWidget>(*f.window, "scanProgress")->isVisible());
    EXPECT_FALSE(f.window->menus().rescan->isEnabled());
    EXPECT_TRUE(f.window->menus().cancelScan->isEnabled());

    QTest::keyClick(f.window.get(), Qt::Key_Period, Qt::ControlModifier);
    EXPECT_FALSE(f.app().scanning());
    f.gate.open();
    spin(200); // the held worker ends; what it delivers now must be dropped
    ASSERT_TRUE(f.app().session().scan());
    EXPECT_EQ(f.app().session().scan()->id(), shown);
    EXPECT_TRUE(named<QWidget>(*f.window, "exploreContent")->isVisible());
    EXPECT_EQ(named<QLabel>(*f.window, "noticeText")->text(),
              QStringLiteral("Scan cancelled. Your previous result is still available."));
    EXPECT_EQ(f.scansStarted, 2);
}

TEST(MainWindowScan, CancelDuringTheFirstScanReturnsToWelcome) {
    ShellFixture f;
    f.holdScans = true;
    f.app().session().startScan(f.root());
    ASSERT_TRUE(waitUntil([&] { return f.gate.reached(); }));
    auto* cancel = named<QPushButton>(*f.window, "cancelScan");
    ASSERT_TRUE(cancel->isVisible());
    QTest::mouseClick(cancel, Qt::LeftButton);
    EXPECT_TRUE(named<QWidget>(*f.window, "welcome")->isVisible());
    EXPECT_EQ(named<QLabel>(*f.window, "noticeText")->text(),
              QStringLiteral("Scan cancelled. Choose a location to start again."));
}

TEST(MainWindowNotices, NoticeToastAndErrorEachCloseThroughTheirControls) {
    ShellFixture f;
    auto& notices = f.app().notices();
    notices.setNotice(QStringLiteral("Snapshot saved."));
    auto* line = named<QWidget>(*f.window, "noticeLine");
    EXPECT_TRUE(line->isVisible());
    QTest::mouseClick(named<QToolButton>(*f.window, "dismissNotice"), Qt::LeftButton);
    EXPECT_FALSE(notices.notice());
    EXPECT_FALSE(line->isVisible());

    notices.showToast(QStringLiteral("Added to Cleanup"), QStringLiteral("3 items"),
                      app::ToastAction::cleanup, QStringLiteral("Cleanup now"));
    auto* card = named<QWidget>(*f.window, "toastCard");
    ASSERT_TRUE(card->isVisible());
    EXPECT_EQ(card->accessibleName(), QStringLiteral("Added to Cleanup — open review"));
    EXPECT_EQ(named<QLabel>(*f.window, "toastDetail")->text(), QStringLiteral("3 items"));
    auto* action = named<QPushButton>(*f.window, "toastAction");
    EXPECT_EQ(action->text(), QStringLiteral("Cleanup now"));
    QTest::mouseClick(action, Qt::LeftButton);
    EXPECT_EQ(f.app().section(), AppSection::cleanup);
    EXPECT_FALSE(card->isVisible());

    notices.showToast(QStringLiteral("Snapshot saved"), QString(), std::nullopt, QString());
    QApplication::setActiveWindow(f.window.get());
    QTest::keyClick(f.window.get(), Qt::Key_Escape);
    EXPECT_FALSE(notices.toast()) << "Esc closes the card";

    notices.showToast(QStringLiteral("Already in Cleanup"), QString(), std::nullopt, QString());
    EXPECT_FALSE(action->isVisible());
    EXPECT_FALSE(named<QLabel>(*f.window, "toastDetail")->isVisible());
    QTest::mouseClick(named<QToolButton>(*f.window, "dismissToast"), Qt::LeftButton);
    EXPECT_FALSE(notices.toast());

    notices.setError(QStringLiteral("The disk is full."));
    QMessageBox* box = f.window->errorBox();
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->windowTitle(), QStringLiteral("Tarnbridge"));
    EXPECT_EQ(box->text(), QStringLiteral("The disk is full."));
    box->button(QMessageBox::Ok)->click();
    EXPECT_FALSE(notices.error());
    EXPECT_EQ(f.window->errorBox(), nullptr);
}

TEST(MainWindowControls, TopBarAndMenusDriveTheModel) {
    ShellFixture f;
    auto& explore = f.app().explore();
    QLineEdit* filter = f.window->topBar().filterField();
    QTest::keyClicks(filter, QStringLiteral("film"));
    EXPECT_EQ(explore.filter(), QStringLiteral("film"));
    explore.setFilter(QString());
    EXPECT_TRUE(filter->text().isEmpty());

    auto* size = named<QToolButton>(*f.window, "sizeSwitch");
    EXPECT_EQ(size->accessibleName(), QStringLiteral("Showing size on disk"));
    size->click();
    EXPECT_TRUE(explore.logical());
    EXPECT_EQ(size->accessibleName(), QStringLiteral("Showing logical size"));

    const bool hidden = explore.showHidden();
    QTest::keyClick(f.window.get(), Qt::Key_H, Qt::ControlModifier);
    EXPECT_EQ(explore.showHidden(), !hidden);

    QTest::keyClick(f.window.get(), Qt::Key_K, Qt::ControlModifier);
    EXPECT_EQ(f.app().section(), AppSection::explore) << "review needs a queue";

    auto* dark = named<QToolButton>(*f.window, "darkToggle");
    dark->click();
    EXPECT_TRUE(f.app().preferences().dark());
    EXPECT_LT(QApplication::palette().color(QPalette::Window).lightness(), 100);
    dark->click();
    EXPECT_FALSE(f.app().preferences().dark());
    EXPECT_GT(QApplication::palette().color(QPalette::Window).lightness(), 150);
}

TEST(MainWindowControls, FooterCountsTheCleanupQueue) {
    ShellFixture f;
    auto* cleanup = named<QToolButton>(*f.window, "cleanupButton");
    EXPECT_TRUE(cleanup->text().contains(QStringLiteral("0")));
    ASSERT_TRUE(f.scanToEnd());
    const auto film = f.app().session().scan()->node(f.tree().path("scanned/Media/film.mkv"));
    ASSERT_TRUE(film);
    f.app().cleanup().stage({*film}, f.app().session().scan(), "test");
    ASSERT_TRUE(waitUntil([&] { return f.app().cleanup().queue().size() == 1; }));
    EXPECT_TRUE(cleanup->text().contains(QStringLiteral("Cleanup  1 · ")));
    EXPECT_TRUE(cleanup->text().endsWith(ShellTexts::bytes(film->allocatedSize)));
    EXPECT_TRUE(f.window->menus().reviewCleanup->isEnabled());
    cleanup->click();
    EXPECT_EQ(f.app().section(), AppSection::cleanup);
}

} // namespace
} // namespace tarnbridge::test

namespace tarnbridge::test {
namespace {

QToolButton* sidebarEntry(app::MainWindow& window, const QString& text) {
    for (auto* button :
         window.findChild<QWidget*>(QStringLiteral("sidebar"))->findChildren<QToolButton*>())
        if (button->text() == text)
            return button;
    return nullptr;
}

TEST(MainWindowSidebar, SectionsActionsAndPlacesCallTheModel) {
    ShellFixture f;
    auto* sections = f.window->findChild<QListWidget*>(QStringLiteral("sections"));
    ASSERT_NE(sections, nullptr);
    ASSERT_EQ(sections->count(), 6);
    QStringList names;
    for (int row = 0; row < sections->count(); ++row)
        names << sections->item(row)->text();
    EXPECT_EQ(names, (QStringList{QStringLiteral("Explore"), QStringLiteral("Duplicates"),
                                  QStringLiteral("Applications"), QStringLiteral("Monitor"),
                                  QStringLiteral("Snapshots"), QStringLiteral("Cleanup")}));
    sections->setCurrentRow(3);
    EXPECT_EQ(f.app().section(), AppSection::monitor);
    f.app().setSection(AppSection::duplicates);
    EXPECT_EQ(sections->currentRow(), 1);

    // A place opens a folder of the current scan; without one the model explains why not.
    auto* downloads = sidebarEntry(*f.window, QStringLiteral("Downloads"));
    ASSERT_NE(downloads, nullptr);
    EXPECT_EQ(downloads->toolTip(), QStringLiteral("Open from the current scan"));
    downloads->click();
    EXPECT_EQ(f.app().section(), AppSection::explore);
    EXPECT_TRUE(f.app().notices().notice());

    auto* whole = sidebarEntry(*f.window, QStringLiteral("Scan Whole Disk"));
    ASSERT_NE(whole, nullptr);
    whole->click();
    ASSERT_TRUE(waitUntil([&] { return f.gate.reached(); }));
    EXPECT_EQ(f.wholeDiskAsked, "/");
    EXPECT_TRUE(f.app().scanning());
    EXPECT_EQ(f.window->findChild<QLabel*>(QStringLiteral("scanState"))->text(),
              QStringLiteral("Scanning"));
    f.app().session().cancelScan();
}

TEST(MainWindowSidebar, ScanLineAndTypesDescribeTheFinishedScan) {
    ShellFixture f;
    ASSERT_TRUE(f.scanToEnd());
    EXPECT_EQ(f.window->findChild<QLabel*>(QStringLiteral("scanName"))->text(),
              QStringLiteral("scanned"));
    EXPECT_TRUE(f.window->findChild<QLabel*>(QStringLiteral("scanState"))
                    ->text()
                    .startsWith(QStringLiteral("Current view · ")));
    EXPECT_TRUE(f.window->findChild<QLabel*>(QStringLiteral("scanState"))
                    ->text()
                    .endsWith(QStringLiteral("s scan")));
}

TEST(MainWindowSidebar, ScanAccessDetailsOpenAndCloseWithTheModel) {
    ShellFixture f;
    auto* details = sidebarEntry(*f.window, QStringLiteral("Scan access details"));
    ASSERT_NE(details, nullptr);
    EXPECT_FALSE(details->isVisible()) << "nothing to detail without a scan";
    ASSERT_TRUE(f.scanToEnd());
    ASSERT_TRUE(details->isVisible());
    details->click();
    EXPECT_TRUE(f.app().explore().showIssues());
    QDialog* dialog = f.window->issuesDialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog->windowTitle(), QStringLiteral("Scan access details"));
    EXPECT_EQ(dialog->findChild<QLabel*>(QStringLiteral("skippedCount"))->text(),
              QStringLiteral("0 entries skipped"));
    dialog->reject();
    EXPECT_FALSE(f.app().explore().showIssues());
    EXPECT_EQ(f.window->issuesDialog(), nullptr);

    f.app().explore().setShowIssues(true);
    ASSERT_NE(f.window->issuesDialog(), nullptr);
    f.app().explore().setShowIssues(false);
    EXPECT_EQ(f.window->issuesDialog(), nullptr);
}

TEST(MainWindowMenus, StorageMenuOpensExploreInThatView) {
    ShellFixture f;
    f.app().setSection(AppSection::cleanup);
    QAction* sunburst = nullptr;
    for (QAction* action : f.window->findChildren<QAction*>())
        if (action->text() == QStringLiteral("Sunburst"))
            sunburst = action;
    ASSERT_NE(sunburst, nullptr);
    sunburst->trigger();
    EXPECT_EQ(f.app().section(), AppSection::explore);
    EXPECT_EQ(f.app().explore().storageView(), app::StorageView::sunburst);
    EXPECT_TRUE(sunburst->isChecked());

    // Each list view stands in the content in place of the chart.
    const std::pair<app::StorageView, const char*> lists[] = {{app::StorageView::table, "fileTable"},
                                                              {app::StorageView::topSizes, "topSizes"},
                                                              {app::StorageView::folders, "folderGrid"},
                                                              {app::StorageView::ageMap, "ageMap"}};
    for (const auto& [view, name] : lists) {
        f.app().explore().setStorageView(view);
        auto* shown = f.window->findChild<QWidget*>(QLatin1String(name));
        ASSERT_NE(shown, nullptr) << name;
        auto* views = qobject_cast<QStackedWidget*>(shown->parentWidget());
        ASSERT_NE(views, nullptr) << name;
        EXPECT_EQ(views->currentWidget(), shown) << name;
    }
}

} // namespace
} // namespace tarnbridge::test

namespace tarnbridge::test {
namespace {

TEST(MainWindowLayout, SizeIsRememberedAndTheFilterKeyFocusesTheField) {
    ShellFixture f;
    EXPECT_EQ(f.window->minimumSize(), app::MainWindow::kMinimumSize);
    QSettings& settings = f.fixture.settings;
    {
        app::MainWindow first(f.app(), &settings);
        first.show();
        first.resize(1111, 777);
        first.close();
    }
    app::MainWindow second(f.app(), &settings);
    EXPECT_EQ(second.size(), QSize(1111, 777));
    second.close();

    QApplication::setActiveWindow(f.window.get());
    f.window->setFocus();
    QTest::keyClick(f.window.get(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(QApplication::focusWidget(), f.window->topBar().filterField());
}

} // namespace
} // namespace tarnbridge::test

namespace tarnbridge::test {
namespace {

TEST(MainWindowSettings, EachControlShowsAndSetsItsValue) {
    ShellFixture f;
    auto& explore = f.app().explore();
    auto& preferences = f.app().preferences();
    f.window->menus().settings->trigger();
    app::SettingsDialog& settings = f.window->openSettings();
    EXPECT_TRUE(settings.isVisible());

    // Measuring on disk is the inverse of the logical switch, both ways.
    explore.setLogical(true);
    EXPECT_FALSE(settings.allocated->isChecked());
    settings.allocated->click();
    EXPECT_FALSE(explore.logical());

    const struct {
        QCheckBox* box;
        std::function<bool()> value;
    } toggles[] = {
        {settings.dark, [&] { return preferences.dark(); }},
        {settings.showHidden, [&] { return explore.showHidden(); }},
        {settings.labels, [&] { return explore.showLabels(); }},
        {settings.backup, [&] { return preferences.backupBeforeCleanup(); }},
        {settings.snapshots, [&] { return preferences.snapshotsEnabled(); }},
    };
    for (const auto& toggle : toggles) {
        SCOPED_TRACE(toggle.box->text().toStdString());
        EXPECT_EQ(toggle.box->isChecked(), toggle.value());
        toggle.box->click();
        EXPECT_EQ(toggle.box->isChecked(), toggle.value());
        toggle.box->click();
        EXPECT_EQ(toggle.box->isChecked(), toggle.value());
    }
    preferences.setTheme(app::AppTheme::sage);
    EXPECT_EQ(settings.theme->currentText(), QStringLiteral("Sage"));
    EXPECT_EQ(&f.window->openSettings(), &settings) << "one form at a time";
}

} // namespace
} // namespace tarnbridge::test
