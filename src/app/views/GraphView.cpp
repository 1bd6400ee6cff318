#include "app/views/GraphView.h"

#include <QApplication>
#include <QDateTime>
#include <QIcon>
#include <QPainter>
#include <QPaintEvent>

#include <algorithm>

#include "app/model/AppModel.h"
#include "app/model/BackgroundJob.h"
#include "app/model/ExploreState.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "app/views/ChartEnums.h"
#include "model/Formatting.h"
#include "query/ScanPresentation.h"

namespace tarnbridge::app {

namespace {

const char* boolText(bool value) {
    return value ? "true" : "false";
}

// A freedesktop icon standing for each chart in its empty state.
QString emptySymbol(StorageView view) {
    switch (view) {
    case StorageView::treemap:
        return QStringLiteral("view-grid");
    case StorageView::sunburst:
        return QStringLiteral("view-statistics");
    case StorageView::flame:
        return QStringLiteral("office-chart-bar");
    case StorageView::bubbles:
        return QStringLiteral("office-chart-scatter");
    case StorageView::mindMap:
        return QStringLiteral("network-workgroup");
    default:
        return QStringLiteral("folder");
    }
}

} // namespace

GraphView::GraphView(AppModel& app, QWidget* parent)
    : QWidget(parent)
    , app_(app) {
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(64, 64);
    setAccessibleName(tr("Chart"));
    buildTimer_.setSingleShot(true);
    buildTimer_.setInterval(kBuildDelayMs);
    connect(&buildTimer_, &QTimer::timeout, this, &GraphView::startBuild);
    fade_.setDuration(kFadeMs);
    fade_.setStartValue(0.0);
    fade_.setEndValue(1.0);
    fade_.setEasingCurve(QEasingCurve::InOutQuad);
    connect(&fade_, &QVariantAnimation::valueChanged, this, [this] { update(); });
    connect(&fade_, &QVariantAnimation::finished, this, [this] {
        fadeFrom_ = QPixmap();
        update();
    });

    ScanSession& session = app_.session();
    connect(&session, &ScanSession::scanChanged, this, &GraphView::scheduleBuild);
    connect(&session, &ScanSession::focusChanged, this, [this] {
        syncSelection();
        scheduleBuild();
    });
    connect(&session, &ScanSession::progressChanged, this, &GraphView::scheduleBuild);
    connect(&app_.explore(), &ExploreState::displayChanged, this, [this] {
        scheduleBuild();
        update(); // the labels switch repaints the picture without a new scene
    });
    connect(&app_.explore(), &ExploreState::filtersChanged, this, &GraphView::scheduleBuild);
    connect(&app_.preferences(), &Preferences::changed, this, [this] {
        scheduleBuild();
        update();
    });
    scheduleBuild();
}

GraphView::~GraphView() {
    if (running_)
        running_->cancel();
}

bool GraphView::dark() const {
    return app_.preferences().dark();
}

// The live preview's bounded tree while a scan runs, else the installed scan.
const ScanResult* GraphView::shownScan() const {
    const ScanSession& session = app_.session();
    if (session.scanning()) {
        const auto& progress = session.scanProgress();
        if (progress && progress->browsing && progress->browsing->chart)
            return &*progress->browsing->chart;
        return nullptr;
    }
    return session.scan() ? &*session.scan() : nullptr;
}

std::optional<GraphLayoutInput> GraphView::layoutInput() const {
    const ExploreState& explore = app_.explore();
    const ScanResult* scan = shownScan();
    if (!scan || !isChart(explore.storageView()))
        return std::nullopt;
    const std::string root =
        app_.session().scanning() ? scan->rootPath() : app_.session().focusedPath();
    GraphLayoutInput input =
        GraphLayoutInput::withPaperColors(*scan, root, chartView(explore.storageView()), dark());
    input.depth = explore.visualizationDepth();
    input.logical = explore.logical();
    input.colorMode = chartColorMode(explore.colorMode());
    input.filter = explore.filter().toStdString();
    input.showHidden = explore.showHidden();
    input.minimumBytes = explore.minimumBytes();
    input.categoryFilter = explore.categoryFilter();
    input.modifiedBeforeDays = explore.modifiedBeforeDays();
    input.now = double(QDateTime::currentSecsSinceEpoch());
    return input;
}

// Every input of a build, joined: any change of what a scene depends on changes the key.
std::string GraphView::layoutKey() const {
    const ExploreState& explore = app_.explore();
    const ScanResult* scan = shownScan();
    if (!scan || !isChart(explore.storageView()))
        return {};
    const bool live = app_.session().scanning();
    std::string key =
        (live ? "live:" : "") + scan->id().toString(QUuid::WithoutBraces).toStdString();
    const auto add = [&key](const std::string& part) { key += '|' + part; };
    add(live ? scan->rootPath() : app_.session().focusedPath());
    add(std::string(rawValue(chartView(explore.storageView()))));
    add(std::to_string(explore.visualizationDepth()));
    add(boolText(explore.logical()));
    add(std::string(rawValue(chartColorMode(explore.colorMode()))));
    add(explore.filter().toStdString());
    add(boolText(explore.showHidden()));
    add(std::to_string(explore.minimumBytes()));
    add(explore.categoryFilter() ? std::string(explore.categoryFilter()->rawValue())
                                 : std::string());
    add(std::to_string(explore.modifiedBeforeDays()));
    add(std::to_string(width()) + 'x' + std::to_string(height()));
    add(themeName(app_.preferences().theme()));
    add(dark() ? "dark" : "light");
    return key;
}

void GraphView::scheduleBuild() {
    // A chart out of sight builds nothing; showing it asks again.
    if (!isVisible())
        return;
    const std::string key = layoutKey();
    if (key == readyKey_ && scene_) {
        buildTimer_.stop();
        return;
    }
    if (key.empty()) {
        // Nothing to chart: forget what was shown, so the next scan starts clean.
        buildTimer_.stop();
        if (running_)
            running_->cancel();
        if (scene_ || !readyKey_.empty()) {
            scene_.reset();
            readyKey_.clear();
            setHovered(-1, std::nullopt);
            update();
        }
        return;
    }
    if (!app_.session().scanning()) {
        for (auto entry = recent_.begin(); entry != recent_.end(); ++entry) {
            if (entry->key != key)
                continue;
            Built cached = std::move(*entry);
            recent_.erase(entry);
            recent_.push_back(cached);
            buildTimer_.stop();
            if (running_)
                running_->cancel();
            showScene(std::move(cached));
            return;
        }
    }
    if (key == runningKey_ && running_ && !running_->isCancelled())
        return;
    // A growing live scan reports several times a second: a pending build keeps its turn
    // rather than starting over, else the preview would never be drawn.
    const bool live = app_.session().scanning();
    if (live && buildTimer_.isActive())
        return;
    // The running build is for a key that is no longer wanted.
    if (running_ && !(live && runningKey_.starts_with("live:"))) {
        running_->cancel();
        running_.reset();
        runningKey_.clear();
    }
    buildTimer_.start();
}

void GraphView::startBuild() {
    auto input = layoutInput();
    const std::string key = layoutKey();
    if (!input || key.empty() || key == readyKey_)
        return;
    // A live build in flight finishes first; its delivery asks for the next one. Cancelling it
    // at every progress record could leave the preview undrawn for as long as the scan runs.
    if (running_ && key.starts_with("live:") && runningKey_.starts_with("live:"))
        return;
    if (running_)
        running_->cancel();
    auto flag = std::make_shared<CancellationFlag>();
    running_ = flag;
    runningKey_ = key;
    const QRectF rect(0, 0, width(), height());
    const std::string focus = input->root;
    const qreal ratio = devicePixelRatioF();
    const bool labels = app_.explore().showLabels();
    const bool darkPicture = dark();
    BackgroundJob::run<Rendered>(
        app_.workPool(), this, flag,
        [input = std::move(*input), rect, ratio, labels, darkPicture](const CancellationFlag& cancellation) {
            Rendered rendered{std::make_shared<const GraphScene>(input.build(rect, &cancellation)), {}, labels,
                              darkPicture};
            cancellation.check();
            if (!rendered.scene->marks.empty()) {
                rendered.picture = QImage((rect.size() * ratio).toSize(), QImage::Format_ARGB32_Premultiplied);
                rendered.picture.setDevicePixelRatio(ratio);
                rendered.picture.fill(Paper::theme(darkPicture).background);
                QPainter painter(&rendered.picture);
                paintScene(painter, *rendered.scene, labels);
            }
            return rendered;
        },
        [this, flag, key, focus](JobOutcome<Rendered> outcome) {
            if (flag->isCancelled() || running_ != flag || !outcome.value)
                return;
            running_.reset();
            runningKey_.clear();
            Built built{key, focus, outcome.value->scene};
            keepPicture(std::move(*outcome.value));
            if (!key.starts_with("live:")) {
                recent_.push_back(built);
                while (recent_.size() > kRecentScenes)
                    recent_.pop_front();
            }
            showScene(std::move(built));
            // The state may have moved on while this one was built.
            scheduleBuild();
        });
}

// A picture painted on the worker joins the kept ones; ensurePicture checks that it still
// fits the widget and the appearance before using it.
void GraphView::keepPicture(Rendered rendered) {
    if (rendered.picture.isNull())
        return;
    std::erase_if(pictures_, [&](const Picture& picture) { return picture.scene == rendered.scene->id; });
    pictures_.push_back(
        Picture{rendered.scene->id, rendered.labels, rendered.dark, QPixmap::fromImage(std::move(rendered.picture))});
    ++pictureBuilds_;
    while (pictures_.size() > kRecentScenes)
        pictures_.pop_front();
}

void GraphView::showScene(Built built) {
    // A new folder starts without hover; the same folder keeps the pointer's place.
    if (built.focus != renderedFocus_) {
        hovered_ = -1;
        hoverPoint_.reset();
    }
    renderedFocus_ = std::move(built.focus);
    startFade();
    scene_ = std::move(built.scene);
    readyKey_ = std::move(built.key);
    sceneIsLive_ = readyKey_.starts_with("live:");
    // The pointer may stand still over the new scene: the hover follows it without a move.
    if (hoverPoint_)
        setHovered(scene_->markAt(*hoverPoint_), hoverPoint_);
    else
        hovered_ = -1;
    update();
    Q_EMIT sceneShown();
}

// The picture on screen fades out over the new one, where the desktop wants interface
// animations; with reduced motion the scenes switch at once.
void GraphView::startFade() {
    fade_.stop();
    fadeFrom_ = QPixmap();
    if (!scene_ || !QApplication::isEffectEnabled(Qt::UI_General))
        return;
    for (const Picture& picture : pictures_)
        if (picture.scene == scene_->id)
            fadeFrom_ = picture.pixmap;
    if (!fadeFrom_.isNull())
        fade_.start();
}

void GraphView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    scheduleBuild();
}

