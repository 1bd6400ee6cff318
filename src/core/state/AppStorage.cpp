#include "state/AppStorage.h"

#include <QSettings>

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "model/PathText.h"
#include "platform/UserFolders.h"

namespace tarnbridge {

namespace AppStorage {

std::string resolve(const std::string& dataFolder)
{
    const std::string current = PathText::join(dataFolder, "Tarnbridge");
    const std::string legacy = PathText::join(dataFolder, "Oarstitch");
    struct stat st {};
    if (::lstat(current.c_str(), &st) == 0)
        return current;
    if (::stat(legacy.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        return legacy;
    return current;
}

std::string directory()
{
    const char* redirect = std::getenv("TARNBRIDGE_STATE_DIR");
    if (redirect && *redirect == '/')
        return redirect;
    return resolve(platform::dataHome());
}

const std::vector<QString>& preferenceKeys()
{
    static const std::vector<QString> keys{"darkAppearance",      "colorTheme",       "recentFolders",
                                           "backupBeforeCleanup", "snapshotsEnabled", "lastBackupParent"};
    return keys;
}

void migratePreferences(QSettings& into, const QVariantMap& legacy)
{
    for (const QString& key : preferenceKeys())
        if (!into.contains(key) && legacy.contains(key))
            into.setValue(key, legacy.value(key));
}

QVariantMap legacyPreferences()
{
    const std::string file = PathText::join(platform::configHome(), "Oarstitch/Oarstitch.conf");
    QVariantMap out;
    if (!std::filesystem::exists(file))
        return out;
    QSettings legacy(QString::fromStdString(file), QSettings::IniFormat);
    for (const QString& key : legacy.allKeys())
        out.insert(key, legacy.value(key));
    return out;
}

} // namespace AppStorage

} // namespace tarnbridge
