#pragma once

#include "ToolScreens.h"

namespace tarnbridge::screens {

// Pictures of the age map, normal, filtered, empty and busy, over a tree of files of many ages
// made below `home`; ends with `root` scanned again and the view and filters as they were.
// Returns false with a message on stderr when a state could not be reached.
bool shootAgeMapScreens(app::AppModel& model, const QString& home, const QString& root, const QString& theme,
                        const Shoot& shoot);

} // namespace tarnbridge::screens
