// The age map in its states for tarnbridge-screens, over a tree whose files were last changed
// over four years, some of them big and untouched.
#include "AgeMapScreens.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <QThreadPool>

#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <filesystem>
#include <unistd.h>

#include "app/model/AgeMapState.h"
#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/screens/AgeMapView.h"
#include "query/ScanQuery.h"

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

// A file of `size` bytes last changed and read `days` ago; `sparse` leaves its blocks unwritten.
void makeFile(const std::string& path, std::int64_t size, std::int64_t days, bool sparse = false)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    if (sparse) {
        const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
        if (fd >= 0) {
            [[maybe_unused]] const int truncated = ::ftruncate(fd, size);
            ::close(fd);
        }
    } else {
        std::ofstream out(path, std::ios::binary);
        const std::string block(4096, 'a');
        for (std::int64_t left = size; left > 0; left -= std::int64_t(block.size()))
            out.write(block.data(), std::streamsize(std::min<std::int64_t>(left, std::int64_t(block.size()))));
    }
    struct timespec times[2];
    times[0].tv_sec = currentTime() - days * 86'400;
    times[0].tv_nsec = 0;
    times[1] = times[0];
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

std::string makeTree(const std::string& base)
{
    const char* kinds[] = {"report.pdf", "photo.jpg", "notes.txt", "clip.mp4", "data.csv", "song.flac"};
    int n = 0;
    // A file every few weeks back to four years, heavier in some seasons.
    for (std::int64_t days = 1; days < 4 * 365; days += 9 + (n % 5) * 4, ++n) {
        const std::int64_t size = 40'000 + (n * 7'919 % 23) * 55'000 + (days % 97 < 12 ? 2'500'000 : 0);
        makeFile(base + "/Year" + std::to_string(days / 365) + "/" + std::to_string(n) + "-" + kinds[n % 6], size,
                 days);
    }
    makeFile(base + "/Old/backup-2021.img", 64'000'000, 900, true);
    makeFile(base + "/Old/vm-disk.qcow2", 48'000'000, 500, true);
    makeFile(base + "/Downloads/installer.iso", 41'000'000, 420, true);
    return base;
}

// Keeps every thread of `pool` busy until released, so that a query stays pending.
class PoolHold {
public:
    explicit PoolHold(QThreadPool& pool) : pool_(pool)
    {
        for (int i = 0; i < pool.maxThreadCount(); ++i)
            pool.start([this] {
                ++holding_;
                while (!released_)
                    QThread::msleep(5);
            });
    }
    ~PoolHold() { release(); }
    bool holding() const { return holding_ == pool_.maxThreadCount(); }
    void release()
    {
        released_ = true;
        pool_.waitForDone();
    }

private:
    QThreadPool& pool_;
    std::atomic<int> holding_{0};
    std::atomic<bool> released_{false};
};

} // namespace

bool shootAgeMapScreens(AppModel& model, const QString& home, const QString& root, const QString& theme,
                        const Shoot& shoot)
{
    const auto fail = [&](const char* what) {
        std::fprintf(stderr, "%s (%s)\n", what, qPrintable(theme));
        return false;
    };
    const auto name = [&](const char* state) { return QStringLiteral("agemap-%1-%2").arg(QLatin1String(state), theme); };
    ScanSession& session = model.session();
    ExploreState& explore = model.explore();
    AgeMapState& ageMap = explore.ageMap();
    const std::string base = makeTree(home.toStdString() + "/AgeMap-" + theme.toStdString());
    session.startScan(base);
    if (!waitFor([&] { return !model.scanning() && session.scan() && session.scan()->rootPath() == base; }))
        return fail("the age map's scan never finished");

    const StorageView viewBefore = explore.storageView();
    const bool logicalBefore = explore.logical();
    explore.setLogical(true); // the big files are sparse: their logical size is the one to see
    explore.setStorageView(StorageView::ageMap);
    AgeMapView view(model);
    view.resize(1180, 820);
    view.show();
    const auto settled = [&] { return waitFor([&] { return ageMap.preparedKey() && !ageMap.pending(); }); };
    bool ok = settled();
    if (ok)
        shoot(name("normal"), &view);

    ageMap.selectRange(AgeRange::year);
    ok = ok && settled();
    if (ok)
        shoot(name("bar"), &view);

    explore.setFilter(QStringLiteral("clip"));
    ok = ok && settled() && ageMap.busiestMonth();
    if (ok)
        ageMap.selectMonth(*ageMap.busiestMonth());
    ok = ok && settled();
    if (ok)
        shoot(name("filtered"), &view);

    {
        // The last result dimmed under the spinner while the next cannot start.
        PoolHold hold(model.workPool());
        waitFor([&] { return hold.holding(); });
        explore.setFilter(QStringLiteral("photo"));
        if (ok && ageMap.pending())
            shoot(name("busy"), &view);
    }
    ageMap.clearSelection();
    explore.setFilter(QStringLiteral("nothing is called this"));
    ok = ok && settled();
    if (ok)
        shoot(name("empty"), &view);

    view.hide();
    explore.clearFilters();
    ageMap.clearSelection();
    explore.setLogical(logicalBefore);
    explore.setStorageView(viewBefore);
    session.startScan(root.toStdString());
    if (!waitFor([&] { return !model.scanning() && session.scan() && session.scan()->rootPath() == root.toStdString(); }))
        return fail("the sample tree was not scanned again");
    return ok || fail("the age map never settled");
}

} // namespace tarnbridge::screens
