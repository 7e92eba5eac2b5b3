#include "cli/commands/VerifyCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "core/index/DisplayFormat.h"

#include <QCommandLineParser>
#include <QFileDevice>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace Velmarin::Cli {

namespace {

using DamagedFile = Core::VerificationReport::DamagedFile;

QString problemKey(DamagedFile::Problem problem)
{
    switch (problem) {
    case DamagedFile::Problem::UnreadableBlock:
        return QStringLiteral("block");
    case DamagedFile::Problem::WrongSize:
        return QStringLiteral("size");
    case DamagedFile::Problem::WrongDigest:
        return QStringLiteral("sha256");
    case DamagedFile::Problem::DotSegment:
        return QStringLiteral("dot-segment");
    case DamagedFile::Problem::AbsolutePath:
        return QStringLiteral("absolute-path");
    case DamagedFile::Problem::BackslashPath:
        return QStringLiteral("backslash");
    case DamagedFile::Problem::PathNotNormal:
        return QStringLiteral("path-form");
    case DamagedFile::Problem::CaseDuplicate:
        return QStringLiteral("case-duplicate");
    case DamagedFile::Problem::MissingFolder:
        return QStringLiteral("missing-folder");
    case DamagedFile::Problem::OverlappingBlocks:
        return QStringLiteral("overlap");
    }
    return {};
}

QString problemText(const DamagedFile& file)
{
    using Problem = DamagedFile::Problem;
    switch (file.problem) {
    case Problem::UnreadableBlock:
        return VerifyCommand::tr("bloco %1 de %2 ilegível").arg(file.blockNumber).arg(file.blockCount);
    case Problem::WrongSize:
        return VerifyCommand::tr("tamanho diferente do registrado");
    case Problem::WrongDigest:
        return VerifyCommand::tr("SHA-256 diferente do registrado");
    case Problem::DotSegment:
        return VerifyCommand::tr("caminho com \".\" ou \"..\"");
    case Problem::AbsolutePath:
        return VerifyCommand::tr("caminho absoluto");
    case Problem::BackslashPath:
        return VerifyCommand::tr("caminho com barra invertida");
    case Problem::PathNotNormal:
        return VerifyCommand::tr("caminho fora da forma normal");
    case Problem::CaseDuplicate:
        return VerifyCommand::tr("mesmo nome que %1 em outras maiúsculas e minúsculas").arg(file.otherPath);
    case Problem::MissingFolder:
        return VerifyCommand::tr("a pasta %1 não está no índice").arg(file.otherPath);
    case Problem::OverlappingBlocks:
        return file.otherPath == file.vaultPath
                   ? VerifyCommand::tr("bloco %1 de %2 sobreposto a outro bloco do mesmo arquivo")
                         .arg(file.blockNumber)
                         .arg(file.blockCount)
                   : VerifyCommand::tr("bloco %1 de %2 sobreposto a um bloco de %3")
                         .arg(file.blockNumber)
                         .arg(file.blockCount)
                         .arg(file.otherPath);
    }
    return {};
}

} // namespace

CommandInfo VerifyCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("verify");
    info.synopsis = tr("<container>");
    info.summary = tr("Confere cada bloco de cada arquivo.");
    info.description = tr(
        "Decifra todos os blocos de todos os arquivos e confere o tamanho e a autenticação de cada bloco e o "
        "tamanho total e o SHA-256 de cada arquivo. Informa quantos arquivos e pastas há, os dados em uso e "
        "os "
        "dados mortos que a compactação liberaria, e nomeia cada arquivo danificado. Nada é gravado.\n"
        "Sai com o código 4 quando encontra danos.");
    info.options = {QCommandLineOption(QStringLiteral("json"), tr("Escreve o resultado em JSON."))};
    info.passwords = CommandInfo::Passwords::Current;
    return info;
}

int VerifyCommand::runOnVault(const CommandContext& context, Core::VaultManager& vault, const QString&)
{
    Console& console = context.console;
    Core::VerificationReport report;
    const bool read = vault.verifyContents(report, [&](qint64 done, qint64 total, const QString& label) {
        console.progress(tr("Verificando %1").arg(label), done, total);
    });
    console.endProgress();
    if (!read) {
        console.message(tr("Não foi possível ler o container."));
        return FailureText::report(console, vault.lastFailure(), Failed, FailureText::Damage::IsFinding);
    }

    if (context.parser.isSet(QStringLiteral("json"))) {
        QJsonArray damaged;
        for (const DamagedFile& file : report.damagedFiles) {
            QJsonObject object;
            object.insert(QStringLiteral("path"), file.vaultPath);
            object.insert(QStringLiteral("problem"), problemKey(file.problem));
            if (file.problem == DamagedFile::Problem::UnreadableBlock ||
                file.problem == DamagedFile::Problem::OverlappingBlocks) {
                object.insert(QStringLiteral("block"), file.blockNumber);
                object.insert(QStringLiteral("blocks"), file.blockCount);
            }
            if (!file.otherPath.isEmpty()) {
                object.insert(QStringLiteral("other"), file.otherPath);
            }
            damaged.append(object);
        }
        QJsonObject object;
        object.insert(QStringLiteral("files"), report.fileCount);
        object.insert(QStringLiteral("folders"), report.folderCount);
        object.insert(QStringLiteral("liveBytes"), report.liveBytes);
        object.insert(QStringLiteral("deadBytes"), report.deadBytes);
        object.insert(QStringLiteral("damaged"), damaged);
        object.insert(QStringLiteral("sound"), report.isSound());
        console.output().write(QJsonDocument(object).toJson(QJsonDocument::Indented));
    } else {
        console.print(tr("Arquivos: %1").arg(report.fileCount));
        console.print(tr("Pastas: %1").arg(report.folderCount));
        console.print(tr("Dados em uso: %1").arg(Console::sizeWithBytes(report.liveBytes)));
        console.print(tr("Dados mortos: %1").arg(Console::sizeWithBytes(report.deadBytes)));
        for (const DamagedFile& file : report.damagedFiles) {
            console.print(tr("Danificado: %1 (%2)").arg(file.vaultPath, problemText(file)));
        }
    }

    if (!report.isSound()) {
        const qsizetype count = report.damagedFiles.size();
        console.message(count == 1 ? tr("1 arquivo danificado.") : tr("%1 arquivos danificados.").arg(count));
        return DamageFound;
    }
    console.message(tr("Nenhum dano encontrado."));
    return Success;
}

} // namespace Velmarin::Cli
