#include "app/model/ApplicationsFlow.h"

#include "app/model/AppModel.h"

namespace tarnbridge::app {

ApplicationsFlow::ApplicationsFlow(AppModel& app) : QObject(&app), app_(app) {}

void ApplicationsFlow::afterUninstall() {}

void ApplicationsFlow::stopWork() {}

} // namespace tarnbridge::app
