#pragma once

#include <QImage>
#include <QPixmap>
#include <QPointer>
#include <QTimer>
#include <QVariantAnimation>
#include <QWidget>

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "model/CancellationFlag.h"
#include "visual/GraphScene.h"

class QMenu;

namespace tarnbridge::app {

class AppModel;

// One chart of the focus folder (treemap, sunburst, flame, bubbles, mind map). Scenes are built
// off the GUI thread after a short pause, the last three kept; the marks are painted once into a
// cached picture, and hover, selection and the card are drawn over it.
class GraphView : public QWidget {
    Q_OBJECT
public:
    explicit GraphView(AppModel& app, QWidget* parent = nullptr);
    ~GraphView() override;

    static constexpr int kBuildDelayMs = 180;
    static constexpr std::size_t kRecentScenes = 3;

    // What is on screen and what it was built for; for tests, the benchmark and the window.
    const GraphScene* scene() const { return scene_.get(); }
    const std::string& readyKey() const { return readyKey_; }
    std::string layoutKey() const;
    bool isPending() const { return layoutKey() != readyKey_; }
    // The old picture is fading out over the new one.
    bool isFading() const { return fade_.state() == QAbstractAnimation::Running; }
    static constexpr int kFadeMs = 180;
    // How often the marks were painted into the cached picture.
    int pictureBuilds() const { return pictureBuilds_; }
    int hoveredMark() const { return hovered_; }
    // The selected mark, -1 when the selection is not drawn here.
    int selectedMark() const;
    const std::optional<std::string>& selectedPath() const { return selectedPath_; }
    // A point where `mark` is the topmost shape, if there is one.
    std::optional<QPointF> pointOn(int mark) const;
    // The menu of the last right click or menu key, while it is open.
    QMenu* contextMenu() const;

Q_SIGNALS:
    // A new scene is on screen.
    void sceneShown();

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    using ScenePtr = std::shared_ptr<const GraphScene>;
    struct Built {
        std::string key;
        std::string focus; // the folder at the centre
        ScenePtr scene;
    };
    // A scene with its marks already painted on the worker, so that the GUI thread only copies
    // pixels: painting a big scene can take longer than a frame.
    struct Rendered {
        ScenePtr scene;
        QImage picture;
        bool labels = false;
        bool dark = false;
    };

    // Scene lifecycle.
    void scheduleBuild();
    void startBuild();
    void showScene(Built built);
    void keepPicture(Rendered rendered);
    void startFade();
    std::optional<GraphLayoutInput> layoutInput() const;
    const ScanResult* shownScan() const;
    bool dark() const;

    // Painting.
    const QPixmap* ensurePicture();
    void paintEmptyState(QPainter& painter);
    void paintHoverCard(QPainter& painter, int mark);
    QRectF hoverCardRect(int mark) const;
    QRect markArea(int mark) const;

    // Interaction.
    void setHovered(int mark, std::optional<QPointF> point);
    void select(int mark);
    void open(int mark);
    void dragOut(int mark);
    void moveSelection(int dx, int dy);
    void showMenu(int mark, const QPoint& globalPos);
    void addMenuActions(QMenu& menu, const DiskNode& node);
    std::optional<DiskNode> recordOf(int mark) const;
    void syncSelection();

    AppModel& app_;
    QTimer buildTimer_;
    QVariantAnimation fade_;
    QPixmap fadeFrom_;
    std::shared_ptr<CancellationFlag> running_;
    std::string runningKey_;
    ScenePtr scene_;
    std::string readyKey_;
    std::string renderedFocus_;
    bool sceneIsLive_ = false;
    std::deque<Built> recent_; // latest last

    // The painted marks of the recent scenes, so that switching back is a copy of pixels.
    struct Picture {
        QUuid scene;
        bool labels = false;
        bool dark = false;
        QPixmap pixmap;
    };
    std::deque<Picture> pictures_; // latest last
    int pictureBuilds_ = 0;

    int hovered_ = -1;
    std::optional<QPointF> hoverPoint_;
    std::optional<std::string> selectedPath_;
    QPointer<QMenu> menu_;
    int pressedMark_ = -1; // where a left press began, for a drag out
    QPointF pressPoint_;
};

} // namespace tarnbridge::app
