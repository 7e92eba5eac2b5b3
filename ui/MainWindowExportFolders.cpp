// Exporting a whole folder the way cp -r copies one: it comes out under its own name inside the
// chosen destination, with its tree; from the root, the whole vault does, under the container's
// name. Existing files are asked about, files that fail are listed once at the end, the rest go on.
// A row dragged to the file manager comes out the same way, into the private workspace.
#include "core/index/DisplayFormat.h"
#include "core/index/VaultPath.h"
#include "core/vault/FolderExport.h"
#include "ui/FailureText.h"
#include "ui/FileTableDrag.h"
#include "ui/MainWindow.h"
#include "ui/MessageBoxes.h"
#include "ui/ProgressDialogs.h"
#include "ui/ReplaceQuestion.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QMimeData>
#include <QProgressDialog>
#include <QTableWidget>
#include <QUrl>

namespace Velmarin::UI {

namespace {

// As for imports: the bar follows many small files often enough to look alive, rarely enough that
// drawing it costs less than the files.
constexpr qint64 RedrawIntervalMs = 50;
// A drag shows a bar only for a folder or a file this large.
constexpr qint64 DragProgressFrom = qint64(16) * 1024 * 1024;

} // namespace

QString MainWindow::exportedFolderName(const QString& folder) const
{
    if (!folder.isEmpty()) {
        return Core::vaultFileName(folder);
    }
    // The whole vault is named like its container in the status bar: "Velmarin" for the usual one.
    const QFileInfo container(m_containerPath);
    const QString base = container.completeBaseName();
    if (base.isEmpty() ||
        container.fileName().compare(QStringLiteral("velmarin.vltx"), Qt::CaseInsensitive) == 0) {
        return QStringLiteral("Velmarin");
    }
    return base;
}

void MainWindow::exportFolder()
{
    if (!m_vault.isUnlocked()) {
        return;
    }
    const QString folder = isFolderSelected() ? selectedFolderPath() : m_currentFolder;
    const QString title = tr("Exportar pasta");
    const QString name = exportedFolderName(folder);
    // The folder's own name becomes a folder on disk: a hostile index could make it climb out.
    if (!Core::FolderExport::isPlainRelative(name) || name.contains(QLatin1Char('/'))) {
        MessageBoxes::warning(
            this, title, tr("Não foi possível exportar a pasta."),
            tr("O caminho %1 levaria para fora da pasta de destino; nada foi gravado.").arg(folder));
        return;
    }
    const QString question =
        folder.isEmpty()
            ? tr("Exportar o cofre inteiro criará cópias descriptografadas fora do cofre. Alterações feitas "
                 "nessas cópias não voltam automaticamente para o Velmarin.")
            : tr("Exportar a pasta %1 criará cópias descriptografadas fora do cofre. Alterações feitas "
                 "nessas cópias não voltam automaticamente para o Velmarin.")
                  .arg(folder);
    if (!MessageBoxes::askContinue(this, title, question)) {
        return;
    }
    const QString destination = m_fileDialogs->existingDirectory(this, title, QString());
    if (destination.isEmpty()) {
        return;
    }
    const QString target = QDir(destination).filePath(name);

    int files = 0;
    for (const Core::FileEntry& entry : m_vault.index().files()) {
        files += folder.isEmpty() || Core::liesBelow(entry.vaultPath, folder) ? 1 : 0;
    }
    const auto progress = ProgressDialogs::open(this, title, tr("Exportando %1...").arg(name));
    const Core::ProgressCallback adapter = ProgressDialogs::exportAdapter(progress.get());
    QElapsedTimer sinceRedraw;
    ReplaceQuestion replaceQuestion(this, files > 1);
    Core::FolderExport::Handler handler;
    handler.existing = [&](const QString&, const QString& file) {
        return replaceQuestion.replace(tr("%1 já existe na pasta de destino. Deseja substituir o arquivo?")
                                           .arg(QDir::toNativeSeparators(file)))
                   ? Core::FolderExport::Answer::Overwrite
                   : Core::FolderExport::Answer::Skip;
    };
    handler.progress = [&](qint64 done, qint64 total, const QString& vaultPath) {
        if (!sinceRedraw.isValid() || sinceRedraw.elapsed() >= RedrawIntervalMs) {
            adapter(done, total, Core::vaultFileName(vaultPath));
            sinceRedraw.start();
        }
    };
    Core::FolderExport::Outcome outcome;
    const bool started = m_vault.exportFolder(folder, target, handler, outcome);
    progress->setValue(progress->maximum());
    progress->close();
    if (!started) {
        MessageBoxes::warning(this, title, tr("Não foi possível exportar a pasta."),
                              FailureText::why(m_vault.lastFailure()));
        showOutcome(tr("Falha ao exportar a pasta."));
        return;
    }
    tellExportFailures(outcome);
    showOutcome(exportOutcomeText(outcome));
}

void MainWindow::tellExportFailures(const Core::FolderExport::Outcome& outcome)
{
    QStringList refused;
    QStringList failed;
    const Core::Failure* firstFailure = nullptr;
    for (const Core::FolderExport::FailedEntry& entry : outcome.failed) {
        if (entry.failure.reason == Core::Failure::Reason::NameNotAllowed) {
            refused << entry.vaultPath;
            continue;
        }
        failed << entry.vaultPath;
        if (firstFailure == nullptr) {
            firstFailure = &entry.failure;
        }
    }
    QStringList parts;
    if (!failed.isEmpty()) {
        parts << tr("Não foi possível gravar estes itens:\n%1\n\n%2")
                     .arg(MessageBoxes::nameList(failed), FailureText::why(*firstFailure));
    }
    if (!refused.isEmpty()) {
        parts << tr("Estes caminhos do cofre levariam para fora da pasta de destino; nada foi gravado para "
                    "eles:\n%1")
                     .arg(MessageBoxes::nameList(refused));
    }
    if (!parts.isEmpty()) {
        MessageBoxes::warning(this, tr("Exportar pasta"), tr("Alguns itens não foram exportados."),
                              parts.join(QStringLiteral("\n\n")));
    }
}

QString MainWindow::exportOutcomeText(const Core::FolderExport::Outcome& outcome) const
{
    const int failed = static_cast<int>(outcome.failed.size());
    if (outcome.skipped == 0 && failed == 0) {
        return outcome.files == 1 ? tr("Arquivo exportado com sucesso.")
                                  : tr("%1 arquivos exportados com sucesso.").arg(outcome.files);
    }
    QStringList parts;
    parts << (outcome.files == 1 ? tr("1 arquivo exportado com sucesso")
                                 : tr("%1 arquivos exportados com sucesso").arg(outcome.files));
    if (outcome.skipped > 0) {
        parts << (outcome.skipped == 1 ? tr("1 arquivo mantido no destino")
                                       : tr("%1 arquivos mantidos no destino").arg(outcome.skipped));
    }
    if (failed > 0) {
        parts << (failed == 1 ? tr("1 item com falha") : tr("%1 itens com falha").arg(failed));
    }
    return parts.join(QStringLiteral("; ")) + QLatin1Char('.');
}

QMimeData* MainWindow::dragMimeData()
{
    const int kind = currentRowKind();
    const QString path = currentRowPath();
    // A session without a workspace (read-only) has nowhere private to put the copy.
    if (!m_vault.isUnlocked() || m_vault.workspaceDirectory().isEmpty() || path.isEmpty() ||
        (kind != FileRow && kind != FolderRow)) {
        return nullptr;
    }
    qint64 bytes = 0;
    for (const Core::FileEntry& entry : m_vault.index().files()) {
        if (Core::isSameVaultPath(entry.vaultPath, path) || Core::liesBelow(entry.vaultPath, path)) {
            bytes += entry.sizeBytes;
        }
    }
    const QString title = kind == FolderRow ? tr("Exportar pasta") : tr("Exportar arquivo");
    // A small file is ready before a bar could be seen.
    std::unique_ptr<QProgressDialog> progress;
    Core::ProgressCallback adapter;
    if (kind == FolderRow || bytes >= DragProgressFrom) {
        progress = ProgressDialogs::open(this, title, tr("Exportando %1...").arg(Core::vaultFileName(path)));
        adapter = ProgressDialogs::exportAdapter(progress.get());
    }
    QElapsedTimer sinceRedraw;
    const Core::ProgressCallback throttled = [&](qint64 done, qint64 total, const QString& vaultPath) {
        if (adapter && (!sinceRedraw.isValid() || sinceRedraw.elapsed() >= RedrawIntervalMs)) {
            adapter(done, total, Core::vaultFileName(vaultPath));
            sinceRedraw.start();
        }
    };
    QString localPath;
    const bool written = m_vault.copyOut(path, &localPath, throttled);
    if (progress) {
        progress->setValue(progress->maximum());
        progress->close();
    }
    if (!written) {
        MessageBoxes::warning(this, title, tr("Não foi possível preparar a cópia para arrastar."),
                              FailureText::why(m_vault.lastFailure()));
        return nullptr;
    }
    auto* mime = new QMimeData;
    mime->setUrls({QUrl::fromLocalFile(localPath)});
    return mime;
}

void MainWindow::allowDragsOut()
{
    new FileTableDrag(
        m_fileTable,
        [this](int row) {
            const QTableWidgetItem* item = m_fileTable->item(row, 1);
            const int kind = item != nullptr ? item->data(Qt::UserRole + 1).toInt() : -1;
            return m_vault.isUnlocked() && (kind == FileRow || kind == FolderRow);
        },
        [this] {
            QMimeData* mime = nullptr;
            m_autoLock->run([this, &mime] { mime = dragMimeData(); });
            return mime;
        });
}

} // namespace Velmarin::UI
