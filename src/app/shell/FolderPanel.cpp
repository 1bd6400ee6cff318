#include "app/shell/FolderPanel.h"

#include <QDir>
#include <QFileDialog>

namespace tarnbridge::app {

std::optional<std::string> chooseFolderWithDialog(const FolderRequest& request, QWidget* parent) {
    QFileDialog dialog(parent, request.title.isEmpty() ? request.message : request.title,
                       request.startFolder.isEmpty() ? QDir::homePath() : request.startFolder);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly, true);
    dialog.setLabelText(QFileDialog::Accept, request.prompt);
    if (!request.message.isEmpty())
        dialog.setLabelText(QFileDialog::LookIn, request.message);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    return dialog.selectedFiles().front().toStdString();
}

} // namespace tarnbridge::app
