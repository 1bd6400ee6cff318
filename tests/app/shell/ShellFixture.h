#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QTest>
#include <QTreeWidget>

#include <atomic>
#include <memory>

#include "app/model/AppFixture.h"
#include "app/model/Gate.h"
#include "app/model/ScanSession.h"
#include "app/shell/MainWindow.h"
#include "model/Errors.h"
#include "scan/DiskScanner.h"

namespace tarnbridge::test {

// The real main window over a private model whose scans can be held on their worker thread.
struct ShellFixture {
    Gate gate;
    std::atomic<bool> holdScans{false}; // set before a scan starts to hold it at its end
    std::atomic<int> scansStarted{0};
    std::string wholeDiskAsked; // written on the worker before the gate, read after it
    AppFixture fixture{services()};
    std::unique_ptr<app::MainWindow> window;

    ShellFixture() {
        tree().file("scanned/Media/film.mkv", 300'000);
        tree().file("scanned/Media/song.mp3", 90'000);
        tree().file("scanned/Docs/letter.pdf", 40'000);
        tree().file("scanned/notes.txt", 2'000);
        window = std::make_unique<app::MainWindow>(app());
        window->resize(1280, 800);
        window->show();
        QApplication::setActiveWindow(window.get());
    }
    ~ShellFixture() {
        gate.open();
        window.reset();
    }

    app::AppModel& app() { return fixture.app(); }
    TempTree& tree() { return fixture.tree(); }
    std::string root() { return tree().path("scanned"); }

    // Scans the tree's "scanned" folder to the end.
    bool scanToEnd() {
        app().session().startScan(root());
        return waitUntil([this] { return !app().scanning() && app().session().scan(); });
    }

    // Every text a user sees now: labels, buttons, placeholders and line edits of visible widgets.
    QStringList visibleTexts() const {
        QStringList texts;
        for (QWidget* widget : window->findChildren<QWidget*>()) {
            if (!widget->isVisibleTo(window.get()))
                continue;
            if (auto* label = qobject_cast<QLabel*>(widget))
                texts << label->text();
            else if (auto* button = qobject_cast<QAbstractButton*>(widget))
                texts << button->text();
            else if (auto* edit = qobject_cast<QLineEdit*>(widget))
                texts << edit->placeholderText();
            else if (auto* list = qobject_cast<QTreeWidget*>(widget))
                for (int row = 0; row < list->topLevelItemCount(); ++row)
                    texts << list->topLevelItem(row)->text(0);
        }
        return texts;
    }

private:
    app::AppServices services() {
        app::AppServices services;
        services.scan = [this](const std::string& path, const CancellationFlag& flag,
                               ScanNavigation* navigation, const ScanProgressCallback& progress) {
            ++scansStarted;
            // The whole disk is never walked here: the request is recorded, held, and dropped.
            if (path == "/") {
                wholeDiskAsked = path;
                gate.hold();
                throw CancellationError();
            }
            ScanResult result = DiskScanner::scan(path, flag, navigation, progress);
            if (holdScans)
                gate.hold();
            return result;
        };
        return services;
    }
};

} // namespace tarnbridge::test
