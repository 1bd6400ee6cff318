#pragma once

#include <QFrame>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

class QLabel;
class QProgressBar;
class QPushButton;
class QHBoxLayout;
class QVBoxLayout;
class QScrollArea;
class QTreeWidget;
class QTreeWidgetItem;


namespace tarnbridge::app {

class Sparkline;

// The small pieces the tool screens share: headings, a progress card, figure tiles.
namespace ToolWidgets {

QString bytes(std::int64_t value);
QString number(std::int64_t value);
// "1 item", "3 items".
QString counted(std::int64_t count, const char* one, const char* many);

// A label in bold, `scale` times the system font.
QLabel* heading(const QString& text, double scale = 1.0, QWidget* parent = nullptr);
// A wrapped line in the palette's secondary colour.
QLabel* note(const QString& text, QWidget* parent = nullptr);
// The section's title with its subtitle below.
QWidget* titleBlock(const QString& title, const QString& subtitle);
// A vertical page in a scroll area, for screens taller than the window; returns the page's layout.
QVBoxLayout* scrolledPage(QWidget* screen, QScrollArea** area = nullptr);
// Removes and deletes every item of `layout` from `from` on.
void clearLayout(QVBoxLayout* layout, int from = 0);
// A flat list with these column heads; the first column takes the spare width.
QTreeWidget* list(const QStringList& heads, const QString& accessibleName);
// Tall enough for its rows, up to `maxRows`; the page around it scrolls for the rest.
void fitHeight(QTreeWidget* list, int maxRows = 12);
// A small button in a row's last column.
QPushButton* rowButton(QTreeWidget* list, QTreeWidgetItem* item, int column, const QString& text,
                       const QString& accessibleName);

} // namespace ToolWidgets

// A long job where it runs: a title, a line, a path, a bar (busy without a fraction), a row
// of facts and a Cancel button. Never modal.
class ProgressCard : public QFrame {
    Q_OBJECT
public:
    explicit ProgressCard(QWidget* parent = nullptr);

    void setTexts(const QString& title, const QString& detail, const QString& path = {});
    // Absent: the bar shows that work is going on without saying how much is done.
    void setFraction(std::optional<double> fraction);
    void setFacts(const std::vector<std::pair<QString, QString>>& facts);

    QPushButton* cancelButton() const { return cancel_; }
    QString title() const;
    QString detail() const;
    std::optional<double> fraction() const { return fraction_; }
    const std::vector<std::pair<QString, QString>>& facts() const { return facts_; }

Q_SIGNALS:
    void cancelled();

private:
    QLabel* title_ = nullptr;
    QLabel* detail_ = nullptr;
    QLabel* path_ = nullptr;
    QProgressBar* bar_ = nullptr;
    QHBoxLayout* factsRow_ = nullptr;
    QPushButton* cancel_ = nullptr;
    std::optional<double> fraction_;
    std::vector<std::pair<QString, QString>> facts_;
};

// A figure with its name above and a caption below, optionally over a small chart.
class Tile : public QFrame {
    Q_OBJECT
public:
    explicit Tile(const QString& title, QWidget* parent = nullptr);

    void setFigure(const QString& figure, const QString& caption = {});
    QString figure() const;
    QString caption() const;
    QVBoxLayout* body() const { return body_; }
    // Made on first use.
    Sparkline* sparkline();

private:
    QLabel* figure_ = nullptr;
    QLabel* caption_ = nullptr;
    QVBoxLayout* body_ = nullptr;
    Sparkline* sparkline_ = nullptr;
};

} // namespace tarnbridge::app
