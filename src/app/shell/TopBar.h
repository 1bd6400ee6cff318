#pragma once

#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QToolButton;

namespace tarnbridge::app {

class AppModel;

// The section's name, the chart's toolbar in explore, the filter field and the display switches.
class TopBar : public QWidget {
    Q_OBJECT
public:
    explicit TopBar(AppModel& app, QWidget* parent = nullptr);
    QLineEdit* filterField() const { return filter_; }

private:
    QToolButton* toggle(const QString& name, const char* icon);
    void showSection();
    void showDisplay();
    void showPreferences();

    AppModel& app_;
    QLabel* title_ = nullptr;
    QWidget* toolbar_ = nullptr;
    QLineEdit* filter_ = nullptr;
    QToolButton* sizeSwitch_ = nullptr;
    QToolButton* inspector_ = nullptr;
    QComboBox* theme_ = nullptr;
    QToolButton* dark_ = nullptr;
};

} // namespace tarnbridge::app
