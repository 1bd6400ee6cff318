#include <gtest/gtest.h>

#include <QCheckBox>
#include <QPushButton>

#include "ToolsFixture.h"
#include "app/model/CleanupFlow.h"
#include "app/model/Preferences.h"
#include "app/screens/CleanupReviewDialog.h"
#include "cleanup/CleanupPolicy.h"
#include "support/Checks.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using namespace tarnbridge::test;

namespace {

struct ReviewFixture : ToolsFixture {
    std::string work = tree().folder("home/work");

    CleanupFlow& flow() { return app().cleanup(); }
    std::vector<CleanupEntry> entries(const std::vector<std::string>& paths)
    {
        std::vector<CleanupEntry> out;
        for (const std::string& path : paths)
            out.push_back(stage(*app().session().scan(), path));
        return out;
    }
    CleanupReviewDialog* review(std::vector<CleanupEntry> list, std::optional<QString> uninstall = std::nullopt)
    {
        flow().prepareCleanupReview(std::move(list), std::move(uninstall));
        if (!waitUntil([&] { return window->reviewDialog() != nullptr; }))
            return nullptr;
        return window->reviewDialog();
    }
};

} // namespace

TEST(CleanupReviewDialog, TitleListsAndConfirmFollowTheRequest)
{
    ReviewFixture f;
    const std::string a = f.tree().file("home/work/a.txt", 1000);
    const std::string b = f.tree().file("home/work/b.txt", 2000);
    const std::string c = f.tree().file("home/work/c.txt", 3000);
    const std::string l = f.tree().file("home/work/l.txt", 10);
    ASSERT_TRUE(f.scan(f.work));
    const std::vector<CleanupEntry> one = f.entries({a});
    const std::vector<CleanupEntry> three = f.entries({a, b, c});
    std::vector<CleanupEntry> withLink = f.entries({a, l});
    f.tree().remove("home/work/l.txt");
    f.tree().symlink(a, "home/work/l.txt");

    struct Case {
        const char* what;
        std::vector<CleanupEntry> entries;
        std::optional<QString> uninstall;
        QString title;
        QStringList blocked; // "path — message"
        bool confirm;
    };
    const std::vector<Case> cases = {
        {"one item", one, std::nullopt, QStringLiteral("Move 1 item to Trash?"), {}, true},
        {"three items", three, std::nullopt, QStringLiteral("Move 3 items to Trash?"), {}, true},
        {"an uninstall", three, QStringLiteral("Firefox"), QStringLiteral("Uninstall Firefox to Trash?"), {}, true},
        {"a link the policy refuses now", withLink, std::nullopt, QStringLiteral("Move 2 items to Trash?"),
         {QString::fromStdString(l) + QStringLiteral(" — ") + QString::fromUtf8(kRefusedLink)}, false},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        CleanupReviewDialog* review = f.review(test.entries, test.uninstall);
        ASSERT_TRUE(review);
        EXPECT_EQ(review->windowTitle(), test.title);
        EXPECT_TRUE(labels(review).contains(test.title));
        EXPECT_EQ(review->itemList()->topLevelItemCount(), int(test.entries.size()));
        QStringList blocked;
        if (QTreeWidget* list = review->blockedList())
            for (int row = 0; row < list->topLevelItemCount(); ++row)
                blocked << list->topLevelItem(row)->text(0) + QStringLiteral(" — ") + list->topLevelItem(row)->text(1);
        EXPECT_EQ(blocked, test.blocked);
        EXPECT_EQ(labels(review).contains(QStringLiteral("Protected items cannot be moved to Trash")), !test.confirm);
        EXPECT_EQ(labels(review).contains(QStringLiteral("Remove these items from Cleanup to continue.")), !test.confirm);
        EXPECT_EQ(review->confirmButton()->isEnabled(), test.confirm);
        EXPECT_TRUE(review->cancelButton()->isDefault());
        EXPECT_FALSE(review->confirmButton()->isDefault());
        EXPECT_TRUE(labels(review).contains(QStringLiteral("System files are protected. Trash can be restored until emptied.")));

        // The two toggles are the preferences, and the confirm button says what it will do.
        for (bool backup : {true, false}) {
            review->backupToggle()->setChecked(backup);
            EXPECT_EQ(f.app().preferences().backupBeforeCleanup(), backup);
            EXPECT_EQ(review->confirmButton()->text(),
                      backup ? QStringLiteral("Back up && Move to Trash…") : QStringLiteral("Move to Trash"));
        }
        review->snapshotToggle()->setChecked(true);
        EXPECT_TRUE(f.app().preferences().snapshotsEnabled());
        review->snapshotToggle()->setChecked(false);
        EXPECT_FALSE(f.app().preferences().snapshotsEnabled());

        QTest::mouseClick(review->cancelButton(), Qt::LeftButton);
        ASSERT_TRUE(waitUntil([&] { return !f.window->reviewDialog() && !f.flow().cleanupRequest(); }));
    }
    for (const std::string& path : {a, b, c})
        EXPECT_TRUE(exists(path));
}

TEST(CleanupReviewDialog, TheBackupFolderIsAskedForAndItsCancelKeepsTheReviewOpen)
{
    ReviewFixture f;
    const std::string a = f.tree().file("home/work/a.txt", 1000);
    const std::string backups = f.tree().folder("backups");
    ASSERT_TRUE(f.scan(f.work));
    f.app().preferences().setLastBackupParent(QString::fromStdString(backups));
    CleanupReviewDialog* review = f.review(f.entries({a}));
    ASSERT_TRUE(review);
    review->backupToggle()->setChecked(true);

    f.fixture.nextFolder.reset(); // the user cancels the folder panel
    QTest::mouseClick(review->confirmButton(), Qt::LeftButton);
    ASSERT_TRUE(f.fixture.lastRequest);
    EXPECT_EQ(f.fixture.lastRequest->title, QStringLiteral("Choose a backup folder"));
    EXPECT_EQ(f.fixture.lastRequest->message, QStringLiteral("Files will be copied here, verified, then moved to Trash."));
    EXPECT_EQ(f.fixture.lastRequest->prompt, QStringLiteral("Back up & Move to Trash"));
    EXPECT_EQ(f.fixture.lastRequest->startFolder, QString::fromStdString(backups));
    EXPECT_EQ(f.window->reviewDialog(), review);
    EXPECT_TRUE(review->isVisible());
    EXPECT_TRUE(f.flow().cleanupRequest());
    EXPECT_TRUE(exists(a));

    f.fixture.nextFolder = backups;
    QTest::mouseClick(review->confirmButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return !f.flow().cleaning() && !f.flow().receipts().empty(); }));
    EXPECT_FALSE(exists(a));
    ASSERT_EQ(f.flow().backups().size(), 1u);
    // The backup is listed, with the way to see it.
    f.app().setSection(AppSection::cleanup);
    auto* backupsList = f.window->findChild<QTreeWidget*>(QStringLiteral("backupList"));
    ASSERT_TRUE(backupsList);
    EXPECT_EQ(column(backupsList, 1), QStringList{QStringLiteral("1 item")});
    QAbstractButton* show = rowButton(backupsList, 0, 3);
    ASSERT_TRUE(show);
    EXPECT_EQ(show->text(), QStringLiteral("Show in File Manager"));
}
