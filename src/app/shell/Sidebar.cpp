#include "app/shell/Sidebar.h"

#include <QGridLayout>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/shell/ShellTexts.h"
#include "model/PathText.h"
#include "monitor/VolumeInfo.h"

namespace tarnbridge::app {
namespace {

QLabel* heading(const QString& text) {
    auto* label = new QLabel(text);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    label->setContentsMargins(8, 8, 0, 0);
    return label;
}

// A flat row that runs `action` when clicked, as a link-like list entry.
QToolButton* entry(const QString& text, const QIcon& icon, std::function<void()> action) {
    auto* button = new QToolButton;
    button->setText(
        QString(text).replace(QLatin1Char('&'), QStringLiteral("&&"))); // no mnemonics in names
    button->setIcon(icon);
    button->setAutoRaise(true);
    button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    QObject::connect(button, &QToolButton::clicked, button, std::move(action));
    return button;
}

// A tool button centres its text in its width: the rows keep their own width, on the left.
void alignLeft(QVBoxLayout* layout) {
    for (int i = 0; i < layout->count(); ++i)
        if (QWidget* widget = layout->itemAt(i)->widget())
            layout->setAlignment(widget, Qt::AlignLeft);
}

QString categoryLabel(FileCategory::Value category) {
    switch (category) {
    case FileCategory::video:
        return QStringLiteral("Video");
    case FileCategory::audio:
        return QStringLiteral("Audio");
    case FileCategory::image:
        return QStringLiteral("Images");
    case FileCategory::document:
        return QStringLiteral("Documents");
    case FileCategory::developer:
        return QStringLiteral("Developer");
    case FileCategory::archive:
        return QStringLiteral("Archives");
    case FileCategory::other:
        break;
    }
    return QStringLiteral("Other");
}

} // namespace

Sidebar::Sidebar(AppModel& app, QWidget* parent)
    : QScrollArea(parent)
    , app_(app) {
    setObjectName(QStringLiteral("sidebar"));
    setWidgetResizable(true);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setMinimumWidth(200);
    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->setSpacing(4);
    layout->addWidget(makeSections());
    layout->addWidget(makeActions());
    layout->addWidget(makePlaces());
    layout->addWidget(makeVolumes());
    layout->addWidget(makeSummary());
    layout->addStretch(1);
    setWidget(content);

    connect(&app_, &AppModel::sectionChanged, this, &Sidebar::showSection);
    auto& session = app_.session();
    connect(&session, &ScanSession::scanChanged, this, [this] {
        showDisk();
        showScanLine();
    });
    connect(&session, &ScanSession::progressChanged, this, &Sidebar::showScanLine);
    connect(&app_.explore(), &ExploreState::derivedChanged, this, &Sidebar::showTypes);
    connect(&app_.explore(), &ExploreState::derivedChanged, this, &Sidebar::showQuickWins);
    connect(&app_.explore(), &ExploreState::displayChanged, this, &Sidebar::showTypes);
    showSection();
    showDisk();
    showTypes();
    showQuickWins();
    showScanLine();
}

QWidget* Sidebar::makeSections() {
    sections_ = new QListWidget;
    sections_->setObjectName(QStringLiteral("sections"));
    sections_->setAccessibleName(QStringLiteral("Sections"));
    sections_->setFrameShape(QFrame::NoFrame);
    sections_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    sections_->viewport()->setAutoFillBackground(false);
    sections_->setIconSize(QSize(16, 16));
    for (AppSection section : ShellTexts::kSections) {
        auto* item =
            new QListWidgetItem(ShellTexts::sectionIcon(section), ShellTexts::sectionName(section));
        item->setData(Qt::UserRole, int(section));
        item->setSizeHint(QSize(0, 30));
        sections_->addItem(item);
    }
    sections_->setFixedHeight(30 * sections_->count() + 4);
    connect(sections_, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0)
            app_.setSection(ShellTexts::kSections[row]);
    });
    return sections_;
}

