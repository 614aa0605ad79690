#include "app/ZVQtTimeActionDialogs.h"

#include "ui_elements/ZVQtLocalization.h"

#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QKeyEvent>
#include <QMenu>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>
#include <algorithm>
#include <vector>

#include "ZVLocalization.h"
#include "core/actions/ZVTimeEditor.h"
#include "core/actions/ZVTimeMover.h"
#include "core/actions/ZVTimeRounder.h"
#include "core/integrations/ZVIntegration.h"
#include "core/integrations/center/ZVIntegrationCenter.h"
#include "core/integrations/helper/ZVIntegrationProject.h"
#include "core/integrations/local/ZVNorvoIntegration.h"
#include "core/ui/ZVMenu.h"
#include "ui_elements/ZVMenuRenderer.h"
#include "ui_elements/ZVProjectSelectionAlert.h"

namespace {

QWidget* parentFor(QWidget* preferred) { return preferred && preferred->isVisible() ? preferred : nullptr; }

QSpinBox* timeField(std::uint64_t value, int maximum, const QString& name) {
    auto* field = new QSpinBox();
    field->setObjectName(name);
    field->setRange(0, maximum);
    field->setValue(static_cast<int>(std::min<std::uint64_t>(value, static_cast<std::uint64_t>(maximum))));
    return field;
}

// Left at the start of a field and Right at its end move between the
// hours, minutes and seconds, as in one clock field.
class FieldStepper final : public QObject {
public:
    FieldStepper(std::vector<QSpinBox*> fields, QObject* parent) : QObject(parent), _fields(std::move(fields)) {
        for (QSpinBox* field : _fields) field->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::KeyPress) return false;
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key != Qt::Key_Left && key != Qt::Key_Right) return false;
        const auto found = std::find(_fields.begin(), _fields.end(), watched);
        auto* text = found == _fields.end() ? nullptr : (*found)->findChild<QLineEdit*>();
        if (!text) return false;
        const bool whole = text->hasSelectedText() && text->selectedText() == text->text();
        const auto index = static_cast<std::size_t>(found - _fields.begin());
        std::size_t next = index;
        if (key == Qt::Key_Left && (whole || text->cursorPosition() == 0) && index > 0) next = index - 1;
        if (key == Qt::Key_Right && (whole || text->cursorPosition() == text->text().size()) && index + 1 < _fields.size())
            next = index + 1;
        if (next == index) return false;
        _fields[next]->setFocus(Qt::TabFocusReason);
        _fields[next]->selectAll();
        return true;
    }

private:
    std::vector<QSpinBox*> _fields;
};

// The project menu of a dialog: its choice goes to a function.
class ChoiceTarget final : public ZVIntegrationProjectMenuItemTarget {
public:
    explicit ChoiceTarget(std::function<void(const std::shared_ptr<ZVIntegrationProject>&)> choose)
        : _choose(std::move(choose)) {}
    void selectProject(const ZVMenuItem& item) override { _choose(item.representedProject()); }

private:
    std::function<void(const std::shared_ptr<ZVIntegrationProject>&)> _choose;
};

}  // namespace

void ZVQtTimeActionDialogs::runTimeMover(ZVTimeMover& mover) {
    QDialog dialog(parentFor(_parentWindow));
    dialog.setObjectName(QStringLiteral("timeMoverDialog"));
    dialog.setWindowTitle(QString::fromStdString(mover.confirmButtonTitle()));
    auto* layout = new QVBoxLayout(&dialog);

    auto* projectButton = new QPushButton(&dialog);
    projectButton->setObjectName(QStringLiteral("projectPopUp"));
    auto* projectMenu = new QMenu(projectButton);
    projectButton->setMenu(projectMenu);
    ChoiceTarget target([&](const std::shared_ptr<ZVIntegrationProject>& project) {
        mover.selectProject(project);
        projectButton->setText(ZVPlainTitle(mover.projectPopUpTitle()));
    });
    ZVMenuRenderer::rebuildOnOpening(*projectMenu,
                                     [&] { return ZVProjectSelectionAlert::projectMenu(&target, mover.selectedProject()); });
    projectButton->setText(ZVPlainTitle(mover.projectPopUpTitle()));

    auto* hours = timeField(0, 99, QStringLiteral("hours"));
    auto* minutes = timeField(0, 59, QStringLiteral("minutes"));
    auto* seconds = timeField(0, 59, QStringLiteral("seconds"));
    auto* amount = new QHBoxLayout();
    for (auto [field, unit] : {std::pair{hours, "h"}, std::pair{minutes, "m"}, std::pair{seconds, "s"}}) {
        amount->addWidget(field);
        amount->addWidget(new QLabel(QString::fromUtf8(unit)));
    }
    auto* allTime = new QPushButton(ZVLocalizedQString("All Time"));
    allTime->setObjectName(QStringLiteral("allTimeButton"));
    amount->addWidget(allTime);
    QObject::connect(allTime, &QPushButton::clicked, &dialog, [&] {
        if (auto all = mover.selectAllTime()) {
            hours->setValue(static_cast<int>(std::min<std::uint64_t>(all->hours, 99)));
            minutes->setValue(static_cast<int>(all->minutes));
            seconds->setValue(static_cast<int>(all->seconds));
        }
    });

    auto* form = new QFormLayout();
    form->addRow(ZVLocalizedQString("Project:"), projectButton);
    form->addRow(ZVLocalizedQString("Time:"), amount);
    layout->addLayout(form);

    auto* buttons = new QDialogButtonBox(&dialog);
    QPushButton* cancel = buttons->addButton(ZVLocalizedQString("Cancel"), QDialogButtonBox::RejectRole);
    QPushButton* confirm = buttons->addButton(QString::fromStdString(mover.confirmButtonTitle()),
                                              QDialogButtonBox::AcceptRole);
    confirm->setObjectName(QStringLiteral("confirmButton"));
    cancel->setObjectName(QStringLiteral("cancelButton"));
    confirm->setDefault(true);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addWidget(buttons);

    if (dialog.exec() == QDialog::Accepted) {
        mover.confirm({static_cast<std::uint64_t>(hours->value()), static_cast<std::uint64_t>(minutes->value()),
                       static_cast<std::uint64_t>(seconds->value())});
    } else {
        mover.cancel();
    }
}

