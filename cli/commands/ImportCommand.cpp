#include "cli/commands/ImportCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/VaultArguments.h"
#include "core/container/DriveSpace.h"
#include "core/index/DisplayFormat.h"
#include "core/index/VaultPath.h"
#include "core/vault/ImportPlan.h"
#include "core/vault/ImportSpace.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace Velmarin::Cli {

namespace {

QString shown(const QString& localPath)
{
    return QDir::toNativeSeparators(localPath);
}

} // namespace

CommandInfo ImportCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("import");
    info.synopsis = tr("<container> <arquivo-ou-pasta>...");
    info.summary = tr("Importa arquivos e pastas para o cofre.");
    info.description = tr(
        "Importa cada arquivo indicado e, de cada pasta indicada, a árvore inteira com o nome da própria "
        "pasta, "
        "como \"cp -r\" faria: \"import c.vltx ~/Fotos --to Backup\" cria Backup/Fotos/... e as pastas que "
        "faltarem.\nUm item que já existe no cofre é ignorado, com uma mensagem, a menos que --replace seja "
        "usado. Links simbólicos dentro das pastas são ignorados.");
    info.options = {
        QCommandLineOption(QStringLiteral("to"), tr("Pasta do cofre que recebe os itens (padrão: a raiz)."),
                           tr("pasta")),
        QCommandLineOption(QStringLiteral("replace"), tr("Substitui arquivos que já existem no cofre."))};
    info.minimumArguments = 2;
    info.maximumArguments = -1;
    info.passwords = CommandInfo::Passwords::Current;
    return info;
}

// The whole plan is made before the password is asked for, so a typing error costs nothing.
int ImportCommand::checkArguments(const CommandContext& context, QString& target)
{
    Console& console = context.console;
    const int validTarget =
        VaultArguments::folderPath(console, context.parser.value(QStringLiteral("to")), target);
    if (validTarget != Success) {
        return validTarget;
    }
    const auto refuseName = [&](const QString& localPath) {
        console.message(tr("O nome de %1 não pode ser usado no cofre.").arg(shown(localPath)));
    };
    Core::ImportPlan plan;
    for (const QString& source : context.arguments.mid(1)) {
        const Core::ImportPlan::Result planned = plan.add(source, target);
        for (const Core::ImportPlan::Skipped& skipped : plan.takeSkipped()) {
            switch (skipped.reason) {
            case Core::ImportPlan::Skipped::Reason::SymbolicLink:
                console.message(tr("Link simbólico ignorado: %1").arg(shown(skipped.localPath)));
                break;
            case Core::ImportPlan::Skipped::Reason::NotRegular:
                console.message(
                    tr("Ignorado por não ser um arquivo comum: %1").arg(shown(skipped.localPath)));
                break;
            case Core::ImportPlan::Skipped::Reason::NameNotAllowed:
                refuseName(skipped.localPath);
                m_planned = Failed;
                break;
            }
        }
        if (planned == Core::ImportPlan::Result::Missing) {
            console.message(tr("O arquivo %1 não está disponível para importação.").arg(shown(source)));
            return Failed;
        }
        if (planned == Core::ImportPlan::Result::NameNotAllowed) {
            refuseName(source);
            return UsageError;
        }
    }
    m_items = plan.items();
    return Success;
}

bool ImportCommand::hasRoom(const CommandContext& context, Core::VaultManager& vault) const
{
    Console& console = context.console;
    int files = 0;
    qint64 total = 0;
    for (const Core::ImportItem& item : m_items) {
        files += item.isFolder ? 0 : 1;
        total += item.size;
    }
    int fitting = 0;
    if (!vault.importCapacity(m_items, &fitting)) {
        FailureText::report(console, vault.lastFailure(), Failed);
        return false;
    }
    if (fitting < files) {
        console.message(FailureText::indexCapacity(fitting, files));
        return false;
    }
    const Core::DriveSpace drive = Core::DriveSpace::of(QFileInfo(context.arguments.at(0)).absolutePath());
    if (!drive.ready) {
        console.message(tr("Não foi possível verificar o espaço livre da unidade do container."));
        return false;
    }
    // A drive that does not tell its free space (FAT through FUSE) is written until it refuses.
    if (!drive.hasRoomFor(Core::ImportSpace::required(total))) {
        console.message(tr("%1\n\nArquivos selecionados: %2\nEspaço livre disponível: %3\n\nLibere espaço na "
                           "unidade USB ou selecione arquivos menores.")
                            .arg(FailureText::sentence(Core::Failure::Reason::NoSpace),
                                 Core::formatDataSize(total), Core::formatDataSize(*drive.available)));
        return false;
    }
    return true;
}

