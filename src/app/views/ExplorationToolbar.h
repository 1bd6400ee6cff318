#pragma once

#include <QWidget>

class QComboBox;
class QLabel;
class QSlider;
class QToolButton;

namespace tarnbridge::app {

class AppModel;

// The explore section's display controls: the view, the colours, the depth of the charts and
// their labels. It shows the model's values and sets them; it keeps none of its own.
class ExplorationToolbar : public QWidget {
    Q_OBJECT
public:
    explicit ExplorationToolbar(AppModel& app, QWidget* parent = nullptr);

    QComboBox* viewSelector() const { return view_; }
    QComboBox* colorPicker() const { return color_; }
    QSlider* depthSlider() const { return depth_; }
    QToolButton* labelsToggle() const { return labels_; }

private:
    void refresh();

    AppModel& app_;
    QComboBox* view_;
    QComboBox* color_;
    QLabel* depthLabel_;
    QSlider* depth_;
    QToolButton* labels_;
};

} // namespace tarnbridge::app
