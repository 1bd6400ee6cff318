#include "app/desktop/DesktopServices.h"

#include <QApplication>
#include <QClipboard>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QDesktopServices>
#include <QFileInfo>
#include <QMimeData>
#include <QUrl>

#include <functional>

namespace tarnbridge::app::DesktopServices {

namespace {

// A service counts when it runs or the bus can start it.
bool available(const QDBusConnection& bus, const QString& service) {
    if (!bus.isConnected() || !bus.interface())
        return false;
    if (bus.interface()->isServiceRegistered(service))
        return true;
    const QDBusReply<QStringList> activatable = bus.interface()->activatableServiceNames();
    return activatable.isValid() && activatable.value().contains(service);
}

// Sends `message` and runs `fallback` when the call fails; the GUI thread never waits.
void callOr(const QDBusMessage& message, std::function<void()> fallback) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!available(bus, message.service())) {
        fallback();
        return;
    }
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(message, 5000), qApp);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [fallback = std::move(fallback)](QDBusPendingCallWatcher* call) {
                         if (call->isError())
                             fallback();
                         call->deleteLater();
                     });
}

} // namespace

void showInFileManager(const QString& path) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    message << QStringList{QUrl::fromLocalFile(path).toString()} << QString();
    callOr(message, [path] {
        QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(path).absolutePath()));
    });
}

void preview(const QString& path) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        QStringLiteral("org.gnome.NautilusPreviewer"),
        QStringLiteral("/org/gnome/NautilusPreviewer"),
        QStringLiteral("org.gnome.NautilusPreviewer"), QStringLiteral("ShowFile"));
    message << QUrl::fromLocalFile(path).toString() << 0 << true;
    callOr(message, [path] { QDesktopServices::openUrl(QUrl::fromLocalFile(path)); });
}

void copyPath(const QString& path) {
    QApplication::clipboard()->setMimeData(fileData(path.toUtf8().toStdString()));
}

QMimeData* fileData(const std::string& path) {
    auto* data = new QMimeData;
    data->setText(QString::fromUtf8(path.data(), qsizetype(path.size())));
    // Percent-encoding the bytes keeps a name that is not UTF-8 exact in the URL.
    data->setUrls({QUrl::fromEncoded("file://" + QByteArray::fromStdString(path).toPercentEncoding("/"))});
    return data;
}

} // namespace tarnbridge::app::DesktopServices
