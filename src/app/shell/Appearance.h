#pragma once

class QApplication;

namespace tarnbridge::app::Appearance {

// Fusion with the standard light palette, or a dark one, for the whole application: the
// design's `dark` switches every widget, not only the charts.
void apply(bool dark);

} // namespace tarnbridge::app::Appearance
