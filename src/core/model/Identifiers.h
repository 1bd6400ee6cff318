#pragma once

#include <string>

namespace tarnbridge {

// The current time as seconds since the Unix epoch.
double now();

// A fresh UUID as uppercase text: the id of a receipt, a backup or a snapshot.
std::string newIdentifier();

} // namespace tarnbridge
