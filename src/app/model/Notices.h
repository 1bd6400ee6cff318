#pragma once

#include <QObject>

#include <optional>
#include <vector>

#include "app/model/AppTypes.h"
#include "cleanup/CleanupEntry.h"

namespace tarnbridge::app {

class AppModel;

// The three ways the app speaks: `notice`, one line that stays until replaced or dismissed;
// `error`, an alert; `toast`, a small card with an optional action. Each holds one message;
// a new one replaces the old.
class Notices : public QObject {
    Q_OBJECT
public:
    explicit Notices(AppModel& app);

    const std::optional<QString>& notice() const { return notice_; }
    const std::optional<QString>& error() const { return error_; }
    const std::optional<TarnbridgeToast>& toast() const { return toast_; }

    void setNotice(std::optional<QString> notice);
    void setError(std::optional<QString> error);
    void clearToast();

    // Shows a toast that goes by itself after 8 seconds, unless another replaced it.
    void showToast(const QString& title, const QString& detail, std::optional<ToastAction> action,
                   const QString& actionTitle);
    // The toast's button: opens Cleanup. Without a toast, or an action, nothing happens.
    void performToastAction();
    // After staging: how many of `entries` are new to the queue as it stood (`previous`). This
    // toast has no timer; it stays until dismissed, used or replaced.
    void reportAddedToCleanup(const std::vector<CleanupEntry>& entries, const std::vector<CleanupEntry>& previous);

    static constexpr int kToastMs = 8000;
    // How long a toast of showToast stays (kToastMs); tests shorten it.
    void setToastDuration(int ms) { toastMs_ = ms; }

Q_SIGNALS:
    void noticeChanged();
    void errorChanged();
    void toastChanged();

private:
    AppModel& app_;
    std::optional<QString> notice_;
    std::optional<QString> error_;
    std::optional<TarnbridgeToast> toast_;
    int toastMs_ = kToastMs;
};

} // namespace tarnbridge::app
