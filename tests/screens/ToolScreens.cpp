// The tool screens in their states for tarnbridge-screens: duplicates, cleanup and its review,
// snapshots, the monitor and the applications, each over a small tree made for the purpose.
#include "ToolScreens.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMessageBox>
#include <QThread>
#include <QThreadPool>

#include <cstdio>
#include <fstream>
#include <string>

#include "app/model/ActivityMonitor.h"
#include "app/model/AppModel.h"
#include "app/model/ApplicationsFlow.h"
#include "app/model/CleanupFlow.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/ExploreState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "app/model/SnapshotFlow.h"
#include "app/screens/CleanupReviewDialog.h"
#include "app/shell/MainWindow.h"
#include "app/tools/ApplicationsScreen.h"
#include "app/tools/SnapshotsScreen.h"
#include "model/CancellationFlag.h"
#include "model/Errors.h"

namespace tarnbridge::screens {

using namespace tarnbridge::app;

namespace {

bool waitFor(const std::function<bool()>& done, int ms = 30000)
{
    QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

void writeFile(const std::string& path, std::int64_t size, char fill)
{
    QDir().mkpath(QFileInfo(QString::fromStdString(path)).path());
    std::ofstream out(path, std::ios::binary);
    const std::string block(4096, fill);
    for (std::int64_t left = size; left > 0; left -= std::int64_t(block.size()))
        out.write(block.data(), std::streamsize(std::min<std::int64_t>(left, std::int64_t(block.size()))));
}

class ToolShots {
public:
    ToolShots(AppModel& model, MainWindow& window, const QString& home, const QString& theme, const Shoot& shoot)
        : m_(model), window_(window), home_(home.toStdString()), theme_(theme), shoot_(shoot),
          base_(home_ + "/Tools-" + theme.toStdString())
    {
    }

    bool ok() const { return ok_; }
    void run()
    {
        makeTree();
        if (!scan(base_))
            return;
        duplicates();
        cleanup();
        snapshots();
        monitor();
        applications();
    }
    bool scan(const std::string& root)
    {
        m_.session().startScan(root);
        return check(waitFor([&] { return !m_.scanning() && m_.session().scan() && m_.session().scan()->rootPath() == root; }),
                     "a scan for the tool screens never finished");
    }

private:
    bool check(bool reached, const char* what)
    {
        if (!reached) {
            std::fprintf(stderr, "%s (%s)\n", what, qPrintable(theme_));
            ok_ = false;
        }
        return reached;
    }
    void shoot(const char* name, QWidget* widget = nullptr)
    {
        shoot_(QLatin1String(name) + QLatin1Char('-') + theme_, widget);
    }
    std::string at(const char* relative) const { return base_ + "/" + relative; }

    void makeTree()
    {
        writeFile(at("Photos/beach.jpg"), 420'000, 'p');
        writeFile(at("Photos/Edited/beach.jpg"), 420'000, 'p');
        writeFile(at("Backup/beach.jpg"), 420'000, 'p');
        writeFile(at("Music/album.flac"), 1'600'000, 'm');
        writeFile(at("Music/Old/album.flac"), 1'600'000, 'm');
        writeFile(at("Documents/report.pdf"), 240'000, 'r');
        writeFile(at("Documents/report (1).pdf"), 240'000, 'r');
        writeFile(at("Downloads/installer.iso"), 2'400'000, 'i');
        writeFile(at("notes.txt"), 3'000, 'n');
    }

    void duplicates()
    {
        DuplicateSearch& search = m_.duplicates();
        m_.setSection(AppSection::duplicates);
        shoot("duplicates-start");

        // A search held in its reading phase, for the progress card.
        search.setFinder([](const ScanResult&, std::int64_t, const std::optional<std::string>&,
                            const CancellationFlag& cancellation, const DuplicateFinder::DetailProgress& progress) {
            progress({DuplicateProgress::Phase::hashing, 4, 9, "album.flac", 600'000, 1'600'000});
            while (!cancellation.isCancelled())
                QThread::msleep(5);
            throw CancellationError();
            return DuplicateReport{};
        });
        search.findDuplicates(std::nullopt);
        if (check(waitFor([&] { return search.duplicateWork().has_value(); }), "the duplicate search showed no progress"))
            shoot("duplicates-progress");
        search.cancelDuplicates();
        m_.workPool().waitForDone();
        search.setFinder({});
        m_.notices().setNotice(std::nullopt);

        search.setDuplicateMinimumMB(0);
        search.findDuplicates(std::nullopt);
        if (!check(waitFor([&] { return !search.findingDuplicates() && search.duplicateReport(); }),
                   "the duplicate search never finished"))
            return;
        const auto& groups = search.duplicateReport()->groups;
        if (!groups.empty() && groups.front().files.size() > 1)
            search.keep(groups.front(), groups.front().files[1].path);
        shoot("duplicates-groups");
        m_.explore().setFilter(QStringLiteral("beach"));
        shoot("duplicates-filtered");
        m_.explore().setFilter(QStringLiteral("nothing like it"));
        shoot("duplicates-nomatch");
        m_.explore().setFilter({});
    }

    void cleanup()
    {
        CleanupFlow& flow = m_.cleanup();
        flow.removeAll();
        m_.setSection(AppSection::cleanup);
        shoot("cleanup-empty");

        const auto& report = m_.duplicates().duplicateReport();
        if (report && !report->groups.empty())
            m_.duplicates().stageDuplicates(report->groups.front(), m_.duplicates().keeper(report->groups.front()));
        const ScanResult scan = *m_.session().scan();
        flow.stage({*scan.node(at("Downloads/installer.iso")), *scan.node(at("notes.txt"))}, std::nullopt, "Large file");
        m_.notices().clearToast();
        // A staged file that became a link since: the row shows the policy's refusal.
        std::remove(at("notes.txt").c_str());
        QFile::link(QString::fromStdString(at("Downloads/installer.iso")), QString::fromStdString(at("notes.txt")));
        Q_EMIT flow.changed();
        shoot("cleanup-queue");

        flow.requestCleanup();
        if (check(waitFor([&] { return window_.reviewDialog() != nullptr; }), "the review never opened"))
            shoot("cleanup-review-blocked", window_.reviewDialog());
        if (window_.reviewDialog())
            window_.reviewDialog()->reject();
        waitFor([&] { return !window_.reviewDialog(); });
        flow.removeFromQueue(at("notes.txt"));
        flow.requestCleanup();
        if (!check(waitFor([&] { return window_.reviewDialog() != nullptr; }), "the review never opened"))
            return;
        m_.preferences().setBackupBeforeCleanup(true);
        shoot("cleanup-review", window_.reviewDialog());

        // Backed up and moved; what the screen keeps of it afterwards.
        const std::string backups = home_ + "/Backups-" + theme_.toStdString();
        QDir().mkpath(QString::fromStdString(backups));
        flow.executeCleanup(*flow.cleanupRequest(), backups);
        if (check(waitFor([&] { return !flow.cleaning(); }), "the cleanup never finished"))
            shoot("cleanup-history");
        m_.notices().clearToast();
        m_.notices().setError(std::nullopt);
    }

    void snapshots()
    {
        SnapshotFlow& flow = m_.snapshots();
        m_.preferences().setSnapshotsEnabled(false);
        m_.setSection(AppSection::snapshots);
        if (flow.snapshots().empty())
            shoot("snapshots-empty");
        m_.preferences().setSnapshotsEnabled(true);
        if (!scan(base_))
            return;
        flow.saveSnapshot();
        if (!check(waitFor([&] { return !flow.busy(); }), "a snapshot was never saved"))
            return;
        const SnapshotRecord older = flow.snapshots().front();
        writeFile(at("Videos/trip.mp4"), 3'200'000, 'v');
        writeFile(at("Music/album.flac"), 2'000'000, 'm');
        if (!scan(base_))
            return;
        flow.saveSnapshot();
        if (!check(waitFor([&] { return !flow.busy(); }), "a snapshot was never saved"))
            return;
        m_.setSection(AppSection::snapshots); // the scan opened Explore
        flow.useAsBefore(older);
        flow.compareWithBefore(flow.snapshots().front());
        if (check(waitFor([&] { return !flow.busy() && flow.comparisonTitle(); }), "the comparison never finished"))
            shoot("snapshots-compare");
        auto* screen = window_.findChild<SnapshotsScreen*>();
        screen->askToDelete(flow.snapshots().front());
        if (QMessageBox* box = screen->deleteConfirmation()) {
            shoot("snapshots-delete", box);
            box->reject();
        }
        m_.notices().setNotice(std::nullopt);
    }

    void monitor()
    {
        ActivityMonitor& activity = m_.monitor();
        m_.setSection(AppSection::monitor);
        activity.setPeriod(std::chrono::milliseconds(100));
        activity.start();
        check(waitFor([&] { return activity.history().size() >= 4; }), "the monitor never read the machine");
        activity.stopWork();
        m_.monitorPool().waitForDone();
        QCoreApplication::processEvents();
        shoot("monitor-readings");
    }

    void applications()
    {
        // An app installed for the user, with data of its own, and the data of one that is gone.
        const std::string data = home_ + "/.local/share";
        if (!QFileInfo::exists(QString::fromStdString(data + "/flatpak/app/org.example.Sketch"))) {
            writeFile(data + "/flatpak/app/org.example.Sketch/current/active/files/bin/sketch", 3'500'000, 's');
            QDir().mkpath(QString::fromStdString(data + "/flatpak/exports/share/applications"));
            std::ofstream(data + "/flatpak/exports/share/applications/org.example.Sketch.desktop")
                << "[Desktop Entry]\nType=Application\nName=Sketch\nExec=flatpak run org.example.Sketch\n"
                   "Icon=org.example.Sketch\n";
            writeFile(home_ + "/.var/app/org.example.Sketch/config/settings.json", 90'000, 'c');
            writeFile(home_ + "/.var/app/org.gone.Player/cache/index", 700'000, 'g');
        }
        ApplicationsFlow& flow = m_.applications();
        m_.setSection(AppSection::applications);
        // A run started by an earlier showing did not see the app made above.
        waitFor([&] { return !flow.inspectingApps(); }, 120000);
        flow.inspectApplications();
        if (!check(waitFor([&] { return !flow.inspectingApps() && flow.appReport(); }, 120000),
                   "the applications were never read"))
            return;
        auto* screen = window_.findChild<ApplicationsScreen*>();
        const auto shown = screen->shownApplications();
        if (!shown.empty())
            flow.setSelectedApp(shown.front()->path);
        shoot("applications-app");
        screen->showOrphans()->setChecked(true);
        shoot("applications-leftovers");
        screen->showOrphans()->setChecked(false);
    }

    AppModel& m_;
    MainWindow& window_;
    std::string home_;
    QString theme_;
    const Shoot& shoot_;
    std::string base_;
    bool ok_ = true;
};

} // namespace

bool shootToolScreens(AppModel& model, MainWindow& window, const QString& home, const QString& root,
                      const QString& theme, const Shoot& shoot)
{
    ToolShots shots(model, window, home, theme, shoot);
    shots.run();
    shots.scan(root.toStdString());
    model.setSection(AppSection::explore);
    return shots.ok();
}

} // namespace tarnbridge::screens
