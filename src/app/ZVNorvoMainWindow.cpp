#include "app/ZVNorvoMainWindow.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QCloseEvent>
#include <QFileDialog>
#include <QDir>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QSignalBlocker>
#include <QPushButton>
#include <QStandardPaths>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include "ZVLocalization.h"
#include "ui_elements/ZVApplicationCommands.h"
#include "app/ZVTimerViewController.h"
#include "core/actions/ZVActionCenter.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "ui_elements/ZVHeartBeatStateButton.h"
#include "ui_elements/ZVProjectPopUpButton.h"
#include "ui_elements/ZVReceiptDrawerWindow.h"
#include "ui_elements/ZVTimeTextField.h"

namespace {
// The panel takes the desktop's colours, light or dark; only a running
// timer's button is red in every theme.
constexpr const char* panelStyle = R"(
ZVNorvoMainWindow { background-color: palette(window); }
QLabel#timeTextField, QLabel#gettingStartedText { color: palette(window-text); }
QLineEdit#currentTaskTextField { border: 1px solid palette(mid); border-radius: 4px; padding: 3px; font-weight: bold; }
QPushButton#projectListPopUpButton { text-align: left; padding: 4px 8px; }
QPushButton#startStopButton { font-weight: bold; padding: 4px 12px; }
QPushButton#startStopButton[beating="true"] { color: white; background: #e5002e; border: 1px solid #b00024;
  border-radius: 4px; }
)";
}  // namespace

ZVNorvoMainWindow::ZVNorvoMainWindow(ZVApplicationCommands& commands, QWidget* parent)
    : QWidget(parent), _commands(commands) {
    setObjectName(QStringLiteral("mainWindow"));
    setWindowTitle(QStringLiteral("Norvo"));
    setStyleSheet(QString::fromUtf8(panelStyle));
    setAttribute(Qt::WA_StyledBackground);

    _projectListPopUpButton = new ZVProjectPopUpButton(commands, this);
    _addIntegrationButton = new QToolButton(this);
    _addIntegrationButton->setObjectName(QStringLiteral("addIntegrationButton"));
    _addIntegrationButton->setText(QStringLiteral("+"));
    _addIntegrationButton->setToolTip(ZVLocalizedQString("Add Account..."));
    connect(_addIntegrationButton, &QToolButton::clicked, this, [this] { _commands.addIntegration(); });

    _timeTextField = new ZVTimeTextField(this);
    QFont clockFont = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    clockFont.setPixelSize(34);
    clockFont.setBold(true);
    _timeTextField->setFont(clockFont);
    _timeTextField->setEditTimeHandler([] { ZVActionCenter::shared().showTimeEditing(); });

    _startStopButton = new QPushButton(this);
    _startStopButton->setObjectName(QStringLiteral("startStopButton"));
    _startStopButton->setFocusPolicy(Qt::NoFocus);
    connect(_startStopButton, &QPushButton::clicked, this, [] { ZVActionCenter::shared().toggleTimer(); });

    _currentTaskTextField = new QLineEdit(this);
    _currentTaskTextField->setObjectName(QStringLiteral("currentTaskTextField"));
    _currentTaskTextField->setPlaceholderText(ZVLocalizedQString("What are you working on?"));
    connect(_currentTaskTextField, &QLineEdit::editingFinished, this, [this] { _commands.timeEntryTextHasChanged(); });

    _timerViewController = new ZVTimerViewController(commands, this);

    // A new user has nothing to pick: the two ways to a first project are
    // offered plainly until there is one.
    _gettingStarted = new QWidget(this);
    _gettingStarted->setObjectName(QStringLiteral("gettingStarted"));
    auto* startLayout = new QVBoxLayout(_gettingStarted);
    startLayout->setContentsMargins(0, 0, 0, 0);
    auto* startText = new QLabel(
        ZVLocalizedQString("To start, add a project of your own, or an account whose projects Norvo fetches."),
        _gettingStarted);
    startText->setObjectName(QStringLiteral("gettingStartedText"));
    startText->setWordWrap(true);
    startLayout->addWidget(startText);
    auto* startButtons = new QHBoxLayout();
    auto* addProject = new QPushButton(ZVLocalizedQString("Add Project..."), _gettingStarted);
    addProject->setObjectName(QStringLiteral("addProjectButton"));
    connect(addProject, &QPushButton::clicked, this,
            [] { ZVNorvoIntegration::sharedIntegration()->addProjectAction(); });
    auto* addAccount = new QPushButton(ZVLocalizedQString("Add Account..."), _gettingStarted);
    addAccount->setObjectName(QStringLiteral("addAccountButton"));
    connect(addAccount, &QPushButton::clicked, this, [this] { _commands.addIntegration(); });
    startButtons->addWidget(addProject);
    startButtons->addWidget(addAccount);
    startLayout->addLayout(startButtons);

    _logButton = new QToolButton(this);
    _logButton->setText(ZVLocalizedQString("Log"));
    _logButton->setCheckable(true);
    connect(_logButton, &QToolButton::clicked, this, [this] { _logDrawer->toggle(); });

    // The log drawer: the receipt of the current project for a period, in
    // a window of its own beside this one.
    _logDrawer = new ZVReceiptDrawerWindow(*this);
    connect(_logDrawer, &ZVReceiptDrawerWindow::timePeriodChanged, this, [this] { Q_EMIT timePeriodChanged(); });
    connect(_logDrawer, &ZVReceiptDrawerWindow::clearRequested, this, [this] { Q_EMIT clearLogRequested(); });
    connect(_logDrawer, &ZVReceiptDrawerWindow::exportRequested, this, [this] { Q_EMIT exportLogRequested(); });
    connect(_logDrawer, &ZVReceiptDrawerWindow::shownChanged, this, [this](bool shown) {
        const QSignalBlocker quiet(_logButton);
        _logButton->setChecked(shown);
        Q_EMIT logDrawerToggled(shown);
    });

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setSpacing(8);
    auto* top = new QHBoxLayout();
    top->addWidget(_projectListPopUpButton, 1);
    top->addWidget(_addIntegrationButton);
    top->addSpacing(12);
    layout->addLayout(top);
    auto* clock = new QHBoxLayout();
    clock->addWidget(_timeTextField, 1);
    clock->addWidget(_startStopButton);
    layout->addLayout(clock);
    layout->addWidget(_currentTaskTextField);
    layout->addWidget(_gettingStarted);
    layout->addWidget(_timerViewController);
    auto* bottom = new QHBoxLayout();
    bottom->addStretch();
    bottom->addWidget(_logButton);
    layout->addLayout(bottom);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    setMinimumWidth(340);

    _heartBeatStateButton = new ZVHeartBeatStateButton(this);
    _observations.push_back(ZVNotificationCenter::shared().addObserver(
        ZVHeartBeatStateDidChangeNotification, [this](const ZVNotification&) { _updateStartStopButton(); }));
    _updateStartStopButton();
    for (const char* name : {ZVIntegrationCenterCurrentProjectDidChangeNotification, ZVIntegrationAvailableProjectsDidChange,
                             ZVIntegrationCenterSynchronizationDidStartNotification,
                             ZVIntegrationCenterSynchronizationDidEndNotification,
                             ZVIntegrationCenterDidLoadNotification})
        _observations.push_back(ZVNotificationCenter::shared().addObserver(
            name, [this](const ZVNotification&) { _updateGettingStarted(); }));
    _updateGettingStarted();
}

