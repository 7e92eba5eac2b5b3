#include "ui/PasswordPrompt.h"

#include "core/crypto/SecretText.h"
#include "core/vault/VaultManager.h"
#include "ui/MessageBoxes.h"

#include <QInputDialog>
#include <QLineEdit>

namespace Velmarin::UI {

QByteArray PasswordPrompt::ask(const QString& title)
{
    QInputDialog dialog;
    dialog.setWindowTitle(title);
    dialog.setLabelText(tr("Senha:"));
    dialog.setTextEchoMode(QLineEdit::Password);
    dialog.setTextValue(QString());
    dialog.setOkButtonText(tr("OK"));
    dialog.setCancelButtonText(tr("Cancelar"));
    if (dialog.exec() != QDialog::Accepted) {
        return {};
    }
    QString text = dialog.textValue();
    dialog.setTextValue(QString());
    return Core::SecretText::takeUtf8(text);
}

QByteArray PasswordPrompt::askNew()
{
    QByteArray first = ask(tr("Definir senha do cofre"));
    if (first.isEmpty()) {
        return {};
    }
    QByteArray confirmation = ask(tr("Confirmar senha do cofre"));
    if (confirmation.isEmpty()) {
        Core::SecretText::wipe(first);
        return {};
    }
    const bool same = first == confirmation;
    Core::SecretText::wipe(first);
    if (!same) {
        Core::SecretText::wipe(confirmation);
        MessageBoxes::warning(nullptr, tr("Velmarin"), tr("As senhas informadas não coincidem."));
        return {};
    }
    QString typed = QString::fromUtf8(confirmation);
    const bool acceptable = Core::VaultManager::isPasswordAcceptable(typed);
    Core::SecretText::wipe(typed);
    if (!acceptable) {
        Core::SecretText::wipe(confirmation);
        MessageBoxes::warning(nullptr, tr("Velmarin"),
                              tr("Use uma senha com pelo menos %1 caracteres para criar o cofre.")
                                  .arg(Core::VaultManager::MinimumPasswordLength));
        return {};
    }
    return confirmation;
}

} // namespace Velmarin::UI
