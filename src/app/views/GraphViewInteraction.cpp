// Pointer, keyboard and context menu of the chart.

#include <QApplication>
#include <QContextMenuEvent>
#include <QDrag>
#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>

#include <cmath>
#include <limits>

#include "app/desktop/DesktopServices.h"
#include "app/model/AppModel.h"
#include "app/model/ScanSession.h"
#include "app/views/GraphView.h"
#include "app/views/NodeActions.h"

namespace tarnbridge::app {

namespace {

} // namespace

QMenu* GraphView::contextMenu() const {
    return menu_.data();
}

int GraphView::selectedMark() const {
    if (!scene_ || !selectedPath_)
        return -1;
    const auto hit = scene_->pathsByNode.find(*selectedPath_);
    return hit == scene_->pathsByNode.end() || hit->second.empty() ? -1 : hit->second.front();
}

std::optional<QPointF> GraphView::pointOn(int mark) const {
    if (!scene_ || mark < 0 || std::size_t(mark) >= scene_->marks.size())
        return std::nullopt;
    const GraphMark& shape = scene_->marks[std::size_t(mark)];
    const QRectF box = shape.path.boundingRect();
    // The centre and the label first, then a grid: nested marks may cover most of a folder,
    // leaving only its title strip.
    for (const QPointF& point : {box.center(), shape.label.center()})
        if (scene_->markAt(point) == mark)
            return point;
    constexpr int kSteps = 64;
    for (int y = 1; y < kSteps; ++y)
        for (int x = 1; x < kSteps; ++x) {
            const QPointF point(box.left() + box.width() * x / kSteps,
                                box.top() + box.height() * y / kSteps);
            if (scene_->markAt(point) == mark)
                return point;
        }
    return std::nullopt;
}

// The record behind a mark, from the scan the scene was built on, without its children's paths.
std::optional<DiskNode> GraphView::recordOf(int mark) const {
    if (!scene_ || mark < 0 || std::size_t(mark) >= scene_->marks.size())
        return std::nullopt;
    const ScanResult* scan = shownScan();
    if (!scan)
        return std::nullopt;
    const NodeId id = scan->find(scene_->marks[std::size_t(mark)].node.path);
    if (id == kNoNode)
        return std::nullopt;
    return scan->data().nodeWithoutChildren(id);
}

void GraphView::syncSelection() {
    const auto& selection = app_.session().selection();
    if (selection && *selection != selectedPath_) {
        const QRect old = markArea(selectedMark());
        selectedPath_ = selection;
        update(old.united(markArea(selectedMark())));
    }
}

void GraphView::setHovered(int mark, std::optional<QPointF> point) {
    if (mark == hovered_ && point == hoverPoint_)
        return;
    QRect dirty = markArea(hovered_);
    hovered_ = mark;
    hoverPoint_ = point;
    dirty = dirty.united(markArea(hovered_));
    if (!dirty.isEmpty())
        update(dirty);
    const auto node =
        mark >= 0 ? std::optional<DiskNode>(scene_->marks[std::size_t(mark)].node) : std::nullopt;
    setAccessibleDescription(node ? tr("Highlighted item: ") + displayText(node->name()) : QString());
}

// A click selects, in the model too; opening is the double click's.
void GraphView::select(int mark) {
    const auto node = recordOf(mark);
    if (!node)
        return;
    const QRect old = markArea(selectedMark());
    selectedPath_ = node->path;
    update(old.united(markArea(mark)));
    app_.session().select(node->path);
    const auto name = scene_->marks[std::size_t(mark)].node.name();
    setAccessibleDescription(tr("Highlighted item: ") + displayText(name));
}

void GraphView::open(int mark) {
    // A mark whose record left the scan does nothing.
    if (const auto node = recordOf(mark))
        app_.session().focusOn(*node);
}

void GraphView::mouseMoveEvent(QMouseEvent* event) {
    const QPointF point = event->position();
    if (pressedMark_ >= 0 && (event->buttons() & Qt::LeftButton) &&
        (point - pressPoint_).manhattanLength() >= QApplication::startDragDistance()) {
        const int mark = std::exchange(pressedMark_, -1);
        dragOut(mark);
        return;
    }
    setHovered(scene_ ? scene_->markAt(point) : -1, point);
}

// Dragging a mark hands its file to the file manager, a terminal or a mail composer.
void GraphView::dragOut(int mark) {
    const auto node = recordOf(mark);
    if (!node)
        return;
    auto* drag = new QDrag(this);
    drag->setMimeData(DesktopServices::fileData(node->path));
    drag->exec(Qt::CopyAction | Qt::LinkAction, Qt::CopyAction);
}

void GraphView::mouseReleaseEvent(QMouseEvent* event) {
    pressedMark_ = -1;
    QWidget::mouseReleaseEvent(event);
}

void GraphView::leaveEvent(QEvent* event) {
    setHovered(-1, std::nullopt);
    QWidget::leaveEvent(event);
}

void GraphView::mousePressEvent(QMouseEvent* event) {
    setFocus(Qt::MouseFocusReason);
    if (event->button() == Qt::LeftButton && scene_) {
        const int mark = scene_->markAt(event->position());
        if (mark >= 0)
            select(mark);
        pressedMark_ = mark;
        pressPoint_ = event->position();
    }
    QWidget::mousePressEvent(event);
}

void GraphView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && scene_)
        open(scene_->markAt(event->position()));
}

