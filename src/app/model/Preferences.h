#pragma once

#include <QObject>
#include <QStringList>

#include "app/model/AppTypes.h"

class QSettings;

namespace tarnbridge::app {

// The six choices kept between runs, each written as it changes. Everything else the user
// sets returns to its start value at the next launch.
class Preferences : public QObject {
    Q_OBJECT
public:
    explicit Preferences(QSettings& settings, QObject* parent = nullptr);

    bool dark() const { return dark_; }
    AppTheme theme() const { return theme_; }
    const QStringList& recent() const { return recent_; }
    bool backupBeforeCleanup() const { return backupBeforeCleanup_; }
    bool snapshotsEnabled() const { return snapshotsEnabled_; }
    const QString& lastBackupParent() const { return lastBackupParent_; }

    void setDark(bool dark);
    void setTheme(AppTheme theme);
    void setBackupBeforeCleanup(bool on);
    void setSnapshotsEnabled(bool on);
    void setLastBackupParent(const QString& folder);
    // Puts a scanned root first, without repeats, keeping the 6 newest.
    void addRecent(const QString& root);

    static constexpr int kRecentLimit = 6;

Q_SIGNALS:
    void changed();

private:
    void store(const char* key, const QVariant& value);

    QSettings& settings_;
    bool dark_ = false;
    AppTheme theme_ = AppTheme::paper;
    QStringList recent_;
    bool backupBeforeCleanup_ = true;
    bool snapshotsEnabled_ = false;
    QString lastBackupParent_;
};

} // namespace tarnbridge::app
