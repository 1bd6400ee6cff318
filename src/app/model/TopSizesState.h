#pragma once

#include <QObject>
#include <QString>

#include "app/model/BackgroundQuery.h"
#include "app/model/ExploreState.h"
#include "query/ScanQuery.h"

namespace tarnbridge::app {

class AppModel;

// The "Top Sizes" ranking: the biggest records of a scope, `limit` at a time, ranked in the
// background while the view is shown. The files and folders scopes rank the whole scan, so
// moving through folders does not rerun them.
class TopSizesState : public QObject {
    Q_OBJECT
public:
    explicit TopSizesState(AppModel& app);
    ~TopSizesState() override;

    RankingScope scope() const { return scope_; }
    void setScope(RankingScope scope); // back to the first 200
    std::int64_t limit() const { return limit_; }
    void showMore();

    // The page of the last finished query; while `isPending`, of an older key.
    const RankedPage* page() const;
    bool isPending() const { return query_.isPending(); }
    int queriesStarted() const { return query_.startedCount(); }
    // "Show 200 more" applies: more passed than the rows shown.
    bool hasMore() const;
    // The size the shares are of: the focus for the current folder, else the scan's root.
    std::int64_t shareBase() const;

    ExplorerQueryKey currentKey() const;
    void refresh();

    static constexpr std::int64_t kPage = 200;

Q_SIGNALS:
    void changed();

private:
    AppModel& app_;
    RankingScope scope_ = RankingScope::current;
    std::int64_t limit_ = kPage;
    BackgroundQuery<ExplorerQueryKey, RankedPage> query_;
};

} // namespace tarnbridge::app
