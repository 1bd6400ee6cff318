#include <gtest/gtest.h>

#include <sys/stat.h>

#include <QCheckBox>
#include <QLineEdit>
#include <QPushButton>

#include "ToolsFixture.h"
#include "app/model/ApplicationsFlow.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/Preferences.h"
#include "app/screens/CleanupReviewDialog.h"
#include "app/tools/ApplicationsScreen.h"
#include "app/tools/ToolWidgets.h"
#include "support/Checks.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using namespace tarnbridge::test;

namespace {

// A private machine: a Flatpak app installed for the user, with its sandbox data; the sandbox
// data of an app that is gone; and a smaller system program with an entry of its own.
struct AppsFixture : ToolsFixture {
    std::string deployment = home() + "/.local/share/flatpak/app/org.user.Clock";
    std::string sandbox = home() + "/.var/app/org.user.Clock";
    std::string leftover = home() + "/.var/app/org.gone.Thing";

    AppsFixture()
    {
        const std::string clock = tree().file("home/.local/share/flatpak/app/org.user.Clock/current/active/files/bin/clock", 400000);
        ::chmod(clock.c_str(), 0755);
        entry("home/.local/share/flatpak/exports/share/applications", "org.user.Clock.desktop",
              "Name=Clock\nExec=flatpak run org.user.Clock\nIcon=org.user.Clock\n");
        tree().file("home/.var/app/org.user.Clock/config/settings", 3000);
        tree().file("home/.var/app/org.gone.Thing/data/state", 2000);
        entry("sys/share/applications", "org.test.Tool.desktop", "Name=Tool\nExec=/usr/bin/true\n");
        InventoryPlaces places = InventoryPlaces::fromEnvironment(
            {tree().path("sys/flatpak"), tree().path("sys/snapd"), tree().path("sys/snap")});
        places.dataDirs = {tree().path("sys/share")};
        places.programPath = {tree().path("sys/bin")};
        places.locale = "C";
        flow().setInspector(ApplicationsFlow::inventoryOver(places));
    }
    void entry(const std::string& folder, const std::string& file, const std::string& body)
    {
        tree().fileWithText(folder + "/" + file, "[Desktop Entry]\nType=Application\n" + body);
    }
    ApplicationsFlow& flow() { return app().applications(); }
    ApplicationsScreen& screen() { return ToolsFixture::screen<ApplicationsScreen>(); }
    bool open()
    {
        app().setSection(AppSection::applications); // the first showing reads the applications
        return waitUntil([&] { return !flow().inspectingApps() && flow().appReport(); });
    }
};

} // namespace

TEST(ApplicationsScreen, TheListFollowsTheReportTheTogglesAndTheSearch)
{
    AppsFixture f;
    ASSERT_TRUE(f.open());
    ApplicationsScreen& screen = f.screen();
    const InstalledApplication* clock = nullptr;
    for (const InstalledApplication& application : f.flow().appReport()->apps)
        if (application.bundleID == "org.user.Clock")
            clock = &application;
    ASSERT_TRUE(clock);
    const QString clockLeftovers = QStringLiteral("+") + ToolWidgets::bytes(clock->supportBytes()) + QStringLiteral(" leftovers");

    struct Case {
        const char* what;
        bool system;
        QString search;
        QStringList names;
        QStringList leftovers;
        bool noMatch;
    };
    const std::vector<Case> cases = {
        {"system apps hidden", false, {}, {QStringLiteral("Clock")}, {clockLeftovers}, false},
        {"system apps shown", true, {}, {QStringLiteral("Clock"), QStringLiteral("Tool")},
         {clockLeftovers, QStringLiteral("App bundle only")}, false},
        {"a search in any case", true, QStringLiteral("tOO"), {QStringLiteral("Tool")}, {QStringLiteral("App bundle only")}, false},
        {"a search by identifier finds nothing", true, QStringLiteral("org.user"), {}, {}, true},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        screen.showSystem()->setChecked(test.system);
        screen.searchField()->setText(test.search);
        EXPECT_EQ(f.app().explore().filter(), test.search); // the one filter of the app
        QStringList names = column(screen.appList(), 0);
        EXPECT_EQ(names, test.names);
        EXPECT_EQ(column(screen.appList(), 2), test.leftovers);
        EXPECT_TRUE(labels(&screen).contains(QStringLiteral("APPLICATIONS ") + QString::number(test.names.size())));
        EXPECT_EQ(labels(&screen).contains(QStringLiteral("No matching applications")), test.noMatch);
    }
    ASSERT_TRUE(click(&screen, QStringLiteral("Clear search")));
    EXPECT_TRUE(f.app().explore().filter().isEmpty());
    EXPECT_TRUE(screen.searchField()->text().isEmpty());
    EXPECT_EQ(screen.appList()->topLevelItemCount(), 2);
    EXPECT_EQ(screen.searchField()->placeholderText(), QStringLiteral("Search apps..."));
    EXPECT_FALSE(screen.appList()->topLevelItem(0)->icon(0).isNull());
    // Nothing is selected yet.
    EXPECT_TRUE(labels(&screen).contains(QStringLiteral("Select an app")));
}

