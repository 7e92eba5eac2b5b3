#include "ui/ChangePasswordDialog.h"

#include "core/vault/VaultManager.h"
#include "ui/MessageBoxes.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace Velmarin::UI {

namespace {

QLineEdit* passwordField(QWidget* parent)
{
    auto* field = new QLineEdit(parent);
    field->setEchoMode(QLineEdit::Password);
    return field;
}

} // namespace

ChangePasswordDialog::ChangePasswordDialog(QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(tr("Alterar senha do cofre"));
    setModal(true);

    m_currentPassword = passwordField(this);
    m_newPassword = passwordField(this);
    m_confirmation = passwordField(this);

    auto* form = new QFormLayout();
    form->addRow(tr("Senha atual:"), m_currentPassword);
    form->addRow(tr("Nova senha:"), m_newPassword);
    form->addRow(tr("Confirmar nova senha:"), m_confirmation);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(tr("Alterar"));
    buttons->button(QDialogButtonBox::Cancel)->setText(tr("Cancelar"));
    connect(buttons, &QDialogButtonBox::accepted, this, &ChangePasswordDialog::validateAndAccept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
}

ChangePasswordDialog::~ChangePasswordDialog()
{
    clearPasswords();
}

QByteArray ChangePasswordDialog::currentPassword() const
{
    return m_currentPassword->text().toUtf8();
}

QByteArray ChangePasswordDialog::newPassword() const
{
    return m_newPassword->text().toUtf8();
}

void ChangePasswordDialog::clearPasswords()
{
    for (QLineEdit* field : {m_currentPassword, m_newPassword, m_confirmation}) {
        field->clear();
    }
}

void ChangePasswordDialog::validateAndAccept()
{
    const QString title = tr("Alterar senha");
    if (m_currentPassword->text().isEmpty()) {
        MessageBoxes::warning(this, title, tr("Informe a senha atual."));
        return;
    }
    if (!Core::VaultManager::isPasswordAcceptable(m_newPassword->text())) {
        MessageBoxes::warning(this, title,
                              tr("Use uma nova senha com pelo menos %1 caracteres.")
                                  .arg(Core::VaultManager::MinimumPasswordLength));
        return;
    }
    if (m_confirmation->text() != m_newPassword->text()) {
        MessageBoxes::warning(this, title, tr("A confirmação não coincide com a nova senha."));
        return;
    }
    accept();
}

} // namespace Velmarin::UI
