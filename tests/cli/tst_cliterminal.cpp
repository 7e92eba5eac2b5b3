// velmarin-cli at a terminal: password prompts without echo, their editing keys, cancelling, and
// progress that appears only when standard error is a terminal. A pseudo-terminal plays the user.
#include "CliRunner.h"
#include "TestFiles.h"
#include "core/container/ContainerJournal.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

using Velmarin::Core::VaultManager;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::TestFiles;

namespace {

// velmarin-cli running on the slave side of a pseudo-terminal; the test reads and types on the master.
class TerminalSession
{
public:
    ~TerminalSession()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
        if (m_master >= 0) {
            close(m_master);
        }
    }

    bool start(const QStringList& arguments, const QProcessEnvironment& environment, const QString& directory)
    {
        // Everything the child needs is built before fork: after it, only exec-safe calls are made.
        std::vector<std::string> argumentStrings{std::string(VELMARIN_CLI)};
        for (const QString& argument : arguments) {
            argumentStrings.push_back(argument.toStdString());
        }
        std::vector<std::string> environmentStrings;
        for (const QString& entry : environment.toStringList()) {
            environmentStrings.push_back(entry.toStdString());
        }
        std::vector<char*> argv;
        for (std::string& argument : argumentStrings) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        std::vector<char*> envp;
        for (std::string& entry : environmentStrings) {
            envp.push_back(entry.data());
        }
        envp.push_back(nullptr);
        const std::string workingDirectory = directory.toStdString();

        m_pid = forkpty(&m_master, nullptr, nullptr, nullptr);
        if (m_pid == 0) {
            if (chdir(workingDirectory.c_str()) == 0) {
                execve(argv[0], argv.data(), envp.data());
            }
            _exit(127);
        }
        return m_pid > 0;
    }

    // Reads what the program writes until text has appeared.
    bool waitFor(const QByteArray& text, int timeoutMs = 60000)
    {
        QElapsedTimer timer;
        timer.start();
        while (!m_screen.contains(text) && timer.elapsed() < timeoutMs) {
            if (readSome(100) == Read::End) {
                break;
            }
        }
        return m_screen.contains(text);
    }

    void type(const QByteArray& keys)
    {
        QCOMPARE(write(m_master, keys.constData(), keys.size()), keys.size());
    }

    bool echoIsOn() const
    {
        termios mode{};
        return tcgetattr(m_master, &mode) == 0 && (mode.c_lflag & ECHO) != 0;
    }

    // Reads to the end and returns the exit code, or -1.
    int finish()
    {
        while (readSome(60000) == Read::Data) {
        }
        int status = 0;
        if (waitpid(m_pid, &status, 0) != m_pid) {
            return -1;
        }
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const QByteArray& screen() const { return m_screen; }

private:
    enum class Read
    {
        Data,
        NothingYet,
        // The slave side closed: the program has ended.
        End
    };

    Read readSome(int timeoutMs)
    {
        pollfd descriptor{m_master, POLLIN, 0};
        const int ready = poll(&descriptor, 1, timeoutMs);
        if (ready == 0) {
            return Read::NothingYet;
        }
        char buffer[65536];
        const ssize_t count = ready < 0 ? -1 : read(m_master, buffer, sizeof buffer);
        if (count <= 0) {
            return Read::End;
        }
        m_screen.append(buffer, count);
        return Read::Data;
    }

    pid_t m_pid = -1;
    int m_master = -1;
    QByteArray m_screen;
};

} // namespace

class TestCliTerminal : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void passwordPromptShowsNothingTyped();
    void editingKeysWorkOnWholeCharacters();
    void newPasswordIsAskedTwice();
    void differentConfirmationIsRefused();
    void ctrlCCancelsAndBringsTheEchoBack();
    void emptyLineIsAnEmptyPassword();
    void progressIsDrawnOnATerminal();
    void recoverAsksForThePasswordOnlyBesideAJournalItCannotJudge();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    QProcessEnvironment environment() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_container;
};

