#include "app/ZVTimerViewController.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QEvent>
#include <QFontMetrics>
#include <QHBoxLayout>
#include <QListView>
#include <QMenu>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "ZVLocalization.h"
#include "ZVLog.h"
#include "app/ZVMenuManager.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "ui_elements/ZVMenuRenderer.h"
#include "ui_elements/ZVProjectQuickSearch.h"
#include "ui_elements/ZVProjectSearchResultDelegate.h"

namespace {
QToolButton* pullDown(const QString& title, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setText(title);
    button->setPopupMode(QToolButton::InstantPopup);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setFocusPolicy(Qt::NoFocus);
    button->setMenu(new QMenu(button));
    return button;
}
}  // namespace

ZVTimerViewController::ZVTimerViewController(ZVApplicationCommands& commands, QWidget* parent)
    : QWidget(parent), _commands(commands) {
    _searchField = new ZVSearchFieldWithResults(this);
    _searchField->installEventFilter(this);
    _searchField->setObjectName(QStringLiteral("quickSearchField"));
    _resultDelegate = new ZVProjectSearchResultDelegate(this);
    _searchField->setSearchResultsWidth(220);

    _recentProjectsPopUpButton = pullDown(ZVLocalizedQString("Recent Projects"), this);
    _actionPopUpButton = pullDown(ZVLocalizedQString("Actions"), this);
    _gearButton = pullDown(QStringLiteral("\u2699"), this);
    _gearButton->setToolTip(ZVLocalizedQString("Settings"));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(_searchField);
    layout->addWidget(_searchField->resultsList());
    auto* buttons = new QHBoxLayout();
    buttons->addWidget(_recentProjectsPopUpButton);
    buttons->addWidget(_actionPopUpButton);
    buttons->addStretch();
    buttons->addWidget(_gearButton);
    layout->addLayout(buttons);

    // The action menu and the recents follow every change: they are built
    // at each opening.
    ZVMenuRenderer::rebuildOnOpening(*_actionPopUpButton->menu(), [] { return ZVMenuManager::shared().actionMenu(); });
    ZVMenuRenderer::rebuildOnOpening(*_recentProjectsPopUpButton->menu(), [this] {
        auto menu = std::make_shared<ZVMenu>();
        for (auto& item : ZVMenuManager::shared().recentProjectsMenuItems(this)) menu->addItem(item);
        return menu;
    });
    _gearMenu = _gearButton->menu();
    // Built at each opening, so that check marks show the state of the moment.
    ZVMenuRenderer::rebuildOnOpening(*_gearMenu, [] {
        ZVMenuManager::ApplicationMenuVisibility visibility;
        visibility.showQuitItem = true;
        return ZVMenuManager::shared().applicationMenu(visibility);
    });
    _searchField->setResultsDelegate(this);
    _loadedObservation = ZVNotificationCenter::shared().addObserver(
        ZVIntegrationCenterDidLoadNotification, [this](const ZVNotification&) { _showLoading(false); });
    _showLoading(!ZVIntegrationCenter::shared().isLoaded());
}

ZVTimerViewController::~ZVTimerViewController() { ZVNotificationCenter::shared().removeObserver(_loadedObservation); }

void ZVTimerViewController::_showLoading(bool loading) {
    _searchField->setReadOnly(loading);
    _searchField->setPlaceholderText(loading ? ZVLocalizedQString("Loading projects…")
                                             : ZVLocalizedQString("Search projects"));
}

void ZVTimerViewController::makeSearchFieldFirstResponder() {
    if (window() && window()->isVisible()) _searchField->setFocus(Qt::OtherFocusReason);
}

void ZVTimerViewController::viewWillAppear() {
    _searchField->setFocus(Qt::OtherFocusReason);
}

bool ZVTimerViewController::eventFilter(QObject* watched, QEvent* event) {
    // Renewing the index after a refresh costs more than a keystroke may;
    // it is done when the field gets the focus, before the first key.
    if (watched == _searchField && event->type() == QEvent::FocusIn) ZVProjectQuickSearch::prepareAllProjects();
    return QWidget::eventFilter(watched, event);
}

void ZVTimerViewController::selectProject(const ZVMenuItem& item) {
    auto project = item.representedProject();
    if (!project) return;
    ZVIntegrationCenter::shared().setCurrentProject(project);
    Q_EMIT projectChosen();
}

void ZVTimerViewController::searchFieldDidCancelCurrentSearch(ZVSearchFieldWithResults&) {}

void ZVTimerViewController::searchFieldDidChangeQuery(
    ZVSearchFieldWithResults& field, const QString& query,
    const std::function<void(const QVariantList&)>& completionHandler) {
    const auto projects = ZVProjectQuickSearch::searchAllProjects(query.toStdString());
    QVariantList results;
    results.reserve(static_cast<qsizetype>(projects.size()));
    for (const auto& project : projects) results.append(ZVProjectSearchResultDelegate::resultValue(project));

    if (!projects.empty()) {
        const QFontMetrics nameMetrics(ZVProjectSearchResultDelegate::nameFont(font()));
        const QFontMetrics pathMetrics(ZVProjectSearchResultDelegate::pathFont(font()));
        int widest = 0;
        // Measuring text is the slow part of a search; the first thousand
        // results decide the width, which is what the open list shows first.
        const std::size_t measured = std::min<std::size_t>(projects.size(), 1000);
        if (_resultWidthsGeneration != ZVIntegrationProject::treeGeneration()) {
            _resultWidths.clear();
            _resultWidthsGeneration = ZVIntegrationProject::treeGeneration();
        }
        for (std::size_t i = 0; i < measured; ++i) {
            const auto& project = projects[i];
            auto [width, isNew] = _resultWidths.try_emplace(project.get(), 0);
            if (isNew)
                width->second =
                    std::max(nameMetrics.horizontalAdvance(QString::fromStdString(project->name())),
                             pathMetrics.horizontalAdvance(QString::fromStdString(project->fullProjectPath())));
            widest = std::max(widest, width->second);
        }
        field.setSearchResultsWidth(std::max(200, widest) + 20);
    }
    completionHandler(results);
}

void ZVTimerViewController::searchFieldDidSelectResult(ZVSearchFieldWithResults& field, const QVariant& result) {
    auto project = ZVProjectSearchResultDelegate::projectOfResult(result);
    if (!project) return;
    ZVLog([&] { return "Quick search chose " + project->fullProjectPath(); });
    ZVIntegrationCenter::shared().setCurrentProject(project);
    field.clear();
    Q_EMIT projectChosen();
}

QString ZVTimerViewController::searchFieldAccessibilityValue(ZVSearchFieldWithResults&, const QVariant& result) {
    auto project = ZVProjectSearchResultDelegate::projectOfResult(result);
    return project ? QString::fromStdString(project->name()) : QString();
}

int ZVTimerViewController::searchFieldHeightOfRow(ZVSearchFieldWithResults&, const QVariant&) {
    return ZVProjectSearchResultDelegate::rowHeight;
}

QAbstractItemDelegate* ZVTimerViewController::searchFieldItemDelegate(ZVSearchFieldWithResults&) {
    return _resultDelegate;
}
