#include <QApplication>
#include <QDir>
#include <QFileInfo>

#include "app/model/AppStart.h"
#include "app/model/ScanSession.h"
#include "app/shell/FolderPanel.h"
#include "app/shell/MainWindow.h"

using namespace tarnbridge::app;

// tarnbridge [PATH]: opens the window and, with a PATH, scans it at once.
int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tarnbridge"));
    QApplication::setOrganizationName(QStringLiteral("Tarnbridge"));
    QApplication::setDesktopFileName(QStringLiteral("tarnbridge"));

    const auto settings = AppStart::openSettings();
    AppServices services;
    services.chooseFolder = [](const FolderRequest& request) {
        return chooseFolderWithDialog(request, QApplication::activeWindow());
    };
    services.chooseFile = [](const FileRequest& request) {
        return chooseFileWithDialog(request, QApplication::activeWindow());
    };
    const auto model = AppStart::makeModel(*settings, std::move(services));
    MainWindow window(*model, settings.get());
    window.show();

    const QStringList arguments = QApplication::arguments();
    if (arguments.size() > 1)
        model->session().startScan(
            QDir::cleanPath(QFileInfo(arguments.at(1)).absoluteFilePath()).toStdString());
    return QApplication::exec();
}
