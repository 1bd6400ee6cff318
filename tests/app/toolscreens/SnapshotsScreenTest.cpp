#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QMessageBox>
#include <QPushButton>
#include <QTreeView>

#include <atomic>
#include <fstream>
#include <memory>

#include "ToolsFixture.h"
#include "app/model/ExploreState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/SnapshotFlow.h"
#include "app/tools/SnapshotsScreen.h"
#include "model/Formatting.h"
#include "scan/DiskScanner.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using namespace tarnbridge::test;

namespace {

// Scans may be marked incomplete, as if a folder could not be read.
struct SnapshotsFixture : ToolsFixture {
    std::shared_ptr<std::atomic<bool>> incomplete;
    std::string root = tree().folder("home/proj");

    SnapshotsFixture() : SnapshotsFixture(std::make_shared<std::atomic<bool>>(false)) {}
    explicit SnapshotsFixture(std::shared_ptr<std::atomic<bool>> flag)
        : ToolsFixture(services(flag)), incomplete(std::move(flag))
    {
        app().explore().setLogical(true); // logical sizes are exact on every file system
        app().setSection(AppSection::snapshots);
    }

    SnapshotFlow& flow() { return app().snapshots(); }
    SnapshotsScreen& screen() { return ToolsFixture::screen<SnapshotsScreen>(); }

    bool saveThroughTheScreen()
    {
        const std::size_t before = flow().snapshots().size();
        QAbstractButton* save = button(&screen(), QStringLiteral("Save current scan"));
        if (!save || !save->isEnabled())
            return false;
        QTest::mouseClick(save, Qt::LeftButton);
        return waitUntil([&] { return !flow().busy() && flow().snapshots().size() == before + 1; });
    }
    QAbstractButton* catalogButton(int row, const QString& text)
    {
        QTreeWidget* catalog = screen().catalog();
        for (int column = 0; column < catalog->columnCount(); ++column)
            if (auto* candidate = qobject_cast<QAbstractButton*>(catalog->itemWidget(catalog->topLevelItem(row), column)))
                if (candidate->text() == text || candidate->toolTip() == text)
                    return candidate;
        return nullptr;
    }
    // The change list as drawn: name column and status, top to bottom.
    std::vector<std::pair<QString, QString>> rows()
    {
        std::vector<std::pair<QString, QString>> out;
        ChangeTableModel* model = screen().changeModel();
        for (int row = 0; row < model->rowCount(); ++row)
            out.emplace_back(model->index(row, ChangeTableModel::pathColumn).data().toString(),
                             model->index(row, ChangeTableModel::statusColumn).data().toString());
        return out;
    }

private:
    static AppServices services(const std::shared_ptr<std::atomic<bool>>& flag)
    {
        AppServices services;
        services.scan = [flag](const std::string& path, const CancellationFlag& cancel, ScanNavigation* navigation,
                               const ScanProgressCallback& progress) {
            ScanResult result = DiskScanner::scan(path, cancel, navigation, progress);
            if (!*flag)
                return result;
            std::vector<DiskNode> nodes = result.descendants(result.rootPath());
            nodes.push_back(*result.root());
            return ScanResult::fromNodes(result.id(), result.rootPath(), 0, 0, std::move(nodes), {}, 1);
        };
        return services;
    }
};

int indexOf(const std::vector<std::pair<QString, QString>>& rows, const QString& name)
{
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (rows[i].first == name)
            return int(i);
    return -1;
}

} // namespace

TEST(SnapshotsScreen, EmptyStatesTogglesAndCatalogIssuesSayWhatIsThere)
{
    SnapshotsFixture f;
    SnapshotsScreen& screen = f.screen();
    struct Step {
        const char* what;
        std::function<void()> act;
        QStringList texts;
        bool save;
    };
    const std::vector<Step> steps = {
        {"snapshots off, nothing saved", [] {},
         {QStringLiteral("No saved scans"), QStringLiteral("Enable snapshots to save scans for comparison.")}, false},
        {"snapshots on, no scan yet",
         [&] { ASSERT_TRUE(click(&screen, QStringLiteral("Save scan snapshots"))); },
         {QStringLiteral("No saved scans"), QStringLiteral("Save a scan, then compare it with a later scan.")}, false},
        {"a scan to save", [&] { ASSERT_TRUE(f.scan(f.root)); },
         {QStringLiteral("No saved scans")}, true},
        {"a damaged saved scan",
         [&] {
             std::filesystem::create_directories(f.app().store().directory());
             std::ofstream(f.app().store().directory() + "/BROKEN.meta") << "{ not json";
             ASSERT_TRUE(click(&screen, QStringLiteral("Refresh saved scans")));
         },
         {QStringLiteral("No available snapshots"), QStringLiteral("1 saved scan is unavailable")}, true},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        step.act();
        const QStringList shown = labels(&screen);
        for (const QString& text : step.texts)
            EXPECT_TRUE(shown.contains(text) || button(&screen, text)) << text.toStdString();
        QAbstractButton* save = button(&screen, QStringLiteral("Save current scan"));
        ASSERT_TRUE(save);
        EXPECT_EQ(save->isEnabled(), step.save);
    }
    EXPECT_TRUE(f.app().preferences().snapshotsEnabled());
    ASSERT_TRUE(f.saveThroughTheScreen());
    EXPECT_EQ(screen.catalog()->topLevelItemCount(), 1);
    EXPECT_FALSE(labels(&screen).contains(QStringLiteral("No available snapshots")));
    EXPECT_EQ(f.app().notices().notice(), QStringLiteral("Snapshot saved."));
}

