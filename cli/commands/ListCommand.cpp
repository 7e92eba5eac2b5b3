#include "cli/commands/ListCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/VaultArguments.h"
#include "core/index/DisplayFormat.h"
#include "core/index/EntrySorting.h"
#include "core/index/VaultPath.h"

#include <QCommandLineParser>
#include <QFileDevice>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace Velmarin::Cli {

namespace {

constexpr int NameColumn = 1;

struct Row
{
    bool folder = false;
    QString path;
    qint64 size = 0;
    QDateTime modified;
    QByteArray sha256;
};

// The folder's entries in the window's order, each folder followed by its own when recursive.
void collect(const Core::VaultIndex& index, const QString& folder, bool recursive, QList<Row>& rows)
{
    QList<Core::DirectoryEntry> folders;
    for (const Core::DirectoryEntry& entry : index.directories()) {
        if (Core::isSameVaultPath(Core::parentVaultPath(entry.path), folder)) {
            folders.append(entry);
        }
    }
    Core::EntrySorting::sortFolders(folders, NameColumn, Qt::AscendingOrder);
    QList<Core::FileEntry> files;
    for (const Core::FileEntry& entry : index.files()) {
        if (Core::isSameVaultPath(Core::parentVaultPath(entry.vaultPath), folder)) {
            files.append(entry);
        }
    }
    Core::EntrySorting::sortFiles(files, NameColumn, Qt::AscendingOrder);

    for (const Core::DirectoryEntry& entry : folders) {
        rows.append(Row{true, entry.path, 0, entry.modifiedUtc, {}});
        if (recursive) {
            collect(index, entry.path, true, rows);
        }
    }
    for (const Core::FileEntry& entry : files) {
        rows.append(Row{false, entry.vaultPath, entry.sizeBytes, entry.lastModifiedUtc, entry.sha256});
    }
}

} // namespace

CommandInfo ListCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("ls");
    info.synopsis = tr("<container> [pasta]");
    info.summary = tr("Lista as pastas e os arquivos de uma pasta do cofre.");
    info.description = tr(
        "Lista a pasta indicada (a raiz, se nenhuma for indicada): primeiro as pastas, depois os arquivos, "
        "por nome sem diferenciar maiúsculas, com data de modificação, tamanho e tipo.\n"
        "Em JSON, cada item tem \"path\", \"kind\" (\"folder\" ou \"file\"), \"size\" (0 para pastas), "
        "\"modified\" (UTC, ISO 8601 com milissegundos) e, para arquivos, \"sha256\".");
    info.options = {
        QCommandLineOption(QStringLiteral("recursive"), tr("Lista também o conteúdo das subpastas.")),
        QCommandLineOption(QStringLiteral("json"), tr("Escreve o resultado em JSON."))};
    info.maximumArguments = 2;
    info.passwords = CommandInfo::Passwords::Current;
    return info;
}

int ListCommand::checkArguments(const CommandContext& context, QString& entryPath)
{
    return VaultArguments::folderPath(context.console, context.arguments.value(1), entryPath);
}

int ListCommand::runOnVault(const CommandContext& context, Core::VaultManager& vault,
                            const QString& entryPath)
{
    QString folder = entryPath;
    const Core::VaultIndex& index = vault.index();
    if (!folder.isEmpty() && !index.directoryExists(folder)) {
        context.console.message(FailureText::missingFolder(folder));
        return Failed;
    }
    if (!folder.isEmpty()) {
        folder = index.findDirectory(folder)->path;
    }
    QList<Row> rows;
    collect(index, folder, context.parser.isSet(QStringLiteral("recursive")), rows);

    if (context.parser.isSet(QStringLiteral("json"))) {
        QJsonArray array;
        for (const Row& row : rows) {
            QJsonObject object;
            object.insert(QStringLiteral("path"), row.path);
            object.insert(QStringLiteral("kind"),
                          row.folder ? QStringLiteral("folder") : QStringLiteral("file"));
            object.insert(QStringLiteral("size"), row.size);
            object.insert(QStringLiteral("modified"), Core::VaultIndex::formatTimestamp(row.modified));
            if (!row.folder) {
                object.insert(QStringLiteral("sha256"), QString::fromLatin1(row.sha256.toHex()));
            }
            array.append(object);
        }
        context.console.output().write(QJsonDocument(array).toJson(QJsonDocument::Indented));
    } else {
        const qsizetype prefix = folder.isEmpty() ? 0 : folder.size() + 1;
        for (const Row& row : rows) {
            const QString name = row.path.mid(prefix);
            const QString type =
                row.folder ? tr("Pasta") : Core::EntrySorting::typeText(Core::vaultFileName(name));
            const QString size = row.folder ? QString() : Core::formatDataSize(row.size);
            context.console.print(QStringLiteral("%1  %2  %3  %4")
                                      .arg(Core::formatTableDate(row.modified), -16)
                                      .arg(size, 10)
                                      .arg(type, -8)
                                      .arg(name));
        }
    }
    return Success;
}

} // namespace Velmarin::Cli
