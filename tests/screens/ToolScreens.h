#pragma once

#include <QString>

#include <functional>

class QWidget;

namespace tarnbridge::app {
class AppModel;
class MainWindow;
} // namespace tarnbridge::app

namespace tarnbridge::screens {

// Takes one picture named `name` of `widget`, or of the window when it is null.
using Shoot = std::function<void(const QString& name, QWidget* widget)>;

// Pictures of the tool screens in their states, over a tree of their own below `home`; ends
// with `root` scanned again, as it began. Returns false with a message on stderr when a state
// could not be reached.
bool shootToolScreens(app::AppModel& model, app::MainWindow& window, const QString& home, const QString& root,
                      const QString& theme, const Shoot& shoot);

} // namespace tarnbridge::screens