int ImportCommand::runOnVault(const CommandContext& context, Core::VaultManager& vault, const QString&)
{
    Console& console = context.console;
    if (!hasRoom(context, vault)) {
        return Failed;
    }
    int result = m_planned;
    const bool replace = context.parser.isSet(QStringLiteral("replace"));
    int skipped = 0;
    // What lies inside a folder that could not be made stays out with it.
    QStringList refusedFolders;
    // The file being imported, whose bytes the progress line follows.
    QString current;
    QString label;
    Core::ImportBatch::Handler handler;
    handler.include = [&](const Core::ImportItem& item, const Core::VaultIndex& index) {
        if (std::any_of(refusedFolders.cbegin(), refusedFolders.cend(),
                        [&](const QString& folder) { return Core::liesBelow(item.vaultPath, folder); })) {
            return false;
        }
        if (item.isFolder) {
            if (index.directoryExists(item.vaultPath)) {
                return false;
            }
            // Not a folder, so a file is in the way.
            if (index.fileExists(item.vaultPath)) {
                console.message(tr("Não foi possível criar a pasta %1.").arg(item.vaultPath));
                console.message(FailureText::sentence(Core::Failure::Reason::AlreadyExists, item.vaultPath));
                result = Failed;
                refusedFolders << item.vaultPath;
                return false;
            }
            return true;
        }
        if (index.directoryExists(item.vaultPath)) {
            console.message(tr("Já existe uma pasta %1 no cofre; o arquivo %2 não foi importado.")
                                .arg(item.vaultPath, shown(item.localPath)));
            result = Failed;
            return false;
        }
        if (index.fileExists(item.vaultPath) && !replace) {
            console.message(
                tr("%1 já existe no cofre; use --replace para substituí-lo.").arg(item.vaultPath));
            ++skipped;
            return false;
        }
        current = item.vaultPath;
        label = tr("Importando %1").arg(item.vaultPath);
        return true;
    };
    handler.progress = [&](const Core::ImportBatch::Progress& progress) {
        if (progress.vaultPath == current && progress.fileDone > 0) {
            console.progress(label, progress.fileDone, progress.fileTotal);
        }
    };
    handler.failed = [&](const Core::ImportItem& item, const Core::Failure& failure) {
        current.clear();
        if (item.isFolder) {
            console.message(tr("Não foi possível criar a pasta %1.").arg(item.vaultPath));
            refusedFolders << item.vaultPath;
        } else {
            console.message(tr("Não foi possível importar %1.").arg(shown(item.localPath)));
        }
        result = FailureText::report(console, failure, Failed);
    };
    const Core::ImportBatch::Outcome outcome = vault.importBatch(m_items, handler);
    console.endProgress();
    if (outcome.stopped) {
        // The container is back to the end of the last whole file; those before it are in.
        const QString where = outcome.stoppedAt >= 0 && outcome.stoppedAt < m_items.size()
                                  ? shown(m_items.at(outcome.stoppedAt).localPath)
                                  : QDir::toNativeSeparators(context.arguments.at(0));
        console.message(tr("Não foi possível importar %1.").arg(where));
        result = FailureText::report(console, vault.lastFailure(), Failed);
    }

    const int imported = outcome.imported;
    if (imported > 0) {
        console.message(imported == 1 ? tr("Arquivo importado com sucesso.")
                                      : tr("%1 arquivos importados com sucesso.").arg(imported));
    }
    if (skipped > 0) {
        console.message(skipped == 1 ? tr("1 arquivo ignorado por já existir no cofre.")
                                     : tr("%1 arquivos ignorados por já existirem no cofre.").arg(skipped));
    }
    return result;
}

} // namespace Velmarin::Cli
