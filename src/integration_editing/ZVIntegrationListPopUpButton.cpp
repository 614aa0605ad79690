#include "integration_editing/ZVIntegrationListPopUpButton.h"

#include "core/integrations/ZVIntegrationRegistry.h"
#include "core/integrations/center/ZVIntegrationCenter.h"

ZVIntegrationListPopUpButton::ZVIntegrationListPopUpButton(QWidget* parent) : QComboBox(parent) {
    setObjectName(QStringLiteral("integrationPopUp"));
    setAttribute(Qt::WA_MacShowFocusRect, false);
    for (const auto& integrationClass : ZVIntegrationCenter::shared().availableIntegrationClasses())
        addItem(QString::fromStdString(integrationClass.integrationName));
}

bool ZVIntegrationListPopUpButton::selectItemWithTitle(const QString& title) {
    const int index = findText(title, Qt::MatchExactly);
    if (index < 0) return false;
    setCurrentIndex(index);
    return true;
}
