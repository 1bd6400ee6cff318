#include "app/shell/ScanIssuesDialog.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/shell/ShellTexts.h"

namespace tarnbridge::app {

ScanIssuesDialog::ScanIssuesDialog(AppModel& app, QWidget* parent)
    : QDialog(parent)
    , app_(app) {
    setObjectName(QStringLiteral("scanIssues"));
    setWindowTitle(QStringLiteral("Scan access details"));
    resize(640, 420);
    auto* layout = new QVBoxLayout(this);
    auto* title = new QLabel(QStringLiteral("Scan access details"));
    QFont bold = title->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.2);
    title->setFont(bold);
    layout->addWidget(title);
    auto* about = new QLabel(QStringLiteral("Unreadable paths and nested volumes are excluded from "
                                            "totals. Folders your account cannot read stay unread; "
                                            "mounted volumes can be scanned separately."));
    about->setWordWrap(true);
    layout->addWidget(about);
    list_ = new QTreeWidget;
    list_->setRootIsDecorated(false);
    list_->setHeaderLabels({QStringLiteral("Path"), QStringLiteral("Message")});
    list_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    layout->addWidget(list_, 1);
    skipped_ = new QLabel;
    skipped_->setObjectName(QStringLiteral("skippedCount"));
    layout->addWidget(skipped_);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);

    connect(this, &QDialog::finished, this, [this] { app_.explore().setShowIssues(false); });
    connect(&app_.session(), &ScanSession::scanChanged, this, &ScanIssuesDialog::showIssues);
    showIssues();
}

void ScanIssuesDialog::showIssues() {
    list_->clear();
    const auto& scan = app_.session().scan();
    if (!scan) {
        skipped_->clear();
        return;
    }
    for (const ScanIssue& issue : scan->issues())
        list_->addTopLevelItem(
            new QTreeWidgetItem({displayText(issue.path), displayText(issue.message)}));
    skipped_->setText(ShellTexts::number(scan->skippedCount()) +
                      (scan->skippedCount() == 1 ? QStringLiteral(" entry skipped")
                                                 : QStringLiteral(" entries skipped")));
}

} // namespace tarnbridge::app