void TestCliTerminal::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

QProcessEnvironment TestCliTerminal::environment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("VELMARIN_PASSWORD"));
    environment.remove(QStringLiteral("VELMARIN_NEW_PASSWORD"));
    environment.remove(QStringLiteral("LC_ALL"));
    environment.insert(QStringLiteral("LANG"), QStringLiteral("pt_BR.UTF-8"));
    return environment;
}

void TestCliTerminal::passwordPromptShowsNothingTyped()
{
    CliRunner cli(QStringLiteral(VELMARIN_CLI), m_dir->path());
    cli.useTestPassword();
    QCOMPARE(cli.run({QStringLiteral("mkdir"), m_container, QStringLiteral("Guardado")}).exitCode, 0);

    TerminalSession terminal;
    QVERIFY(terminal.start({QStringLiteral("ls"), m_container}, environment(), m_dir->path()));
    QVERIFY(terminal.waitFor("Senha do cofre: "));
    QVERIFY(!terminal.echoIsOn());
    terminal.type(TestFiles::password() + '\r');
    QCOMPARE(terminal.finish(), 0);
    QVERIFY(terminal.screen().contains("Guardado"));
    QVERIFY(!terminal.screen().contains(TestFiles::password()));
    QVERIFY(!terminal.screen().contains("correç"));
}

void TestCliTerminal::editingKeysWorkOnWholeCharacters()
{
    TerminalSession terminal;
    QVERIFY(terminal.start({QStringLiteral("ls"), m_container}, environment(), m_dir->path()));
    QVERIFY(terminal.waitFor("Senha do cofre: "));
    // Ctrl+U drops a wrong start; Backspace takes back a two-byte "é" whole, then a plain "x".
    terminal.type("engano");
    terminal.type("\x15");
    terminal.type(TestFiles::password() + "\xc3\xa9" + "\x7f" + "x" + "\x08" + "\r");
    QCOMPARE(terminal.finish(), 0);
}

void TestCliTerminal::newPasswordIsAskedTwice()
{
    const QString container = path(QStringLiteral("novo.vltx"));
    TerminalSession terminal;
    QVERIFY(terminal.start({QStringLiteral("create"), container}, environment(), m_dir->path()));
    QVERIFY(terminal.waitFor("Definir senha do cofre: "));
    terminal.type("senha digitada no terminal\r");
    QVERIFY(terminal.waitFor("Confirmar senha do cofre: "));
    terminal.type("senha digitada no terminal\n");
    QCOMPARE(terminal.finish(), 0);
    QVERIFY(terminal.screen().contains("Cofre criado com sucesso."));
    QVERIFY(!terminal.screen().contains("digitada"));
    VaultManager vault;
    QVERIFY(vault.unlock(container, "senha digitada no terminal", VaultManager::Access::ReadOnly));
}

void TestCliTerminal::differentConfirmationIsRefused()
{
    TerminalSession terminal;
    QVERIFY(terminal.start({QStringLiteral("passwd"), m_container}, environment(), m_dir->path()));
    QVERIFY(terminal.waitFor("Senha atual: "));
    terminal.type(TestFiles::password() + '\r');
    QVERIFY(terminal.waitFor("Nova senha: "));
    terminal.type("primeira senha nova\r");
    QVERIFY(terminal.waitFor("Confirmar nova senha: "));
    terminal.type("segunda senha nova\r");
    QCOMPARE(terminal.finish(), 2);
    QVERIFY(terminal.screen().contains("A confirmação não coincide com a nova senha."));
    VaultManager vault;
    QVERIFY(vault.unlock(m_container, TestFiles::password(), VaultManager::Access::ReadOnly));
}

