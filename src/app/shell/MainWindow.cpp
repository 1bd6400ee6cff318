#include "app/shell/MainWindow.h"

#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFile>
#include <QFileInfo>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QSettings>
#include <QShortcut>
#include <QSplitter>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "app/model/AppModel.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "app/model/SnapshotFlow.h"
#include "app/screens/CleanupReviewDialog.h"
#include "app/screens/ExploreScreen.h"
#include "app/screens/InspectorPanel.h"
#include "app/shell/Appearance.h"
#include "app/shell/Footer.h"
#include "app/shell/MainMenus.h"
#include "app/shell/ScanIssuesDialog.h"
#include "app/shell/SettingsDialog.h"
#include "app/shell/ShellTexts.h"
#include "app/shell/Sidebar.h"
#include "app/shell/ToastCard.h"
#include "app/shell/TopBar.h"
#include "app/tools/ApplicationsScreen.h"
#include "app/tools/CleanupScreen.h"
#include "app/tools/DuplicatesScreen.h"
#include "app/tools/MonitorScreen.h"
#include "app/tools/SnapshotsScreen.h"

// The bundled icons sit in the static library, which links its resources only when asked.
static void loadResources() {
    Q_INIT_RESOURCE(tarnbridge);
}

namespace tarnbridge::app {
namespace {

const QString kGeometryKey = QStringLiteral("window/geometry");
const QString kSplitterKey = QStringLiteral("window/splitter");

} // namespace

MainWindow::MainWindow(AppModel& app, QSettings* settings, QWidget* parent)
    : QMainWindow(parent)
    , app_(app)
    , settings_(settings) {
    loadResources();
    setObjectName(QStringLiteral("mainWindow"));
    setWindowTitle(QStringLiteral("Tarnbridge"));
    setWindowIcon(QIcon(QStringLiteral(":/tarnbridge/tarnbridge.svg")));
    setMinimumSize(kMinimumSize);
    setAcceptDrops(true);

    sidebar_ = new Sidebar(app_);
    topBar_ = new TopBar(app_);
    screens_ = new QStackedWidget;
    screens_->setObjectName(QStringLiteral("screens"));
    for (AppSection section : ShellTexts::kSections) {
        QWidget* screen = makeScreen(section);
        screenOf_[section] = screen;
        screens_->addWidget(screen);
    }
    auto* main = new QWidget;
    auto* mainLayout = new QVBoxLayout(main);
    mainLayout->setContentsMargins(0, 0, 0, 0);
    mainLayout->setSpacing(0);
    mainLayout->addWidget(topBar_);
    mainLayout->addWidget(screens_, 1);

    splitter_ = new QSplitter(Qt::Horizontal);
    splitter_->setObjectName(QStringLiteral("mainSplitter"));
    splitter_->addWidget(sidebar_);
    splitter_->addWidget(main);
    inspector_ = new InspectorPanel(app_);
    splitter_->addWidget(inspector_);
    splitter_->setStretchFactor(1, 1);
    splitter_->setChildrenCollapsible(false);
    splitter_->setSizes({230, kDefaultSize.width() - 230 - 300, 300});

    footer_ = new Footer(app_);
    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(splitter_, 1);
    layout->addWidget(footer_);
    setCentralWidget(central);

    toast_ = new ToastCard(app_, screens_);
    connect(toast_, &ToastCard::shown, this, &MainWindow::placeToast);
    // Esc closes the card, as it closes dialogs.
    auto* dismissToast = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(dismissToast, &QShortcut::activated, this, [this] {
        if (app_.notices().toast())
            app_.notices().clearToast();
    });
    screens_->installEventFilter(this);

    menus_ = new MainMenus(
        app_, *this,
        [this] {
            topBar_->filterField()->setFocus(Qt::ShortcutFocusReason);
            topBar_->filterField()->selectAll();
        },
        [this] { openSettings(); });

    connect(&app_, &AppModel::sectionChanged, this, &MainWindow::showSection);
    connect(&app_.explore(), &ExploreState::displayChanged, this, &MainWindow::showInspector);
    connect(&app_.session(), &ScanSession::scanChanged, this, &MainWindow::showInspector);
    connect(&app_.session(), &ScanSession::progressChanged, this, &MainWindow::showInspector);
    connect(&app_.cleanup(), &CleanupFlow::changed, this, &MainWindow::showReview);
    connect(&app_.notices(), &Notices::errorChanged, this, &MainWindow::showError);
    connect(&app_.explore(), &ExploreState::displayChanged, this, &MainWindow::showIssues);
    connect(&app_.preferences(), &Preferences::changed, this,
            [this] { Appearance::apply(app_.preferences().dark()); });
    Appearance::apply(app_.preferences().dark());
    restoreLayout();
    showSection();
    showError();
}

MainWindow::~MainWindow() = default;

QWidget* MainWindow::makeScreen(AppSection section) {
    switch (section) {
    case AppSection::explore:
        return new ExploreScreen(app_);
    case AppSection::duplicates:
        return new DuplicatesScreen(app_);
    case AppSection::applications:
        return new ApplicationsScreen(app_);
    case AppSection::monitor:
        return new MonitorScreen(app_);
    case AppSection::snapshots:
        return new SnapshotsScreen(app_);
    case AppSection::cleanup:
        break;
    }
    return new CleanupScreen(app_);
}

QWidget* MainWindow::currentScreen() const {
    return screens_->currentWidget();
}

CleanupReviewDialog* MainWindow::reviewDialog() const {
    return review_;
}

void MainWindow::showReview() {
    const auto& request = app_.cleanup().cleanupRequest();
    if (request && !review_) {
        review_ = new CleanupReviewDialog(app_, *request, this);
        review_->setAttribute(Qt::WA_DeleteOnClose);
        review_->open();
    } else if (!request && review_) {
        review_->accept(); // confirmed or dropped by the model
    }
}

void MainWindow::showSection() {
    screens_->setCurrentWidget(screenOf_.at(app_.section()));
    toast_->raise();
    showInspector();
}

void MainWindow::showInspector() {
    inspector_->setVisible(app_.section() == AppSection::explore && app_.explore().showInspector() &&
                           app_.session().scan() && !app_.scanning());
}

void MainWindow::showError() {
    const auto& error = app_.notices().error();
    if (!error) {
        if (errorBox_)
            errorBox_->close();
        return;
    }
    if (errorBox_) {
        errorBox_->setText(*error);
        return;
    }
    errorBox_ = new QMessageBox(QMessageBox::Warning, QStringLiteral("Tarnbridge"), *error,
                                QMessageBox::Ok, this);
    errorBox_->setObjectName(QStringLiteral("errorBox"));
    errorBox_->setAttribute(Qt::WA_DeleteOnClose);
    connect(errorBox_, &QMessageBox::finished, this, [this] {
        errorBox_ = nullptr;
        // A new error may have replaced the one shown; it gets a box of its own.
        app_.notices().setError(std::nullopt);
    });
    errorBox_->open();
}

SettingsDialog& MainWindow::openSettings() {
    if (!settingsDialog_) {
        settingsDialog_ = new SettingsDialog(app_, this);
        settingsDialog_->setAttribute(Qt::WA_DeleteOnClose);
    }
    settingsDialog_->show();
    settingsDialog_->raise();
    return *settingsDialog_;
}

void MainWindow::showIssues() {
    const bool open = app_.explore().showIssues();
    if (open && !issues_) {
        issues_ = new ScanIssuesDialog(app_, this);
        issues_->setAttribute(Qt::WA_DeleteOnClose);
        connect(issues_, &QDialog::finished, this, [this] { issues_ = nullptr; });
        issues_->open();
    } else if (!open && issues_) {
        issues_->close();
    }
}

void MainWindow::placeToast() {
    toast_->adjustSize();
    const QSize size =
        toast_->sizeHint().boundedTo(QSize(screens_->width() - 32, screens_->height()));
    toast_->setGeometry(screens_->width() - size.width() - 16,
                        screens_->height() - size.height() - 16, size.width(), size.height());
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == screens_ && event->type() == QEvent::Resize)
        placeToast();
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::restoreLayout() {
    resize(kDefaultSize);
    if (!settings_)
        return;
    restoreGeometry(settings_->value(kGeometryKey).toByteArray());
    splitter_->restoreState(settings_->value(kSplitterKey).toByteArray());
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (settings_) {
        settings_->setValue(kGeometryKey, saveGeometry());
        settings_->setValue(kSplitterKey, splitter_->saveState());
    }
    app_.session().stopWork();
    QMainWindow::closeEvent(event);
}

namespace {

// The one local path a drop carries, as the bytes on disk; nothing for anything else.
std::optional<std::string> droppedPath(const QMimeData& data) {
    const auto urls = data.urls();
    if (urls.size() != 1 || !urls.front().isLocalFile())
        return std::nullopt;
    return QFile::encodeName(urls.front().toLocalFile()).toStdString();
}

} // namespace

// A folder dropped on the window is scanned; a file is opened as a saved scan.
void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (const auto path = droppedPath(*event->mimeData())) {
        const QFileInfo info(QFile::decodeName(QByteArray::fromStdString(*path)));
        if (info.isDir() || info.isFile())
            event->acceptProposedAction();
    }
}

void MainWindow::dropEvent(QDropEvent* event) {
    const auto path = droppedPath(*event->mimeData());
    if (!path)
        return;
    if (QFileInfo(QFile::decodeName(QByteArray::fromStdString(*path))).isDir())
        app_.session().startScan(*path);
    else
        app_.snapshots().openScanFile(*path);
    event->acceptProposedAction();
}

} // namespace tarnbridge::app
