#include <gtest/gtest.h>

#include <QFormLayout>
#include <QLabel>
#include <QListWidget>
#include <QMimeData>
#include <QPushButton>
#include <QTest>
#include <QUrl>

#include "app/desktop/DesktopServices.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/screens/InspectorPanel.h"
#include "app/shell/ShellTexts.h"
#include "ShellFixture.h"

namespace tarnbridge::test {
namespace {

// The label beside `field` in the inspector's details, or nothing when the row is absent.
std::optional<QString> detail(app::InspectorPanel& panel, const QString& field) {
    for (QLabel* label : panel.findChildren<QLabel*>()) {
        if (label->text() != field || !label->buddy())
            continue;
        if (auto* value = qobject_cast<QLabel*>(label->buddy()))
            return value->text();
    }
    return std::nullopt;
}

QStringList rows(QListWidget& list) {
    QStringList names;
    for (int i = 0; i < list.count(); ++i)
        names << list.item(i)->text().section(QStringLiteral("  —  "), 0, 0);
    return names;
}

TEST(Inspector, FollowsTheSelectionElseTheFocusAndOpensItsLargestChildren) {
    ShellFixture f;
    auto& panel = f.window->inspector();
    EXPECT_FALSE(panel.isVisible()) << "nothing to inspect before a scan";
    ASSERT_TRUE(f.scanToEnd());
    ASSERT_TRUE(waitUntil([&] { return panel.isVisible(); }));
    ASSERT_TRUE(panel.shown());
    EXPECT_EQ(panel.shown()->path, f.root()) << "the focus, with nothing selected";

    auto* largest = panel.findChild<QListWidget*>(QStringLiteral("inspectorLargest"));
    ASSERT_TRUE(largest);
    EXPECT_EQ(rows(*largest), (QStringList{QStringLiteral("Media"), QStringLiteral("Docs"),
                                           QStringLiteral("notes.txt")}));

    // A file: its share of the folder in the measure shown, and no children list.
    f.app().explore().setLogical(true);
    f.app().session().select(f.tree().path("scanned/Media/song.mp3"));
    ASSERT_EQ(panel.shown()->path, f.tree().path("scanned/Media/song.mp3"));
    EXPECT_EQ(detail(panel, QStringLiteral("Of parent")), QStringLiteral("23.1%")); // 90,000 of 390,000
    EXPECT_EQ(detail(panel, QStringLiteral("Logical size")), app::ShellTexts::bytes(90'000));
    EXPECT_FALSE(detail(panel, QStringLiteral("Compressed by"))) << "nothing saved, no row";
    EXPECT_FALSE(largest->isVisible());

    // Activating a folder in "Largest inside" opens it.
    f.app().session().select(f.root());
    largest->setCurrentRow(0);
    QTest::keyClick(largest, Qt::Key_Return);
    EXPECT_EQ(f.app().session().focusedPath(), f.tree().path("scanned/Media"));

    f.app().explore().setShowInspector(false);
    EXPECT_FALSE(panel.isVisible());
}

TEST(Inspector, AnEmptyFolderSaysSoAndStagingFollowsThePolicy) {
    ShellFixture f;
    f.tree().folder("scanned/Empty");
    ASSERT_TRUE(f.scanToEnd());
    auto& panel = f.window->inspector();
    f.app().session().select(f.tree().path("scanned/Empty"));
    const QStringList texts = f.visibleTexts();
    EXPECT_TRUE(texts.contains(QStringLiteral("No readable items inside.")));

    auto* stage = panel.findChild<QPushButton*>(QStringLiteral("inspectorStage"));
    ASSERT_TRUE(stage);
    f.app().session().select(f.tree().path("scanned/notes.txt"));
    ASSERT_TRUE(stage->isEnabled());
    stage->click();
    ASSERT_TRUE(waitUntil([&] { return !f.app().cleanup().queue().empty(); }));
    EXPECT_EQ(f.app().cleanup().queue().front().node.path, f.tree().path("scanned/notes.txt"));

    // A key folder is protected: the chip says so and nothing can be staged from here.
    f.tree().file("home/.ssh/id_ed25519", 400);
    f.app().session().startScan(f.tree().path("home"));
    ASSERT_TRUE(waitUntil([&] { return !f.app().scanning() && panel.isVisible(); }));
    f.app().session().select(f.tree().path("home/.ssh"));
    ASSERT_TRUE(panel.shown());
    ASSERT_EQ(panel.shown()->path, f.tree().path("home/.ssh"));
    EXPECT_FALSE(stage->isEnabled());
    EXPECT_FALSE(stage->toolTip().isEmpty());
    auto* chips = panel.findChild<QLabel*>(QStringLiteral("inspectorChips"));
    ASSERT_TRUE(chips);
    EXPECT_TRUE(chips->text().contains(QStringLiteral("Protected")));
}

TEST(DesktopData, AFileUrlKeepsANameThatIsNotUtf8ByteForByte) {
    const std::string path = std::string("/tmp/caf\xe9 \"x\"#1.txt");
    std::unique_ptr<QMimeData> data(app::DesktopServices::fileData(path));
    ASSERT_EQ(data->urls().size(), 1);
    const QUrl url = data->urls().front();
    EXPECT_TRUE(url.isLocalFile());
    EXPECT_EQ(QByteArray::fromPercentEncoding(url.toEncoded(QUrl::None).mid(7)).toStdString(), path);
}

} // namespace
} // namespace tarnbridge::test
