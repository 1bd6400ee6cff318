#include "visual/GraphScene.h"

#include <QPainter>
#include <QPainterPathStroker>
#include <QTransform>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <variant>

#include "model/Formatting.h"
#include "model/PathText.h"
#include "model/TextEncoding.h"
#include "layout/StorageLayouts.h"
#include "query/ScanQuery.h"
#include "visual/ChartText.h"

namespace tarnbridge {

namespace {

constexpr double kPi = std::numbers::pi;

QColor withOpacity(QColor color, double opacity)
{
    color.setAlphaF(float(std::clamp(opacity, 0.0, 1.0) * color.alphaF()));
    return color;
}

QPainterPath ellipse(const QRectF& rect)
{
    QPainterPath path;
    path.addEllipse(rect);
    return path;
}

QPainterPath roundedRect(const QRectF& rect, double radius)
{
    QPainterPath path;
    path.addRoundedRect(rect, radius, radius);
    return path;
}

class Builder {
public:
    Builder(const GraphLayoutInput& in, NodeId root, const CancellationFlag* cancellation)
        : in_(in), d_(in.scan.data()), cancellation_(cancellation), rootId_(root)
    {
        query_.text = in.filter;
        query_.showHidden = in.showHidden;
        query_.minimumBytes = in.minimumBytes;
        query_.category = in.categoryFilter;
        query_.modifiedBeforeDays = in.modifiedBeforeDays;
        query_.measure = in.logical ? SizeMeasure::logical : SizeMeasure::allocated;
        now_ = std::int64_t(in.now);
    }

    bool cancelled() const { return cancellation_ && cancellation_->isCancelled(); }
    std::vector<GraphMark>& marks() { return marks_; }

    std::int64_t size(NodeId id) const { return in_.logical ? d_[id].logicalSize : d_[id].allocatedSize; }

    std::vector<NodeId> filteredChildren(NodeId folder, bool needSize) const
    {
        std::vector<NodeId> out;
        for (NodeId child : in_.scan.sortedChildren(folder, query_.measure))
            if (query_.matches(d_, child, now_) && (!needSize || size(child) >= 1))
                out.push_back(child);
        return out;
    }

    // The visible children of a folder, filtered once per build.
    const std::vector<NodeId>& childNodes(NodeId id)
    {
        static const std::vector<NodeId> none;
        if (!d_[id].isDirectory() || cancelled())
            return none;
        if (const auto hit = memo_.find(id); hit != memo_.end())
            return hit->second;
        return memo_.emplace(id, filteredChildren(id, true)).first->second;
    }

    // A mark's fill: a fixed colour, or the record's Paper colour at an opacity.
    struct PaperFill {
        double opacity = 1;
    };
    using Fill = std::variant<QColor, PaperFill>;

    void add(NodeId id, QPainterPath path, QRectF label, Fill fill, bool shortLabel = false,
             std::optional<QColor> textColor = std::nullopt, double rotation = 0)
    {
        GraphMark mark;
        mark.id = id;
        mark.node = d_.nodeWithoutChildren(id);
        mark.path = std::move(path);
        mark.path.setFillRule(Qt::WindingFill); // hit tests and fills use the non-zero rule
        mark.label = label;
        if (const auto* paper = std::get_if<PaperFill>(&fill)) {
            // The node already holds the path the colour depends on.
            const Paper::Adaptive color = Paper::color(mark.node, in_.colorMode, in_.root, in_.now);
            mark.color = withOpacity(color.resolved(in_.dark), paper->opacity);
        } else {
            mark.color = std::get<QColor>(fill);
        }
        mark.shortLabel = shortLabel;
        mark.textColor = textColor;
        mark.rotation = rotation;
        marks_.push_back(std::move(mark));
    }

