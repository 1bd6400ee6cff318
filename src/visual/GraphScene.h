#pragma once

#include <QColor>
#include <QPainterPath>
#include <QRectF>
#include <QString>
#include <QUuid>

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/CancellationFlag.h"
#include "model/ScanResult.h"
#include "query/FileCategory.h"
#include "visual/Paper.h"
#include "visual/RectSpatialIndex.h"

class QPainter;

namespace tarnbridge {

// One drawn shape and the record a click on it means.
struct GraphMark {
    NodeId id = kNoNode;
    DiskNode node; // without its children's paths
    QPainterPath path;
    QRectF label; // room for the label; a null rectangle means none
    QColor color;
    bool shortLabel = false;
    std::optional<QColor> textColor;
    double rotation = 0; // radians, about the centre of `label`
    bool labelToRight = false; // the text ends at the right edge of `label` (a label left of its mark)
};

struct GraphLabel {
    QString title;
    QRectF titleRect;
    std::optional<QString> bytes;
    QRectF bytesRect;
    double fontSize = 11;
    QColor color;
    double rotation = 0;
    QPointF anchor;
    Qt::Alignment align = Qt::AlignLeft;
};

struct GraphScene {
    QUuid id = QUuid::createUuid();
    std::vector<GraphMark> marks; // painting order: later ones lie on top
    std::vector<GraphLabel> labels;
    RectSpatialIndex hitIndex{64};
    std::unordered_map<std::string, std::vector<int>> pathsByNode;
    std::vector<DiskNode> items; // the root's filtered children, for lists and the keyboard
    QColor border = Qt::transparent;
    QColor ink = Qt::black;
    std::optional<QRectF> center; // the sunburst's centre disc
    // Set when no two marks overlap (sunburst, flame) and the chart is drawn over this colour:
    // a translucent fill then looks exactly like the opaque blend, which paints several times
    // faster.
    std::optional<QColor> flatBackground;

    // The topmost mark whose true shape holds the point, or -1.
    int markAt(const QPointF& point) const;
};

// Everything one chart depends on, copied so a build can run on any thread.
struct GraphLayoutInput {
    ScanResult scan;
    std::string root; // the folder at the centre
    StorageView storageView = StorageView::treemap;
    int depth = 7;
    bool logical = false;
    ColorMode colorMode = ColorMode::folder;
    std::string filter;
    bool showHidden = true;
    std::int64_t minimumBytes = 0;
    std::optional<FileCategory> categoryFilter;
    std::int64_t modifiedBeforeDays = 0;
    bool dark = false; // which value of each palette colour
    QColor ink;
    QColor surface;
    QColor background;
    QColor border;
    std::vector<QColor> palette; // at least 8 entries
    double now = 0;              // Unix seconds; ages are measured against it

    // Input with the product's colours for the appearance.
    static GraphLayoutInput withPaperColors(ScanResult scan, std::string root, StorageView view, bool dark);

    // The scene for `rect`. Never fails: a rectangle under 32 points, no root, a view without
    // marks or a cancelled build give an empty scene.
    GraphScene build(const QRectF& rect, const CancellationFlag* cancellation = nullptr) const;
};

// Paints marks (fill, then a 0.7 outline) and, if asked, the labels, into any painter.
void paintScene(QPainter& painter, const GraphScene& scene, bool showLabels);

} // namespace tarnbridge
