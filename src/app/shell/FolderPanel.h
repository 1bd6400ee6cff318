#pragma once

#include <optional>
#include <string>

#include "app/model/AppTypes.h"

class QWidget;

namespace tarnbridge::app {

// The desktop's folder chooser for the model's folder requests; nothing when cancelled.
std::optional<std::string> chooseFolderWithDialog(const FolderRequest& request,
                                                  QWidget* parent = nullptr);

// The desktop's file chooser for the model's save and open requests; nothing when cancelled.
std::optional<std::string> chooseFileWithDialog(const FileRequest& request, QWidget* parent = nullptr);

} // namespace tarnbridge::app