TEST(SnapshotsScreen, TwoSavedScansOfAChangedTreeListTheirChangesLargestFirstAndFilter)
{
    SnapshotsFixture f;
    f.tree().sparseFile("home/proj/a.bin", 1'000'000);
    f.tree().file("home/proj/b.bin", 20'000);
    f.tree().file("home/proj/d.bin", 1'000);
    f.tree().file("home/proj/sub/e.bin", 3'000);
    f.app().preferences().setSnapshotsEnabled(true);
    ASSERT_TRUE(f.scan(f.root));
    ASSERT_TRUE(f.saveThroughTheScreen());

    f.tree().sparseFile("home/proj/a.bin", 12'000'000); // +11,000,000
    f.tree().remove("home/proj/b.bin");                 // -20,000
    f.tree().file("home/proj/c.bin", 5'000);            // +5,000
    f.tree().file("home/proj/sub/e.bin", 4'000);        // +1,000
    for (int i = 0; i < 320; ++i)                       // +1 each, the end of the list
        f.tree().file("home/proj/many/f" + std::to_string(1000 + i), 1);
    f.incomplete->store(true);
    ASSERT_TRUE(f.scan(f.root));
    ASSERT_TRUE(f.saveThroughTheScreen());
    SnapshotsScreen& screen = f.screen();
    ASSERT_EQ(screen.catalog()->topLevelItemCount(), 2); // newest first
    const QString older = f.screen().catalog()->topLevelItem(1)->text(0);

    // Before on the older, then After on the newer.
    QTest::mouseClick(f.catalogButton(1, QStringLiteral("Use as Before")), Qt::LeftButton);
    EXPECT_TRUE(labels(&screen).contains(QStringLiteral("Before snapshot: ") + older +
                                         QStringLiteral(". Choose Compare with Before on another snapshot.")));
    QTest::mouseClick(f.catalogButton(0, QStringLiteral("Compare with Before")), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return !f.flow().busy() && f.flow().comparisonTitle(); }));
    EXPECT_TRUE(labels(&screen).contains(older + QStringLiteral(" → ") + older));
    EXPECT_TRUE(labels(&screen).contains(
        QStringLiteral("Logical bytes. Parent rows include child changes; do not add all rows together.")));
    EXPECT_TRUE(labels(&screen).contains(
        QStringLiteral("The current scan is incomplete. Some apparent removals may be inaccessible paths.")));

    // The first page: 300 rows, largest change first, the files in the order of their change.
    auto rows = f.rows();
    ASSERT_EQ(rows.size(), 300u);
    const int a = indexOf(rows, QStringLiteral("a.bin"));
    const int b = indexOf(rows, QStringLiteral("b.bin"));
    const int c = indexOf(rows, QStringLiteral("c.bin"));
    const int e = indexOf(rows, QStringLiteral("sub/e.bin"));
    ASSERT_TRUE(a >= 0 && b >= 0 && c >= 0 && e >= 0);
    EXPECT_LT(a, b);
    EXPECT_LT(b, c);
    EXPECT_LT(c, e);
    EXPECT_EQ(rows[std::size_t(a)].second, QStringLiteral("Changed"));
    EXPECT_EQ(rows[std::size_t(b)].second, QStringLiteral("Removed"));
    EXPECT_EQ(rows[std::size_t(c)].second, QStringLiteral("Added"));
    EXPECT_EQ(indexOf(rows, QStringLiteral("d.bin")), -1); // unchanged
    EXPECT_EQ(screen.changeModel()->index(a, ChangeTableModel::changeColumn).data().toString(),
              QStringLiteral("+") + QString::fromStdString(formattedBytes(11'000'000)));
    EXPECT_EQ(screen.changeModel()->index(b, ChangeTableModel::changeColumn).data().toString(),
              QStringLiteral("−") + QString::fromStdString(formattedBytes(20'000)));
    // Equal changes of the 320 new files: by path.
    const int f1 = indexOf(rows, QStringLiteral("many/f1000"));
    const int f2 = indexOf(rows, QStringLiteral("many/f1001"));
    ASSERT_TRUE(f1 >= 0 && f2 >= 0);
    EXPECT_EQ(f2, f1 + 1);

    QAbstractButton* more = button(&screen, QStringLiteral("Show 300 more changes"));
    ASSERT_TRUE(more);
    QTest::mouseClick(more, Qt::LeftButton);
    EXPECT_EQ(f.rows().size(), f.flow().changes().size());
    EXPECT_FALSE(button(&screen, QStringLiteral("Show 300 more changes")));

    // Top level only: the items directly in the compared folder.
    screen.topLevelOnly()->setChecked(true);
    rows = f.rows();
    QStringList names;
    for (const auto& row : rows)
        names << row.first;
    names.sort();
    EXPECT_EQ(names, (QStringList{QStringLiteral("a.bin"), QStringLiteral("b.bin"), QStringLiteral("c.bin"),
                                  QStringLiteral("many"), QStringLiteral("sub")}));
    // And a minimum that only the big file passes, at either level.
    screen.minimumChange()->setCurrentIndex(1); // 10 MB
    EXPECT_EQ(f.rows(), (std::vector<std::pair<QString, QString>>{{QStringLiteral("a.bin"), QStringLiteral("Changed")}}));
    screen.topLevelOnly()->setChecked(false);
    rows = f.rows();
    ASSERT_FALSE(rows.empty());
    for (int row = 0; row < int(rows.size()); ++row)
        EXPECT_GE(screen.changeModel()->change(row)->magnitude(), 10'000'000u) << rows[std::size_t(row)].first.toStdString();
    screen.minimumChange()->setCurrentIndex(3); // 1 GB
    EXPECT_TRUE(f.rows().empty());
    EXPECT_TRUE(labels(&screen).contains(QStringLiteral("No size changes in this view.")));

    // Deleting a saved scan drops the comparison the list points into, while the list shows it.
    screen.minimumChange()->setCurrentIndex(0);
    ASSERT_GT(screen.changeModel()->rowCount(), 0);
    QTest::mouseClick(f.catalogButton(0, QStringLiteral("Delete saved snapshot")), Qt::LeftButton);
    ASSERT_TRUE(screen.deleteConfirmation());
    for (QAbstractButton* answer : screen.deleteConfirmation()->buttons())
        if (answer->text() == QStringLiteral("Delete snapshot")) {
            QTest::mouseClick(answer, Qt::LeftButton);
            break;
        }
    ASSERT_TRUE(waitUntil([&] { return !screen.deleteConfirmation(); }));
    EXPECT_FALSE(f.flow().comparisonTitle());
    EXPECT_EQ(screen.changeModel()->rowCount(), 0);
    EXPECT_FALSE(screen.changeList()->isVisibleTo(f.window.get()));
    EXPECT_EQ(screen.catalog()->topLevelItemCount(), 1);
}

TEST(SnapshotsScreen, DeleteAsksFirstAndOpenShowsTheSavedScanAsHistorical)
{
    SnapshotsFixture f;
    f.tree().file("home/proj/a.bin", 1000);
    f.app().preferences().setSnapshotsEnabled(true);
    ASSERT_TRUE(f.scan(f.root));
    ASSERT_TRUE(f.saveThroughTheScreen());
    ASSERT_TRUE(f.saveThroughTheScreen());
    SnapshotsScreen& screen = f.screen();
    ASSERT_EQ(screen.catalog()->topLevelItemCount(), 2);

    for (bool confirm : {false, true}) {
        SCOPED_TRACE(confirm ? "confirmed" : "cancelled");
        QAbstractButton* remove = f.catalogButton(0, QStringLiteral("Delete saved snapshot"));
        ASSERT_TRUE(remove);
        QTest::mouseClick(remove, Qt::LeftButton);
        QMessageBox* box = screen.deleteConfirmation();
        ASSERT_TRUE(box);
        EXPECT_EQ(box->text(), QStringLiteral("Delete saved scan?"));
        EXPECT_EQ(box->informativeText(),
                  QStringLiteral("Only Tarnbridge's saved metadata is removed. Your scanned files are unaffected."));
        QAbstractButton* answer = nullptr;
        for (QAbstractButton* candidate : box->buttons())
            if ((candidate->text() == QStringLiteral("Delete snapshot")) == confirm)
                answer = candidate;
        ASSERT_TRUE(answer);
        ASSERT_TRUE(box->defaultButton()); // Enter never deletes
        EXPECT_NE(box->defaultButton()->text(), QStringLiteral("Delete snapshot"));
        QTest::mouseClick(answer, Qt::LeftButton);
        ASSERT_TRUE(waitUntil([&] { return !screen.deleteConfirmation(); }));
        EXPECT_EQ(screen.catalog()->topLevelItemCount(), confirm ? 1 : 2);
    }

    QTest::mouseClick(f.catalogButton(0, QStringLiteral("Open")), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return !f.flow().busy() && f.app().section() == AppSection::explore; }));
    EXPECT_TRUE(f.app().session().isHistorical());
    EXPECT_FALSE(f.app().canClean());
    EXPECT_EQ(f.app().notices().notice(), QStringLiteral("Viewing a saved snapshot. Rescan before staging cleanup."));
}