void ZVQtTimeActionDialogs::runTimeRounding(ZVTimeRounder& rounder) {
    QDialog dialog(parentFor(_parentWindow));
    dialog.setObjectName(QStringLiteral("timeRoundingDialog"));
    dialog.setWindowTitle(ZVLocalizedQString("Round Time"));
    auto* layout = new QVBoxLayout(&dialog);
    if (rounder.project())
        layout->addWidget(new QLabel(QString::fromStdString(rounder.project()->fullProjectPath())));

    auto* direction = new QComboBox();
    direction->setObjectName(QStringLiteral("directionPopUp"));
    direction->addItems({ZVLocalizedQString("Nearest"), ZVLocalizedQString("Up"), ZVLocalizedQString("Down")});
    auto* duration = new QComboBox();
    duration->setObjectName(QStringLiteral("durationPopUp"));
    for (std::uint64_t seconds : ZVTimeRounder::durations)
        duration->addItem(QString::fromStdString(
            ZVLocalizedPluralFormat("%@ minute", "%@ minutes", seconds / 60, {std::to_string(seconds / 60)})));
    auto* form = new QFormLayout();
    form->addRow(ZVLocalizedQString("Round:"), direction);
    form->addRow(ZVLocalizedQString("To a multiple of:"), duration);
    layout->addLayout(form);

    auto* buttons = new QDialogButtonBox(&dialog);
    buttons->addButton(ZVLocalizedQString("Cancel"), QDialogButtonBox::RejectRole)->setObjectName(QStringLiteral("cancelButton"));
    QPushButton* done = buttons->addButton(ZVLocalizedQString("Done"), QDialogButtonBox::AcceptRole);
    done->setObjectName(QStringLiteral("doneButton"));
    done->setDefault(true);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, [&] {
        if (rounder.roundTime(direction->currentIndex(), duration->currentIndex())) dialog.accept();
    });
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addWidget(buttons);
    dialog.exec();
}

void ZVQtTimeActionDialogs::runTimeEditor(ZVTimeEditor& editor) {
    QDialog dialog(parentFor(_parentWindow));
    dialog.setObjectName(QStringLiteral("timeEditorDialog"));
    dialog.setWindowTitle(ZVLocalizedQString("Edit Time"));
    auto* layout = new QVBoxLayout(&dialog);
    if (editor.project()) layout->addWidget(new QLabel(QString::fromStdString(editor.project()->fullProjectPath())));

    // Any number not below 0: 90 minutes stays 90 minutes. The spin boxes'
    // arrow keys add and subtract 1 and stop at 0.
    const ZVHoursMinutesSeconds& fields = editor.fields();
    auto* hours = timeField(fields.hours, 999999, QStringLiteral("hours"));
    auto* minutes = timeField(fields.minutes, 999999, QStringLiteral("minutes"));
    auto* seconds = timeField(fields.seconds, 999999, QStringLiteral("seconds"));
    auto* form = new QFormLayout();
    form->addRow(ZVLocalizedQString("Hours:"), hours);
    form->addRow(ZVLocalizedQString("Minutes:"), minutes);
    form->addRow(ZVLocalizedQString("Seconds:"), seconds);
    layout->addLayout(form);
    new FieldStepper({hours, minutes, seconds}, &dialog);

    auto* buttons = new QDialogButtonBox(&dialog);
    buttons->addButton(ZVLocalizedQString("Cancel"), QDialogButtonBox::RejectRole)->setObjectName(QStringLiteral("cancelButton"));
    QPushButton* done = buttons->addButton(ZVLocalizedQString("Done"), QDialogButtonBox::AcceptRole);
    done->setObjectName(QStringLiteral("doneButton"));
    done->setDefault(true);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, [&] {
        editor.done(hours->value(), minutes->value(), seconds->value());
        dialog.accept();
    });
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addWidget(buttons);
    hours->setFocus();
    dialog.exec();
}
