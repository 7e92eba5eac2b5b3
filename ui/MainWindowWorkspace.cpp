// Copies of files opened for editing: why the private workspace cannot be used, edits a session
// left behind when it ended without locking, and leftovers of other vaults found at start.
#include "ui/MainWindow.h"
#include "ui/MessageBoxes.h"

#include <QDir>

namespace Velmarin::UI {

void MainWindow::explainWorkspaceProblem()
{
    const QString root = QDir::toNativeSeparators(m_vault.workspaceRoot());
    switch (m_vault.workspaceProblem()) {
    case Core::Workspace::Problem::InUse:
        MessageBoxes::warning(this, tr("Velmarin"),
                              tr("Este cofre já está aberto em outra janela ou programa do Velmarin."));
        break;
    case Core::Workspace::Problem::NotPrivate:
        MessageBoxes::warning(
            this, tr("Velmarin"),
            tr("A pasta de trabalho do Velmarin não é particular: ela, ou uma pasta acima "
               "dela, pertence a outro usuário, pode ser alterada por outros usuários ou é "
               "um atalho.\n\n%1\n\nPor segurança, nada foi gravado nela e o cofre continua "
               "bloqueado.")
                .arg(root));
        break;
    case Core::Workspace::Problem::Unavailable:
    case Core::Workspace::Problem::None:
        MessageBoxes::warning(this, tr("Velmarin"),
                              tr("Não foi possível criar a pasta de trabalho do Velmarin:\n\n%1\n\nO cofre "
                                 "continua bloqueado.")
                                  .arg(root));
        break;
    }
}

void MainWindow::offerLeftoverEdits()
{
    if (m_vault.leftoverEdits().isEmpty()) {
        return;
    }
    const MessageBoxes::Answer answer =
        MessageBoxes::askKeepingWork(this, tr("Velmarin"),
                                     tr("Foram encontradas alterações de uma sessão anterior que não foi "
                                        "encerrada. Deseja trazê-las de volta para o cofre?"));
    if (answer == MessageBoxes::Answer::No) {
        m_vault.discardLeftoverEdits();
        return;
    }
    if (answer == MessageBoxes::Answer::Neither) {
        return;
    }
    const bool broughtBack = m_vault.bringBackLeftoverEdits();
    refreshFileTable();
    updateActionStates();
    if (!broughtBack) {
        MessageBoxes::warning(this, tr("Velmarin"),
                              tr("Não foi possível trazer todas as alterações de volta para o cofre. Elas "
                                 "continuam guardadas neste computador e serão oferecidas de novo no próximo "
                                 "desbloqueio."));
    }
}

void MainWindow::offerToRemoveStrayWorkspaces()
{
    const qsizetype count = m_vault.strayWorkspaces().size();
    if (count == 0) {
        return;
    }
    const QString text =
        count == 1
            ? tr("Foram encontradas cópias de arquivos abertos para edição de um cofre que não foi "
                 "bloqueado ao final do último uso. Elas serão oferecidas de volta quando esse cofre for "
                 "desbloqueado.\n\nDeseja apagá-las agora? As alterações feitas nelas serão perdidas.")
            : tr("Foram encontradas cópias de arquivos abertos para edição de %1 cofres que não foram "
                 "bloqueados ao final do último uso. Elas serão oferecidas de volta quando cada cofre for "
                 "desbloqueado.\n\nDeseja apagá-las agora? As alterações feitas nelas serão perdidas.")
                  .arg(count);
    if (!MessageBoxes::askYesNo(this, tr("Velmarin"), text)) {
        return;
    }
    if (m_vault.removeStrayWorkspaces()) {
        showOutcome(tr("Cópias deixadas por sessões anteriores apagadas."));
    } else {
        MessageBoxes::warning(this, tr("Velmarin"),
                              tr("Não foi possível apagar todas as cópias deixadas por sessões anteriores."));
    }
}

} // namespace Velmarin::UI
