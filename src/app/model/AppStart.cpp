#include "app/model/AppStart.h"

#include "model/PathText.h"
#include "platform/UserFolders.h"
#include "state/AppStorage.h"

namespace tarnbridge::app::AppStart {

std::unique_ptr<QSettings> openSettings()
{
    const std::string file = PathText::join(platform::configHome(), "Tarnbridge/Tarnbridge.conf");
    auto settings = std::make_unique<QSettings>(QString::fromStdString(file), QSettings::IniFormat);
    AppStorage::migratePreferences(*settings, AppStorage::legacyPreferences());
    settings->sync();
    return settings;
}

std::unique_ptr<AppModel> makeModel(QSettings& settings, AppServices services)
{
    const std::string directory = AppStorage::directory();
    return std::make_unique<AppModel>(SnapshotStore(PathText::join(directory, "Snapshots")), directory, true,
                                      settings, std::move(services));
}

} // namespace tarnbridge::app::AppStart