    void makeMarks(const QRectF& rect)
    {
        rootChildren_ = filteredChildren(rootId_, true);
        memo_.emplace(rootId_, rootChildren_);
        if (rootChildren_.empty())
            return;
        const QRectF area = rect.adjusted(5, 8, -5, -8);
        switch (in_.storageView) {
        case StorageView::treemap: treemap(rootChildren_, 1, area); break;
        case StorageView::sunburst: sunburst(area); break;
        case StorageView::flame: flame(area); break;
        case StorageView::bubbles: {
            const double radius = std::max(std::min(area.width(), area.height()) * 0.5 - 4, 1.0);
            bubbles(rootId_, 0, area.center(), radius);
            break;
        }
        case StorageView::mindMap: mindMap(area); break;
        default: break;
        }
    }


private:
    // Treemap: nested rectangles, each opened folder keeping an 18-point title strip.
    void treemap(const std::vector<NodeId>& children, int level, const QRectF& rect)
    {
        if (in_.depth < level || rect.width() <= 5 || rect.height() <= 5 || cancelled() || marks_.size() >= 6000)
            return;
        std::vector<WeightedItem> items;
        items.reserve(children.size());
        for (NodeId child : children)
            items.push_back({child, double(size(child))});
        const auto tiles = StorageLayouts::treemap(items, {rect.x(), rect.y(), rect.width(), rect.height()});
        for (const WeightedRect& tile : tiles) {
            if (tile.rect.width <= 3 || tile.rect.height <= 3)
                continue;
            if (cancelled() || marks_.size() >= 6000)
                return;
            const NodeId child = NodeId(tile.id);
            const QRectF inner =
                QRectF(tile.rect.x, tile.rect.y, tile.rect.width, tile.rect.height).adjusted(0.8, 0.8, -0.8, -0.8);
            const std::vector<NodeId>& kids = childNodes(child);
            const bool opened = level < in_.depth && !kids.empty() && inner.width() > 28 && inner.height() > 28;
            const QRectF label = opened ? QRectF(inner.x(), inner.y() + 1, inner.width(), 18) : inner;
            add(child, roundedRect(inner, 2), label, PaperFill{});
            if (opened)
                treemap(kids, level + 1,
                        QRectF(inner.x() + 1, inner.y() + 17, inner.width() - 2, inner.height() - 18));
        }
    }

    int visibleLevels(const std::vector<NodeId>& children, int level, int& counter)
    {
        if (level >= in_.depth)
            return in_.depth;
        int result = level;
        for (NodeId child : children) {
            if (!d_[child].isDirectory())
                continue;
            if (++counter > 5999)
                return in_.depth;
            const auto& kids = childNodes(child);
            if (!kids.empty())
                result = std::max(result, visibleLevels(kids, level + 1, counter));
            if (result == in_.depth)
                return result;
        }
        return result;
    }

    // A point at `radius` and `angle` (radians, growing clockwise on screen from the x axis).
    QPointF polar(double radius, double angle) const
    {
        return {cx_ + radius * std::cos(angle), cy_ + radius * std::sin(angle)};
    }

    // Qt's arcs measure degrees counter-clockwise on screen: the sign flips.
    void arc(QPainterPath& path, double radius, double from, double to) const
    {
        const QRectF box(cx_ - radius, cy_ - radius, 2 * radius, 2 * radius);
        path.arcTo(box, -from * 180 / kPi, -(to - from) * 180 / kPi);
    }

    void sunburst(const QRectF& area)
    {
        int counter = 0;
        const int levels = std::max(visibleLevels(rootChildren_, 1, counter), 1);
        outerRadius_ = std::min(area.width(), area.height()) * 0.5 - 8;
        hole_ = std::min(outerRadius_ * 0.3, 80.0);
        ringWidth_ = (outerRadius_ - hole_) / levels;
        cx_ = area.center().x();
        cy_ = area.center().y();
        add(rootId_, ellipse(QRectF(cx_ - hole_ + 3, cy_ - hole_ + 3, 2 * (hole_ - 3), 2 * (hole_ - 3))), QRectF(),
            in_.surface);
        sunburstLevel(rootChildren_, 1, -kPi / 2, 2 * kPi);
    }