void GraphView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    scheduleBuild();
}

// The marks and labels, painted once per scene, appearance, labels switch and size.
const QPixmap* GraphView::ensurePicture() {
    if (!scene_ || scene_->marks.empty())
        return nullptr;
    const qreal ratio = devicePixelRatioF();
    const bool labels = app_.explore().showLabels();
    const QSize pixels = (QSizeF(size()) * ratio).toSize();
    for (auto picture = pictures_.begin(); picture != pictures_.end(); ++picture) {
        if (picture->scene != scene_->id)
            continue;
        if (picture->labels == labels && picture->dark == dark() &&
            picture->pixmap.size() == pixels &&
            qFuzzyCompare(picture->pixmap.devicePixelRatio(), ratio)) {
            std::rotate(picture, picture + 1, pictures_.end());
            return &pictures_.back().pixmap;
        }
        pictures_.erase(picture);
        break;
    }
    Picture picture{scene_->id, labels, dark(), QPixmap(pixels)};
    picture.pixmap.setDevicePixelRatio(ratio);
    picture.pixmap.fill(Paper::theme(dark()).background);
    QPainter painter(&picture.pixmap);
    paintScene(painter, *scene_, labels);
    painter.end();
    ++pictureBuilds_;
    pictures_.push_back(std::move(picture));
    // Only the kept scenes may come back; their pictures are all that is worth keeping.
    while (pictures_.size() > kRecentScenes)
        pictures_.pop_front();
    return &pictures_.back().pixmap;
}

