#pragma once

#include <QWidget>

class QVBoxLayout;

/// The composed setup view of one account: its basic view on top, the view
/// of its credential below, its additional view at the bottom, 10 points
/// apart. Each field writes into the account as the user types, so the view
/// holds no state of its own.
class ZVIntegrationSetupView final : public QWidget {
    Q_OBJECT
public:
    explicit ZVIntegrationSetupView(QWidget* parent = nullptr);

    /// Appends a part below the others; nothing for none.
    void addPart(QWidget* part);

private:
    QVBoxLayout* _layout = nullptr;
};
