#include "app/model/TopSizesState.h"

#include "app/model/AppModel.h"
#include "app/model/ScanSession.h"

namespace tarnbridge::app {

TopSizesState::TopSizesState(AppModel& app)
    : QObject(&app), app_(app), query_(this, app.workPool(), [this] { Q_EMIT changed(); })
{
    auto& session = app_.session();
    connect(&session, &ScanSession::scanChanged, this, &TopSizesState::refresh);
    connect(&session, &ScanSession::focusChanged, this, &TopSizesState::refresh);
    connect(&session, &ScanSession::progressChanged, this, &TopSizesState::refresh);
    connect(&app_.explore(), &ExploreState::displayChanged, this, &TopSizesState::refresh);
    connect(&app_.explore(), &ExploreState::filtersChanged, this, &TopSizesState::refresh);
}

TopSizesState::~TopSizesState() = default;

void TopSizesState::setScope(RankingScope scope)
{
    if (scope_ != scope) {
        scope_ = scope;
        limit_ = kPage;
        refresh();
    }
}

void TopSizesState::showMore()
{
    if (hasMore()) {
        limit_ += kPage;
        refresh();
    }
}

ExplorerQueryKey TopSizesState::currentKey() const
{
    ExplorerQueryKey key = app_.explore().queryKey(std::string(rawValue(scope_)) + std::to_string(limit_));
    const auto& scan = app_.session().scan();
    if (scope_ != RankingScope::current && scan)
        key.focus = scan->rootPath();
    return key;
}

void TopSizesState::refresh()
{
    const auto& scan = app_.session().scan();
    if (!scan || app_.scanning()) {
        if (query_.key() || query_.value()) {
            query_.reset();
            Q_EMIT changed();
        }
        return;
    }
    if (app_.explore().storageView() != StorageView::topSizes)
        return;
    const ExplorerQueryKey key = currentKey();
    const bool wasPending = query_.isPending();
    query_.request(key, [scan = *scan, key, scope = scope_, limit = limit_](const CancellationFlag& flag) {
        return key.filter.rankedPage(scan, key.focus, scope, limit, &flag);
    });
    if (query_.isPending() != wasPending)
        Q_EMIT changed();
}

const RankedPage* TopSizesState::page() const
{
    return query_.value() ? &*query_.value() : nullptr;
}

bool TopSizesState::hasMore() const
{
    const RankedPage* shown = page();
    return shown && !isPending() && shown->count > std::int64_t(shown->rows.size());
}

std::int64_t TopSizesState::shareBase() const
{
    const auto& session = app_.session();
    const auto base = scope_ == RankingScope::current ? session.focus() : (session.scan() ? session.scan()->root() : std::nullopt);
    return base ? base->bytes(app_.explore().measure()) : 0;
}

} // namespace tarnbridge::app
