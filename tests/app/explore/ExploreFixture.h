#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>

#include <string>

#include "app/model/AppFixture.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "query/ScanPresentation.h"

namespace tarnbridge::test {

// A model over a private home; the views under test are made by each test, shown on their own.
struct ExploreFixture {
    AppFixture fixture;

    app::AppModel& app() { return fixture.app(); }
    TempTree& tree() { return fixture.tree(); }

    bool scanToEnd(const std::string& path) {
        app().session().startScan(path);
        return waitUntil([this] { return !app().scanning() && app().session().scan(); });
    }
    // Installs a made-up scan, opened at `focus`.
    void install(const ScanResult& scan, const std::string& focus) {
        app().session().installScan(scan, ScanPresentation::make(scan), focus, false);
    }
};

// The texts of the visible labels and buttons below `root`.
inline QStringList shownTexts(const QWidget& root) {
    QStringList texts;
    for (QWidget* widget : root.findChildren<QWidget*>()) {
        if (!widget->isVisibleTo(&root))
            continue;
        if (auto* label = qobject_cast<QLabel*>(widget))
            texts << label->text();
        else if (auto* button = qobject_cast<QAbstractButton*>(widget))
            texts << button->text();
    }
    return texts;
}

} // namespace tarnbridge::test