void GraphView::contextMenuEvent(QContextMenuEvent* event) {
    if (!scene_)
        return;
    int mark = -1;
    QPoint at = event->globalPos();
    if (event->reason() == QContextMenuEvent::Mouse) {
        mark = scene_->markAt(event->pos());
    } else {
        mark = selectedMark();
        if (const auto point = pointOn(mark))
            at = mapToGlobal(point->toPoint());
    }
    if (mark >= 0)
        showMenu(mark, at);
}

// The nearest of the focus folder's own marks in the direction of the arrow; the distance
// across the direction counts double, so the move keeps to its row or column.
void GraphView::moveSelection(int dx, int dy) {
    if (!scene_ || scene_->items.empty())
        return;
    std::vector<int> marks;
    for (const DiskNode& item : scene_->items)
        if (const auto hit = scene_->pathsByNode.find(item.path);
            hit != scene_->pathsByNode.end() && !hit->second.empty())
            marks.push_back(hit->second.front());
    if (marks.empty())
        return;
    const int current = selectedMark();
    if (current < 0) {
        select(marks.front());
        return;
    }
    const auto centre = [this](int mark) {
        return scene_->marks[std::size_t(mark)].path.boundingRect().center();
    };
    const QPointF from = centre(current);
    int best = -1;
    double bestScore = std::numeric_limits<double>::infinity();
    for (int mark : marks) {
        if (mark == current)
            continue;
        const QPointF delta = centre(mark) - from;
        const double along = delta.x() * dx + delta.y() * dy;
        const double across = std::abs(delta.x() * dy) + std::abs(delta.y() * dx);
        if (along <= 0.5)
            continue;
        const double score = along + 2 * across;
        if (score < bestScore) {
            bestScore = score;
            best = mark;
        }
    }
    if (best >= 0)
        select(best);
}

void GraphView::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Menu ||
        (event->key() == Qt::Key_F10 && (event->modifiers() & Qt::ShiftModifier))) {
        QContextMenuEvent menu(QContextMenuEvent::Keyboard, QPoint(), mapToGlobal(rect().center()));
        contextMenuEvent(&menu);
        event->accept();
        return;
    }
    switch (event->key()) {
    case Qt::Key_Left:
        moveSelection(-1, 0);
        break;
    case Qt::Key_Right:
        moveSelection(1, 0);
        break;
    case Qt::Key_Up:
        if (event->modifiers() & Qt::AltModifier)
            app_.session().goUp();
        else
            moveSelection(0, -1);
        break;
    case Qt::Key_Down:
        moveSelection(0, 1);
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        open(selectedMark());
        break;
    case Qt::Key_Backspace:
        app_.session().goUp();
        break;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
}

void GraphView::showMenu(int mark, const QPoint& globalPos) {
    const auto node = recordOf(mark);
    if (!node)
        return;
    if (menu_)
        menu_->close();
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    addMenuActions(*menu, *node);
    menu_ = menu;
    menu->popup(globalPos);
}

void GraphView::addMenuActions(QMenu& menu, const DiskNode& node) {
    NodeActions::Options options;
    options.openLabel = tr("Open folder");
    options.title = true;
    options.live = sceneIsLive_;
    NodeActions::addTo(menu, app_, node, options);
}

} // namespace tarnbridge::app
