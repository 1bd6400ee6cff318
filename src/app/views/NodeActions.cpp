#include "app/views/NodeActions.h"

#include <QMenu>

#include "app/desktop/DesktopServices.h"
#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ScanSession.h"
#include "app/shell/ShellTexts.h"
#include "cleanup/CleanupPolicy.h"

namespace tarnbridge::app::NodeActions {

std::optional<QString> refusal(const AppModel& app, const DiskNode& node)
{
    if (const auto why = CleanupPolicy{app.services().home}.rejection(node.path))
        return QString::fromStdString(*why);
    return std::nullopt;
}

bool canStage(const AppModel& app, const DiskNode& node)
{
    return app.canClean() && !refusal(app, node);
}

void stage(AppModel& app, const DiskNode& node)
{
    app.cleanup().stage({node}, std::nullopt, "Selected in Explore");
}

void addTo(QMenu& menu, AppModel& app, const DiskNode& node, const Options& options)
{
    const QString path = QString::fromStdString(node.path);
    if (options.title)
        menu.addAction(displayText(node.name()))->setEnabled(false);
    if (node.isDirectory)
        menu.addAction(ShellTexts::icon("go-jump"), options.openLabel, &menu,
                       [&app, node] { app.session().focusOn(node); });
    menu.addAction(ShellTexts::icon("system-file-manager", "folder-open"), QStringLiteral("Show in File Manager"),
                   &menu, [path] { DesktopServices::showInFileManager(path); });
    menu.addAction(ShellTexts::icon("document-preview", "view-preview"), QStringLiteral("Preview"), &menu,
                   [path] { DesktopServices::preview(path); });
    menu.addAction(ShellTexts::icon("edit-copy"), QStringLiteral("Copy Path"), &menu,
                   [path] { DesktopServices::copyPath(path); });
    menu.addSeparator();
    const std::optional<QString> why = refusal(app, node);
    const bool allowed = app.canClean() && !why && !options.live;
    QAction* add = menu.addAction(ShellTexts::icon("list-add"), QStringLiteral("Add to Cleanup"), &menu,
                                  [&app, node] { stage(app, node); });
    QAction* trash = menu.addAction(ShellTexts::icon("user-trash"), QStringLiteral("Move to Trash…"), &menu,
                                    [&app, node] { app.cleanup().requestTrash(node); });
    add->setEnabled(allowed);
    trash->setEnabled(allowed);
    if (why) {
        add->setToolTip(*why);
        trash->setToolTip(*why);
        menu.setToolTipsVisible(true);
        menu.addAction(*why)->setEnabled(false);
    }
}

} // namespace tarnbridge::app::NodeActions
