#include "app/ZVStatusItemController.h"

#include <QApplication>
#include <QCursor>
#include <QHash>
#include <QIcon>
#include <QMenu>
#include <QPixmap>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>
#include <algorithm>

#include "ZVLocalization.h"
#include "ZVPaths.h"
#include "app/ZVMenuManager.h"
#include "app/ZVTimerViewController.h"
#include "core/actions/ZVActionCenter.h"
#include "core/heart_beat/ZVHeartBeat.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "preferences/ZVNorvoPreferences.h"
#include "ui_elements/ZVMenuRenderer.h"

namespace {
ZVStatusItemController* sharedStatusItem = nullptr;
}

ZVStatusItemController::ZVStatusItemController(ZVApplicationCommands& commands, QObject* parent)
    : QObject(parent), _commands(commands) {
    sharedStatusItem = this;
    _statusItem = std::make_unique<QSystemTrayIcon>();
    _menu = std::make_unique<QMenu>();
    ZVMenuRenderer::rebuildOnOpening(*_menu, [] {
        return ZVMenuManager::shared().applicationMenu({true, true, true, true});
    });
    _statusItem->setContextMenu(_menu.get());
    connect(_statusItem.get(), &QSystemTrayIcon::activated, this, &ZVStatusItemController::_activated);

    _spinnerTimer = new QTimer(this);
    _spinnerTimer->setInterval(120);
    connect(_spinnerTimer, &QTimer::timeout, this, [this] {
        if (!_view.isSpinning()) return;
        _view.setSpinnerPhase((_view.spinnerPhase() + 1) % 12);
        _redraw();
    });

    auto& heartBeat = ZVHeartBeat::sharedHeartBeat();
    heartBeat.addVein(this);
    _view.setTimeString(QString::fromStdString(heartBeat.currentTimeString()));
    auto& notifications = ZVNotificationCenter::shared();
    _observations.push_back(notifications.addObserver(ZVIntegrationCenterSynchronizationDidStartNotification,
                                                      [this](const ZVNotification&) { _placeSyncingIndicator(); }));
    _observations.push_back(notifications.addObserver(ZVIntegrationCenterSynchronizationDidEndNotification,
                                                      [this](const ZVNotification&) { _removeSyncingIndicator(); }));
    _observations.push_back(notifications.addObserver(ZVHeartBeatStateDidChangeNotification,
                                                      [this](const ZVNotification&) { _redraw(); }));
    _observations.push_back(notifications.addObserver(ZVIntegrationCenterCurrentProjectDidChangeNotification,
                                                      [this](const ZVNotification&) { _redraw(); }));
    _observations.push_back(notifications.addObserver(ZVIntegrationCenterDidLoadNotification,
                                                      [this](const ZVNotification&) { _redraw(); }));
    if (auto* center = ZVIntegrationCenter::sharedIfExists(); center && center->synchronizationIsInProgress())
        _placeSyncingIndicator();
    // A desktop that switches between light and dark panels changes the
    // application's palette.
    qApp->installEventFilter(this);
    updateItemWidth();
    _statusItem->show();
}

bool ZVStatusItemController::eventFilter(QObject* watched, QEvent* event) {
    if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange) _redraw();
    return QObject::eventFilter(watched, event);
}

QString ZVStatusItemController::stateIconName(bool beating, bool syncing, bool darkPanel) {
    const QString state = syncing ? QStringLiteral("syncing") : beating ? QStringLiteral("running") : QStringLiteral("stopped");
    return QStringLiteral("com.tesselwick.Norvo-") + state + (darkPanel ? QStringLiteral("-dark") : QString());
}

bool ZVStatusItemController::panelIsDark() {
    return QGuiApplication::palette().color(QPalette::Window).lightnessF() < 0.5;
}

QIcon ZVStatusItemController::trayIcon(const ZVStatusItemView& view, bool darkPanel) {
    QIcon icon(QPixmap::fromImage(view.render()));
    const QString name = stateIconName(view.isBeating(), view.isSpinning(), darkPanel);
    // The clock changes every second; the six state pictures are looked up
    // in the theme and drawn from their SVG once each.
    static QHash<QString, QPixmap> statePictures;
    auto known = statePictures.find(name);
    if (known == statePictures.end()) {
        const QString shipped = QString::fromStdString(ZVPaths::sharedDataDirectory()) +
                                QStringLiteral("/icons/hicolor/scalable/status/") + name + QStringLiteral(".svg");
        known = statePictures.insert(name, QIcon::fromTheme(name, QIcon(shipped)).pixmap(16, 16));
    }
    if (!known->isNull()) icon.addPixmap(*known);
    return icon;
}

ZVStatusItemController::~ZVStatusItemController() {
    for (auto token : _observations) ZVNotificationCenter::shared().removeObserver(token);
    ZVHeartBeat::sharedHeartBeat().removeVein(this);
    if (_popoverWindow) delete _popoverWindow.data();
    if (sharedStatusItem == this) sharedStatusItem = nullptr;
}

ZVStatusItemController* ZVStatusItemController::sharedController() { return sharedStatusItem; }

ZVTimerViewController* ZVStatusItemController::timerViewController() const { return _timerViewController; }

bool ZVStatusItemController::isPopoverShown() const { return _popoverWindow && _popoverWindow->isVisible(); }

QString ZVStatusItemController::toolTipText() {
    auto* center = ZVIntegrationCenter::sharedIfExists();
    if (center && !center->isLoaded()) return QString::fromStdString(ZVLocalizedString("Loading projects…"));
    auto project = center ? center->currentProject() : nullptr;
    return project ? QString::fromStdString(project->fullProjectPath())
                   : QString::fromStdString(ZVLocalizedString("No Project"));
}

