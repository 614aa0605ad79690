#include "ui_elements/ZVProjectSelectionAlert.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QVBoxLayout>

#include "ZVLocalization.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "ui_elements/ZVMenuRenderer.h"
#include "ui_elements/ZVQtLocalization.h"

ZVProjectSelectionAlert::ZVProjectSelectionAlert(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("projectSelectionAlert"));
    setWindowTitle(QStringLiteral("Norvo"));
    auto* layout = new QVBoxLayout(this);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    _message = new QLabel(this);
    QFont bold = _message->font();
    bold.setBold(true);
    _message->setFont(bold);
    _message->setWordWrap(true);
    _informative = new QLabel(this);
    _informative->setWordWrap(true);
    _informative->hide();
    _projectSelectionPopUpButton = new QPushButton(this);
    _projectSelectionPopUpButton->setObjectName(QStringLiteral("projectSelectionPopUpButton"));
    _projectSelectionPopUpButton->setMinimumWidth(320);
    auto* menu = new QMenu(_projectSelectionPopUpButton);
    _projectSelectionPopUpButton->setMenu(menu);
    // The menu is built at each opening, with the times of the moment.
    ZVMenuRenderer::rebuildOnOpening(*menu, [this] { return projectMenu(this, _selectedProject); });
    _buttonRow = new QWidget(this);
    auto* buttons = new QHBoxLayout(_buttonRow);
    buttons->setContentsMargins(0, 0, 0, 0);
    buttons->addStretch();
    layout->addWidget(_message);
    layout->addWidget(_informative);
    layout->addWidget(_projectSelectionPopUpButton);
    layout->addWidget(_buttonRow);
    _selectedProject = ZVIntegrationCenter::shared().currentProject();
    _refill();
}

void ZVProjectSelectionAlert::setMessageText(const QString& text) { _message->setText(text); }

void ZVProjectSelectionAlert::setInformativeText(const QString& text) {
    _informative->setText(text);
    _informative->setVisible(!text.isEmpty());
}

void ZVProjectSelectionAlert::setButtons(const QStringList& titles) {
    auto* row = static_cast<QHBoxLayout*>(_buttonRow->layout());
    for (int index = 0; index < titles.size(); ++index) {
        auto* button = new QPushButton(titles[index], _buttonRow);
        button->setDefault(index == 0);
        button->setAutoDefault(index == 0);
        connect(button, &QPushButton::clicked, this, [this, index] {
            _answer = index;
            if (index == 0)
                accept();
            else
                reject();
        });
        row->addWidget(button);
        if (titles[index] == ZVLocalizedQString("Cancel")) {
            connect(this, &QDialog::rejected, this, [this, index] {
                if (_answer < 0) _answer = index;
            });
        }
    }
}

int ZVProjectSelectionAlert::runModal() {
    _answer = -1;
    exec();
    return _answer;
}

void ZVProjectSelectionAlert::selectProject(const std::shared_ptr<ZVIntegrationProject>& project) {
    _selectedProject = project;
    _refill();
}

void ZVProjectSelectionAlert::selectProject(const ZVMenuItem& item) {
    if (auto project = item.representedProject()) selectProject(project);
}

void ZVProjectSelectionAlert::_refill() {
    _projectSelectionPopUpButton->setText(_selectedProject
                                              ? ZVPlainTitle(_selectedProject->name())
                                              : ZVLocalizedQString("No project selected"));
    _projectSelectionPopUpButton->setToolTip(
        _selectedProject ? QString::fromStdString(_selectedProject->fullProjectPath()) : QString());
}

std::shared_ptr<ZVMenu> ZVProjectSelectionAlert::projectMenu(
    ZVIntegrationProjectMenuItemTarget* target,
    const std::shared_ptr<ZVIntegrationProject>& selected) {
    auto menu = std::make_shared<ZVMenu>();
    auto local = std::make_shared<ZVMenuItem>(ZVLocalizedString("Projects"));
    local->submenu =
        ZVNorvoIntegration::sharedIntegration()->lazyIntegrationMenu(target, selected, false);
    menu->addItem(local);
    menu->addSeparator();
    const auto integrations = ZVIntegrationCenter::shared().integrations();
    for (const auto& integration : integrations) {
        auto item = std::make_shared<ZVMenuItem>(integration->name());
        item->submenu = integration->lazyIntegrationMenu(target, selected, false);
        menu->addItem(item);
    }
    if (integrations.empty()) menu->addItem(ZVLocalizedString("No Accounts"), "absurdium");
    return menu;
}
