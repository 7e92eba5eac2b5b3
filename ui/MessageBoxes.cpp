#include "MessageBoxes.h"

#include <QLayout>
#include <QMessageBox>
#include <QPushButton>

namespace Velmarin::UI {

void MessageBoxes::information(QWidget* parent, const QString& title, const QString& text)
{
    QMessageBox::information(parent, title, text);
}

void MessageBoxes::warning(QWidget* parent, const QString& title, const QString& text)
{
    QMessageBox::warning(parent, title, text);
}

bool MessageBoxes::askYesNo(QWidget* parent, const QString& title, const QString& text)
{
    return ask(parent, title, text, tr("Sim"), tr("Não"));
}

bool MessageBoxes::askContinue(QWidget* parent, const QString& title, const QString& text)
{
    return ask(parent, title, text, tr("Continuar"), tr("Cancelar"));
}

bool MessageBoxes::ask(QWidget* parent, const QString& title, const QString& text, const QString& accept,
                       const QString& reject)
{
    QMessageBox box(QMessageBox::Question, title, text, QMessageBox::NoButton, parent);
    QPushButton* acceptButton = box.addButton(accept, QMessageBox::AcceptRole);
    QPushButton* rejectButton = box.addButton(reject, QMessageBox::RejectRole);
    box.setDefaultButton(rejectButton);
    box.setEscapeButton(rejectButton);
    box.layout()->setSizeConstraint(QLayout::SetFixedSize);
    box.exec();
    return box.clickedButton() == acceptButton;
}

} // namespace Velmarin::UI
