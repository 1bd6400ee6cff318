#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QCheckBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QTableView>
#include <QTest>

#include "app/itemmodels/FileTableModel.h"
#include "app/model/ExploreState.h"
#include "app/model/FileTableState.h"
#include "app/model/Notices.h"
#include "app/screens/FileTableView.h"
#include "app/shell/TopBar.h"
#include "model/PathText.h"
#include "ShellFixture.h"

namespace tarnbridge::test {
namespace {

using app::FileTableModel;

struct Table : ::testing::Test {
    ShellFixture f;
    app::FileTableView* view = nullptr;
    FileTableModel* model = nullptr;

    void SetUp() override {
        // Equal sizes in several folders, so that ties must fall back to path order.
        for (const char* name : {"Same/b.bin", "Same/a.bin", "Other/a.bin", "file2.txt", "File3.txt", "file10.txt"})
            f.tree().file(std::string("scanned/") + name, 5'000);
        f.tree().setModified("scanned/file2.txt", 1'500'000'000);
        f.tree().setModified("scanned/File3.txt", 1'600'000'000);
        ASSERT_TRUE(f.scanToEnd());
        f.app().explore().setStorageView(app::StorageView::table);
        view = f.window->findChild<app::FileTableView*>(QStringLiteral("fileTable"));
        ASSERT_TRUE(view);
        model = view->model();
        ASSERT_TRUE(settled());
    }
    bool settled() {
        return waitUntil([&] { return !f.app().table().isPending() && model->rowCount() > 0; });
    }
    std::vector<DiskNode> rows() {
        std::vector<DiskNode> nodes;
        for (int row = 0; row < model->rowCount(); ++row)
            nodes.push_back(*model->record(row));
        return nodes;
    }
    std::vector<std::string> names() {
        std::vector<std::string> out;
        for (const DiskNode& node : rows())
            out.emplace_back(node.name());
        return out;
    }
};

TEST_F(Table, PassesTheItemModelChecksThroughSortsAndPaging) {
    QAbstractItemModelTester tester(model, QAbstractItemModelTester::FailureReportingMode::Warning);
    view->table()->sortByColumn(FileTableModel::name, Qt::AscendingOrder);
    ASSERT_TRUE(settled());
    view->findChild<QCheckBox*>(QStringLiteral("tableRecursive"))->setChecked(true);
    ASSERT_TRUE(settled());
    EXPECT_EQ(model->rowCount(), int(f.app().table().rowCount()));
}

// Each header sorts both ways through the core's order; rows that tie stay in path order.
TEST_F(Table, EachColumnSortsBothWaysWithTiesInPathOrder) {
    view->findChild<QCheckBox*>(QStringLiteral("tableRecursive"))->setChecked(true);
    ASSERT_TRUE(settled());
    using Key = std::function<std::int64_t(const DiskNode&)>;
    const std::vector<std::pair<int, Key>> numeric{
        {FileTableModel::allocated, [](const DiskNode& n) { return n.allocatedSize; }},
        {FileTableModel::logical, [](const DiskNode& n) { return n.logicalSize; }},
        {FileTableModel::items, [](const DiskNode& n) { return n.isDirectory ? n.fileCount + n.folderCount : 1; }},
        {FileTableModel::modified, [](const DiskNode& n) { return n.modified; }},
    };
    for (const auto& [column, key] : numeric)
        for (Qt::SortOrder order : {Qt::AscendingOrder, Qt::DescendingOrder}) {
            view->table()->horizontalHeader()->setSortIndicator(column, order);
            ASSERT_TRUE(settled());
            ASSERT_EQ(f.app().table().sortField(), *FileTableModel::fieldOf(column));
            const auto nodes = rows();
            ASSERT_GT(nodes.size(), 10u);
            int ties = 0;
            for (std::size_t i = 1; i < nodes.size(); ++i) {
                const auto a = key(nodes[i - 1]), b = key(nodes[i]);
                if (a == b) {
                    ++ties;
                    EXPECT_LT(PathText::compare(nodes[i - 1].path, nodes[i].path), 0)
                        << "column " << column << ": " << nodes[i - 1].path << " / " << nodes[i].path;
                } else {
                    EXPECT_EQ(a < b, order == Qt::AscendingOrder) << "column " << column << " row " << i;
                }
            }
            EXPECT_GT(ties, 0) << "the tree has equal values in column " << column;
        }

    // Names in the order of a file manager: numbers by value, any case.
    for (Qt::SortOrder order : {Qt::AscendingOrder, Qt::DescendingOrder}) {
        view->table()->horizontalHeader()->setSortIndicator(FileTableModel::name, order);
        ASSERT_TRUE(settled());
        const auto list = names();
        const auto at = [&](const char* name) { return std::find(list.begin(), list.end(), name) - list.begin(); };
        const bool up = order == Qt::AscendingOrder;
        EXPECT_EQ(at("file2.txt") < at("File3.txt"), up);
        EXPECT_EQ(at("File3.txt") < at("file10.txt"), up);
    }
}

TEST_F(Table, PagesByFiveHundredAndExportsEveryRow) {
    for (int i = 0; i < 1'150; ++i)
        f.tree().file("scanned/many/f" + std::to_string(i) + ".dat", 10 + i);
    ASSERT_TRUE(f.scanToEnd());
    f.app().explore().setStorageView(app::StorageView::table); // a scan shows the treemap
    ASSERT_TRUE(settled());
    auto* recursive = view->findChild<QCheckBox*>(QStringLiteral("tableRecursive"));
    const int started = f.app().table().queriesStarted();
    recursive->setChecked(true);
    ASSERT_TRUE(settled());
    EXPECT_EQ(f.app().table().queriesStarted(), started + 1) << "one query for the toggle";
    const std::size_t total = f.app().table().rowCount();
    ASSERT_GT(total, 1'150u);
    EXPECT_EQ(model->rowCount(), 500);
    auto* status = view->findChild<QLabel*>(QStringLiteral("tableStatus"));
    EXPECT_TRUE(status->text().startsWith(QStringLiteral("Showing 500 of ")));
    EXPECT_TRUE(status->text().endsWith(QStringLiteral(" rows — export includes all rows.")));

    auto* more = view->findChild<QPushButton*>(QStringLiteral("tableMore"));
    ASSERT_TRUE(more->isVisible());
    more->click();
    EXPECT_EQ(model->rowCount(), 1'000);
    more->click();
    EXPECT_EQ(model->rowCount(), int(total));
    EXPECT_FALSE(more->isVisible());
    EXPECT_EQ(status->text(), QLocale().toString(qulonglong(total)) + QStringLiteral(" rows"));

    // Back to the first page, then the export: all rows, not only the 500 shown.
    recursive->setChecked(false);
    ASSERT_TRUE(settled());
    recursive->setChecked(true);
    ASSERT_TRUE(settled());
    ASSERT_EQ(model->rowCount(), 500);
    const std::string csv = f.tree().path("rows.csv");
    f.fixture.nextFile = csv;
    view->findChild<QPushButton*>(QStringLiteral("tableExport"))->click();
    ASSERT_TRUE(waitUntil([&] { return f.app().notices().notice() == QStringLiteral("CSV exported."); }));
    QProcess python;
    python.start(QStringLiteral("python3"),
                 {QStringLiteral("-c"),
                  QStringLiteral("import csv,sys\nrows=list(csv.reader(open(sys.argv[1],newline='',encoding='utf-8')))\n"
                                 "print(len(rows)-1)\nprint(rows[1][0])\nprint(rows[0][0])"),
                  QString::fromStdString(csv)});
    ASSERT_TRUE(python.waitForFinished(20'000));
    const QStringList lines = QString::fromUtf8(python.readAllStandardOutput()).split(QLatin1Char('\n'));
    ASSERT_GE(lines.size(), 3) << python.readAllStandardError().toStdString();
    EXPECT_EQ(lines[0].toULongLong(), total);
    EXPECT_EQ(lines[1].toStdString(), model->record(0)->path) << "the table's order";
    EXPECT_EQ(lines[2], QStringLiteral("path"));
}

TEST_F(Table, AQuickBurstOfTypingStartsOneQueryAndDoubleClickOpensAFolder) {
    const int started = f.app().table().queriesStarted();
    QLineEdit* filter = f.window->topBar().filterField();
    QTest::keyClicks(filter, QStringLiteral("file1"));
    ASSERT_TRUE(settled());
    EXPECT_EQ(f.app().table().queriesStarted(), started + 1);
    EXPECT_EQ(names(), std::vector<std::string>{"file10.txt"});

    // A filter nothing passes: the empty state, not an empty grid.
    filter->clear();
    QTest::keyClicks(filter, QStringLiteral("zzzzz"));
    ASSERT_TRUE(waitUntil([&] { return !f.app().table().isPending(); }));
    EXPECT_TRUE(f.visibleTexts().contains(QStringLiteral("No matching items")));
    filter->clear();
    ASSERT_TRUE(settled());

    const auto list = names();
    const int row = int(std::find(list.begin(), list.end(), "Same") - list.begin());
    ASSERT_LT(row, int(list.size()));
    const QModelIndex index = model->index(row, FileTableModel::name);
    view->table()->scrollTo(index);
    const QPoint centre = view->table()->visualRect(index).center();
    QTest::mouseClick(view->table()->viewport(), Qt::LeftButton, {}, centre);
    EXPECT_EQ(f.app().session().selection(), f.tree().path("scanned/Same"));
    QTest::mouseDClick(view->table()->viewport(), Qt::LeftButton, {}, centre);
    EXPECT_EQ(f.app().session().focusedPath(), f.tree().path("scanned/Same"));
    ASSERT_TRUE(settled());
    EXPECT_EQ(names(), (std::vector<std::string>{"a.bin", "b.bin"}));
}

} // namespace
} // namespace tarnbridge::test
