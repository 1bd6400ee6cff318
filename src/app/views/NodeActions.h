#pragma once

#include <QString>

#include <optional>

#include "model/DiskNode.h"

class QMenu;

namespace tarnbridge::app {

class AppModel;

// The actions on one record, the same wherever a record shows: open, show in the file
// manager, preview, copy the path, add to the cleanup queue, move to the Trash.
namespace NodeActions {

struct Options {
    QString openLabel = QStringLiteral("Focus on this folder");
    bool title = false; // the record's name first, disabled
    bool live = false;  // a record of a running scan: nothing can be staged from it
};

void addTo(QMenu& menu, AppModel& app, const DiskNode& node, const Options& options = {});

// The cleanup policy's objection to `node`, as its sentence.
std::optional<QString> refusal(const AppModel& app, const DiskNode& node);
// Staging is possible now: a current, finished scan, nothing else running, and no objection.
bool canStage(const AppModel& app, const DiskNode& node);
void stage(AppModel& app, const DiskNode& node);

} // namespace NodeActions
} // namespace tarnbridge::app
