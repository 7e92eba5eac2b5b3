// Importing whole folders, chosen in a picker or dropped from the file manager with files, through
// the same batch as "Importar...": what cannot come in is counted, and its names told in one box.
#include "core/index/VaultPath.h"
#include "core/vault/ImportPlan.h"
#include "ui/FileTableDrop.h"
#include "ui/MainWindow.h"
#include "ui/MessageBoxes.h"

#include <QTableWidget>

namespace Velmarin::UI {

void MainWindow::importFolder()
{
    const QString folder =
        m_fileDialogs->existingDirectory(this, tr("Importar pasta para o cofre"), QString());
    if (folder.isEmpty()) {
        return;
    }
    ImportRequest request;
    if (planImport({folder}, m_currentFolder, request)) {
        runImport(request);
    }
}

void MainWindow::importDropped(const QStringList& localPaths, const QString& target)
{
    // The vault may have been locked between the drop and now.
    if (!m_vault.isUnlocked()) {
        return;
    }
    ImportRequest request;
    if (planImport(localPaths, target, request)) {
        runImport(request);
    }
}

bool MainWindow::planImport(const QStringList& localPaths, const QString& target, ImportRequest& request)
{
    Core::ImportPlan plan;
    for (const QString& path : localPaths) {
        switch (plan.add(path, target)) {
        case Core::ImportPlan::Result::Added:
            break;
        case Core::ImportPlan::Result::Missing:
            MessageBoxes::warning(nullptr, tr("Importar arquivos"),
                                  tr("O arquivo %1 não está disponível para importação.").arg(path));
            return false;
        case Core::ImportPlan::Result::NameNotAllowed:
            request.refusedNames << path;
            break;
        }
    }
    for (const Core::ImportPlan::Skipped& skipped : plan.takeSkipped()) {
        if (skipped.reason == Core::ImportPlan::Skipped::Reason::NameNotAllowed) {
            request.refusedNames << skipped.localPath;
        } else {
            ++request.skipped;
        }
    }
    request.items = plan.items();
    request.offerForAll = true;
    return true;
}

void MainWindow::tellLeftOut(const ImportRequest& request)
{
    QStringList parts;
    if (!request.refusedNames.isEmpty()) {
        parts << tr("O cofre não aceita estes nomes:\n%1").arg(MessageBoxes::nameList(request.refusedNames));
    }
    if (!request.caseTwins.isEmpty()) {
        parts << tr("Estes arquivos chegariam ao mesmo lugar do cofre, pois seus nomes diferem apenas em "
                    "letras maiúsculas e minúsculas:\n%1")
                     .arg(MessageBoxes::nameList(request.caseTwins));
    }
    if (!parts.isEmpty()) {
        MessageBoxes::warning(this, tr("Importar arquivos"), tr("Alguns itens não foram importados."),
                              parts.join(QStringLiteral("\n\n")));
    }
}

QString MainWindow::importOutcomeText(int imported, int ignored) const
{
    // The count is shown even when it is 0, so the user always sees how many went in.
    if (ignored == 0) {
        return imported == 1 ? tr("Arquivo importado com sucesso.")
                             : tr("%1 arquivos importados com sucesso.").arg(imported);
    }
    const QString in = imported == 1 ? tr("1 arquivo importado com sucesso")
                                     : tr("%1 arquivos importados com sucesso").arg(imported);
    const QString out = ignored == 1 ? tr("1 item ignorado") : tr("%1 itens ignorados").arg(ignored);
    return tr("%1; %2.").arg(in, out);
}

void MainWindow::acceptDrops()
{
    new FileTableDrop(
        m_fileTable, [this] { return m_vault.isUnlocked(); },
        [this](const QStringList& localPaths, int row) {
            const QString target = folderAtRow(row);
            m_autoLock->run([this, localPaths, target] { importDropped(localPaths, target); });
        });
}

} // namespace Velmarin::UI
