#include "ui/PasswordPrompt.h"

#include "core/crypto/SecretText.h"
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
    const qsizetype length = typed.size();
    Core::SecretText::wipe(typed);
    if (length < 12) {
        Core::SecretText::wipe(confirmation);
        MessageBoxes::warning(nullptr, tr("Velmarin"),
                              tr("Use uma senha com pelo menos 12 caracteres para criar o cofre."));
        return {};
    }
    return confirmation;
}

} // namespace Velmarin::UI
