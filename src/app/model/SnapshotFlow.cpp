#include "app/model/SnapshotFlow.h"

#include "app/model/AppModel.h"

namespace tarnbridge::app {

SnapshotFlow::SnapshotFlow(AppModel& app) : QObject(&app), app_(app) {}

void SnapshotFlow::supersede() {}

void SnapshotFlow::clearComparison() {}

void SnapshotFlow::readSnapshotCatalog() {}

void SnapshotFlow::refreshSnapshots() {}

void SnapshotFlow::stopWork() {}

} // namespace tarnbridge::app
