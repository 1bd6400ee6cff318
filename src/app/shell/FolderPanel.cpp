#include "app/shell/FolderPanel.h"

#include <QDir>
#include <QFile>
#include <QFileDialog>

namespace tarnbridge::app {

std::optional<std::string> chooseFolderWithDialog(const FolderRequest& request, QWidget* parent) {
    QFileDialog dialog(parent, request.title.isEmpty() ? request.message : request.title,
                       request.startFolder.isEmpty() ? QDir::homePath() : request.startFolder);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly, true);
    // A bare "&" in a button label is a mnemonic: "Back up & Move" must keep its ampersand.
    dialog.setLabelText(QFileDialog::Accept, QString(request.prompt).replace(QLatin1Char('&'), QStringLiteral("&&")));
    if (!request.message.isEmpty())
        dialog.setLabelText(QFileDialog::LookIn, request.message);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    return QFile::encodeName(dialog.selectedFiles().front()).toStdString();
}

std::optional<std::string> chooseFileWithDialog(const FileRequest& request, QWidget* parent) {
    QFileDialog dialog(parent, request.title, QDir::homePath(), request.filter);
    dialog.setAcceptMode(request.save ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
    dialog.setFileMode(request.save ? QFileDialog::AnyFile : QFileDialog::ExistingFile);
    if (!request.suggestedName.isEmpty())
        dialog.selectFile(request.suggestedName);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    // Paths are bytes on Linux: keep a name that is not UTF-8 as it is on disk.
    return QFile::encodeName(dialog.selectedFiles().front()).toStdString();
}

} // namespace tarnbridge::app
