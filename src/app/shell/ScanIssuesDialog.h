#pragma once

#include <QDialog>

class QLabel;
class QTreeWidget;

namespace tarnbridge::app {

class AppModel;

// "Scan access details": the paths the scan could not read. Open while the model's showIssues
// holds; closing it clears that.
class ScanIssuesDialog : public QDialog {
    Q_OBJECT
public:
    explicit ScanIssuesDialog(AppModel& app, QWidget* parent = nullptr);

private:
    void showIssues();

    AppModel& app_;
    QTreeWidget* list_ = nullptr;
    QLabel* skipped_ = nullptr;
};

} // namespace tarnbridge::app
