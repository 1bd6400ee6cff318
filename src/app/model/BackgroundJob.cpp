#include "app/model/BackgroundJob.h"

namespace tarnbridge::app::BackgroundJob {

void post(QObject* receiver, std::function<void()> call)
{
    QMetaObject::invokeMethod(receiver, std::move(call), Qt::QueuedConnection);
}

} // namespace tarnbridge::app::BackgroundJob
