#include "app/model/Preferences.h"

#include <QSettings>

namespace tarnbridge::app {

Preferences::Preferences(QSettings& settings, QObject* parent) : QObject(parent), settings_(settings)
{
    dark_ = settings.value(QStringLiteral("darkAppearance")).toBool();
    theme_ = themeNamed(settings.value(QStringLiteral("colorTheme")).toString());
    recent_ = settings.value(QStringLiteral("recentFolders")).toStringList();
    // Read with a presence test so that it defaults to true; a value that is no bool counts as
    // absent. QSettings' text files give bools back as the strings "true" and "false".
    const QVariant backup = settings.value(QStringLiteral("backupBeforeCleanup"));
    const QString backupText = backup.toString();
    if (backup.typeId() == QMetaType::Bool)
        backupBeforeCleanup_ = backup.toBool();
    else if (backupText == QLatin1String("false"))
        backupBeforeCleanup_ = false;
    snapshotsEnabled_ = settings.value(QStringLiteral("snapshotsEnabled")).toBool();
    lastBackupParent_ = settings.value(QStringLiteral("lastBackupParent")).toString();
}

void Preferences::store(const char* key, const QVariant& value)
{
    settings_.setValue(QLatin1String(key), value);
    settings_.sync();
    Q_EMIT changed();
}

void Preferences::setDark(bool dark)
{
    if (dark_ != dark) {
        dark_ = dark;
        store("darkAppearance", dark);
    }
}

void Preferences::setTheme(AppTheme theme)
{
    if (theme_ != theme) {
        theme_ = theme;
        store("colorTheme", QLatin1String(themeName(theme)));
    }
}

void Preferences::setBackupBeforeCleanup(bool on)
{
    if (backupBeforeCleanup_ != on) {
        backupBeforeCleanup_ = on;
        store("backupBeforeCleanup", on);
    }
}

void Preferences::setSnapshotsEnabled(bool on)
{
    if (snapshotsEnabled_ != on) {
        snapshotsEnabled_ = on;
        store("snapshotsEnabled", on);
    }
}

void Preferences::setLastBackupParent(const QString& folder)
{
    if (lastBackupParent_ != folder) {
        lastBackupParent_ = folder;
        store("lastBackupParent", folder);
    }
}

void Preferences::addRecent(const QString& root)
{
    recent_.removeAll(root);
    recent_.prepend(root);
    while (recent_.size() > kRecentLimit)
        recent_.removeLast();
    store("recentFolders", recent_);
}

} // namespace tarnbridge::app
