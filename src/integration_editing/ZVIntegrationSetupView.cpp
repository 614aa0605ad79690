#include "integration_editing/ZVIntegrationSetupView.h"

#include <QVBoxLayout>

ZVIntegrationSetupView::ZVIntegrationSetupView(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("integrationSetupView"));
    _layout = new QVBoxLayout(this);
    _layout->setContentsMargins(0, 0, 0, 0);
    _layout->setSpacing(10);
}

void ZVIntegrationSetupView::addPart(QWidget* part) {
    if (part) _layout->addWidget(part);
}
