// The folder grid and the quick-win candidates for tarnbridge-screens, shown on their own over a
// tree with folders of several types, build outputs and an empty folder.
#include "ExploreListScreens.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QStackedWidget>
#include <QVBoxLayout>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/screens/FolderGridView.h"
#include "app/screens/QuickWinsView.h"

namespace tarnbridge::screens {

using namespace tarnbridge::app;

namespace {

bool waitFor(const std::function<bool()>& done, int ms = 30000) {
    QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

void makeFile(const std::string& path, std::int64_t size) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary);
    const std::string block(4096, 'l');
    for (std::int64_t left = size; left > 0; left -= std::int64_t(block.size()))
        out.write(block.data(),
                  std::streamsize(std::min<std::int64_t>(left, std::int64_t(block.size()))));
}

std::string makeTree(const std::string& base) {
    const struct {
        const char* path;
        std::int64_t size;
    } files[] = {
        {"Media/Films/holiday.mkv", 4'000'000},
        {"Media/Music/song.flac", 1'500'000},
        {"Media/cover.jpg", 400'000},
        {"Projects/app/build/app.o", 2'200'000},
        {"Projects/app/src/main.cpp", 80'000},
        {"Projects/web/dist/bundle.js", 900'000},
        {"Projects/web/src/index.ts", 40'000},
        {"Documents/report.pdf", 700'000},
        {"Documents/notes.txt", 30'000},
        {"Documents/budget.xlsx", 260'000},
        {"Archive.zip", 1'200'000},
        {"Pictures/beach.jpg", 1'100'000},
        {"Pictures/city.png", 600'000},
    };
    for (const auto& file : files)
        makeFile(base + "/" + file.path, file.size);
    std::filesystem::create_directories(base + "/Empty");
    return base;
}

bool scan(AppModel& model, const std::string& path) {
    model.session().startScan(path);
    return waitFor([&] {
        return !model.session().scanning() && model.session().scan() &&
               model.session().scan()->rootPath() == path;
    });
}

} // namespace

bool shootExploreListScreens(AppModel& model, const QString& home, const QString& root,
                             const QString& theme, const Shoot& shoot) {
    const std::string base = makeTree(home.toStdString() + "/ListSample");
    if (!scan(model, base)) {
        std::fprintf(stderr, "the list sample was never scanned\n");
        return false;
    }
    ScanSession& session = model.session();
    ExploreState& explore = model.explore();
    bool ok = true;

    QWidget holder;
    holder.resize(1100, 720);
    auto* layout = new QVBoxLayout(&holder);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* stack = new QStackedWidget;
    auto* grid = new FolderGridView(model);
    auto* wins = new QuickWinsView(model);
    stack->addWidget(grid);
    stack->addWidget(wins);
    layout->addWidget(stack);
    holder.show();

    session.select(base + "/Media");
    shoot(QStringLiteral("lists-folders-") + theme, &holder);
    explore.setFilter(QStringLiteral("nothing-like-this"));
    shoot(QStringLiteral("lists-folders-filtered-") + theme, &holder);
    explore.setFilter(QString());
    if (const auto empty = session.scan()->node(base + "/Empty")) {
        session.focusOn(*empty);
        shoot(QStringLiteral("lists-folders-empty-") + theme, &holder);
    } else {
        std::fprintf(stderr, "the empty folder is not in the scan\n");
        ok = false;
    }

    stack->setCurrentWidget(wins);
    explore.setActiveQuickWin(QuickWinKind::builds);
    shoot(QStringLiteral("lists-quickwin-") + theme, &holder);
    explore.setActiveQuickWin(QuickWinKind::simulators);
    shoot(QStringLiteral("lists-quickwin-none-") + theme, &holder);
    explore.setActiveQuickWin(std::nullopt);
    holder.hide();

    if (!scan(model, root.toStdString())) {
        std::fprintf(stderr, "the sample was never scanned again\n");
        ok = false;
    }
    return ok;
}

} // namespace tarnbridge::screens
