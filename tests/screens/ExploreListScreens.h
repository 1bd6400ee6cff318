#pragma once

#include "ToolScreens.h"

namespace tarnbridge::screens {

// Pictures of the folder grid (normal, filtered to nothing, an empty folder) and of the quick-win
// candidates (with items, without), over a tree of their own made below `home`; ends with `root`
// scanned again and no filter or quick win active. Returns false with a message on stderr when a
// state could not be reached.
bool shootExploreListScreens(app::AppModel& model, const QString& home, const QString& root,
                             const QString& theme, const Shoot& shoot);

} // namespace tarnbridge::screens
