#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QSettings>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/model/AppModel.h"
#include "support/TempTree.h"

namespace tarnbridge::test {

// A model over a private home, Trash, state folder and settings file, with the monitor off
// and the folder panel answered by `nextFolder`.
struct AppFixture {
    FakeHome fake;
    // The folder tarnbridge-cli uses too (TARNBRIDGE_STATE_DIR of the fake home).
    std::string stateDirectory = fake.tree().root() + "/state";
    QSettings settings{QString::fromStdString(fake.configHome() + "/Tarnbridge/Tarnbridge.conf"),
                       QSettings::IniFormat};
    std::optional<std::string> nextFolder;       // what the folder panel answers; nothing = cancel
    std::optional<app::FolderRequest> lastRequest; // what it was last asked
    std::optional<std::string> nextFile;           // what the file dialog answers; nothing = cancel
    std::optional<app::FileRequest> lastFileRequest;
    std::unique_ptr<app::AppModel> model;

    explicit AppFixture(app::AppServices services = {}, bool make = true)
    {
        services_ = std::move(services);
        if (make)
            makeModel();
    }

    app::AppModel& makeModel()
    {
        model.reset();
        app::AppServices services = services_;
        if (!services.chooseFolder)
            services.chooseFolder = [this](const app::FolderRequest& request) {
                lastRequest = request;
                return nextFolder;
            };
        if (!services.chooseFile)
            services.chooseFile = [this](const app::FileRequest& request) {
                lastFileRequest = request;
                return nextFile;
            };
        model = std::make_unique<app::AppModel>(SnapshotStore(stateDirectory + "/Snapshots"), stateDirectory, false,
                                                settings, services);
        return *model;
    }

    app::AppModel& app() { return *model; }
    TempTree& tree() { return fake.tree(); }

private:
    app::AppServices services_;
};

// Runs the event loop until `done` holds or `ms` pass; returns whether it held.
inline bool waitUntil(const std::function<bool()>& done, int ms = 20000)
{
    QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

// Lets queued deliveries and short timers run for `ms` milliseconds.
inline void spin(int ms)
{
    QDeadlineTimer deadline(ms);
    while (!deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

} // namespace tarnbridge::test