void GraphView::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    const Paper::Theme theme = Paper::theme(dark());
    painter.fillRect(event->rect(), theme.background);
    if (!scene_)
        return;
    if (scene_->marks.empty()) {
        paintEmptyState(painter);
        return;
    }
    if (const QPixmap* picture = ensurePicture()) {
        const qreal ratio = picture->devicePixelRatio();
        painter.drawPixmap(
            QRectF(event->rect()), *picture,
            QRectF(QPointF(event->rect().topLeft()) * ratio, QSizeF(event->rect().size()) * ratio));
    }
    if (isFading() && !fadeFrom_.isNull()) {
        painter.setOpacity(1 - fade_.currentValue().toDouble());
        painter.drawPixmap(QPointF(0, 0), fadeFrom_);
        painter.setOpacity(1);
    }
    painter.setRenderHint(QPainter::Antialiasing, true);
    const int selected = selectedMark();
    if (selected >= 0 && selected != hovered_) {
        QColor ink = theme.ink;
        ink.setAlphaF(0.75f);
        painter.strokePath(scene_->marks[std::size_t(selected)].path, QPen(ink, 2));
    }
    if (hovered_ >= 0) {
        painter.strokePath(scene_->marks[std::size_t(hovered_)].path, QPen(theme.ink, 2));
        paintHoverCard(painter, hovered_);
    }
    if (hasFocus() && selected < 0 && hovered_ < 0) {
        QColor ink = theme.ink;
        ink.setAlphaF(0.4f);
        painter.setPen(QPen(ink, 1, Qt::DotLine));
        painter.drawRect(rect().adjusted(1, 1, -2, -2));
    }
}

