// Importing files: chosen in a dialog, checked against the index's room and the drive's free
// space, then brought in as one batch, with the replacement question asked file by file.
#include "core/index/DisplayFormat.h"
#include "core/index/VaultPath.h"
#include "core/vault/ImportSpace.h"
#include "ui/FailureText.h"
#include "ui/MainWindow.h"
#include "ui/MessageBoxes.h"
#include "ui/ProgressDialogs.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProgressDialog>

namespace Velmarin::UI {

namespace {

// How often the bar follows a batch of many small files: often enough to look alive, rarely
// enough that drawing it does not cost more than the files.
constexpr qint64 RedrawIntervalMs = 50;

} // namespace

void MainWindow::importFiles()
{
    const QStringList files =
        m_fileDialogs->openFileNames(this, tr("Importar arquivos para o cofre"), QString(), QString());
    QList<Core::ImportItem> items;
    for (const QString& file : files) {
        const QFileInfo info(file);
        items.append(Core::ImportItem{file, Core::joinEntryPath(m_currentFolder, info.fileName()),
                                      info.size(), false});
    }
    if (items.isEmpty() || !confirmImportSpace(items)) {
        return;
    }

    const QString speedNote = tr("A velocidade depende da taxa de leitura e escrita da unidade USB.\n"
                                 "Dispositivos USB 3 ou superiores tendem a ser mais rápidos.");
    const auto progress = ProgressDialogs::open(
        this, tr("Importar arquivos"), tr("Importando arquivos para o cofre...\n\n%1").arg(speedNote));
    const Core::ProgressCallback adapter = ProgressDialogs::importAdapter(progress.get(), speedNote);
    // Not started until the first file is named, so that one is always shown.
    QElapsedTimer sinceRedraw;

    Core::ImportBatch::Handler handler;
    handler.include = [&](const Core::ImportItem& item, const Core::VaultIndex& index) {
        if (!sinceRedraw.isValid() || sinceRedraw.elapsed() >= RedrawIntervalMs ||
            index.fileExists(item.vaultPath)) {
            progress->setValue(0);
            progress->setLabelText(
                tr("Importando %1...\n\n%2").arg(Core::vaultFileName(item.vaultPath), speedNote));
            QCoreApplication::processEvents();
            sinceRedraw.start();
        }
        return !index.fileExists(item.vaultPath) ||
               MessageBoxes::askYesNo(
                   this, tr("Substituir arquivo"),
                   tr("%1 já existe no cofre. Deseja substituir o arquivo protegido?").arg(item.vaultPath));
    };
    handler.progress = [&](const Core::ImportBatch::Progress& step) {
        if (sinceRedraw.isValid() && sinceRedraw.elapsed() >= RedrawIntervalMs) {
            adapter(step.fileDone, step.fileTotal, step.vaultPath);
            sinceRedraw.restart();
        }
    };
    handler.failed = [&](const Core::ImportItem& item, const Core::Failure& failure) {
        MessageBoxes::warning(this, tr("Velmarin"),
                              tr("Não foi possível importar %1.").arg(QFileInfo(item.localPath).fileName()),
                              FailureText::why(failure));
    };
    const Core::ImportBatch::Outcome outcome = m_vault.importBatch(items, handler);
    if (outcome.stopped || outcome.fitting) {
        explainImportStop(items, outcome);
    }
    progress->setValue(progress->maximum());
    progress->close();
    refreshFileTable();
    refreshDeviceList();

    // The count is shown even when it is 0, so the user always sees how many went in.
    const int imported = outcome.imported;
    showOutcome(imported == 1 ? tr("Arquivo importado com sucesso.")
                              : tr("%1 arquivos importados com sucesso.").arg(imported));
}

void MainWindow::explainImportStop(const QList<Core::ImportItem>& items,
                                   const Core::ImportBatch::Outcome& outcome)
{
    if (outcome.fitting) {
        // The index filled between the check and the batch: nothing was written.
        MessageBoxes::warning(this, tr("Importar arquivos"),
                              FailureText::indexCapacity(*outcome.fitting, static_cast<int>(items.size())));
        return;
    }
    const QString where = outcome.stoppedAt >= 0 && outcome.stoppedAt < items.size()
                              ? QFileInfo(items.at(outcome.stoppedAt).localPath).fileName()
                              : QFileInfo(m_containerPath).fileName();
    const QString why = FailureText::why(m_vault.lastFailure());
    const QString count = tr("Arquivos importados antes da interrupção: %1. Os demais não foram tentados.")
                              .arg(outcome.imported);
    MessageBoxes::warning(this, tr("Velmarin"), tr("Não foi possível importar %1.").arg(where),
                          why.isEmpty() ? count : why + QStringLiteral("\n\n") + count);
}

bool MainWindow::confirmImportSpace(const QList<Core::ImportItem>& items)
{
    const QString title = tr("Importar arquivos");
    qint64 total = 0;
    for (const Core::ImportItem& item : items) {
        const QFileInfo info(item.localPath);
        if (!info.exists()) {
            MessageBoxes::warning(
                nullptr, title, tr("O arquivo %1 não está disponível para importação.").arg(item.localPath));
            return false;
        }
        total += info.size();
    }

    int fitting = 0;
    if (!m_vault.importCapacity(items, &fitting)) {
        MessageBoxes::warning(this, title, tr("Não foi possível importar os arquivos."),
                              FailureText::why(m_vault.lastFailure()));
        return false;
    }
    if (fitting < items.size()) {
        MessageBoxes::warning(nullptr, title,
                              FailureText::indexCapacity(fitting, static_cast<int>(items.size())));
        return false;
    }

    const Core::DriveSpace drive = m_storage->space(QFileInfo(m_containerPath).absolutePath());
    if (!drive.ready) {
        MessageBoxes::warning(nullptr, title,
                              tr("Não foi possível verificar o espaço livre da unidade do container."));
        return false;
    }
    // A drive that does not tell its free space (FAT through FUSE) is written until it refuses,
    // and a refused write is cut back.
    if (!drive.available) {
        return true;
    }
    const qint64 available = *drive.available;
    const qint64 required = Core::ImportSpace::required(total);
    if (required > available) {
        MessageBoxes::warning(
            nullptr, tr("Espaço insuficiente"),
            tr("Não há espaço livre suficiente na unidade do container.\n\nArquivos "
               "selecionados: %1\nEspaço livre disponível: %2\n\nLibere espaço na unidade USB "
               "ou selecione arquivos menores.")
                .arg(Core::formatDataSize(total), Core::formatDataSize(available)));
        return false;
    }
    const qint64 remaining = available - required;
    if (remaining >= Core::ImportSpace::ComfortableRemainder) {
        return true;
    }
    return MessageBoxes::askYesNo(
        this, tr("Espaço livre reduzido"),
        tr("A importação deixará pouco espaço livre na unidade do container.\n\n"
           "Arquivos selecionados: %1\nEspaço livre restante estimado: %2\n\nDeseja "
           "continuar?")
            .arg(Core::formatDataSize(total), Core::formatDataSize(remaining)));
}

} // namespace Velmarin::UI
