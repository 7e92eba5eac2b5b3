#include "cli/commands/InfoCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/VaultAccess.h"
#include "core/container/ContainerHeader.h"
#include "core/index/DisplayFormat.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileDevice>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace Velmarin::Cli {

CommandInfo InfoCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("info");
    info.synopsis = tr("<container>");
    info.summary = tr("Mostra o que o cabeçalho diz, sem pedir senha.");
    info.description =
        tr("Mostra o tamanho do container, a versão do formato, a derivação de chave, a cifra, o "
           "tamanho do cabeçalho e o tamanho dos dados. Nada é decifrado e nenhuma senha é pedida.");
    info.options = {QCommandLineOption(QStringLiteral("json"), tr("Escreve o resultado em JSON."))};
    return info;
}

int InfoCommand::run(const CommandContext& context)
{
    const QString container = context.arguments.at(0);
    Core::ContainerHeader header;
    const int checked = VaultAccess::checkContainer(context.console, container, header);
    if (checked != Success) {
        return checked;
    }
    const qint64 size = QFileInfo(container).size();
    const qint64 payloadSize = qMax<qint64>(0, size - header.payloadOffset);

    if (context.parser.isSet(QStringLiteral("json"))) {
        QJsonObject object;
        object.insert(QStringLiteral("path"), QFileInfo(container).absoluteFilePath());
        object.insert(QStringLiteral("size"), size);
        object.insert(QStringLiteral("formatVersion"), header.formatVersion);
        object.insert(QStringLiteral("kdf"), header.crypto.kdf);
        object.insert(QStringLiteral("cipher"), header.crypto.cipher);
        object.insert(QStringLiteral("headerLength"), header.headerLength);
        object.insert(QStringLiteral("payloadSize"), payloadSize);
        context.console.output().write(QJsonDocument(object).toJson(QJsonDocument::Indented));
        return Success;
    }
    // PBKDF2's cost is its iteration count; Argon2id's is fixed by the program, so it is not shown.
    QString kdf = header.crypto.kdf;
    if (kdf != QLatin1String("Argon2id")) {
        kdf = tr("%1 (%2 iterações)").arg(kdf).arg(header.crypto.kdfIterations);
    }
    Console& console = context.console;
    console.print(tr("Container: %1").arg(QDir::toNativeSeparators(QFileInfo(container).absoluteFilePath())));
    console.print(tr("Tamanho: %1").arg(Console::sizeWithBytes(size)));
    console.print(tr("Versão do formato: %1").arg(header.formatVersion));
    console.print(tr("Derivação de chave: %1").arg(kdf));
    console.print(tr("Cifra: %1").arg(header.crypto.cipher));
    console.print(tr("Cabeçalho: %1 bytes").arg(header.headerLength));
    console.print(tr("Dados: %1").arg(Console::sizeWithBytes(payloadSize)));
    return Success;
}

} // namespace Velmarin::Cli