TEST(ApplicationsScreen, UninstallGoesThroughTheReviewAndALeftoverIsStagedWithItsReason)
{
    AppsFixture f;
    ASSERT_TRUE(f.open());
    ApplicationsScreen& screen = f.screen();
    ASSERT_EQ(column(screen.appList(), 0), QStringList{QStringLiteral("Clock")});
    screen.appList()->setCurrentItem(screen.appList()->topLevelItem(0));
    ASSERT_EQ(f.flow().selectedApp(), f.deployment);
    EXPECT_EQ(screen.currentPane(), screen.applicationPane());
    const QStringList shown = labels(screen.applicationPane());
    EXPECT_TRUE(shown.contains(QStringLiteral("Clock")));
    EXPECT_TRUE(shown.contains(QStringLiteral("Total footprint")));
    EXPECT_TRUE(shown.contains(QStringLiteral("Associated files")));
    EXPECT_EQ(column(screen.supportList(), 0), QStringList{QStringLiteral("org.user.Clock")});
    EXPECT_EQ(column(screen.supportList(), 1), QStringList{QStringLiteral("App Sandbox Data")});

    // The leftovers pane keeps the selection, unseen.
    QTest::mouseClick(screen.showOrphans(), Qt::LeftButton);
    EXPECT_EQ(screen.currentPane(), screen.leftoverPane());
    EXPECT_EQ(f.flow().selectedApp(), f.deployment);
    EXPECT_TRUE(labels(screen.leftoverPane()).contains(
        QStringLiteral("Review before cleanup — apps stored elsewhere may still use these files.")));
    ASSERT_EQ(column(screen.leftoverList(), 0), QStringList{QStringLiteral("org.gone.Thing")});
    QAbstractButton* add = rowButton(screen.leftoverList(), 0, 3);
    ASSERT_TRUE(add);
    EXPECT_EQ(add->text(), QStringLiteral("Add to Cleanup"));
    QTest::mouseClick(add, Qt::LeftButton);
    ASSERT_EQ(f.app().cleanup().queue().size(), 1u);
    EXPECT_EQ(f.app().cleanup().queue().front().node.path, f.leftover);
    EXPECT_EQ(f.app().cleanup().queue().front().reason, "Possible leftover · verify ownership");
    f.app().cleanup().removeAll();
    QTest::mouseClick(screen.showOrphans(), Qt::LeftButton);
    EXPECT_EQ(screen.currentPane(), screen.applicationPane());

    // Uninstall: the review names the app and lists the bundle and its own data; nothing moves before it.
    f.app().preferences().setBackupBeforeCleanup(false);
    ASSERT_TRUE(screen.uninstallButton()->isEnabled());
    QTest::mouseClick(screen.uninstallButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return f.window->reviewDialog() != nullptr; }));
    CleanupReviewDialog& review = *f.window->reviewDialog();
    EXPECT_EQ(review.windowTitle(), QStringLiteral("Uninstall Clock to Trash?"));
    EXPECT_EQ(column(review.itemList(), 0),
              (QStringList{QString::fromStdString(f.sandbox), QString::fromStdString(f.deployment)}));
    EXPECT_TRUE(exists(f.deployment));
    QTest::mouseClick(review.confirmButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return !f.app().cleaning() && f.app().cleanup().receipts().size() == 2; }));
    EXPECT_FALSE(exists(f.deployment));
    EXPECT_FALSE(exists(f.sandbox));
    EXPECT_TRUE(exists(f.leftover));
    // The list is read again and the app is gone from it.
    f.app().setSection(AppSection::applications);
    ASSERT_TRUE(waitUntil([&] { return !f.flow().inspectingApps() && f.flow().appReport(); }));
    EXPECT_TRUE(column(screen.appList(), 0).isEmpty());
    EXPECT_FALSE(f.flow().selectedApp());
}
