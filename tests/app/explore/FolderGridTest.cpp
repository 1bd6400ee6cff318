#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QElapsedTimer>
#include <QListView>
#include <QMenu>
#include <QSignalSpy>
#include <QTest>

#include <cstdio>

#include "app/itemmodels/FolderGridModel.h"
#include "app/screens/FolderGridView.h"
#include "ExploreFixture.h"
#include "support/FakeScan.h"
#include "visual/Paper.h"

namespace tarnbridge::test {
namespace {

using app::FolderGridModel;

struct Grid : ::testing::Test {
    ExploreFixture f;
    std::unique_ptr<app::FolderGridView> view;
    FolderGridModel* model = nullptr;

    void SetUp() override {
        view = std::make_unique<app::FolderGridView>(f.app());
        view->resize(1000, 700);
        view->show();
        model = view->model();
    }
    void TearDown() override { view.reset(); }

    std::string root() { return f.tree().path("scanned"); }
    std::vector<std::string> names() const {
        std::vector<std::string> out;
        for (int row = 0; row < model->rowCount(); ++row)
            out.push_back(model->index(row).data().toString().toStdString());
        return out;
    }
    int rowNamed(const char* name) const {
        const auto list = names();
        const auto at = std::find(list.begin(), list.end(), name);
        return at == list.end() ? -1 : int(at - list.begin());
    }
    QPoint centreOf(int row) const { return view->grid()->visualRect(model->index(row)).center(); }
};

// The cards are the focus's children that pass the filters, in the order of the shown measure;
// the title counts them, and each change of focus, filter or measure rebuilds them, while a
// click (which only selects) does not.
TEST_F(Grid, FollowsFocusFiltersAndMeasureUnderTheModelChecks) {
    f.tree().file("scanned/dense.bin", 300'000);
    f.tree().sparseFile("scanned/sparse.img", 5'000'000);
    f.tree().file("scanned/Docs/a.txt", 20'000);
    f.tree().file("scanned/Docs/b.txt", 10'000);
    ASSERT_TRUE(f.scanToEnd(root()));
    QAbstractItemModelTester tester(model, QAbstractItemModelTester::FailureReportingMode::Fatal);

    EXPECT_EQ(names(), (std::vector<std::string>{"dense.bin", "Docs", "sparse.img"}));
    auto* count = view->findChild<QLabel*>(QStringLiteral("folderGridCount"));
    EXPECT_EQ(count->text(), QStringLiteral("3"));

    f.app().explore().setLogical(true);
    EXPECT_EQ(names().front(), "sparse.img") << "the logical measure puts the sparse file first";
    EXPECT_EQ(model->index(0).data(FolderGridModel::BytesRole).toLongLong(), 5'000'000);
    f.app().explore().setLogical(false);

    f.app().explore().setFilter(QStringLiteral("s"));
    EXPECT_EQ(names(), (std::vector<std::string>{"dense.bin", "Docs", "sparse.img"}));
    f.app().explore().setFilter(QStringLiteral(".bin"));
    EXPECT_EQ(names(), std::vector<std::string>{"dense.bin"});
    EXPECT_EQ(count->text(), QStringLiteral("1"));
    f.app().explore().setFilter(QString());

    QSignalSpy resets(model, &QAbstractItemModel::modelReset);
    QTest::mouseClick(view->grid()->viewport(), Qt::LeftButton, {},
                      centreOf(rowNamed("dense.bin")));
    EXPECT_EQ(f.app().session().selection(), f.tree().path("scanned/dense.bin"));
    EXPECT_EQ(resets.count(), 0) << "a selection keeps the grid as it is";

    // A selection made elsewhere shows on its card.
    f.app().session().select(f.tree().path("scanned/Docs"));
    EXPECT_EQ(view->grid()->currentIndex().row(), rowNamed("Docs"));

    f.app().session().focusOn(*f.app().session().scan()->node(f.tree().path("scanned/Docs")));
    EXPECT_EQ(names(), (std::vector<std::string>{"a.txt", "b.txt"}));
    EXPECT_EQ(model->index(0).data(FolderGridModel::PathRole).toByteArray(),
              QByteArray::fromStdString(f.tree().path("scanned/Docs/a.txt")));
    EXPECT_EQ(resets.count(), 1);
}

// Ten children none of which passes is a filtered folder, not an empty one.
TEST_F(Grid, TellsAFilteredFolderFromAnEmptyOne) {
    for (int i = 0; i < 10; ++i)
        f.tree().file("scanned/Ten/file" + std::to_string(i) + ".txt", 1'000 + i);
    f.tree().folder("scanned/Empty");
    ASSERT_TRUE(f.scanToEnd(root()));
    f.app().session().focusOn(*f.app().session().scan()->node(f.tree().path("scanned/Ten")));
    ASSERT_EQ(model->rowCount(), 10);
    EXPECT_TRUE(view->grid()->isVisible());

    f.app().explore().setFilter(QStringLiteral("nothing-like-this"));
    EXPECT_EQ(model->rowCount(), 0);
    QStringList texts = shownTexts(*view);
    EXPECT_TRUE(texts.contains(QStringLiteral("No matching items")));
    EXPECT_TRUE(texts.contains(QStringLiteral("Clear filters to see the other items.")));
    EXPECT_FALSE(texts.contains(QStringLiteral("Nothing here")));
    EXPECT_FALSE(view->grid()->isVisible());

    // Opening a folder clears the text filter; the empty folder is then truly empty.
    f.app().explore().setMinimumBytes(1);
    f.app().session().focusOn(*f.app().session().scan()->node(f.tree().path("scanned/Empty")));
    texts = shownTexts(*view);
    EXPECT_TRUE(texts.contains(QStringLiteral("Nothing here")));
    EXPECT_TRUE(
        texts.contains(QStringLiteral("This folder is empty or contains no readable items.")));
    EXPECT_FALSE(texts.contains(QStringLiteral("No matching items")));
    EXPECT_TRUE(texts.contains(QStringLiteral("0")));
}

TEST_F(Grid, OpensByDoubleClickAndEnterAndGoesUpByBackspace) {
    f.tree().file("scanned/Big/inner/x.bin", 200'000);
    f.tree().file("scanned/Small/y.bin", 50'000);
    f.tree().file("scanned/z.txt", 90'000);
    ASSERT_TRUE(f.scanToEnd(root()));
    auto& session = f.app().session();
    ASSERT_EQ(names(), (std::vector<std::string>{"Big", "z.txt", "Small"}));

    // A double click (a click, then the second press) on a file selects it and opens nothing.
    auto doubleClick = [&](int row) {
        QTest::mouseClick(view->grid()->viewport(), Qt::LeftButton, {}, centreOf(row));
        QTest::mouseDClick(view->grid()->viewport(), Qt::LeftButton, {}, centreOf(row));
    };
    doubleClick(1);
    EXPECT_EQ(session.selection(), f.tree().path("scanned/z.txt"));
    EXPECT_EQ(session.focusedPath(), root());
    doubleClick(0);
    EXPECT_EQ(session.focusedPath(), f.tree().path("scanned/Big"));
    EXPECT_EQ(names(), std::vector<std::string>{"inner"});

    view->grid()->setFocus();
    QTest::keyClick(view->grid(), Qt::Key_Backspace);
    EXPECT_EQ(session.focusedPath(), root());

    // Arrows move the selection; Enter opens the current card.
    view->grid()->setCurrentIndex(model->index(0));
    QTest::keyClick(view->grid(), Qt::Key_Right);
    QTest::keyClick(view->grid(), Qt::Key_Right);
    EXPECT_EQ(session.selection(), f.tree().path("scanned/Small"));
    QTest::keyClick(view->grid(), Qt::Key_Return);
    EXPECT_EQ(session.focusedPath(), f.tree().path("scanned/Small"));
    QTest::keyClick(view->grid(), Qt::Key_Up, Qt::AltModifier);
    EXPECT_EQ(session.focusedPath(), root());

    // The menu key opens the current card's menu, whose first entry opens the folder.
    view->grid()->setCurrentIndex(model->index(0));
    QTest::keyClick(view->grid(), Qt::Key_Menu);
    auto* menu = view->findChild<QMenu*>(QStringLiteral("folderCardMenu"));
    ASSERT_TRUE(menu);
    EXPECT_TRUE(menu->isVisible());
    ASSERT_FALSE(menu->actions().isEmpty());
    EXPECT_EQ(menu->actions().front()->text(), QStringLiteral("Open folder"));
    menu->actions().front()->trigger();
    EXPECT_EQ(session.focusedPath(), f.tree().path("scanned/Big"));
    menu->close();
}

// The bar shows the folder's entry in folderTypes, in the measure shown, in the charts' colours;
// a folder whose totals are still being computed shows none until they arrive.
TEST_F(Grid, TheTypeBarFollowsFolderTypes) {
    f.tree().file("scanned/Media/film.mkv", 300'000);
    f.tree().file("scanned/Media/song.mp3", 90'000);
    f.tree().file("scanned/Docs/letter.pdf", 40'000);
    f.tree().file("scanned/notes.txt", 2'000);
    f.tree().file("scanned/Deep/Pics/a.jpg", 70'000);
    f.tree().file("scanned/Deep/Tunes/b.flac", 30'000);
    ASSERT_TRUE(f.scanToEnd(root()));
    const int media = rowNamed("Media");
    ASSERT_GE(media, 0);
    auto card = model->card(media);
    ASSERT_EQ(card->types.size(), 2u);
    EXPECT_EQ(card->types[0].first, FileCategory::video);
    EXPECT_EQ(card->types[1].first, FileCategory::audio);
    EXPECT_EQ(card->types[0].second + card->types[1].second, card->bytes);
    EXPECT_TRUE(model->card(rowNamed("notes.txt"))->types.empty());

    // The painted bar: the video colour on the left, the audio colour on the right, none for a
    // file.
    const QImage image = view->grid()->viewport()->grab().toImage();
    const auto colourAt = [&](int row, double along) {
        const QRect bar =
            app::FolderCardDelegate::barRect(view->grid()->visualRect(model->index(row)));
        return image.pixel(bar.left() + int(bar.width() * along), bar.center().y());
    };
    const QRgb video = Paper::color(FileCategory::video).resolved(false).rgb();
    const QRgb audio = Paper::color(FileCategory::audio).resolved(false).rgb();
    const QRgb document = Paper::color(FileCategory::document).resolved(false).rgb();
    EXPECT_EQ(colourAt(media, 0.3), video);
    EXPECT_EQ(colourAt(media, 0.95), audio);
    EXPECT_EQ(colourAt(rowNamed("Docs"), 0.5), document);
    EXPECT_NE(colourAt(rowNamed("notes.txt"), 0.3), video);
    EXPECT_NE(colourAt(rowNamed("notes.txt"), 0.3), document);

    f.app().explore().setLogical(true);
    card = model->card(rowNamed("Media"));
    ASSERT_EQ(card->types.size(), 2u);
    EXPECT_EQ(card->types[0].second + card->types[1].second, 390'000);

    // Below the root the totals are computed in the background.
    QSignalSpy arrived(&f.app().explore(), &app::ExploreState::folderTypesChanged);
    f.app().session().focusOn(*f.app().session().scan()->node(f.tree().path("scanned/Deep")));
    EXPECT_TRUE(model->card(rowNamed("Pics"))->types.empty()) << "no bar before the totals arrive";
    ASSERT_TRUE(waitUntil([&] { return !f.app().explore().folderTypes().empty(); }));
    ASSERT_GE(arrived.count(), 1);
    const auto pics = model->card(rowNamed("Pics"));
    ASSERT_EQ(pics->types.size(), 1u);
    EXPECT_EQ(pics->types[0], std::make_pair(FileCategory::image, std::int64_t(70'000)));
    EXPECT_EQ(model->card(rowNamed("Tunes"))->types.front().first, FileCategory::audio);
}

TEST_F(Grid, AHundredThousandChildrenFillTheGrid) {
    std::vector<FakeEntry> entries;
    entries.reserve(100'001);
    for (int i = 0; i < 100'000; ++i)
        entries.push_back({"big/f" + std::to_string(i) + ".dat", 1'000 + i});
    entries.push_back({"other/x.dat", 5});
    const ScanResult scan = fakeScan("/data", entries);
    ScanPresentation presentation = ScanPresentation::make(scan); // the scan's cost, not the grid's
    QElapsedTimer timer;
    timer.start();
    f.app().session().installScan(scan, std::move(presentation), "/data/big", false);
    const qint64 filled = timer.restart();
    const QImage first = view->grid()->viewport()->grab().toImage(); // lays out and paints
    const qint64 painted = timer.restart();
    ASSERT_EQ(model->rowCount(), 100'000);
    EXPECT_EQ(model->index(0).data().toString(), QStringLiteral("f99999.dat")) << "largest first";
    EXPECT_EQ(model->index(99'999).data().toString(), QStringLiteral("f0.dat"));
    EXPECT_TRUE(view->grid()->isVisible());
    EXPECT_FALSE(first.isNull());
    view->grid()->scrollToBottom();
    EXPECT_FALSE(view->grid()->viewport()->grab().toImage().isNull());
    std::printf("100,000 cards: model filled in %lld ms, laid out and painted in %lld ms\n",
                static_cast<long long>(filled), static_cast<long long>(painted));
}

} // namespace
} // namespace tarnbridge::test
