#include "app/model/CleanupFlow.h"

#include "app/model/AppModel.h"

namespace tarnbridge::app {

CleanupFlow::CleanupFlow(AppModel& app) : QObject(&app), app_(app) {}

void CleanupFlow::cancelStaging() {}

std::vector<std::string> CleanupFlow::loadState() { return {}; }

void CleanupFlow::stopWork() {}

} // namespace tarnbridge::app