    void sunburstLevel(const std::vector<NodeId>& children, int level, double start, double sweep)
    {
        if (in_.depth < level || cancelled() || marks_.size() >= 6000)
            return;
        double total = 0;
        for (NodeId child : children)
            total += double(size(child));
        total = std::max(total, 1.0);
        const double inner = hole_ + ringWidth_ * (level - 1);
        const double outer = inner + ringWidth_ - 2;
        const double middle = (inner + outer) * 0.5;
        const double chord = 1.6 * std::sqrt(std::max((outer - 4) * (outer - 4) - middle * middle, 0.0));
        const double opacity = std::max(1 - 0.1 * (level - 1), 0.45);
        double angle = start;
        for (NodeId child : children) {
            const std::int64_t bytes = size(child);
            if (bytes < 1)
                continue;
            const double wedge = sweep * double(bytes) / total;
            if (wedge <= 0.004) {
                angle += wedge;
                continue;
            }
            const double gap = std::min(wedge * 0.15, 0.003);
            QPainterPath path;
            path.moveTo(polar(outer, angle + gap));
            arc(path, outer, angle + gap, angle + wedge - gap);
            path.lineTo(polar(inner + 1, angle + wedge - gap));
            arc(path, inner + 1, angle + wedge - gap, angle + gap);
            path.closeSubpath();
            const double mid = angle + wedge * 0.5;
            const double width = std::min({middle * wedge * 0.7, chord, 150.0});
            QRectF label;
            if (ringWidth_ > 18) {
                const QPointF at = polar(middle, mid);
                label = QRectF(at.x() - width / 2, at.y() - 10, width, 20);
            }
            double rotation = mid + kPi / 2;
            if (std::cos(rotation) < 0)
                rotation += kPi;
            add(child, std::move(path), label, PaperFill{opacity}, false, std::nullopt, rotation);
            if (d_[child].isDirectory())
                sunburstLevel(childNodes(child), level + 1, angle, wedge);
            angle += wedge;
        }
    }

    void flame(const QRectF& area)
    {
        rowHeight_ = std::min(area.height() / (in_.depth + 1), 76.0);
        const QRectF bar(area.x(), area.y(), area.width(), rowHeight_ - 5);
        add(rootId_, roundedRect(bar, 6), bar, in_.palette.size() > 7 ? in_.palette[7] : in_.surface);
        flameLevel(rootChildren_, 1, area.x(), area.width(), area.y() + rowHeight_);
    }

    void flameLevel(const std::vector<NodeId>& children, int level, double x, double width, double y)
    {
        if (in_.depth < level || cancelled() || marks_.size() >= 6000 || children.empty())
            return;
        double total = 0;
        for (NodeId child : children)
            total += double(size(child));
        total = std::max(total, 1.0);
        const double opacity = 1 - 0.12 * (level - 1);
        for (NodeId child : children) {
            const double w = width * double(size(child)) / total;
            if (w > 3) {
                const QRectF bar(x + 1, y, std::max(w - 2, 1.0), rowHeight_ - 5);
                add(child, roundedRect(bar, 5), bar, PaperFill{opacity});
                if (d_[child].isDirectory())
                    flameLevel(childNodes(child), level + 1, x, w, y + rowHeight_);
            }
            x += w;
        }
    }

    void bubbles(NodeId node, int level, QPointF centre, double radius)
    {
        if (cancelled() || marks_.size() > 2999 || radius <= 2)
            return;
        static const std::vector<NodeId> none;
        const std::vector<NodeId>& kids = level < in_.depth ? childNodes(node) : none;
        const bool nested = radius > 15 && !kids.empty();
        const QRectF circle(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius);
        QRectF label;
        if (nested) {
            const double t = std::min(radius * 0.18, 10.0);
            const double width = std::max(2 * std::sqrt(2 * radius * t - t * t) - 6, 0.0);
            label = QRectF(centre.x() - width / 2, circle.top() + t - 3, width, 20);
        } else {
            const double inset = radius * 0.15;
            label = circle.adjusted(inset, inset, -inset, -inset);
        }
        add(node, ellipse(circle), label, level == 0 ? Fill(in_.surface) : Fill(PaperFill{0.82}), radius < 70);
        if (!nested)
            return;
        const double inset = radius > 45 ? 15 : 4;
        std::vector<WeightedItem> items;
        items.reserve(kids.size());
        for (NodeId kid : kids)
            items.push_back({kid, double(size(kid))});
        const auto packed = StorageLayouts::circles(items, {centre.x(), centre.y() + inset * 0.5}, radius - inset,
                                                    cancellation_);
        for (const auto& bubble : packed)
            bubbles(NodeId(bubble.id), level + 1, {bubble.center.x, bubble.center.y}, bubble.radius);
    }

