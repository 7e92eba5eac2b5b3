// The password change that seals the whole vault again under a new key: run like a compaction,
// behind the same progress dialog, once the password dialog was accepted with the re-key asked for.
#include "core/crypto/SecretText.h"
#include "ui/FailureText.h"
#include "ui/MainWindow.h"
#include "ui/MessageBoxes.h"
#include "ui/ProgressDialogs.h"

#include <QProgressDialog>

namespace Velmarin::UI {

namespace {

// A box taller than the screen would hide its own button: past ten names the rest are counted.
QString shownNames(const QStringList& names)
{
    constexpr qsizetype MostNames = 10;
    if (names.size() <= MostNames) {
        return names.join(QLatin1Char('\n'));
    }
    // Always two or more left over, so the count reads "arquivos".
    QStringList shown = names.mid(0, MostNames - 1);
    shown << QCoreApplication::translate("Velmarin::UI::MainWindow", "e mais %1 arquivos")
                 .arg(names.size() - shown.size());
    return shown.join(QLatin1Char('\n'));
}

} // namespace

void MainWindow::rekeyVault(QByteArray& currentPassword, QByteArray& newPassword)
{
    const QString title = tr("Velmarin");
    const auto progress =
        ProgressDialogs::open(this, tr("Alterar senha"),
                              tr("Recriptografando o cofre...\n\nSerá criado temporariamente "
                                 "um container criptografado no disco local."));
    QString preservedPath;
    QStringList damagedFiles;
    const bool rekeyed =
        m_vault.rekeyVault(m_containerPath, currentPassword, newPassword,
                           ProgressDialogs::compactionAdapter(progress.get()), &preservedPath, &damagedFiles);
    Core::SecretText::wipe(currentPassword);
    Core::SecretText::wipe(newPassword);
    progress->setValue(progress->maximum());
    progress->close();

    if (rekeyed) {
        tellAboutRecovery();
        refreshDeviceList();
        updateActionStates();
        showOutcome(tr("Senha alterada e cofre recriptografado com sucesso."));
        MessageBoxes::information(this, title, tr("Senha alterada e cofre recriptografado com sucesso."));
        return;
    }
    const Core::Failure failure = m_vault.lastFailure();
    if (failure.reason == Core::Failure::Reason::InUse) {
        MessageBoxes::warning(this, title, FailureText::sentence(failure.reason));
    } else if (failure.reason == Core::Failure::Reason::WrongPassword) {
        MessageBoxes::warning(
            this, title, tr("Não foi possível alterar a senha. Verifique a senha atual e tente novamente."));
    } else if (!damagedFiles.isEmpty()) {
        MessageBoxes::warning(this, title,
                              tr("A senha não foi alterada porque estes arquivos estão danificados:\n\n%1\n\n"
                                 "Nada foi alterado: o container continua como estava.")
                                  .arg(shownNames(damagedFiles)));
    } else if (!preservedPath.isEmpty()) {
        MessageBoxes::warning(this, title,
                              tr("Não foi possível substituir o container no USB.\n\nUm container "
                                 "recriptografado, que abre com a nova senha, foi preservado em:\n%1")
                                  .arg(preservedPath));
    } else {
        MessageBoxes::warning(this, title,
                              tr("Não foi possível recriptografar o cofre. O container continua como estava "
                                 "e abre com a senha atual."),
                              FailureText::why(failure));
    }
    showOutcome(tr("Falha ao alterar a senha."));
}

} // namespace Velmarin::UI
