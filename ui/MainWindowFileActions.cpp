// Actions on the entries of the unlocked vault: export, open, move, rename, new folder
// and the two deletes. Each checks, asks, calls the engine once, then refreshes and reports.
#include "core/index/DisplayFormat.h"
#include "core/index/VaultPath.h"
#include "ui/FailureText.h"
#include "ui/MainWindow.h"
#include "ui/MessageBoxes.h"
#include "ui/MoveFileDialog.h"

#include <QFileInfo>
#include <QUrl>

namespace Velmarin::UI {

void MainWindow::exportFile()
{
    const QString path = selectedFilePath();
    if (path.isEmpty()) {
        return;
    }
    if (!MessageBoxes::askContinue(
            this, tr("Exportar arquivo"),
            tr("Exportar %1 criará uma cópia descriptografada fora do cofre. Alterações "
               "feitas nessa cópia não voltam automaticamente para o Velmarin.")
                .arg(path))) {
        return;
    }
    const QString destination =
        m_fileDialogs->saveFileName(this, tr("Exportar arquivo"), Core::vaultFileName(path), QString());
    if (destination.isEmpty()) {
        return;
    }
    if (m_vault.exportFile(path, destination)) {
        showOutcome(tr("Arquivo exportado com sucesso."));
        return;
    }
    MessageBoxes::warning(this, tr("Velmarin"), tr("Não foi possível exportar o arquivo."),
                          FailureText::why(m_vault.lastFailure()));
    showOutcome(tr("Falha ao exportar o arquivo."));
}

void MainWindow::openFile()
{
    const QString path = selectedFilePath();
    if (path.isEmpty()) {
        return;
    }
    QString workingPath;
    if (!m_vault.openForEdit(path, &workingPath)) {
        MessageBoxes::warning(this, tr("Velmarin"), tr("Não foi possível preparar o arquivo para edição."),
                              FailureText::why(m_vault.lastFailure()));
        return;
    }
    if (m_urlOpener->openUrl(QUrl::fromLocalFile(workingPath))) {
        showOutcome(tr("Arquivo aberto para edição."));
        return;
    }
    MessageBoxes::warning(this, tr("Velmarin"), tr("Não foi possível abrir o arquivo no aplicativo padrão."));
    showOutcome(tr("Falha ao abrir o arquivo."));
}

void MainWindow::moveFile()
{
    const QString path = selectedFilePath();
    if (path.isEmpty()) {
        return;
    }
    const QString title = tr("Mover arquivo");
    const QString ownFolder = Core::parentVaultPath(path);
    QList<QPair<QString, QString>> destinations;
    if (!ownFolder.isEmpty()) {
        destinations.append({tr("Raiz"), QString()});
    }
    QList<Core::DirectoryEntry> folders = m_vault.index().directories();
    std::sort(folders.begin(), folders.end(),
              [](const Core::DirectoryEntry& a, const Core::DirectoryEntry& b) {
                  return a.path.compare(b.path, Qt::CaseInsensitive) < 0;
              });
    for (const Core::DirectoryEntry& folder : folders) {
        if (!Core::isSameVaultPath(folder.path, ownFolder)) {
            destinations.append({folder.path, folder.path});
        }
    }
    if (destinations.isEmpty()) {
        MessageBoxes::warning(this, title, tr("Não há outra pasta disponível para receber este arquivo."));
        return;
    }

    const QString name = Core::vaultFileName(path);
    MoveFileDialog dialog(name, destinations, this);
    if (dialog.exec() != QDialog::Accepted) {
        return;
    }
    const QString folder = dialog.chosenFolder();
    if (m_vault.entryExists(Core::joinEntryPath(folder, name))) {
        MessageBoxes::warning(this, title, tr("Já existe um item com esse nome na pasta de destino."));
        return;
    }
    if (!m_vault.moveFile(path, folder)) {
        MessageBoxes::warning(
            this, title,
            tr("Não foi possível mover o arquivo. Feche o arquivo se ele estiver aberto e tente novamente."),
            FailureText::why(m_vault.lastFailure()));
        return;
    }
    refreshFileTable();
    updateActionStates();
    showOutcome(tr("Arquivo movido."));
}

void MainWindow::renameFile()
{
    renameEntry(false);
}

void MainWindow::renameFolder()
{
    renameEntry(true);
}

void MainWindow::renameEntry(bool folder)
{
    if (folder && isNavigationRowSelected()) {
        return;
    }
    const QString oldPath = folder ? selectedFolderPath() : selectedFilePath();
    if (oldPath.isEmpty()) {
        return;
    }
    const QString title = folder ? tr("Renomear pasta") : tr("Renomear arquivo");
    const QString currentName = Core::vaultFileName(oldPath);
    bool accepted = false;
    const QString typed = MessageBoxes::askText(this, title, tr("Novo nome:"), currentName, &accepted);
    const QString name = typed.trimmed();
    if (!accepted || name.isEmpty() || name == currentName) {
        return;
    }
    QString newPath;
    if (!m_vault.checkNewEntry(Core::parentVaultPath(oldPath), name, &newPath)) {
        MessageBoxes::warning(this, title, FailureText::nameRefusal(m_vault.lastFailure(), folder));
        return;
    }
    const bool renamed =
        folder ? m_vault.renameFolder(oldPath, newPath) : m_vault.renameFile(oldPath, newPath);
    if (!renamed) {
        MessageBoxes::warning(
            this, title,
            folder ? tr("Não foi possível renomear a pasta. Feche arquivos abertos dentro dela "
                        "e tente novamente.")
                   : tr("Não foi possível renomear o arquivo. Feche o arquivo se ele estiver "
                        "aberto e tente novamente."),
            FailureText::why(m_vault.lastFailure()));
        return;
    }
    refreshFileTable();
    updateActionStates();
    showOutcome(folder ? tr("Pasta renomeada.") : tr("Arquivo renomeado."));
}

void MainWindow::createFolder()
{
    const QString title = tr("Nova pasta");
    bool accepted = false;
    const QString name =
        MessageBoxes::askText(this, title, tr("Nome da pasta:"), QString(), &accepted).trimmed();
    if (!accepted || name.isEmpty()) {
        return;
    }
    QString path;
    if (!m_vault.checkNewEntry(m_currentFolder, name, &path)) {
        MessageBoxes::warning(this, title, FailureText::nameRefusal(m_vault.lastFailure(), true));
        return;
    }
    if (!m_vault.createFolder(path)) {
        MessageBoxes::warning(this, title, tr("Não foi possível criar a pasta."),
                              FailureText::why(m_vault.lastFailure()));
        return;
    }
    refreshFileTable();
    updateActionStates();
    showOutcome(tr("Pasta criada."));
}

void MainWindow::deleteFolder()
{
    const QString path = selectedFolderPath();
    if (path.isEmpty() || isNavigationRowSelected()) {
        return;
    }
    if (!MessageBoxes::askYesNo(this, tr("Excluir pasta"), tr("Excluir a pasta vazia %1?").arg(path))) {
        return;
    }
    if (!m_vault.deleteEmptyFolder(path)) {
        MessageBoxes::warning(this, tr("Excluir pasta"),
                              tr("A pasta não está vazia ou não pode ser excluída."),
                              FailureText::why(m_vault.lastFailure()));
        return;
    }
    refreshFileTable();
    updateActionStates();
    showOutcome(tr("Pasta excluída."));
}

void MainWindow::deleteFile()
{
    const QString path = selectedFilePath();
    if (path.isEmpty()) {
        return;
    }
    if (!MessageBoxes::askYesNo(
            this, tr("Excluir arquivo"),
            tr("Excluir %1 removerá o arquivo da lista do cofre.\n\nOs dados físicos só serão "
               "liberados do container após executar Compactar cofre.")
                .arg(path))) {
        return;
    }
    if (!m_vault.deleteFile(path)) {
        MessageBoxes::warning(this, tr("Velmarin"), tr("Não foi possível excluir o arquivo do cofre."),
                              FailureText::why(m_vault.lastFailure()));
        showOutcome(tr("Falha ao excluir o arquivo."));
        return;
    }
    refreshFileTable();
    updateActionStates();
    showOutcome(tr("Arquivo excluído do cofre."));
}

} // namespace Velmarin::UI
