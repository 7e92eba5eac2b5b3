#include "cli/CommandLine.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/commands/BackupCommand.h"
#include "cli/commands/CompactCommand.h"
#include "cli/commands/CreateCommand.h"
#include "cli/commands/ExportCommand.h"
#include "cli/commands/ImportCommand.h"
#include "cli/commands/InfoCommand.h"
#include "cli/commands/ListCommand.h"
#include "cli/commands/MakeFolderCommand.h"
#include "cli/commands/MoveCommand.h"
#include "cli/commands/PasswordCommand.h"
#include "cli/commands/RecoverCommand.h"
#include "cli/commands/RemoveFileCommand.h"
#include "cli/commands/RemoveFolderCommand.h"
#include "cli/commands/RenameCommand.h"
#include "cli/commands/VerifyCommand.h"

#include <QCommandLineParser>
#include <QFileDevice>
#include <QRegularExpression>

namespace Velmarin::Cli {

namespace {

const QString Program = QStringLiteral("velmarin-cli");
constexpr int DescriptionColumn = 32;
constexpr int HelpWidth = 90;

QCommandLineOption helpOption()
{
    return QCommandLineOption(
        {QStringLiteral("h"), QStringLiteral("help")},
        QCoreApplication::translate("Velmarin::Cli::CommandLine", "Mostra esta ajuda."));
}

// "  -h, --help <valor>   description", descriptions lined up in one column.
QString optionLines(const QList<QCommandLineOption>& options)
{
    QString text;
    for (const QCommandLineOption& option : options) {
        QStringList names;
        for (const QString& name : option.names()) {
            names << (name.size() == 1 ? QStringLiteral("-") : QStringLiteral("--")) + name;
        }
        QString left = QStringLiteral("  ") + names.join(QStringLiteral(", "));
        if (!option.valueName().isEmpty()) {
            left += QStringLiteral(" <%1>").arg(option.valueName());
        }
        left = left.size() < DescriptionColumn
                   ? left.leftJustified(DescriptionColumn)
                   : left + QLatin1Char('\n') + QString(DescriptionColumn, QLatin1Char(' '));
        text += left + option.description() + QLatin1Char('\n');
    }
    return text;
}

// Breaks each paragraph into lines of at most width characters, at spaces.
QString wrapped(const QString& text, int width)
{
    QStringList lines;
    for (const QString& paragraph : text.split(QLatin1Char('\n'))) {
        QString line;
        for (const QString& word : paragraph.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            if (!line.isEmpty() && line.size() + 1 + word.size() > width) {
                lines << line;
                line.clear();
            }
            line += (line.isEmpty() ? QString() : QStringLiteral(" ")) + word;
        }
        lines << line;
    }
    return lines.join(QLatin1Char('\n'));
}

} // namespace

CommandLine::CommandLine(Console& console, PasswordSource& passwords)
    : m_console(console)
    , m_passwords(passwords)
{
    m_commands.push_back(std::make_unique<CreateCommand>());
    m_commands.push_back(std::make_unique<InfoCommand>());
    m_commands.push_back(std::make_unique<ListCommand>());
    m_commands.push_back(std::make_unique<ImportCommand>());
    m_commands.push_back(std::make_unique<ExportCommand>());
    m_commands.push_back(std::make_unique<MakeFolderCommand>());
    m_commands.push_back(std::make_unique<RemoveFolderCommand>());
    m_commands.push_back(std::make_unique<RemoveFileCommand>());
    m_commands.push_back(std::make_unique<MoveCommand>());
    m_commands.push_back(std::make_unique<RenameCommand>());
    m_commands.push_back(std::make_unique<PasswordCommand>());
    m_commands.push_back(std::make_unique<CompactCommand>());
    m_commands.push_back(std::make_unique<BackupCommand>());
    m_commands.push_back(std::make_unique<VerifyCommand>());
    m_commands.push_back(std::make_unique<RecoverCommand>());
}

CommandLine::~CommandLine() = default;

const Command* CommandLine::find(const QString& name) const
{
    for (const auto& command : m_commands) {
        if (command->info().name == name) {
            return command.get();
        }
    }
    return nullptr;
}

Command* CommandLine::find(const QString& name)
{
    return const_cast<Command*>(std::as_const(*this).find(name));
}

int CommandLine::run(const QStringList& arguments)
{
    const QString first = arguments.value(1);
    if (first.isEmpty()) {
        m_console.message(toolHelp());
        return UsageError;
    }
    if (first == QLatin1String("-h") || first == QLatin1String("--help") || first == QLatin1String("help")) {
        m_console.output().write(toolHelp().toUtf8());
        return Success;
    }
    if (first == QLatin1String("--version")) {
        m_console.print(QStringLiteral("%1 %2").arg(Program, QCoreApplication::applicationVersion()));
        return Success;
    }
    Command* command = find(first);
    if (command == nullptr) {
        m_console.message(first.startsWith(QLatin1Char('-')) ? tr("Opção desconhecida: %1").arg(first)
                                                             : tr("Comando desconhecido: %1").arg(first));
        m_console.message(tr("Use \"%1 --help\" para ver os comandos.").arg(Program));
        return UsageError;
    }

    const CommandInfo info = command->info();
    QCommandLineParser parser;
    parser.addOptions(optionsOf(info));
    QStringList commandArguments = arguments.mid(2);
    commandArguments.prepend(arguments.first());
    if (!parser.parse(commandArguments)) {
        m_console.message(parseErrorText(parser.errorText(), parser.unknownOptionNames()));
        m_console.message(tr("Use \"%1 %2 --help\" para ver como usar o comando.").arg(Program, info.name));
        return UsageError;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        m_console.output().write(commandHelp(info).toUtf8());
        return Success;
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.size() < info.minimumArguments ||
        (info.maximumArguments >= 0 && positional.size() > info.maximumArguments)) {
        m_console.message(positional.size() < info.minimumArguments ? tr("Faltam argumentos.")
                                                                    : tr("Argumentos demais."));
        m_console.message(usageLine(info));
        return UsageError;
    }
    const CommandContext context{parser, positional, m_console, m_passwords};
    return command->run(context);
}

QList<QCommandLineOption> CommandLine::optionsOf(const CommandInfo& info)
{
    QList<QCommandLineOption> options = info.options;
    using Passwords = CommandInfo::Passwords;
    if (info.passwords == Passwords::Current || info.passwords == Passwords::CurrentAndNew) {
        options << QCommandLineOption(QStringLiteral("password-file"),
                                      tr("Lê a senha do cofre deste arquivo (\"-\": entrada padrão)."),
                                      tr("arquivo"));
    }
    if (info.passwords == Passwords::New || info.passwords == Passwords::CurrentAndNew) {
        options << QCommandLineOption(QStringLiteral("new-password-file"),
                                      tr("Lê a senha nova deste arquivo (\"-\": entrada padrão)."),
                                      tr("arquivo"));
    }
    options << helpOption();
    return options;
}

QString CommandLine::usageLine(const CommandInfo& info)
{
    return tr("Uso: %1 %2 [opções] %3").arg(Program, info.name, info.synopsis);
}

QString CommandLine::toolHelp() const
{
    QString commands;
    for (const auto& command : m_commands) {
        const CommandInfo info = command->info();
        commands += QStringLiteral("  %1%2\n").arg(info.name.leftJustified(10), info.summary);
    }
    return tr("Uso: %1 <comando> [opções] <container> [argumentos]\n"
              "\n"
              "Cofres Velmarin pela linha de comando: os mesmos containers .vltx do programa de janela.\n"
              "\n"
              "Comandos:\n"
              "%2"
              "\n"
              "Opções:\n"
              "  -h, --help    Mostra esta ajuda; depois de um comando, a ajuda do comando.\n"
              "  --version     Mostra a versão.\n"
              "\n"
              "Senhas:\n"
              "  Nunca são passadas como argumentos. A senha do cofre vem de --password-file <arquivo>\n"
              "  (\"-\" lê a entrada padrão; uma quebra de linha final é descartada), da variável\n"
              "  VELMARIN_PASSWORD ou, em um terminal, de uma pergunta sem eco. Uma senha nova vem de\n"
              "  --new-password-file <arquivo>, da variável VELMARIN_NEW_PASSWORD ou é perguntada duas "
              "vezes.\n"
              "\n"
              "Saídas:\n"
              "  Dados na saída padrão; mensagens e progresso (só em um terminal) na saída de erros.\n"
              "\n"
              "Códigos de saída:\n"
              "  0  sucesso\n"
              "  1  a operação falhou\n"
              "  2  uso incorreto: argumentos, caminho ou nome inválidos\n"
              "  3  não é um container, senha incorreta ou container alterado\n"
              "  4  verify ou compact encontrou danos\n"
              "  5  o cofre está aberto em outra janela ou programa do Velmarin\n"
              "\n"
              "Use \"%1 <comando> --help\" para a ajuda de um comando.\n")
        .arg(Program, commands);
}

QString CommandLine::commandHelp(const CommandInfo& info) const
{
    return usageLine(info) + QStringLiteral("\n\n") + wrapped(info.description, HelpWidth) +
           QStringLiteral("\n\n") + tr("Opções:\n") + optionLines(optionsOf(info)) + QLatin1Char('\n') +
           tr("Códigos de saída: veja \"%1 --help\".\n").arg(Program);
}

QString CommandLine::parseErrorText(const QString& englishError, const QStringList& unknownOptions)
{
    const auto dashed = [](const QString& name) {
        return (name.size() == 1 ? QStringLiteral("-") : QStringLiteral("--")) + name;
    };
    if (!unknownOptions.isEmpty()) {
        return tr("Opção desconhecida: %1").arg(dashed(unknownOptions.first()));
    }
    // Qt names the option between single quotes: "Missing value after '--to'."
    const QRegularExpressionMatch quoted =
        QRegularExpression(QStringLiteral("'([^']*)'")).match(englishError);
    const QString option = quoted.hasMatch() ? quoted.captured(1) : QString();
    if (englishError.startsWith(QLatin1String("Missing value"))) {
        return tr("A opção %1 precisa de um valor.").arg(option);
    }
    if (englishError.startsWith(QLatin1String("Unexpected value"))) {
        return tr("A opção %1 não aceita valor.").arg(option);
    }
    return tr("Opções inválidas.");
}

} // namespace Velmarin::Cli
