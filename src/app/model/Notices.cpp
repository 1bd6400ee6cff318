#include "app/model/Notices.h"

#include <QLocale>
#include <QTimer>

#include <unordered_set>

#include "app/model/AppModel.h"

namespace tarnbridge::app {

Notices::Notices(AppModel& app) : QObject(&app), app_(app) {}

void Notices::setNotice(std::optional<QString> notice)
{
    notice_ = std::move(notice);
    Q_EMIT noticeChanged();
}

void Notices::setError(std::optional<QString> error)
{
    error_ = std::move(error);
    Q_EMIT errorChanged();
}

void Notices::clearToast()
{
    if (toast_) {
        toast_.reset();
        Q_EMIT toastChanged();
    }
}

void Notices::showToast(const QString& title, const QString& detail, std::optional<ToastAction> action,
                        const QString& actionTitle)
{
    const QUuid id = QUuid::createUuid();
    toast_ = TarnbridgeToast{id, title, detail, action, actionTitle};
    Q_EMIT toastChanged();
    // A later toast has another id and keeps its own time.
    QTimer::singleShot(toastMs_, this, [this, id] {
        if (toast_ && toast_->id == id)
            clearToast();
    });
}

void Notices::performToastAction()
{
    if (!toast_ || toast_->action != ToastAction::cleanup)
        return;
    app_.setSection(AppSection::cleanup);
    clearToast();
}

namespace {

// The path or one of its ancestors is in `paths`.
bool coveredBy(std::string path, const std::unordered_set<std::string>& paths)
{
    while (true) {
        if (paths.count(path))
            return true;
        const auto slash = path.rfind('/');
        if (slash == std::string::npos || path == "/")
            return false;
        path = slash == 0 ? "/" : path.substr(0, slash);
    }
}

} // namespace

void Notices::reportAddedToCleanup(const std::vector<CleanupEntry>& entries, const std::vector<CleanupEntry>& previous)
{
    if (entries.empty())
        return;
    std::unordered_set<std::string> queued;
    for (const CleanupEntry& entry : previous)
        queued.insert(entry.node.path);
    qint64 added = 0;
    for (const CleanupEntry& entry : entries)
        if (!coveredBy(entry.node.path, queued))
            ++added;
    setNotice(std::nullopt);
    TarnbridgeToast toast{QUuid::createUuid(), QStringLiteral("Already in Cleanup"), QString(), ToastAction::cleanup,
                          QStringLiteral("Cleanup now")};
    if (added > 0) {
        toast.title = QStringLiteral("Added to Cleanup");
        toast.detail = QLocale().toString(added) + QStringLiteral(" item") +
                       (added == 1 ? QString() : QStringLiteral("s"));
    }
    toast_ = std::move(toast);
    Q_EMIT toastChanged();
}

} // namespace tarnbridge::app
