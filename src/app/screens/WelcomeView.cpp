#include "app/screens/WelcomeView.h"

#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

#include "app/model/AppModel.h"
#include "app/model/ScanSession.h"
#include "app/model/SnapshotFlow.h"
#include "app/shell/ShellTexts.h"

namespace tarnbridge::app {

WelcomeView::WelcomeView(AppModel& app, QWidget* parent)
    : EmptyState(ShellTexts::icon("drive-harddisk"), QStringLiteral("Explore your storage"),
                 QStringLiteral("Scan a folder to see what’s taking up space."), parent)
    , app_(app) {
    setObjectName(QStringLiteral("welcome"));
    auto* whole = new QPushButton(ShellTexts::icon("drive-harddisk-system"),
                                  QStringLiteral("Scan Whole Disk"));
    whole->setObjectName(QStringLiteral("scanWholeDisk"));
    whole->setDefault(true);
    connect(whole, &QPushButton::clicked, this, [this] { app_.session().startScan("/"); });
    auto* folder =
        new QPushButton(ShellTexts::icon("folder-open"), QStringLiteral("Scan a folder"));
    folder->setObjectName(QStringLiteral("scanAFolder"));
    connect(folder, &QPushButton::clicked, this,
            [this] { app_.session().chooseFolder(false, true); });
    lastScan_ =
        new QPushButton(ShellTexts::icon("document-open-recent"), QStringLiteral("Open last scan"));
    lastScan_->setObjectName(QStringLiteral("openLastScan"));
    connect(lastScan_, &QPushButton::clicked, this, [this] {
        const auto& records = app_.snapshots().snapshots();
        const auto newest =
            std::max_element(records.begin(), records.end(), [](const auto& a, const auto& b) {
                return a.createdAt < b.createdAt;
            });
        if (newest != records.end())
            app_.snapshots().openSnapshot(*newest);
    });
    for (QPushButton* button : {whole, folder, lastScan_}) {
        button->setMinimumWidth(200);
        buttons()->addWidget(button);
    }
    connect(&app_.snapshots(), &SnapshotFlow::changed, this, &WelcomeView::showLastScan);
    showLastScan();
}

void WelcomeView::showLastScan() {
    lastScan_->setVisible(!app_.snapshots().snapshots().empty());
    lastScan_->setEnabled(!app_.snapshots().busy());
}

} // namespace tarnbridge::app
