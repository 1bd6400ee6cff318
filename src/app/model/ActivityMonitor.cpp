#include "app/model/ActivityMonitor.h"

#include "app/model/AppModel.h"

namespace tarnbridge::app {

ActivityMonitor::ActivityMonitor(AppModel& app) : QObject(&app), app_(app) {}

void ActivityMonitor::start() {}

void ActivityMonitor::stopWork() {}

} // namespace tarnbridge::app
