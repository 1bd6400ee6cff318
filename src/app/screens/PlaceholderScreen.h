#pragma once

#include <QLabel>

#include "app/model/AppTypes.h"

namespace tarnbridge::app {

// Stands for a section whose screen is not in the window yet: its name, nothing more.
class PlaceholderScreen : public QLabel {
    Q_OBJECT
public:
    explicit PlaceholderScreen(AppSection section, QWidget* parent = nullptr);
};

} // namespace tarnbridge::app
