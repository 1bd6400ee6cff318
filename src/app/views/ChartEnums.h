#pragma once

#include <QString>

#include "app/model/AppTypes.h"
#include "visual/Paper.h"

namespace tarnbridge::app {

// The model's enumerations and the chart layer's share their order; the casts rely on it.
static_assert(int(StorageView::table) == int(tarnbridge::StorageView::table));
static_assert(int(StorageView::mindMap) == int(tarnbridge::StorageView::mindMap));
static_assert(int(ColorMode::age) == int(tarnbridge::ColorMode::age));

inline tarnbridge::StorageView chartView(StorageView view) {
    return tarnbridge::StorageView(int(view));
}

inline tarnbridge::ColorMode chartColorMode(ColorMode mode) {
    return tarnbridge::ColorMode(int(mode));
}

inline bool isChart(StorageView view) {
    return tarnbridge::isGraph(chartView(view));
}

// "Treemap", "Mind Map", …
inline QString viewTitle(StorageView view) {
    const auto raw = rawValue(chartView(view));
    return QString::fromUtf8(raw.data(), qsizetype(raw.size()));
}

// "By folder", "By type", "By age".
inline QString colorModeTitle(ColorMode mode) {
    const auto raw = rawValue(chartColorMode(mode));
    return QString::fromUtf8(raw.data(), qsizetype(raw.size()));
}

} // namespace tarnbridge::app
