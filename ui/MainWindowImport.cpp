// Importing files: chosen in a dialog, checked against the index's room and the drive's free
// space, then brought in as one batch, with the replacement question asked file by file (or, for
// folders and drops, answered once for all).
#include "core/index/DisplayFormat.h"
#include "core/index/VaultPath.h"
#include "core/vault/ImportPlan.h"
#include "core/vault/ImportSpace.h"
#include "ui/FailureText.h"
#include "ui/MainWindow.h"
#include "ui/MessageBoxes.h"
#include "ui/ProgressDialogs.h"
#include "ui/ReplaceQuestion.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProgressDialog>

#include <algorithm>

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
    ImportRequest request;
    for (const QString& file : files) {
        const QFileInfo info(file);
        request.items.append(Core::ImportItem{file, Core::joinEntryPath(m_currentFolder, info.fileName()),
                                              info.size(), false});
    }
    runImport(request);
}

void MainWindow::runImport(ImportRequest request)
{
    for (const Core::ImportItem& twin : Core::ImportPlan::takeCaseTwins(request.items)) {
        request.caseTwins << twin.localPath;
    }
    const int ignored = request.skipped + static_cast<int>(request.refusedNames.size()) +
                        static_cast<int>(request.caseTwins.size());
    if (request.items.isEmpty() && ignored == 0) {
        return;
    }
    const QList<Core::ImportItem>& items = request.items;
    if (!items.isEmpty() && !confirmImportSpace(items)) {
        return;
    }

    const QString speedNote = tr("A velocidade depende da taxa de leitura e escrita da unidade USB.\n"
                                 "Dispositivos USB 3 ou superiores tendem a ser mais rápidos.");
    const auto progress = ProgressDialogs::open(
        this, tr("Importar arquivos"), tr("Importando arquivos para o cofre...\n\n%1").arg(speedNote));
    const Core::ProgressCallback adapter = ProgressDialogs::importAdapter(progress.get(), speedNote);
    // Not started until the first file is named, so that one is always shown.
    QElapsedTimer sinceRedraw;
    const bool forAll =
        request.offerForAll &&
        std::count_if(items.cbegin(), items.cend(), [](const auto& item) { return !item.isFolder; }) > 1;
    ReplaceQuestion replaceQuestion(this, forAll);
    // A folder that could not be made keeps what it holds out with it, without a box for each.
    QStringList refusedFolders;

    Core::ImportBatch::Handler handler;
    handler.include = [&](const Core::ImportItem& item, const Core::VaultIndex& index) {
        if (std::any_of(refusedFolders.cbegin(), refusedFolders.cend(),
                        [&](const QString& folder) { return Core::liesBelow(item.vaultPath, folder); })) {
            return false;
        }
        if (item.isFolder) {
            return !index.directoryExists(item.vaultPath);
        }
        if (!sinceRedraw.isValid() || sinceRedraw.elapsed() >= RedrawIntervalMs ||
            index.fileExists(item.vaultPath)) {
            progress->setValue(0);
            progress->setLabelText(
                tr("Importando %1...\n\n%2").arg(Core::vaultFileName(item.vaultPath), speedNote));
            QCoreApplication::processEvents();
            sinceRedraw.start();
        }
        if (!index.fileExists(item.vaultPath)) {
            return true;
        }
        return replaceQuestion.replace(
            tr("%1 já existe no cofre. Deseja substituir o arquivo protegido?").arg(item.vaultPath));
    };
    handler.progress = [&](const Core::ImportBatch::Progress& step) {
        if (sinceRedraw.isValid() && sinceRedraw.elapsed() >= RedrawIntervalMs) {
            adapter(step.fileDone, step.fileTotal, step.vaultPath);
            sinceRedraw.restart();
        }
    };
    handler.failed = [&](const Core::ImportItem& item, const Core::Failure& failure) {
        if (item.isFolder) {
            refusedFolders << item.vaultPath;
        }
        MessageBoxes::warning(this, tr("Velmarin"),
                              tr("Não foi possível importar %1.").arg(QFileInfo(item.localPath).fileName()),
                              FailureText::why(failure));
    };
    const Core::ImportBatch::Outcome outcome =
        items.isEmpty() ? Core::ImportBatch::Outcome{} : m_vault.importBatch(items, handler);
    if (outcome.stopped || outcome.fitting) {
        explainImportStop(items, outcome);
    }
    progress->setValue(progress->maximum());
    progress->close();
    refreshFileTable();
    refreshDeviceList();
    tellLeftOut(request);
    showOutcome(importOutcomeText(outcome.imported, ignored));
}

void MainWindow::explainImportStop(const QList<Core::ImportItem>& items,
                                   const Core::ImportBatch::Outcome& outcome)
{
    if (outcome.fitting) {
        // The index filled between the check and the batch: nothing was written.
        const auto files = std::count_if(items.cbegin(), items.cend(),
                                         [](const Core::ImportItem& item) { return !item.isFolder; });
        MessageBoxes::warning(this, tr("Importar arquivos"),
                              FailureText::indexCapacity(*outcome.fitting, static_cast<int>(files)));
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
    int files = 0;
    for (const Core::ImportItem& item : items) {
        const QFileInfo info(item.localPath);
        if (!info.exists()) {
            MessageBoxes::warning(
                nullptr, title, tr("O arquivo %1 não está disponível para importação.").arg(item.localPath));
            return false;
        }
        // A folder adds an entry to the index but nothing to the container.
        total += item.isFolder ? 0 : info.size();
        files += item.isFolder ? 0 : 1;
    }

    int fitting = 0;
    if (!m_vault.importCapacity(items, &fitting)) {
        MessageBoxes::warning(this, title, tr("Não foi possível importar os arquivos."),
                              FailureText::why(m_vault.lastFailure()));
        return false;
    }
    if (fitting < files) {
        MessageBoxes::warning(nullptr, title, FailureText::indexCapacity(fitting, files));
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