void ZVNorvoMainWindow::_updateGettingStarted() {
    auto* center = ZVIntegrationCenter::sharedIfExists();
    // While the database is read it is not known whether there are projects.
    const bool noProject = !(center && !center->isLoaded()) && !(center && center->currentProject()) &&
                           ZVNorvoIntegration::sharedIntegration()->availableProjects().empty() &&
                           !(center && !center->integrations().empty());
    _gettingStarted->setVisible(noProject);
}

ZVNorvoMainWindow::~ZVNorvoMainWindow() {
    for (auto token : _observations) ZVNotificationCenter::shared().removeObserver(token);
}

void ZVNorvoMainWindow::_updateStartStopButton() {
    const bool beating = ZVHeartBeat::sharedHeartBeat().isBeating();
    _startStopButton->setText(beating ? ZVLocalizedQString("Stop") : ZVLocalizedQString("Start"));
    _startStopButton->setProperty("beating", beating);
    _startStopButton->style()->unpolish(_startStopButton);
    _startStopButton->style()->polish(_startStopButton);
}

void ZVNorvoMainWindow::setKeptAboveOtherWindows(bool above) {
    if (testAttribute(Qt::WA_WState_Created) && windowFlags().testFlag(Qt::WindowStaysOnTopHint) == above) return;
    const bool visible = isVisible();
    setWindowFlag(Qt::WindowStaysOnTopHint, above);
    if (visible) show();
}

bool ZVNorvoMainWindow::isLogDrawerShown() const { return _logDrawer->isShown(); }

void ZVNorvoMainWindow::setLogDrawerShown(bool shown) {
    if (shown)
        _logDrawer->show();
    else
        _logDrawer->hide();
}

void ZVNorvoMainWindow::setLogText(const std::string& text) { _logDrawer->setLogText(QString::fromStdString(text)); }

std::string ZVNorvoMainWindow::currentTaskName() const { return _currentTaskTextField->text().toStdString(); }

void ZVNorvoMainWindow::setCurrentTaskName(const std::string& name) {
    _currentTaskTextField->setText(QString::fromStdString(name));
}

int ZVNorvoMainWindow::selectedTimePeriod() const { return _logDrawer->selectedTimePeriod(); }

std::optional<std::string> ZVNorvoMainWindow::chooseCSVExportPath(const std::string& suggestedName) {
    // The documents folder at first, then the folder of the last export.
    static QString lastFolder;
    QString folder = lastFolder.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) : lastFolder;
    // A folder that is gone would leave the dialog in the working folder.
    if (!QFileInfo(folder).isDir()) folder = QDir::homePath();
    const QString path = QFileDialog::getSaveFileName(this, ZVLocalizedQString("Export Log"),
                                                      folder + QLatin1Char('/') + QString::fromStdString(suggestedName),
                                                      QStringLiteral("CSV (*.csv)"));
    if (path.isEmpty()) return std::nullopt;
    lastFolder = QFileInfo(path).absolutePath();
    return path.toStdString();
}

void ZVNorvoMainWindow::closeEvent(QCloseEvent* event) {
    hide();
    event->ignore();
}

void ZVNorvoMainWindow::changeEvent(QEvent* event) {
    // The style sheet's palette colours are read when it is applied: a
    // desktop that switches between light and dark has it applied again.
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationPaletteChange) {
        if (!_restyling) {
            _restyling = true;
            setStyleSheet(QString::fromUtf8(panelStyle));
            _restyling = false;
        }
    }
    QWidget::changeEvent(event);
}

