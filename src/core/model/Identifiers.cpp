#include "model/Identifiers.h"

#include <QUuid>

#include <chrono>

namespace tarnbridge {

double now()
{
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

std::string newIdentifier()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().toStdString();
}

} // namespace tarnbridge
