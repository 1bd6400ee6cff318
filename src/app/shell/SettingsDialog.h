#pragma once

#include <QDialog>

class QCheckBox;
class QComboBox;

namespace tarnbridge::app {

class AppModel;

// The settings form: each control shows one model value and sets it as it changes.
class SettingsDialog : public QDialog {
    Q_OBJECT
public:
    explicit SettingsDialog(AppModel& app, QWidget* parent = nullptr);

    QCheckBox* dark = nullptr;
    QComboBox* theme = nullptr;
    QCheckBox* showHidden = nullptr;
    QCheckBox* allocated = nullptr;
    QCheckBox* labels = nullptr;
    QCheckBox* backup = nullptr;
    QCheckBox* snapshots = nullptr;

private:
    void showValues();

    AppModel& app_;
};

} // namespace tarnbridge::app
