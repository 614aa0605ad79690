#pragma once

#include <QDialog>

class QPlainTextEdit;

/// Shows the state report of the installed application state provider,
/// read-only, with a button that copies it for a bug report.
class ZVStateReportWindow final : public QDialog {
    Q_OBJECT
public:
    explicit ZVStateReportWindow(QWidget* parent = nullptr);

    QString reportText() const;

private:
    QPlainTextEdit* _text = nullptr;
};
