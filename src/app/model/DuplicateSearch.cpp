#include "app/model/DuplicateSearch.h"

#include "app/model/AppModel.h"

namespace tarnbridge::app {

DuplicateSearch::DuplicateSearch(AppModel& app) : QObject(&app), app_(app) {}

void DuplicateSearch::setAfterScan(bool on)
{
    afterScan_ = on;
    Q_EMIT changed();
}

void DuplicateSearch::resetForScan(bool thenFind) { setAfterScan(thenFind); }

void DuplicateSearch::findDuplicates(const std::optional<std::string>&) {}

void DuplicateSearch::clearReport() {}

void DuplicateSearch::stopWork() {}

} // namespace tarnbridge::app