QWidget* Sidebar::makeActions() {
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 8, 0, 0);
    layout->setSpacing(0);
    auto& session = app_.session();
    layout->addWidget(entry(QStringLiteral("Scan Whole Disk"),
                            ShellTexts::icon("drive-harddisk-system"),
                            [&session] { session.startScan("/"); }));
    layout->addWidget(entry(QStringLiteral("Home"), ShellTexts::icon("user-home"),
                            [this] { app_.session().browseLocation(app_.services().home); }));
    layout->addWidget(entry(QStringLiteral("Open Folder…"), ShellTexts::icon("folder"),
                            [&session] { session.chooseFolder(false, false); }));
    layout->addWidget(entry(QStringLiteral("Scan Folder…"), ShellTexts::icon("folder-open"),
                            [&session] { session.chooseFolder(false, true); }));
    alignLeft(layout);
    return box;
}

QWidget* Sidebar::makePlaces() {
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    const std::string home = app_.services().home;
    struct Place {
        QString label;
        const char* icon;
        std::function<std::string()> path;
    };
    const Place places[] = {
        {QStringLiteral("Scan root"), "drive-harddisk",
         [this] { return app_.session().scanRootPath(); }},
        {QStringLiteral("Downloads"), "folder-download",
         [home] { return PathText::join(home, "Downloads"); }},
        {QStringLiteral("Desktop"), "user-desktop",
         [home] { return PathText::join(home, "Desktop"); }},
        {QStringLiteral("Documents"), "folder-documents",
         [home] { return PathText::join(home, "Documents"); }},
    };
    for (const Place& place : places) {
        auto* button = entry(place.label, ShellTexts::icon(place.icon), [this, path = place.path] {
            const std::string target = path();
            if (!target.empty())
                app_.session().browseLocation(target);
        });
        button->setToolTip(QStringLiteral("Open from the current scan"));
        layout->addWidget(button);
    }
    alignLeft(layout);
    return box;
}

QWidget* Sidebar::makeVolumes() {
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    auto* title = heading(QStringLiteral("External & mounted volumes"));
    title->setAccessibleName(title->text());
    layout->addWidget(title);
    for (const VolumeInfo& volume : VolumeInfo::mounted()) {
        const QString tip = displayText(volume.path) + QStringLiteral(" — ") +
                            ShellTexts::bytes(volume.free) + QStringLiteral(" free of ") +
                            ShellTexts::bytes(volume.total);
        const std::string path = volume.path;
        auto* button = entry(displayText(volume.name),
                             ShellTexts::icon(volume.path == "/" ? "drive-harddisk-system"
                                                                 : "drive-removable-media"),
                             [this, path] { app_.session().startScan(path); });
        button->setToolTip(tip);
        layout->addWidget(button);
    }
    alignLeft(layout);
    return box;
}

QWidget* Sidebar::makeSummary() {
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(heading(QStringLiteral("Disk storage")));
    diskMeter_ = new QProgressBar;
    diskMeter_->setRange(0, 1000);
    diskMeter_->setTextVisible(false);
    diskMeter_->setFixedHeight(8);
    diskMeter_->setAccessibleName(QStringLiteral("Disk storage"));
    layout->addWidget(diskMeter_);
    diskLine_ = new QLabel;
    diskLine_->setWordWrap(true);
    layout->addWidget(diskLine_);

    layout->addWidget(heading(QStringLiteral("File types")));
    auto* types = new QWidget;
    types_ = new QGridLayout(types);
    types_->setContentsMargins(0, 0, 0, 0);
    types_->setVerticalSpacing(2);
    types_->setColumnStretch(0, 1);
    layout->addWidget(types);

    winsBlock_ = new QWidget;
    auto* winsLayout = new QVBoxLayout(winsBlock_);
    winsLayout->setContentsMargins(0, 0, 0, 0);
    winsLayout->setSpacing(0);
    winsLayout->addWidget(heading(QStringLiteral("Quick wins")));
    auto* wins = new QWidget;
    wins_ = new QVBoxLayout(wins);
    wins_->setContentsMargins(0, 0, 0, 0);
    wins_->setSpacing(0);
    winsLayout->addWidget(wins);
    layout->addWidget(winsBlock_);

    scanName_ = new QLabel;
    scanName_->setObjectName(QStringLiteral("scanName"));
    QFont bold = scanName_->font();
    bold.setBold(true);
    scanName_->setFont(bold);
    scanName_->setContentsMargins(0, 12, 0, 0);
    scanState_ = new QLabel;
    scanState_->setObjectName(QStringLiteral("scanState"));
    layout->addWidget(scanName_);
    layout->addWidget(scanState_);
    auto* issues =
        entry(QStringLiteral("Scan access details"), ShellTexts::icon("dialog-information"),
              [this] { app_.explore().setShowIssues(true); });
    issues_ = issues;
    layout->addWidget(issues, 0, Qt::AlignLeft);
    return box;
}