void TestCliTerminal::ctrlCCancelsAndBringsTheEchoBack()
{
    const QByteArray before = TestFiles::read(m_container);
    TerminalSession terminal;
    QVERIFY(terminal.start({QStringLiteral("rm"), m_container, QStringLiteral("x")}, environment(),
                           m_dir->path()));
    QVERIFY(terminal.waitFor("Senha do cofre: "));
    QVERIFY(!terminal.echoIsOn());
    terminal.type("meio digit");
    terminal.type("\x03");
    QVERIFY(terminal.waitFor("Operação cancelada."));
    QVERIFY(terminal.echoIsOn());
    QCOMPARE(terminal.finish(), 1);
    QCOMPARE(TestFiles::read(m_container), before);
}

void TestCliTerminal::emptyLineIsAnEmptyPassword()
{
    TerminalSession terminal;
    QVERIFY(terminal.start({QStringLiteral("ls"), m_container}, environment(), m_dir->path()));
    QVERIFY(terminal.waitFor("Senha do cofre: "));
    terminal.type("\r");
    QCOMPARE(terminal.finish(), 2);
    QVERIFY(terminal.screen().contains("A senha informada está vazia."));
}

void TestCliTerminal::progressIsDrawnOnATerminal()
{
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("grande.bin")), 40 * 1024 * 1024, 3));
    QProcessEnvironment withPassword = environment();
    withPassword.insert(QStringLiteral("VELMARIN_PASSWORD"), QString::fromUtf8(TestFiles::password()));

    TerminalSession terminal;
    QVERIFY(terminal.start({QStringLiteral("import"), m_container, QStringLiteral("grande.bin")},
                           withPassword, m_dir->path()));
    QCOMPARE(terminal.finish(), 0);
    const QByteArray screen = terminal.screen();
    // Redrawn in place after every 16 MiB block, then ended with a line break.
    QVERIFY2(screen.contains("\rImportando grande.bin: 40% (16,0 MB de 40,0 MB)"), screen.constData());
    QVERIFY(screen.contains("\rImportando grande.bin: 80% (32,0 MB de 40,0 MB)"));
    QVERIFY(screen.contains(
        "\rImportando grande.bin: 100% (40,0 MB de 40,0 MB)\r\nArquivo importado com sucesso."));

    TerminalSession compaction;
    QVERIFY(compaction.start({QStringLiteral("compact"), m_container}, withPassword, m_dir->path()));
    QCOMPARE(compaction.finish(), 0);
    QVERIFY2(compaction.screen().contains("\rgrande.bin: 100% (40,0 MB de 40,0 MB)"),
             compaction.screen().constData());
    // The engine reports the swap onto the drive without words; the tool names it.
    QVERIFY(compaction.screen().contains("\rSubstituindo container no USB: 100% ("));
    QVERIFY(compaction.screen().contains("Cofre compactado com sucesso."));
}

void TestCliTerminal::recoverAsksForThePasswordOnlyBesideAJournalItCannotJudge()
{
    // Nothing cut short: nothing to ask.
    TerminalSession nothing;
    QVERIFY(nothing.start({QStringLiteral("recover"), m_container}, environment(), m_dir->path()));
    QCOMPARE(nothing.finish(), 0);
    QVERIFY(nothing.screen().contains("Nada a restaurar"));
    QVERIFY(!nothing.screen().contains("Senha"));

    // A journal beside a header that reads: only the password can tell whether it is the user's.
    QVERIFY(Velmarin::Core::ContainerJournal::forHeaderChange("00000000000000000002\n{}", "forjado")
                .write(m_container));
    TerminalSession terminal;
    QVERIFY(terminal.start({QStringLiteral("recover"), m_container}, environment(), m_dir->path()));
    QVERIFY(terminal.waitFor("Senha do cofre (para conferir o diário ao lado do container): "));
    QVERIFY(!terminal.echoIsOn());
    terminal.type(TestFiles::password() + '\r');
    QCOMPARE(terminal.finish(), 1);
    QVERIFY(terminal.screen().contains("não corresponde a ele"));
    QVERIFY(QFile::exists(m_container + QStringLiteral(".journal")));
}

QTEST_GUILESS_MAIN(TestCliTerminal)
#include "tst_cliterminal.moc"