void GraphView::paintEmptyState(QPainter& painter) {
    const Paper::Theme theme = Paper::theme(dark());
    const QRect area = rect();
    const QIcon icon = QIcon::fromTheme(emptySymbol(app_.explore().storageView()));
    const int iconSize = 48;
    int y = area.center().y() - 50;
    const QRect symbol(area.center().x() - iconSize / 2, y, iconSize, iconSize);
    if (!icon.isNull()) {
        icon.paint(&painter, symbol);
    } else {
        // A bare system without an icon theme still gets a symbol: an empty chart grid.
        QColor line = theme.ink;
        line.setAlphaF(0.35f);
        painter.save();
        painter.setRenderHint(QPainter::Antialiasing, true);
        painter.setPen(QPen(line, 2));
        painter.setBrush(Qt::NoBrush);
        const QRectF box = QRectF(symbol).adjusted(4, 4, -4, -4);
        painter.drawRoundedRect(box, 6, 6);
        painter.drawLine(QPointF(box.center().x(), box.top()),
                         QPointF(box.center().x(), box.bottom()));
        painter.drawLine(QPointF(box.left(), box.center().y()),
                         QPointF(box.center().x(), box.center().y()));
        painter.restore();
    }
    y += iconSize + 12;
    QFont title = font();
    title.setBold(true);
    painter.setPen(theme.ink);
    painter.setFont(title);
    const int line = painter.fontMetrics().height();
    painter.drawText(QRect(area.left(), y, area.width(), line), Qt::AlignCenter,
                     tr("No matching files"));
    painter.setFont(font());
    QColor faded = theme.ink;
    faded.setAlphaF(0.7f);
    painter.setPen(faded);
    painter.drawText(QRect(area.left(), y + line + 4, area.width(), line * 2),
                     Qt::AlignHCenter | Qt::AlignTop,
                     tr("Change the size setting or clear your filters."));
}

QRectF GraphView::hoverCardRect(int mark) const {
    if (!hoverPoint_ || mark < 0)
        return {};
    const QFontMetrics metrics(font());
    const DiskNode& node = scene_->marks[std::size_t(mark)].node;
    const QString hint = tr("Click to inspect — double-click to open");
    const int textWidth =
        std::max({metrics.horizontalAdvance(displayText(node.name())) + metrics.height() + 14,
                  metrics.horizontalAdvance(hint),
                  metrics.horizontalAdvance(QStringLiteral("000.0 GB · 100.0% of folder"))});
    const QSizeF size(std::min(textWidth + 24, 420), metrics.height() * 4 + 22);
    QPointF at = *hoverPoint_ + QPointF(16, 16);
    if (at.x() + size.width() > width())
        at.setX(hoverPoint_->x() - 16 - size.width());
    if (at.y() + size.height() > height())
        at.setY(hoverPoint_->y() - 16 - size.height());
    return QRectF(QPointF(std::max(0.0, at.x()), std::max(0.0, at.y())), size);
}

