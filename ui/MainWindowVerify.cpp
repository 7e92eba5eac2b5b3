// Checking the vault: every block of every file read back, and what the index itself records,
// with the damaged files listed at the end.
#include "core/vault/VerificationReport.h"
#include "ui/MainWindow.h"
#include "ui/MessageBoxes.h"
#include "ui/ProgressDialogs.h"

#include <QProgressDialog>

namespace Velmarin::UI {

namespace {

using DamagedFile = Core::VerificationReport::DamagedFile;

QString windowText(const char* text)
{
    return QCoreApplication::translate("Velmarin::UI::MainWindow", text);
}

QString problemText(const DamagedFile& file)
{
    using Problem = DamagedFile::Problem;
    switch (file.problem) {
    case Problem::UnreadableBlock:
        return windowText("o bloco %1 de %2 não pôde ser lido ou foi alterado")
            .arg(file.blockNumber)
            .arg(file.blockCount);
    case Problem::WrongSize:
        return windowText("o tamanho não confere com o registrado");
    case Problem::WrongDigest:
        return windowText("o conteúdo não confere com o registrado (SHA-256)");
    case Problem::DotSegment:
        return windowText("o caminho tem \".\" ou \"..\"");
    case Problem::AbsolutePath:
        return windowText("o caminho é absoluto");
    case Problem::BackslashPath:
        return windowText("o caminho tem barra invertida");
    case Problem::PathNotNormal:
        return windowText("o caminho não está na forma normal");
    case Problem::CaseDuplicate:
        return windowText("tem o mesmo nome que %1, com outras maiúsculas e minúsculas").arg(file.otherPath);
    case Problem::MissingFolder:
        return windowText("a pasta %1 não está no índice").arg(file.otherPath);
    case Problem::OverlappingBlocks:
        return file.otherPath == file.vaultPath
                   ? windowText("o bloco %1 de %2 ocupa o mesmo lugar que outro bloco do próprio arquivo")
                         .arg(file.blockNumber)
                         .arg(file.blockCount)
                   : windowText("o bloco %1 de %2 ocupa o mesmo lugar que um bloco de %3")
                         .arg(file.blockNumber)
                         .arg(file.blockCount)
                         .arg(file.otherPath);
    }
    return {};
}

} // namespace

void MainWindow::verifyVault()
{
    if (!m_vault.isUnlocked()) {
        return;
    }
    const QString title = tr("Verificar cofre");
    const auto progress = ProgressDialogs::open(this, title, tr("Verificando o cofre..."));
    Core::VerificationReport report;
    const bool read = m_vault.verifyContents(report, ProgressDialogs::compactionAdapter(progress.get()));
    progress->setValue(progress->maximum());
    progress->close();

    if (!read) {
        MessageBoxes::warning(this, title, tr("Não foi possível ler o container para verificar o cofre."));
        showOutcome(tr("Falha ao verificar o cofre."));
        return;
    }
    if (report.isSound()) {
        showOutcome(tr("Nenhum dano encontrado."));
        MessageBoxes::information(this, title, tr("Nenhum dano encontrado."));
        return;
    }
    // Past this many lines the box would not fit the screen: the rest are counted.
    constexpr qsizetype Listed = 20;
    QStringList lines;
    for (const DamagedFile& file : report.damagedFiles.mid(0, Listed)) {
        lines << QStringLiteral("%1: %2").arg(file.vaultPath, problemText(file));
    }
    if (report.damagedFiles.size() > Listed) {
        lines << tr("... e mais %1.").arg(report.damagedFiles.size() - Listed);
    }
    const qsizetype count = report.damagedFiles.size();
    const QString found = count == 1 ? tr("A verificação encontrou danos em 1 arquivo:")
                                     : tr("A verificação encontrou danos em %1 arquivos:").arg(count);
    showOutcome(tr("Danos encontrados no cofre."));
    MessageBoxes::warning(this, title,
                          tr("%1\n\n%2\n\nNada foi alterado no cofre. Exporte o que puder e guarde um backup "
                             "do container antes de fazer alterações.")
                              .arg(found, lines.join(QLatin1Char('\n'))));
}

} // namespace Velmarin::UI
