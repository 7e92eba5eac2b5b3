// Actions on the vault as a whole: choosing, creating, unlocking and locking a container, backing
// it up, changing its password and compacting it.
#include "core/container/ContainerBackup.h"
#include "core/crypto/SecretText.h"
#include "ui/ChangePasswordDialog.h"
#include "ui/FailureText.h"
#include "ui/MainWindow.h"
#include "ui/MessageBoxes.h"
#include "ui/PasswordPrompt.h"
#include "ui/ProgressDialogs.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QListWidget>
#include <QProgressDialog>

namespace Velmarin::UI {

namespace {

QString containerFilter()
{
    return QCoreApplication::translate("Velmarin::UI::MainWindow",
                                       "Velmarin Container (*.vltx);;Todos os arquivos (*.*)");
}

// A box taller than the screen would hide its own button: past ten names the rest are counted.
QString damagedFilesText(const QStringList& damagedFiles)
{
    constexpr qsizetype MostNames = 10;
    QStringList shown = damagedFiles;
    if (shown.size() > MostNames) {
        // Always two or more left over, so the count reads "arquivos".
        shown = damagedFiles.mid(0, MostNames - 1);
        shown << QCoreApplication::translate("Velmarin::UI::MainWindow", "e mais %1 arquivos")
                     .arg(damagedFiles.size() - shown.size());
    }
    return QCoreApplication::translate("Velmarin::UI::MainWindow",
                                       "O cofre não foi compactado porque estes arquivos estão danificados:"
                                       "\n\n%1\n\nNada foi alterado: o container continua como estava.")
        .arg(shown.join(QLatin1Char('\n')));
}

} // namespace

void MainWindow::chooseContainer()
{
    const QListWidgetItem* current = m_deviceList->currentItem();
    const QString startDirectory = current ? current->data(Qt::UserRole).toString() : QString();
    const QString chosen = m_fileDialogs->openFileName(this, tr("Escolher container Velmarin"),
                                                       startDirectory, containerFilter());
    if (chosen.isEmpty()) {
        return;
    }
    m_containerPath = chosen;
    m_currentFolder.clear();
    highlightDeviceForContainer(m_containerPath);
    updateActionStates();
    showOutcome(tr("Container selecionado."));
}

void MainWindow::createVault()
{
    const QListWidgetItem* current = m_deviceList->currentItem();
    const QString root = current ? current->data(Qt::UserRole).toString() : QString();
    const QString chosen =
        m_fileDialogs->saveFileName(this, tr("Criar container Velmarin"),
                                    root.isEmpty() ? QStringLiteral("velmarin.vltx")
                                                   : QDir(root).filePath(QStringLiteral("velmarin.vltx")),
                                    containerFilter());
    if (chosen.isEmpty()) {
        return;
    }

    // A container lives at the root of the drive the user picked, so discovery finds it there.
    const QFileInfo chosenInfo(chosen);
    const bool atRoot =
        !root.isEmpty() &&
        QDir::cleanPath(chosenInfo.absolutePath()).compare(QDir::cleanPath(root), Qt::CaseInsensitive) == 0;
    if (!atRoot || chosenInfo.suffix().compare(QStringLiteral("vltx"), Qt::CaseInsensitive) != 0) {
        MessageBoxes::information(this, tr("Criar cofre"),
                                  tr("O cofre deve ser criado como arquivo .vltx diretamente na raiz da "
                                     "unidade USB selecionada."));
        return;
    }

    QByteArray password = PasswordPrompt::askNew();
    if (password.isEmpty()) {
        return;
    }
    const bool created = m_vault.createVault(chosen, password);
    Core::SecretText::wipe(password);
    if (!created) {
        MessageBoxes::warning(this, tr("Velmarin"), tr("Não foi possível criar o cofre."),
                              FailureText::why(m_vault.lastFailure()));
        return;
    }
    m_containerPath = chosen;
    m_currentFolder.clear();
    highlightDeviceForContainer(m_containerPath);
    refreshFileTable();
    updateActionStates();
    showOutcome(tr("Cofre criado com sucesso."));
}

bool MainWindow::requireSelectedContainer()
{
    if (m_containerPath.isEmpty()) {
        MessageBoxes::information(this, tr("Velmarin"), tr("Selecione um cofre primeiro."));
        return false;
    }
    return true;
}

bool MainWindow::refuseIfInUse(const QString& title)
{
    if (!Core::VaultManager::isInUse(m_containerPath)) {
        return false;
    }
    MessageBoxes::warning(this, title, FailureText::sentence(Core::Failure::Reason::InUse));
    return true;
}

void MainWindow::unlockVault()
{
    // Asked before the password too, so nobody types it for a vault that cannot open here.
    if (!requireSelectedContainer() || refuseIfInUse(tr("Velmarin"))) {
        return;
    }
    QByteArray password = PasswordPrompt::ask(tr("Senha do cofre"));
    if (password.isEmpty()) {
        return;
    }
    const bool unlocked = m_vault.unlock(m_containerPath, password);
    Core::SecretText::wipe(password);
    if (!unlocked) {
        // The password was right but the copies for editing would have nowhere safe to go: nothing
        // stays open behind the message. (This session holds the container now, so this comes first.)
        if (m_vault.isUnlocked()) {
            explainWorkspaceProblem();
            m_vault.lock();
            return;
        }
        explainUnlockFailure();
        return;
    }
    // Asked before anything is shown or changed: the user may rather find a newer copy first.
    if (m_vault.foundEarlierState()) {
        if (!MessageBoxes::askYesNo(
                this, tr("Velmarin"),
                tr("Este cofre voltou a um estado anterior ao que este computador viu por último: arquivos "
                   "excluídos podem ter voltado e arquivos novos podem ter sumido. Alguém pode ter gravado "
                   "no USB uma cópia antiga do container.\n\nDeseja abrir o cofre assim mesmo?"))) {
            m_vault.lock();
            showOutcome(tr("O cofre não foi aberto."));
            return;
        }
        m_vault.acceptEarlierState();
    }
    resetToRoot();
    tellAboutRecovery();
    offerLeftoverEdits();
    showOutcome(tr("Cofre desbloqueado."));
}

void MainWindow::explainUnlockFailure()
{
    const Core::Failure failure = m_vault.lastFailure();
    switch (failure.reason) {
    case Core::Failure::Reason::InUse:
        MessageBoxes::warning(this, tr("Velmarin"), FailureText::sentence(failure.reason));
        return;
    case Core::Failure::Reason::ContainerMissing:
        // A drive pulled or a file moved since it was chosen: no password was wrong.
        MessageBoxes::warning(this, tr("Velmarin"), FailureText::sentence(failure.reason),
                              QDir::toNativeSeparators(m_containerPath));
        return;
    case Core::Failure::Reason::NewerFormat:
    case Core::Failure::Reason::KeyCostTooHigh:
        // No password was tried: asking the user to check it would mislead.
        MessageBoxes::warning(this, tr("Velmarin"), FailureText::sentence(failure.reason));
        return;
    case Core::Failure::Reason::NotARegularFile:
        MessageBoxes::warning(this, tr("Velmarin"), FailureText::sentence(failure.reason),
                              QDir::toNativeSeparators(m_containerPath));
        return;
    default:
        break;
    }
    MessageBoxes::warning(
        this, tr("Velmarin"),
        tr("Não foi possível desbloquear o cofre. Verifique a senha ou se o container foi alterado."),
        failure.reason == Core::Failure::Reason::WrongPassword ? QString() : FailureText::why(failure));
}

void MainWindow::tellAboutRecovery()
{
    switch (m_vault.lastRecovery()) {
    case Core::VaultManager::Recovery::HeaderRestored:
        MessageBoxes::information(
            this, tr("Velmarin"),
            tr("A última alteração no cofre foi interrompida (o USB foi removido ou "
               "faltou energia) e foi desfeita. O cofre voltou ao estado anterior a ela."));
        break;
    case Core::VaultManager::Recovery::ContainerRestored:
        MessageBoxes::information(this, tr("Velmarin"),
                                  tr("Uma compactação interrompida deixou o USB sem o container. O container "
                                     "compactado foi copiado de volta do computador para o USB."));
        break;
    case Core::VaultManager::Recovery::JournalLeft:
        MessageBoxes::warning(this, tr("Velmarin"),
                              tr("Há ao lado do container um diário de alteração que não corresponde a ele. "
                                 "Ele não foi aplicado e foi deixado onde está: nada foi alterado no "
                                 "container."),
                              tr("Aplicá-lo voltaria o cofre a um estado anterior. Pode ser que outra pessoa "
                                 "tenha alterado este USB."));
        break;
    case Core::VaultManager::Recovery::Nothing:
    case Core::VaultManager::Recovery::Failed:
        break;
    }
}

void MainWindow::lockVault()
{
    if (!m_vault.lock()) {
        if (m_vault.isUnlocked()) {
            // An edit that could not be stored keeps the vault open, so nothing the user typed is lost.
            MessageBoxes::warning(this, tr("Velmarin"),
                                  tr("O cofre não foi bloqueado, para que nenhuma alteração se perca."),
                                  FailureText::why(m_vault.lastFailure()) + QLatin1String("\n\n") +
                                      tr("O arquivo editado continua guardado neste computador. Verifique a "
                                         "unidade USB (espaço livre e conexão) e bloqueie o cofre de novo."));
            showOutcome(tr("O cofre continua desbloqueado."));
            return;
        }
        // Only the workspace could not be removed: the keys are gone, the vault is locked.
        MessageBoxes::warning(this, tr("Velmarin"), tr("Não foi possível limpar a área temporária."));
    }
    resetToRoot();
    showOutcome(tr("Cofre bloqueado.") + movedEditsText());
}

QString MainWindow::movedEditsText() const
{
    const QList<QPair<QString, QString>>& moved = m_vault.movedEdits();
    if (moved.size() == 1) {
        return QLatin1Char(' ') + tr("A cópia editada de %1 foi guardada como %2, pois o caminho original "
                                     "agora é ocupado por outro item.")
                                      .arg(moved.constFirst().first, moved.constFirst().second);
    }
    QStringList names;
    for (const auto& [openedAs, storedAs] : moved) {
        names.append(tr("%1 como %2").arg(openedAs, storedAs));
    }
    return names.isEmpty()
               ? QString()
               : QLatin1Char(' ') + tr("Cópias editadas guardadas com outro nome, pois os caminhos "
                                       "originais agora são ocupados por outros itens: %1.")
                                        .arg(names.join(QStringLiteral("; ")));
}

void MainWindow::backupContainer()
{
    if (!requireSelectedContainer()) {
        return;
    }
    const QString title = tr("Fazer backup");
    if (m_vault.isUnlocked()) {
        MessageBoxes::information(this, tr("Velmarin"), tr("Bloqueie o cofre antes de fazer o backup."));
        return;
    }
    if (!QFileInfo(m_containerPath).isFile()) {
        MessageBoxes::warning(this, title, FailureText::sentence(Core::Failure::Reason::ContainerMissing));
        return;
    }
    if (refuseIfInUse(title)) {
        return;
    }
    const QString proposed = QDir::home().filePath(
        QStringLiteral("velmarin_backup_%1.vltx")
            .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd_HHmm"))));
    const QString destination =
        m_fileDialogs->saveFileName(this, tr("Fazer backup do container"), proposed, containerFilter());
    if (destination.isEmpty()) {
        return;
    }
    if (QFileInfo(destination).absoluteFilePath() == QFileInfo(m_containerPath).absoluteFilePath()) {
        MessageBoxes::warning(this, title, tr("Escolha um destino diferente do container original."));
        return;
    }

    Core::ContainerBackup backup(m_containerPath, destination);
    if (!backup.openSource()) {
        if (refuseIfInUse(title)) {
            return;
        }
        MessageBoxes::warning(this, title, tr("Não foi possível abrir o container para backup."));
        return;
    }
    if (!backup.fitsDestination()) {
        MessageBoxes::warning(this, title,
                              FailureText::sentence(Core::Failure::Reason::FileTooLargeForFileSystem));
        return;
    }
    if (!backup.openDestination()) {
        MessageBoxes::warning(this, title, tr("Não foi possível criar o arquivo de backup."));
        return;
    }
    const auto progress = ProgressDialogs::open(
        this, title,
        tr("Copiando backup criptografado...\n\nO backup permanece protegido pela senha do cofre."));
    const bool copied = backup.copy(ProgressDialogs::backupAdapter(progress.get()));
    progress->setValue(progress->maximum());
    progress->close();

    if (!copied) {
        MessageBoxes::warning(this, title, tr("Não foi possível concluir o backup."),
                              backup.destinationRefusedSize()
                                  ? FailureText::sentence(Core::Failure::Reason::FileTooLargeForFileSystem)
                                  : QString());
        showOutcome(tr("Falha ao fazer backup do container."));
        return;
    }
    showOutcome(tr("Backup do container concluído."));
    MessageBoxes::information(
        this, title,
        tr("Backup concluído com sucesso.\n\nO arquivo de backup é uma cópia criptografada "
           "do container e permanece protegido pela senha do cofre."));
}

void MainWindow::changePassword()
{
    if (!requireSelectedContainer()) {
        return;
    }
    if (m_vault.isUnlocked()) {
        MessageBoxes::information(this, tr("Velmarin"), tr("Bloqueie o cofre antes de alterar a senha."));
        return;
    }
    if (refuseIfInUse(tr("Velmarin"))) {
        return;
    }
    ChangePasswordDialog dialog(this);
    if (dialog.exec() != QDialog::Accepted) {
        return;
    }
    QByteArray current = dialog.currentPassword();
    QByteArray replacement = dialog.newPassword();
    const bool rekey = dialog.rekeyRequested();
    dialog.clearPasswords();
    if (rekey) {
        rekeyVault(current, replacement);
        return;
    }
    const bool changed = m_vault.changePassword(m_containerPath, current, replacement);
    Core::SecretText::wipe(current);
    Core::SecretText::wipe(replacement);
    if (!changed) {
        const Core::Failure failure = m_vault.lastFailure();
        if (failure.reason == Core::Failure::Reason::InUse) {
            MessageBoxes::warning(this, tr("Velmarin"), FailureText::sentence(failure.reason));
            showOutcome(tr("Falha ao alterar a senha."));
            return;
        }
        // A wrong current password is what the box's text already says.
        MessageBoxes::warning(
            this, tr("Velmarin"),
            tr("Não foi possível alterar a senha. Verifique a senha atual e tente novamente."),
            failure.reason == Core::Failure::Reason::WrongPassword ? QString() : FailureText::why(failure));
        showOutcome(tr("Falha ao alterar a senha."));
        return;
    }
    tellAboutRecovery();
    showOutcome(tr("Senha alterada com sucesso."));
    MessageBoxes::information(this, tr("Velmarin"), tr("Senha alterada com sucesso."));
}

void MainWindow::compactVault()
{
    const QString title = tr("Compactar cofre");
    if (!MessageBoxes::askYesNo(
            this, title,
            tr("A compactação reconstruirá o container removendo fisicamente dados de arquivos já "
               "excluídos.\n\nDurante a operação, será criado temporariamente um container criptografado no "
               "disco local. Nenhum arquivo descriptografado será gravado fora do cofre.\n\nDeseja "
               "continuar?"))) {
        return;
    }
    const auto progress = ProgressDialogs::open(this, title,
                                                tr("Compactando o cofre...\n\nSerá criado temporariamente um "
                                                   "container criptografado no disco local."));
    QString preservedPath;
    QStringList damagedFiles;
    const bool compacted = m_vault.compactVault(ProgressDialogs::compactionAdapter(progress.get()),
                                                &preservedPath, &damagedFiles);
    progress->setValue(progress->maximum());
    progress->close();

    if (!compacted) {
        if (!damagedFiles.isEmpty()) {
            MessageBoxes::warning(this, title, damagedFilesText(damagedFiles));
        } else if (preservedPath.isEmpty()) {
            MessageBoxes::warning(this, title, tr("Não foi possível compactar o cofre."));
        } else {
            MessageBoxes::warning(this, title,
                                  tr("Não foi possível substituir o container no USB.\n\nUm container "
                                     "compactado criptografado foi preservado em:\n%1")
                                      .arg(preservedPath));
        }
        showOutcome(tr("Falha ao compactar o cofre."));
        return;
    }
    refreshFileTable();
    refreshDeviceList();
    updateActionStates();
    showOutcome(tr("Cofre compactado com sucesso."));
    MessageBoxes::information(this, title, tr("Cofre compactado com sucesso."));
}

} // namespace Velmarin::UI
