// tarnbridge-screens OUTDIR [PATH]: drives the real main window offscreen over PATH (or a small
// tree it makes itself) and writes a PNG of every section and state, light and dark. Fails when
// a picture cannot be written or shows one colour only.
#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QImage>
#include <QSettings>
#include <QTemporaryDir>

#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <set>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/FileTableState.h"
#include "app/model/TopSizesState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "app/shell/MainWindow.h"
#include "app/shell/SettingsDialog.h"
#include "app/shell/ShellTexts.h"
#include "scan/DiskScanner.h"

#include "AgeMapScreens.h"
#include "ExploreListScreens.h"
#include "ToolScreens.h"

using namespace tarnbridge;
using namespace tarnbridge::app;

namespace {

// Keeps a finished scan from returning until released, so that the progress screen stays up.
struct ScanHold {
    std::mutex mutex;
    std::condition_variable changed;
    bool holding = false;
    bool reached = false;

    void wait() {
        std::unique_lock lock(mutex);
        reached = true;
        changed.notify_all();
        changed.wait(lock, [this] { return !holding; });
    }
    void set(bool on) {
        std::lock_guard lock(mutex);
        holding = on;
        reached = false;
        changed.notify_all();
    }
    bool hasReached() {
        std::lock_guard lock(mutex);
        return reached;
    }
};

bool waitUntil(const std::function<bool()>& done, int ms = 30000) {
    QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

void settle(int ms) {
    QDeadlineTimer deadline(ms);
    while (!deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

void writeFile(const QString& path, qint64 size) {
    std::ofstream out(path.toStdString(), std::ios::binary);
    std::string block(4096, 'x');
    for (qint64 left = size; left > 0; left -= qint64(block.size()))
        out.write(block.data(), std::streamsize(std::min<qint64>(left, qint64(block.size()))));
}

// A home-like tree with folders of different weights and files of every kind.
QString makeTree(const QString& root) {
    const struct {
        const char* path;
        qint64 size;
    } files[] = {
        {"Videos/holiday.mp4", 9'000'000},
        {"Videos/talk.mkv", 5'500'000},
        {"Music/album/track01.flac", 2'400'000},
        {"Music/album/track02.flac", 2'100'000},
        {"Music/podcast.mp3", 900'000},
        {"Pictures/2024/beach.jpg", 1'200'000},
        {"Pictures/2024/city.png", 800'000},
        {"Pictures/scan.tiff", 1'600'000},
        {"Documents/report.pdf", 700'000},
        {"Documents/notes.txt", 40'000},
        {"Documents/budget.xlsx", 260'000},
        {"Projects/app/src/main.cpp", 60'000},
        {"Projects/app/build/app.o", 1'900'000},
        {"Projects/app/node_modules/lib/index.js", 450'000},
        {"Downloads/installer.tar.gz", 3'200'000},
        {"Downloads/archive.zip", 1'400'000},
        {".cache/thumbnails/a.png", 300'000},
        {".config/app/settings.ini", 8'000},
    };
    for (const auto& file : files) {
        const QString path = root + QLatin1Char('/') + QLatin1String(file.path);
        QDir().mkpath(QFileInfo(path).path());
        writeFile(path, file.size);
    }
    return root;
}

// One colour everywhere is a screen that failed to paint.
bool isBlank(const QImage& image) {
    std::set<QRgb> colours;
    for (int y = 0; y < image.height(); y += 7)
        for (int x = 0; x < image.width(); x += 7) {
            colours.insert(image.pixel(x, y));
            if (colours.size() > 1)
                return false;
        }
    return true;
}

class Shooter {
public:
    Shooter(MainWindow& window, QString outDir)
        : window_(window)
        , outDir_(std::move(outDir)) {}

    void shoot(const QString& name, QWidget* widget = nullptr) {
        settle(400);
        const QImage image = (widget ? widget : &window_)->grab().toImage();
        const QString path =
            outDir_ + QLatin1Char('/') +
            QStringLiteral("%1-%2.png").arg(++count_, 2, 10, QLatin1Char('0')).arg(name);
        if (image.isNull() || !image.save(path)) {
            std::fprintf(stderr, "could not write %s\n", qPrintable(path));
            failed_ = true;
        } else if (isBlank(image)) {
            std::fprintf(stderr, "blank screen: %s\n", qPrintable(path));
            failed_ = true;
        } else {
            std::printf("%s\n", qPrintable(path));
        }
    }
    bool failed() const { return failed_; }
    void fail(const char* what) {
        std::fprintf(stderr, "%s\n", what);
        failed_ = true;
    }

private:
    MainWindow& window_;
    QString outDir_;
    int count_ = 0;
    bool failed_ = false;
};

void shootTheme(AppModel& model, MainWindow& window, Shooter& shooter, ScanHold& hold,
                const QString& root, const QString& theme) {
    auto& session = model.session();
    model.setSection(AppSection::explore);
    if (!session.scan())
        shooter.shoot(QStringLiteral("welcome-") + theme);

    hold.set(true);
    if (session.scan())
        session.refresh();
    else
        session.startScan(root.toStdString());
    if (!waitUntil([&] { return hold.hasReached() && session.scanProgress(); }))
        shooter.fail("the scan never reported progress");
    shooter.shoot(QStringLiteral("scanning-") + theme);
    hold.set(false);
    if (!waitUntil([&] { return !session.scanning() && session.scan(); }))
        shooter.fail("the scan never finished");

    for (StorageView view : {StorageView::treemap, StorageView::sunburst, StorageView::flame,
                             StorageView::bubbles, StorageView::mindMap}) {
        model.explore().setStorageView(view);
        shooter.shoot(QStringLiteral("explore-") +
                      ShellTexts::storageViewName(view).remove(QLatin1Char(' ')).toLower() +
                      QLatin1Char('-') + theme);
    }
    // The lists beside the charts: Top Sizes of the folder and of the scan's files, the table
    // of the folder and of everything below it, and a filter that nothing passes.
    model.explore().setStorageView(StorageView::topSizes);
    shooter.shoot(QStringLiteral("explore-topsizes-") + theme);
    model.topSizes().setScope(RankingScope::files);
    shooter.shoot(QStringLiteral("explore-topsizes-files-") + theme);
    model.topSizes().setScope(RankingScope::current);
    model.explore().setStorageView(StorageView::table);
    shooter.shoot(QStringLiteral("explore-table-") + theme);
    model.table().setRecursive(true);
    shooter.shoot(QStringLiteral("explore-table-everything-") + theme);
    model.table().setRecursive(false);
    model.explore().setFilter(QStringLiteral("no-such-name"));
    shooter.shoot(QStringLiteral("explore-table-nomatch-") + theme);
    model.explore().setFilter(QString());
    model.explore().setStorageView(StorageView::treemap);
    // The toast card over the chart, as staging leaves it.
    model.notices().showToast(QStringLiteral("Added to Cleanup"), QStringLiteral("3 items"),
                              ToastAction::cleanup, QStringLiteral("Cleanup now"));
    shooter.shoot(QStringLiteral("explore-toast-") + theme);
    model.notices().clearToast();
    SettingsDialog& settings = window.openSettings();
    shooter.shoot(QStringLiteral("settings-") + theme, &settings);
    settings.close();
    for (AppSection section : ShellTexts::kSections) {
        if (section == AppSection::explore)
            continue;
        model.setSection(section);
        shooter.shoot(ShellTexts::sectionName(section).toLower() + QLatin1Char('-') + theme);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const QStringList arguments = QApplication::arguments();
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: tarnbridge-screens OUTDIR [PATH]\n");
        return 2;
    }
    const QString outDir = arguments.at(1);
    QDir().mkpath(outDir);

    // A private home and state folder: the pictures never read or change the user's own.
    QTemporaryDir scratch;
    const QString home = scratch.path() + QStringLiteral("/home");
    QDir().mkpath(home);
    qputenv("HOME", home.toUtf8());
    for (const char* name :
         {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME"})
        qunsetenv(name);
    const QString state = scratch.path() + QStringLiteral("/state");
    qputenv("TARNBRIDGE_STATE_DIR", state.toUtf8());
    const QString root = arguments.size() > 2 ? QFileInfo(arguments.at(2)).absoluteFilePath()
                                              : makeTree(home + QStringLiteral("/Sample"));

    ScanHold hold;
    AppServices services;
    services.home = home.toStdString();
    services.scan = [&hold](const std::string& path, const CancellationFlag& flag,
                            ScanNavigation* navigation, const ScanProgressCallback& progress) {
        ScanResult result = DiskScanner::scan(path, flag, navigation, progress);
        hold.wait();
        return result;
    };
    QSettings settings(scratch.path() + QStringLiteral("/Tarnbridge.conf"), QSettings::IniFormat);
    AppModel model(SnapshotStore(state.toStdString() + "/Snapshots"), state.toStdString(), false,
                   settings, services);
    MainWindow window(model);
    window.resize(1440, 900);
    window.show();

    Shooter shooter(window, outDir);
    // The welcome screen exists only before the first scan: both palettes first.
    model.preferences().setDark(true);
    shooter.shoot(QStringLiteral("welcome-dark"));
    for (bool dark : {false, true}) {
        model.preferences().setDark(dark);
        const QString theme = dark ? QStringLiteral("dark") : QStringLiteral("light");
        shootTheme(model, window, shooter, hold, root, theme);
        if (!screens::shootAgeMapScreens(model, home, root, theme,
                                         [&](const QString& name, QWidget* widget) { shooter.shoot(name, widget); }))
            shooter.fail("an age map screen did not reach its state");
        if (!screens::shootToolScreens(model, window, home, root, theme,
                                       [&](const QString& name, QWidget* widget) { shooter.shoot(name, widget); }))
            shooter.fail("a tool screen did not reach its state");
        if (!screens::shootExploreListScreens(model, home, root, theme,
                                              [&](const QString& name, QWidget* widget) { shooter.shoot(name, widget); }))
            shooter.fail("a folder grid or quick-win screen did not reach its state");
    }
    window.close();
    return shooter.failed() ? 1 : 0;
}