void ZVStatusItemController::heartBeat(ZVHeartBeat&, const std::string& didUpdateTime) {
    _view.setTimeString(QString::fromStdString(didUpdateTime));
    _redraw();
}

void ZVStatusItemController::updateItemWidth() {
    const ZVNorvoPreferences preferences = ZVNorvoPreferences::shared();
    _view.setDisplaysSeconds(preferences.displaysSecondsInMenuBar());
    _view.setUsesMonochromeColors(preferences.usesMonochromeColors());
    _redraw();
}

void ZVStatusItemController::_redraw() {
    _view.setBeating(ZVHeartBeat::sharedHeartBeat().isBeating());
    // The clock ticks twice a second; with seconds hidden the picture
    // changes once a minute. Handing the tray an unchanged icon would make
    // it redraw for nothing, so only a changed picture is sent.
    const bool darkPanel = panelIsDark();
    const QString appearance = _view.appearanceKey() + (darkPanel ? QStringLiteral("|dark") : QStringLiteral("|light"));
    if (appearance != _shownAppearance) {
        _statusItem->setIcon(trayIcon(_view, darkPanel));
        _shownAppearance = appearance;
    }
    const QString toolTip = _view.displayedTimeString() + QStringLiteral(" \u2014 ") + toolTipText();
    if (toolTip != _statusItem->toolTip()) _statusItem->setToolTip(toolTip);
}

void ZVStatusItemController::_placeSyncingIndicator() {
    if (_view.isSpinning()) return;
    _view.setSpinnerPhase(0);
    _spinnerTimer->start();
    _redraw();
}

void ZVStatusItemController::_removeSyncingIndicator() {
    if (!_view.isSpinning()) return;
    _spinnerTimer->stop();
    _view.setSpinnerPhase(-1);
    _redraw();
}

void ZVStatusItemController::showMessage(const QString& title, const QString& text) {
    if (QSystemTrayIcon::supportsMessages()) _statusItem->showMessage(title, text, QSystemTrayIcon::NoIcon, 4000);
}

void ZVStatusItemController::_activated(QSystemTrayIcon::ActivationReason reason) {
    // A click on the icon while a dialog waits for an answer is ignored.
    if (QApplication::activeModalWidget()) return;
    const Qt::KeyboardModifiers modifiers = QGuiApplication::queryKeyboardModifiers();
    switch (reason) {
        case QSystemTrayIcon::Trigger:
            if (modifiers & Qt::ControlModifier)
                ZVActionCenter::shared().showTimeEditing();
            else if (modifiers & Qt::ShiftModifier)
                ZVActionCenter::shared().toggleTimer();
            else
                showStatusItemPopover();
            break;
        case QSystemTrayIcon::MiddleClick: ZVActionCenter::shared().toggleTimer(); break;
        default: break;
    }
}

QWidget& ZVStatusItemController::_popover() {
    if (!_popoverWindow) {
        // A popup closes by itself when the user clicks elsewhere or the
        // program loses the focus.
        auto* popover = new QWidget(nullptr, Qt::Popup);
        popover->setObjectName(QStringLiteral("statusItemPopover"));
        auto* layout = new QVBoxLayout(popover);
        layout->setContentsMargins(10, 10, 10, 10);
        _timerViewController = new ZVTimerViewController(_commands, popover);
        layout->addWidget(_timerViewController);
        popover->setMinimumWidth(320);
        connect(_timerViewController, &ZVTimerViewController::projectChosen, popover, &QWidget::hide);
        _popoverWindow = popover;
    }
    return *_popoverWindow;
}

void ZVStatusItemController::showStatusItemPopover() {
    QWidget& popover = _popover();
    popover.adjustSize();
    QRect anchor = _statusItem->geometry();
    QPoint position = anchor.isValid() ? anchor.bottomLeft() : QCursor::pos();
    if (QScreen* screen = QGuiApplication::screenAt(position)) {
        const QRect available = screen->availableGeometry();
        if (position.y() + popover.height() > available.bottom())
            position.setY((anchor.isValid() ? anchor.top() : position.y()) - popover.height());
        position.setX(std::clamp(position.x(), available.left(), available.right() - popover.width()));
        position.setY(std::clamp(position.y(), available.top(), available.bottom() - popover.height()));
    }
    popover.move(position);
    popover.show();
    popover.activateWindow();
    _timerViewController->viewWillAppear();
}

void ZVStatusItemController::showQuickSearch() {
    if (!isPopoverShown()) showStatusItemPopover();
    if (_timerViewController) _timerViewController->makeSearchFieldFirstResponder();
    _takeKeyboard(60);
}

// A hot key holds the keyboard until its keys are released, so the popup's
// own grab fails when a hot key opens it: typing would go to the program
// that had the focus, and neither Escape nor a click elsewhere would close
// the popup. The grab is tried again until the keys are up.
void ZVStatusItemController::_takeKeyboard(int attemptsLeft) {
    if (!isPopoverShown()) return;
    QWindow* window = _popoverWindow->windowHandle();
    if (!window) return;
    _popoverWindow->activateWindow();
    if (window->setKeyboardGrabEnabled(true) && window->setMouseGrabEnabled(true)) return;
    if (attemptsLeft > 0)
        QTimer::singleShot(50, this, [this, attemptsLeft] { _takeKeyboard(attemptsLeft - 1); });
}