// Name, kind, size and share of the focus folder, the file count of a folder, and the hint.
void GraphView::paintHoverCard(QPainter& painter, int mark) {
    const QRectF card = hoverCardRect(mark);
    if (card.isNull())
        return;
    const Paper::Theme theme = Paper::theme(dark());
    const DiskNode& node = scene_->marks[std::size_t(mark)].node;
    const SizeMeasure measure = app_.explore().measure();
    QString kind;
    QIcon symbol;
    if (const ScanResult* scan = shownScan()) {
        if (const NodeId id = scan->find(node.path); id != kNoNode) {
            kind = displayText(kindName(scan->data(), id));
            symbol = QIcon::fromTheme(displayText(chartSymbol(scan->data(), id)));
        }
    }
    std::int64_t total = 0;
    if (const ScanResult* scan = shownScan()) {
        const NodeId root = scan->find(renderedFocus_);
        if (root != kNoNode)
            total = measure == SizeMeasure::logical ? scan->data()[root].logicalSize
                                                    : scan->data()[root].allocatedSize;
    }
    QString sizeLine = QString::fromStdString(formattedBytes(node.bytes(measure)));
    if (total > 0)
        sizeLine += QStringLiteral(" · ") +
                    QString::fromStdString(formattedShare(node.bytes(measure), total)) +
                    tr(" of folder");
    if (node.isDirectory)
        sizeLine +=
            QStringLiteral(" · ") + QLocale().toString(qlonglong(node.fileCount)) + tr(" files");

    painter.save();
    QColor back = theme.surface;
    back.setAlphaF(0.96f);
    painter.setPen(QPen(theme.border, 1));
    painter.setBrush(back);
    painter.drawRoundedRect(card, 8, 8);
    const QFontMetrics metrics(font());
    const double line = metrics.height();
    QRectF row(card.left() + 12, card.top() + 8, card.width() - 24, line);
    QFont bold = font();
    bold.setBold(true);
    painter.setFont(bold);
    painter.setPen(theme.ink);
    QRectF title = row;
    if (!symbol.isNull()) {
        const int side = int(line);
        symbol.paint(&painter, QRect(int(row.left()), int(row.top()), side, side));
        title.setLeft(row.left() + side + 6);
    }
    painter.drawText(
        title, Qt::AlignLeft | Qt::AlignVCenter,
        QFontMetrics(bold).elidedText(displayText(node.name()), Qt::ElideMiddle, int(title.width())));
    painter.setFont(font());
    QColor faded = theme.ink;
    faded.setAlphaF(0.7f);
    painter.setPen(faded);
    row.translate(0, line + 2);
    painter.drawText(row, Qt::AlignLeft | Qt::AlignVCenter, kind);
    row.translate(0, line + 2);
    painter.setPen(theme.ink);
    painter.drawText(row, Qt::AlignLeft | Qt::AlignVCenter, sizeLine);
    row.translate(0, line + 2);
    painter.setPen(faded);
    painter.drawText(row, Qt::AlignLeft | Qt::AlignVCenter,
                     tr("Click to inspect — double-click to open"));
    painter.restore();
}

// What a change of hover or selection on `mark` needs repainted: its outline and the card.
QRect GraphView::markArea(int mark) const {
    if (!scene_ || mark < 0 || std::size_t(mark) >= scene_->marks.size())
        return {};
    QRectF area = scene_->marks[std::size_t(mark)].path.boundingRect().adjusted(-3, -3, 3, 3);
    if (mark == hovered_)
        area = area.united(hoverCardRect(mark).adjusted(-2, -2, 2, 2));
    return area.toAlignedRect();
}

} // namespace tarnbridge::app
