#pragma once

#include <QFrame>
#include <QWidget>

#include <cstddef>
#include <string>
#include <vector>

#include "duplicates/DuplicateFinder.h"

class QComboBox;
class QLabel;
class QPushButton;
class QTreeWidget;
class QToolButton;
class QVBoxLayout;

namespace tarnbridge::app {

class AppModel;
class EmptyState;
class ProgressCard;
class Tile;

// One group of identical files: which copy stays, and the button that stages the others.
class DuplicateGroupCard : public QFrame {
    Q_OBJECT
public:
    DuplicateGroupCard(AppModel& app, const DuplicateGroup& group, QWidget* parent = nullptr);

    const DuplicateGroup& group() const { return group_; }
    // The tags and the Keep buttons follow the model's choice; the staging button `canClean`.
    void refresh();
    QPushButton* stageButton() const { return stage_; }
    QPushButton* keepButton(std::size_t file) const { return keeps_.at(file); }
    QLabel* tag(std::size_t file) const { return tags_.at(file); }

private:
    AppModel& app_;
    const DuplicateGroup& group_;
    QPushButton* stage_ = nullptr;
    std::vector<QLabel*> tags_;
    std::vector<QPushButton*> keeps_;
};

// Finding identical files in the scan and choosing the copies to keep.
class DuplicatesScreen : public QWidget {
    Q_OBJECT
public:
    explicit DuplicatesScreen(AppModel& app, QWidget* parent = nullptr);

    ProgressCard* progressCard() const { return card_; }
    QComboBox* minimumSize() const { return minimum_; }
    std::vector<DuplicateGroupCard*> groupCards() const { return cards_; }
    std::size_t limit() const { return limit_; }

private:
    void refresh();
    void showSearch();
    void showProgress();
    void showReport();
    void showGroups();

    AppModel& app_;
    QLabel* location_ = nullptr;
    QPushButton* wholeDisk_ = nullptr;
    QPushButton* chooseFolder_ = nullptr;
    QPushButton* currentScan_ = nullptr;
    QComboBox* minimum_ = nullptr;
    QPushButton* cancel_ = nullptr;
    ProgressCard* card_ = nullptr;
    EmptyState* empty_ = nullptr;
    QPushButton* clearSearch_ = nullptr;
    QWidget* results_ = nullptr;
    Tile* extra_ = nullptr;
    Tile* groupsTile_ = nullptr;
    Tile* checked_ = nullptr;
    QToolButton* details_ = nullptr;
    QTreeWidget* issues_ = nullptr;
    QLabel* showing_ = nullptr;
    QPushButton* stageAll_ = nullptr;
    QVBoxLayout* groupList_ = nullptr;
    QPushButton* more_ = nullptr;
    std::vector<DuplicateGroupCard*> cards_;
    const DuplicateGroup* shownGroups_ = nullptr; // which report the cards show
    std::size_t limit_ = 30;
};

} // namespace tarnbridge::app
