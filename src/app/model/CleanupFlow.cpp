#include "app/model/CleanupFlow.h"

#include "app/model/AppModel.h"

namespace tarnbridge::app {

// Placeholders until the flow is written; each operation does nothing yet.
CleanupFlow::CleanupFlow(AppModel& app) : QObject(&app), app_(app) {}
CleanupFlow::~CleanupFlow() = default;
std::int64_t CleanupFlow::queueBytes() const { return 0; }
void CleanupFlow::stage(const std::vector<DiskNode>&, const std::optional<ScanResult>&, const std::string&) {}
void CleanupFlow::stagePaths(const std::vector<std::string>&, const std::string&) {}
void CleanupFlow::cancelStaging() {}
void CleanupFlow::removeFromQueue(const std::string&) {}
void CleanupFlow::removeAll() {}
void CleanupFlow::restore(const TrashReceipt&) {}
void CleanupFlow::requestCleanup() {}
void CleanupFlow::requestTrash(const DiskNode&) {}
void CleanupFlow::prepareCleanupReview(std::vector<CleanupEntry>, std::optional<QString>) {}
void CleanupFlow::dismissReview() {}
void CleanupFlow::confirmTrash(const CleanupRequest&) {}
void CleanupFlow::executeCleanup(const CleanupRequest&, const std::optional<std::string>&) {}
void CleanupFlow::cancelCleanup() {}
std::vector<std::string> CleanupFlow::loadState() { return {}; }
void CleanupFlow::persistState(const std::optional<std::string>&) {}
void CleanupFlow::stopWork() {}

} // namespace tarnbridge::app