void Sidebar::showSection() {
    const int row = int(std::find(std::begin(ShellTexts::kSections),
                                  std::end(ShellTexts::kSections), app_.section()) -
                        std::begin(ShellTexts::kSections));
    if (sections_->currentRow() != row)
        sections_->setCurrentRow(row);
}

void Sidebar::showDisk() {
    const auto volume = app_.session().volume();
    diskMeter_->setVisible(bool(volume));
    if (!volume) {
        diskLine_->setText(QStringLiteral("Reading volume information…"));
        return;
    }
    diskMeter_->setValue(int(volume->fraction() * 1000));
    diskLine_->setText(displayText(volume->name) + QStringLiteral("\n") +
                       ShellTexts::bytes(volume->free) + QStringLiteral(" free of ") +
                       ShellTexts::bytes(volume->total));
}

void Sidebar::showTypes() {
    while (QLayoutItem* item = types_->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    const auto& explore = app_.explore();
    std::vector<std::pair<std::int64_t, FileCategory::Value>> rows;
    for (const auto& [category, size] : explore.typeTotals().values(explore.measure()))
        if (size > 0)
            rows.emplace_back(size, category);
    if (rows.empty()) {
        types_->addWidget(new QLabel(QStringLiteral("No files measured yet")), 0, 0);
        return;
    }
    std::sort(rows.begin(), rows.end(),
              [](const auto& a, const auto& b) { return a.first > b.first; });
    int line = 0;
    for (const auto& [size, category] : rows) {
        auto* amount = new QLabel(ShellTexts::bytes(size));
        amount->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        types_->addWidget(new QLabel(categoryLabel(category)), line, 0);
        types_->addWidget(amount, line++, 1);
    }
}

void Sidebar::showQuickWins() {
    while (QLayoutItem* item = wins_->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    int shown = 0;
    for (const QuickWin& win : app_.explore().quickWins()) {
        if (win.nodes.empty())
            continue;
        const QuickWinInfo& about = info(win.kind);
        const std::string symbol(about.symbol);
        const QString name =
            QString::fromUtf8(about.rawValue.data(), qsizetype(about.rawValue.size()));
        auto* button = entry(name + QStringLiteral("  ") + ShellTexts::bytes(win.bytes()),
                             ShellTexts::icon(symbol.c_str()), [this, kind = win.kind] {
                                 app_.setSection(AppSection::explore);
                                 app_.explore().setActiveQuickWin(kind);
                             });
        button->setToolTip(
            QString::fromUtf8(about.explanation.data(), qsizetype(about.explanation.size())));
        button->setAccessibleName(name);
        wins_->addWidget(button);
        ++shown;
    }
    alignLeft(wins_);
    winsBlock_->setVisible(shown > 0);
}

void Sidebar::showScanLine() {
    const auto& session = app_.session();
    const auto root = session.scan() ? session.scan()->root() : std::nullopt;
    scanName_->setVisible(session.scanning() || root);
    scanState_->setVisible(session.scanning() || root);
    issues_->setVisible(!session.scanning() && root);
    if (session.scanning()) {
        scanName_->setText(session.scanRootName());
        scanState_->setText(QStringLiteral("Scanning"));
    } else if (root) {
        scanName_->setText(session.displayName(*root));
        scanState_->setText(QStringLiteral("Current view") + QStringLiteral(" · ") +
                            QString::asprintf("%.1fs scan", session.scan()->duration()));
    }
}

} // namespace tarnbridge::app
