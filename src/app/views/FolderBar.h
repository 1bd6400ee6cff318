#pragma once

#include <QWidget>

class QHBoxLayout;
class QToolButton;

namespace tarnbridge::app {

class AppModel;

// Back, forward and parent, the path of the shown folder as clickable crumbs, and a chip for
// each active filter. Everything it shows is read from the model on each change.
class FolderBar : public QWidget {
    Q_OBJECT
public:
    explicit FolderBar(AppModel& app, QWidget* parent = nullptr);

    QToolButton* backButton() const { return back_; }
    QToolButton* forwardButton() const { return forward_; }
    QToolButton* parentButton() const { return up_; }

    // Crumbs beyond this many fold their middle into "…".
    static constexpr int kMaxCrumbs = 7;

private:
    void refreshNavigation();
    void refreshFilters();
    static void clear(QHBoxLayout* layout);

    AppModel& app_;
    QToolButton* back_;
    QToolButton* forward_;
    QToolButton* up_;
    QHBoxLayout* crumbs_;
    QHBoxLayout* chips_;
};

} // namespace tarnbridge::app
