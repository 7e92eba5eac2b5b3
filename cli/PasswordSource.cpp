#include "cli/PasswordSource.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/TerminalInput.h"

#include <QFile>

#include <sodium.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#ifndef Q_OS_WIN
extern char** environ;
#endif

namespace Velmarin::Cli {

namespace {

const char* const PasswordVariable = "VELMARIN_PASSWORD";
const char* const NewPasswordVariable = "VELMARIN_NEW_PASSWORD";
// A password file holds one line; anything longer is a wrong file, not a password.
constexpr qint64 MaximumPasswordBytes = 4096;
constexpr int StandardInputDescriptor = 0;

// One line end belongs to the file, not to the password: "\n", or "\r\n" from a Windows editor.
void dropLineEnd(QByteArray& bytes)
{
    if (bytes.endsWith('\n')) {
        bytes.chop(1);
        if (bytes.endsWith('\r')) {
            bytes.chop(1);
        }
    }
}

} // namespace

PasswordSource::PasswordSource(Console& console, Environment environment, bool inputIsTerminal)
    : m_console(console)
    , m_environment(std::move(environment))
    , m_inputIsTerminal(inputIsTerminal)
{}

QByteArray PasswordSource::takeFromProcessEnvironment(const char* name)
{
    char* value = std::getenv(name);
    if (value == nullptr) {
        return {};
    }
    const std::size_t valueLength = std::strlen(value);
    QByteArray copy(value, static_cast<qsizetype>(valueLength));
#ifdef Q_OS_WIN
    sodium_memzero(value, valueLength);
    qunsetenv(name);
#else
    // Every entry of that name, not only the one getenv found: each one is in /proc/<pid>/environ.
    const std::size_t nameLength = std::strlen(name);
    std::vector<char*> entries;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, name, nameLength) == 0 && (*entry)[nameLength] == '=') {
            entries.push_back(*entry);
        }
    }
    for (char* entry : entries) {
        char* entryValue = entry + nameLength + 1;
        sodium_memzero(entryValue, std::strlen(entryValue));
    }
    qunsetenv(name);
#ifdef __GLIBC__
    // glibc never frees what it unsets; without its name the entry no longer tells a password was here.
    for (char* entry : entries) {
        sodium_memzero(entry, nameLength + 1);
    }
#endif
#endif
    return copy;
}

int PasswordSource::current(const QString& passwordFile, const QString& prompt, PasswordBytes& password)
{
    bool atHand = true;
    const int code = currentIfAtHand(passwordFile, prompt, password, &atHand);
    if (!atHand) {
        m_console.message(
            tr("Informe a senha com --password-file, com a variável VELMARIN_PASSWORD ou em um terminal."));
        return UsageError;
    }
    return code;
}

int PasswordSource::currentIfAtHand(const QString& passwordFile, const QString& prompt,
                                    PasswordBytes& password, bool* atHand)
{
    *atHand = true;
    if (!passwordFile.isEmpty()) {
        return fromFile(passwordFile, password);
    }
    int code = Success;
    if (fromEnvironment(PasswordVariable, password, code)) {
        return code;
    }
    if (!m_inputIsTerminal) {
        *atHand = false;
        return Success;
    }
    return fromTerminal(prompt, password);
}

int PasswordSource::fresh(const QString& passwordFile, const NewPasswordPrompts& prompts,
                          PasswordBytes& password)
{
    if (!passwordFile.isEmpty()) {
        return fromFile(passwordFile, password);
    }
    int code = Success;
    if (fromEnvironment(NewPasswordVariable, password, code)) {
        return code;
    }
    if (!m_inputIsTerminal) {
        m_console.message(tr("Informe a nova senha com --new-password-file, com a variável "
                             "VELMARIN_NEW_PASSWORD ou em um terminal."));
        return UsageError;
    }
    PasswordBytes first;
    const int typed = fromTerminal(prompts.first, first);
    if (typed != Success) {
        return typed;
    }
    PasswordBytes confirmation;
    const int confirmed = fromTerminal(prompts.confirmation, confirmation);
    if (confirmed != Success) {
        return confirmed;
    }
    if (first.bytes() != confirmation.bytes()) {
        m_console.message(prompts.mismatch);
        return UsageError;
    }
    password = std::move(first);
    return Success;
}