    std::vector<NodeId> mindChildren(NodeId node, int level)
    {
        const std::vector<NodeId>& all = level == 0 ? rootChildren_ : childNodes(node);
        std::vector<NodeId> out;
        const std::size_t limit = level == 0 ? 16 : 10;
        for (NodeId child : all) {
            if (out.size() == limit)
                break;
            if (size(child) > 0)
                out.push_back(child);
        }
        return out;
    }

    int visibleDepth(NodeId node, int level)
    {
        const int limit = std::min(in_.depth, 5);
        if (level >= limit)
            return level;
        const std::vector<NodeId>& all = childNodes(node);
        const std::size_t count = std::min<std::size_t>(all.size(), level == 0 ? 16 : 10);
        int deepest = level;
        for (std::size_t i = 0; i < count; ++i)
            deepest = std::max(deepest, visibleDepth(all[i], level + 1));
        return deepest;
    }

    void mindMap(const QRectF& area)
    {
        area_ = area;
        levels_ = std::max(visibleDepth(rootId_, 0), 1);
        cx_ = area.center().x();
        cy_ = area.center().y();
        mindRadius_ = std::max(std::min(area.width(), area.height()) * 0.5 - 32, 1.0);
        mindLevel(rootId_, 0, {cx_, cy_}, -kPi / 2, 2 * kPi);
        const QRectF centre(cx_ - 32, cy_ - 32, 64, 64);
        add(rootId_, ellipse(centre), centre, in_.ink, true, in_.background);
    }

    void mindLevel(NodeId node, int level, QPointF parent, double start, double sweep)
    {
        if (level >= levels_ || cancelled() || marks_.size() >= 1600)
            return;
        const std::vector<NodeId> children = mindChildren(node, level);
        if (children.empty())
            return;
        double total = 0;
        for (NodeId child : children)
            total += std::sqrt(std::max(double(size(child)), 1.0));
        const double rootBytes = std::max(double(size(rootId_)), 1.0);
        const double maxDot = std::min(mindRadius_ / levels_ * 0.27, 23.0);
        double angle = start;
        for (NodeId child : children) {
            const double bytes = double(size(child));
            const double wedge = sweep * std::sqrt(std::max(bytes, 1.0)) / total;
            const double mid = angle + wedge * 0.5;
            const double outward = mindRadius_ / levels_;
            const QPointF at(cx_ + outward * (level + 1) * std::cos(mid), cy_ + outward * (level + 1) * std::sin(mid));
            const QPointF control(cx_ + outward * level * std::cos(mid), cy_ + outward * level * std::sin(mid));

            QPainterPath curve;
            curve.moveTo(parent);
            curve.quadTo(control, at);
            QPainterPathStroker stroker;
            stroker.setWidth(std::max(bytes * 3 / rootBytes, 0.7));
            stroker.setCapStyle(Qt::RoundCap);
            stroker.setJoinStyle(Qt::MiterJoin);
            stroker.setMiterLimit(10);
            add(child, stroker.createStroke(curve), QRectF(), PaperFill{});
            const QColor color = marks_.back().color; // the dot takes the connector's colour

            const double dot = std::min(std::max(24 * std::pow(bytes / rootBytes, 0.28), 3.0), maxDot);
            const double labelWidth = std::min(std::max(area_.width() * 0.18, 70.0), 146.0);
            QRectF label;
            if (level <= 1 && dot > 7) {
                double x = std::cos(mid) >= 0 ? at.x() + dot + 4 : at.x() - dot - labelWidth - 4;
                x = std::clamp(x, area_.left(), std::max(area_.left(), area_.right() - labelWidth));
                const double y = std::clamp(at.y() - 20, area_.top(), std::max(area_.top(), area_.bottom() - 40));
                label = QRectF(x, y, labelWidth, 40);
            }
            add(child, ellipse(QRectF(at.x() - dot, at.y() - dot, 2 * dot, 2 * dot)), label, color, true);
            // A label on the left of its dot ends next to it.
            marks_.back().labelToRight = !label.isNull() && std::cos(mid) < 0;
            mindLevel(child, level + 1, at, angle, wedge);
            angle += wedge;
        }
    }

