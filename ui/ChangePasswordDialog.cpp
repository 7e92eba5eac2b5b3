#include "ui/ChangePasswordDialog.h"

#include "core/vault/VaultManager.h"
#include "ui/MessageBoxes.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
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

    // Off unless asked for: a re-key rewrites the whole container, a plain change only its header.
    m_rekey = new QCheckBox(tr("Recriptografar todo o cofre com uma nova chave"), this);
    auto* rekeyNote = new QLabel(
        tr("Sem esta opção, só a senha muda: cópias e backups antigos do container continuam abrindo com "
           "a senha antiga, e quem tiver uma delas e a senha antiga também consegue ler o que for gravado "
           "depois no container.\n\nCom esta opção, todo o cofre é recriptografado com uma nova chave: a "
           "senha antiga deixa de abrir o container atual (cópias antigas continuam abrindo com ela, mas "
           "só com o conteúdo que tinham). Durante a operação, será criado temporariamente um container "
           "criptografado no disco local."),
        this);
    rekeyNote->setWordWrap(true);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_rekey);
    layout->addWidget(rekeyNote);
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

bool ChangePasswordDialog::rekeyRequested() const
{
    return m_rekey->isChecked();
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
