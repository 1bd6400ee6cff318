#pragma once

#include <QSettings>

#include <memory>

#include "app/model/AppModel.h"

namespace tarnbridge::app::AppStart {

// The user's settings (~/.config/Tarnbridge/Tarnbridge.conf, or below $XDG_CONFIG_HOME), with
// each of the six preferences that is absent copied from the former product's settings.
std::unique_ptr<QSettings> openSettings();

// The model over the state folder ($TARNBRIDGE_STATE_DIR when it is an absolute path, else
// the data folder's "Tarnbridge", or the former product's folder where only that exists) and
// its saved scans, with the monitor running.
std::unique_ptr<AppModel> makeModel(QSettings& settings, AppServices services = {});

} // namespace tarnbridge::app::AppStart
