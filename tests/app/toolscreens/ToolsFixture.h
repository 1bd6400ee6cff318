#pragma once

#include <QAbstractButton>
#include <QApplication>

#include <gtest/gtest.h>
#include <QLabel>
#include <QTest>
#include <QTreeWidget>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "app/model/AppFixture.h"
#include "app/model/ScanSession.h"
#include "app/shell/MainWindow.h"

// Readable texts in failure messages.
inline void PrintTo(const QString& text, std::ostream* out) { *out << '"' << text.toStdString() << '"'; }

namespace tarnbridge::test {

// The real main window over a private model: a fake home with its own Trash, state folder and
// settings, the monitor off, and the folder panel answered by `nextFolder`.
struct ToolsFixture {
    AppFixture fixture;
    std::unique_ptr<app::MainWindow> window;

    explicit ToolsFixture(app::AppServices services = {}) : fixture(std::move(services))
    {
        window = std::make_unique<app::MainWindow>(app());
        window->resize(1280, 800);
        window->show();
        QApplication::setActiveWindow(window.get());
    }
    ~ToolsFixture() { window.reset(); }

    app::AppModel& app() { return fixture.app(); }
    TempTree& tree() { return fixture.tree(); }
    std::string home() const { return fixture.fake.home(); }

        // A scan opens Explore; the section shown before comes back afterwards.
    bool scan(const std::string& root)
    {
        const app::AppSection section = app().section();
        app().session().startScan(root);
        const bool done = waitUntil([&] { return !app().scanning() && app().session().scan() &&
                                                 app().session().scan()->rootPath() == root; });
        app().setSection(section);
        return done;
    }

    template <class Screen>
    Screen& screen()
    {
        auto* found = window->findChild<Screen*>();
        if (!found)
            throw std::runtime_error("the window has no such screen");
        return *found;
    }
};

// The visible button below `parent` with this text, or null.
inline QAbstractButton* button(QWidget* parent, const QString& text)
{
    for (auto* candidate : parent->findChildren<QAbstractButton*>())
        if (candidate->text() == text && candidate->isVisibleTo(parent->window()))
            return candidate;
    return nullptr;
}

// Clicks the visible button below `parent` with this text.
inline ::testing::AssertionResult click(QWidget* parent, const QString& text)
{
    QAbstractButton* found = button(parent, text);
    if (!found)
        return ::testing::AssertionFailure() << "no visible button " << text.toStdString();
    if (!found->isEnabled())
        return ::testing::AssertionFailure() << "the button " << text.toStdString() << " is disabled";
    // Near the left edge: a check box stretched by its layout answers only on its box and text.
    QTest::mouseClick(found, Qt::LeftButton, {}, QPoint(6, found->height() / 2));
    return ::testing::AssertionSuccess();
}

// The texts of every visible label below `parent`.
inline QStringList labels(QWidget* parent)
{
    QStringList out;
    for (auto* label : parent->findChildren<QLabel*>())
        if (label->isVisibleTo(parent->window()) && !label->text().isEmpty())
            out << label->text();
    return out;
}

// One column of a list, top to bottom.
inline QStringList column(const QTreeWidget* list, int index)
{
    QStringList out;
    for (int row = 0; row < list->topLevelItemCount(); ++row)
        out << list->topLevelItem(row)->text(index);
    return out;
}

// The button a list shows in a row's column.
inline QAbstractButton* rowButton(QTreeWidget* list, int row, int column)
{
    return qobject_cast<QAbstractButton*>(list->itemWidget(list->topLevelItem(row), column));
}

// Runs a program to the end; its output.
inline std::string listing(const std::vector<std::string>& argv)
{
    return runProcess(argv).out;
}

} // namespace tarnbridge::test