int PasswordSource::fromFile(const QString& path, PasswordBytes& password)
{
    const bool standardInput = path == QLatin1String("-");
    if (standardInput && m_standardInputUsed) {
        m_console.message(tr("A entrada padrão só pode fornecer uma das senhas."));
        return UsageError;
    }
    // Unbuffered, and standard input by its descriptor rather than through stdio: no buffer of
    // Qt's or of the C library's keeps a copy of the password that could not be wiped.
    QFile file;
    const QIODevice::OpenMode mode = QIODevice::ReadOnly | QIODevice::Unbuffered;
    const bool opened =
        standardInput ? file.open(StandardInputDescriptor, mode) : (file.setFileName(path), file.open(mode));
    const QString shownName = standardInput ? tr("da entrada padrão") : path;
    if (!opened) {
        m_console.message(tr("Não foi possível ler o arquivo de senha %1.").arg(shownName));
        return UsageError;
    }
    m_standardInputUsed = m_standardInputUsed || standardInput;

    // Read into one buffer of fixed size, so no growing array leaves copies behind.
    QByteArray bytes(MaximumPasswordBytes + 1, '\0');
    qint64 length = 0;
    while (length < bytes.size()) {
        const qint64 read = file.read(bytes.data() + length, bytes.size() - length);
        if (read <= 0) {
            break;
        }
        length += read;
    }
    if (length > MaximumPasswordBytes) {
        sodium_memzero(bytes.data(), static_cast<size_t>(bytes.size()));
        m_console.message(tr("O arquivo de senha %1 é grande demais para conter uma senha.").arg(shownName));
        return UsageError;
    }
    sodium_memzero(bytes.data() + length, static_cast<size_t>(bytes.size() - length));
    bytes.truncate(static_cast<qsizetype>(length));
    dropLineEnd(bytes);
    password.take(bytes);
    if (password.isEmpty()) {
        m_console.message(tr("O arquivo de senha %1 está vazio.").arg(shownName));
        return UsageError;
    }
    return Success;
}

bool PasswordSource::fromEnvironment(const char* name, PasswordBytes& password, int& code)
{
    QByteArray value = m_environment ? m_environment(name) : QByteArray();
    if (value.isNull()) {
        return false;
    }
    password.take(value);
    code = Success;
    if (password.isEmpty()) {
        m_console.message(tr("A variável %1 está vazia.").arg(QLatin1String(name)));
        code = UsageError;
    }
    return true;
}

int PasswordSource::fromTerminal(const QString& prompt, PasswordBytes& password)
{
    QByteArray buffer(static_cast<qsizetype>(MaximumPasswordBytes), '\0');
    std::size_t length = 0;
    const TerminalInput::Result result = TerminalInput::readHiddenLine(
        [&] { m_console.prompt(prompt); }, buffer.data(), static_cast<std::size_t>(buffer.size()), length);
    m_console.endPromptLine();
    buffer.truncate(static_cast<qsizetype>(length));
    password.take(buffer);
    if (result == TerminalInput::Result::Cancelled) {
        password = PasswordBytes();
        m_console.message(tr("Operação cancelada."));
        return Failed;
    }
    if (result != TerminalInput::Result::Line) {
        password = PasswordBytes();
        m_console.message(tr("Não foi possível ler a senha do terminal."));
        return Failed;
    }
    if (password.isEmpty()) {
        m_console.message(tr("A senha informada está vazia."));
        return UsageError;
    }
    return Success;
}

} // namespace Velmarin::Cli
