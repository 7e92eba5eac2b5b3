#include "ui/MessageBoxes.h"

#include <QDir>
#include <QInputDialog>
#include <QLabel>
#include <QLayout>
#include <QMessageBox>
#include <QPushButton>

namespace Velmarin::UI {

void MessageBoxes::information(QWidget* parent, const QString& title, const QString& text)
{
    tell(QMessageBox::Information, parent, title, text);
}

void MessageBoxes::warning(QWidget* parent, const QString& title, const QString& text)
{
    tell(QMessageBox::Warning, parent, title, text);
}

void MessageBoxes::warning(QWidget* parent, const QString& title, const QString& text, const QString& why)
{
    tell(QMessageBox::Warning, parent, title, text, why);
}

bool MessageBoxes::askYesNo(QWidget* parent, const QString& title, const QString& text)
{
    return ask(parent, title, text, tr("Sim"), tr("Não"));
}

bool MessageBoxes::askContinue(QWidget* parent, const QString& title, const QString& text)
{
    return ask(parent, title, text, tr("Continuar"), tr("Cancelar"));
}

MessageBoxes::Answer MessageBoxes::askKeepingWork(QWidget* parent, const QString& title, const QString& text)
{
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, parent);
    box.setTextFormat(Qt::PlainText);
    QPushButton* yesButton = box.addButton(tr("Sim"), QMessageBox::AcceptRole);
    // Not a reject role: QMessageBox would make that button the answer to Esc.
    QPushButton* noButton = box.addButton(tr("Não"), QMessageBox::DestructiveRole);
    box.setDefaultButton(yesButton);
    box.layout()->setSizeConstraint(QLayout::SetFixedSize);
    box.exec();
    if (box.clickedButton() == yesButton) {
        return Answer::Yes;
    }
    return box.clickedButton() == noButton ? Answer::No : Answer::Neither;
}

MessageBoxes::ForAll MessageBoxes::askYesNoForAll(QWidget* parent, const QString& title, const QString& text)
{
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, parent);
    box.setTextFormat(Qt::PlainText);
    QPushButton* yesButton = box.addButton(tr("Sim"), QMessageBox::YesRole);
    QPushButton* yesToAllButton = box.addButton(tr("Sim para todos"), QMessageBox::YesRole);
    QPushButton* noButton = box.addButton(tr("Não"), QMessageBox::NoRole);
    QPushButton* noToAllButton = box.addButton(tr("Não para todos"), QMessageBox::NoRole);
    box.setDefaultButton(noButton);
    box.setEscapeButton(noButton);
    box.layout()->setSizeConstraint(QLayout::SetFixedSize);
    box.exec();
    if (box.clickedButton() == yesButton) {
        return ForAll::Yes;
    }
    if (box.clickedButton() == yesToAllButton) {
        return ForAll::YesToAll;
    }
    return box.clickedButton() == noToAllButton ? ForAll::NoToAll : ForAll::No;
}

QString MessageBoxes::askText(QWidget* parent, const QString& title, const QString& label,
                              const QString& text, bool* accepted)
{
    QInputDialog dialog(parent);
    dialog.setWindowTitle(title);
    dialog.setLabelText(label);
    dialog.setTextValue(text);
    dialog.setOkButtonText(tr("OK"));
    dialog.setCancelButtonText(tr("Cancelar"));
    *accepted = dialog.exec() == QDialog::Accepted;
    return *accepted ? dialog.textValue() : QString();
}

QString MessageBoxes::nameList(QStringList paths)
{
    // Past this many names a list would not fit the screen.
    constexpr int Listed = 20;
    paths.sort();
    QStringList lines;
    for (const QString& path : paths.mid(0, Listed)) {
        lines << QDir::toNativeSeparators(path);
    }
    if (paths.size() > Listed) {
        lines << tr("... e mais %1.").arg(paths.size() - Listed);
    }
    return lines.join(QLatin1Char('\n'));
}

void MessageBoxes::tell(QMessageBox::Icon icon, QWidget* parent, const QString& title, const QString& text,
                        const QString& why)
{
    QMessageBox box(icon, title, text, QMessageBox::Ok, parent);
    box.setTextFormat(Qt::PlainText);
    box.setInformativeText(why);
    // Plain as the text above it: "why" may name a vault path too, and Qt guesses a format otherwise.
    if (auto* label = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"))) {
        label->setTextFormat(Qt::PlainText);
    }
    box.exec();
}

bool MessageBoxes::ask(QWidget* parent, const QString& title, const QString& text, const QString& accept,
                       const QString& reject)
{
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, parent);
    box.setTextFormat(Qt::PlainText);
    QPushButton* acceptButton = box.addButton(accept, QMessageBox::AcceptRole);
    QPushButton* rejectButton = box.addButton(reject, QMessageBox::RejectRole);
    box.setDefaultButton(rejectButton);
    box.setEscapeButton(rejectButton);
    box.layout()->setSizeConstraint(QLayout::SetFixedSize);
    box.exec();
    return box.clickedButton() == acceptButton;
}

} // namespace Velmarin::UI