    const GraphLayoutInput& in_;
    const ScanData& d_;
    const CancellationFlag* cancellation_;
    NodeId rootId_;
    ScanQuery query_;
    std::int64_t now_ = 0;
    std::vector<NodeId> rootChildren_;
    std::unordered_map<NodeId, std::vector<NodeId>> memo_;
    std::vector<GraphMark> marks_;
    double cx_ = 0, cy_ = 0;
    double outerRadius_ = 0, hole_ = 0, ringWidth_ = 0, rowHeight_ = 0, mindRadius_ = 0;
    int levels_ = 1;
    QRectF area_;
};

QString nameText(std::string_view path)
{
    return displayText(PathText::name(path));
}

// Biggest items first get the room; a label that would overlap one already placed, or leave
// the scene, is dropped. Returns false when cancelled.
bool placeLabels(GraphScene& scene, const QRectF& rect, bool logical, const CancellationFlag* cancellation)
{
    std::vector<const GraphMark*> order;
    order.reserve(scene.marks.size());
    for (const GraphMark& mark : scene.marks)
        order.push_back(&mark);
    std::stable_sort(order.begin(), order.end(), [logical](const GraphMark* a, const GraphMark* b) {
        return a->node.bytes(logical ? SizeMeasure::logical : SizeMeasure::allocated) >
               b->node.bytes(logical ? SizeMeasure::logical : SizeMeasure::allocated);
    });
    RectSpatialIndex occupied(64);
    for (const GraphMark* mark : order) {
        if (cancellation && cancellation->isCancelled())
            return false;
        const QRectF area = mark->label;
        if (area.width() <= 38 || area.height() <= 17)
            continue;
        const double fontSize = area.width() < 80 ? 9 : 11;
        const QString title = ChartText::fit(nameText(mark->node.path), area.width() - 10, fontSize);
        const double titleWidth = std::min(double(title.size()) * fontSize * 0.57, area.width() - 10);
        const bool twoLines = area.height() > 38;
        const double offset = twoLines ? 17 : 7;
        const double boxWidth = twoLines ? std::max(titleWidth, 46.0) : titleWidth;
        const double boxHeight = twoLines ? 31 : 14;
        const double boxLeft = mark->labelToRight ? area.right() - 5 - boxWidth : area.left() + 5;
        const QRectF box(boxLeft, area.center().y() - offset, boxWidth, boxHeight);
        QTransform turn;
        turn.translate(area.center().x(), area.center().y());
        turn.rotateRadians(mark->rotation);
        turn.translate(-area.center().x(), -area.center().y());
        const QRectF taken = turn.mapRect(box).adjusted(-2, -2, 2, 2);
        if (!rect.contains(taken) || occupied.intersects(taken))
            continue;
        occupied.insert(taken);
        GraphLabel label;
        label.title = title;
        label.titleRect = QRectF(area.left() + 5, box.top(), area.width() - 10, 16);
        if (twoLines) {
            const std::string bytes =
                formattedBytes(mark->node.bytes(logical ? SizeMeasure::logical : SizeMeasure::allocated));
            label.bytes = QString::fromStdString(bytes);
        }
        label.bytesRect = QRectF(area.left() + 5, area.center().y() + 3, area.width() - 10, 14);
        label.fontSize = fontSize;
        label.color = mark->textColor.value_or(scene.ink);
        label.rotation = mark->rotation;
        label.anchor = area.center();
        label.align = mark->labelToRight ? Qt::AlignRight : Qt::AlignLeft;
        scene.labels.push_back(std::move(label));
    }
    return true;
}

} // namespace

int GraphScene::markAt(const QPointF& point) const
{
    for (int candidate : hitIndex.candidates(point))
        if (marks[std::size_t(candidate)].path.contains(point))
            return candidate;
    return -1;
}

GraphLayoutInput GraphLayoutInput::withPaperColors(ScanResult scan, std::string root, StorageView view, bool dark)
{
    GraphLayoutInput in;
    in.scan = std::move(scan);
    in.root = std::move(root);
    in.storageView = view;
    in.dark = dark;
    const Paper::Theme theme = Paper::theme(dark);
    in.ink = theme.ink;
    in.surface = theme.surface;
    in.background = theme.background;
    in.border = theme.border;
    for (const auto& color : Paper::colors())
        in.palette.push_back(color.resolved(dark));
    in.now = double(currentTime());
    return in;
}

GraphScene GraphLayoutInput::build(const QRectF& rect, const CancellationFlag* cancellation) const
{
    const auto empty = [] {
        GraphScene scene;
        scene.ink = QColor(Qt::black);
        return scene;
    };
    if (!std::isfinite(rect.width()) || !std::isfinite(rect.height()) || rect.width() < 32 || rect.height() < 32 ||
        (cancellation && cancellation->isCancelled()) || scan.isEmpty())
        return empty();
    const NodeId rootId = scan.find(root);
    if (rootId == kNoNode)
        return empty();

    // The views that are no chart get no marks, only the items below.
    Builder builder(*this, rootId, cancellation);
    if (isGraph(storageView))
        builder.makeMarks(rect);

    GraphScene scene;
    scene.marks = std::move(builder.marks());
    scene.border = border;
    scene.ink = ink;
    for (NodeId child : builder.filteredChildren(rootId, false))
        scene.items.push_back(scan->nodeWithoutChildren(child));
    if (storageView == StorageView::sunburst && !scene.marks.empty())
        scene.center = scene.marks.front().path.boundingRect();
    if (storageView == StorageView::sunburst || storageView == StorageView::flame)
        scene.flatBackground = background;
    for (std::size_t i = 0; i < scene.marks.size(); ++i) {
        scene.hitIndex.insert(scene.marks[i].path.boundingRect());
        scene.pathsByNode[scene.marks[i].node.path].push_back(int(i));
    }
    if (!placeLabels(scene, rect, logical, cancellation) || (cancellation && cancellation->isCancelled()))
        return empty();
    return scene;
}

void paintScene(QPainter& painter, const GraphScene& scene, bool showLabels)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, true);
    const QPen outline(scene.border, 0.7);
    const auto blended = [&scene](const QColor& color) {
        if (!scene.flatBackground || color.alpha() == 255)
            return color;
        const QColor& under = *scene.flatBackground;
        const float a = color.alphaF();
        return QColor::fromRgbF(color.redF() * a + under.redF() * (1 - a), color.greenF() * a + under.greenF() * (1 - a),
                                color.blueF() * a + under.blueF() * (1 - a));
    };
    for (const GraphMark& mark : scene.marks) {
        painter.fillPath(mark.path, blended(mark.color));
        painter.strokePath(mark.path, outline);
    }
    if (showLabels) {
        const QFont bytesFont = ChartText::font(10, false);
        for (const GraphLabel& label : scene.labels) {
            painter.save();
            painter.translate(label.anchor);
            painter.rotate(label.rotation * 180 / kPi);
            painter.translate(-label.anchor);
            painter.setPen(label.color);
            painter.setFont(ChartText::font(label.fontSize, true));
            painter.drawText(label.titleRect, label.align | Qt::AlignVCenter | Qt::TextSingleLine, label.title);
            if (label.bytes) {
                QColor faded = label.color;
                faded.setAlphaF(float(0.65 * faded.alphaF()));
                painter.setPen(faded);
                painter.setFont(bytesFont);
                painter.drawText(label.bytesRect, label.align | Qt::AlignVCenter | Qt::TextSingleLine, *label.bytes);
            }
            painter.restore();
        }
    }
    painter.restore();
}

} // namespace tarnbridge
