#pragma once

#include <QWidget>

class QLabel;
class QVBoxLayout;

namespace tarnbridge::app {

// A centred empty state: a large symbol, a bold title, a line below, and room for buttons.
class EmptyState : public QWidget {
    Q_OBJECT
public:
    EmptyState(const QIcon& icon, const QString& title, const QString& line,
               QWidget* parent = nullptr);
    void setTexts(const QString& title, const QString& line);
    QVBoxLayout* buttons() const { return buttons_; }

private:
    QLabel* title_ = nullptr;
    QLabel* line_ = nullptr;
    QVBoxLayout* buttons_ = nullptr;
};

} // namespace tarnbridge::app
