#pragma once

#include <QComboBox>

/// The pull-down of the service kinds that an account can be made of: one
/// item per class of the centre's availableIntegrationClasses, in the
/// centre's order, titled with the class's integrationName.
class ZVIntegrationListPopUpButton final : public QComboBox {
    Q_OBJECT
public:
    explicit ZVIntegrationListPopUpButton(QWidget* parent = nullptr);

    /// Selects the item of that title; false when there is none.
    bool selectItemWithTitle(const QString& title);
    QString titleOfSelectedItem() const { return currentText(); }
};
