// What another process on the same computer can get out of a running velmarin-cli or window, seen
// through /proc the way it would look: no core file from the first instruction on, and no password
// left in the environment once it was read.
#include "CliRunner.h"
#include "TestFiles.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <algorithm>
#include <sys/resource.h>
#include <sys/syscall.h>

using Velmarin::Tests::CliRunner;
using Velmarin::Tests::TestFiles;

namespace {

constexpr int WaitMs = 60000;
constexpr qint64 ExportSize = 4 * 1024 * 1024 + 17;
// What the test's children start with, so that a limit of 0 can only come from the child itself.
constexpr rlim_t InheritedCoreLimit = 1024 * 1024;
// Argon2id takes 256 MiB; a jump this large in the address space means it has begun.
constexpr qint64 Argon2JumpKiB = 128 * 1024;
const QByteArray NewPassword = QByteArrayLiteral("outra senha bem longa, só para este teste");
// Why a test cannot run here. Skipped through QTest::qSkip: clang's -Wpedantic rejects QSKIP's empty
// variadic argument in C++17.
const char* const NoRoomForCoreFiles =
    "The hard limit on core files is 0 here: a child's 0 would prove nothing";
const char* const NoPtraceCapability =
    "Reading /proc/<pid>/syscall or environ of a process that is no longer dumpable takes CAP_SYS_PTRACE";

QByteArray procFile(qint64 pid, const QString& name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(pid).arg(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The soft limit on core files /proc shows for pid: "0", "unlimited" or a size in bytes.
QByteArray coreLimit(qint64 pid)
{
    const QByteArray label = QByteArrayLiteral("Max core file size");
    for (const QByteArray& line : procFile(pid, QStringLiteral("limits")).split('\n')) {
        if (line.startsWith(label)) {
            return line.mid(label.size()).simplified().split(' ').value(0);
        }
    }
    return {};
}

qint64 addressSpaceKiB(qint64 pid)
{
    for (const QByteArray& line : procFile(pid, QStringLiteral("status")).split('\n')) {
        if (line.startsWith("VmSize:")) {
            return line.mid(7).simplified().split(' ').value(0).toLongLong();
        }
    }
    return -1;
}

// Polls until pid sits blocked in system call number on descriptor fd.
bool waitInSystemCall(qint64 pid, long number, int fd)
{
    const QByteArray expected =
        QByteArray::number(static_cast<qlonglong>(number)) + " 0x" + QByteArray::number(fd, 16) + ' ';
    const QDeadlineTimer deadline(WaitMs);
    while (!deadline.hasExpired()) {
        if (procFile(pid, QStringLiteral("syscall")).startsWith(expected)) {
            return true;
        }
        QThread::msleep(5);
    }
    return false;
}

// Reading /proc/<pid>/environ and syscall of a process that is no longer dumpable takes CAP_SYS_PTRACE.
bool mayInspectOtherProcesses()
{
    constexpr int SysPtrace = 19;
    for (const QByteArray& line :
         procFile(QCoreApplication::applicationPid(), QStringLiteral("status")).split('\n')) {
        if (line.startsWith("CapEff:")) {
            return (line.mid(7).trimmed().toULongLong(nullptr, 16) >> SysPtrace) & 1U;
        }
    }
    return false;
}

QByteArrayList environmentOf(qint64 pid)
{
    QByteArrayList entries = procFile(pid, QStringLiteral("environ")).split('\0');
    entries.removeAll(QByteArray());
    return entries;
}

bool hasVariable(const QByteArrayList& entries, const QByteArray& name)
{
    return std::any_of(entries.cbegin(), entries.cend(),
                       [&](const QByteArray& entry) { return entry.startsWith(name + '='); });
}

// AddressSanitizer turns core files off in every process it starts; the sanitizer build keeps them.
QString asanOptionsKeepingCoreFiles()
{
    const QString options = qEnvironmentVariable("ASAN_OPTIONS");
    return options.isEmpty() ? QStringLiteral("disable_coredump=0")
                             : options + QStringLiteral(":disable_coredump=0");
}

} // namespace

class TestCliProcessProtection : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void coreFilesAreOffBeforeThePasswordIsRead();
    void windowTurnsCoreFilesOffAtStart();
    void passwordVariableIsGoneOnceRead();
    void newPasswordVariableIsGoneOnceRead();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }

    QTemporaryDir m_template;
    bool m_coreLimitRaised = false;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<CliRunner> m_cli;
    QString m_container;
};

void TestCliProcessProtection::initTestCase()
{
    // Made by the tool, not by the engine in this process: the engine would turn core files off here
    // for good, children included, and only CAP_SYS_RESOURCE could turn them back on.
    QVERIFY(m_template.isValid());
    CliRunner creator(QStringLiteral(VELMARIN_CLI), m_template.path());
    creator.setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), QString::fromUtf8(TestFiles::password()));
    QCOMPARE(creator.run({QStringLiteral("create"), m_template.path()}).exitCode, 0);

    rlimit limit{};
    QCOMPARE(getrlimit(RLIMIT_CORE, &limit), 0);
    if (limit.rlim_max != 0) {
        limit.rlim_cur = qMin(limit.rlim_max, InheritedCoreLimit);
        m_coreLimitRaised = setrlimit(RLIMIT_CORE, &limit) == 0;
    }
}

void TestCliProcessProtection::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_dir->path());
    m_cli->setVariable(QStringLiteral("ASAN_OPTIONS"), asanOptionsKeepingCoreFiles());
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(QFile::copy(m_template.filePath(QStringLiteral("velmarin.vltx")), m_container));
}

void TestCliProcessProtection::coreFilesAreOffBeforeThePasswordIsRead()
{
    if (!m_coreLimitRaised) {
        QTest::qSkip(NoRoomForCoreFiles, __FILE__, __LINE__);
        return;
    }
    if (!mayInspectOtherProcesses()) {
        QTest::qSkip(NoPtraceCapability, __FILE__, __LINE__);
        return;
    }
    const std::unique_ptr<QProcess> process = m_cli->start(
        {QStringLiteral("ls"), m_container, QStringLiteral("--password-file"), QStringLiteral("-")});
    QVERIFY(process->waitForStarted());
    QVERIFY2(waitInSystemCall(process->processId(), SYS_read, 0),
             "velmarin-cli never waited for its password");
    const QByteArray limit = coreLimit(process->processId());

    process->write(TestFiles::password() + '\n');
    process->closeWriteChannel();
    QVERIFY(process->waitForFinished(WaitMs));
    QCOMPARE(limit, QByteArray("0"));
    QCOMPARE(process->exitCode(), 0);
}

void TestCliProcessProtection::windowTurnsCoreFilesOffAtStart()
{
    if (!m_coreLimitRaised) {
        QTest::qSkip(NoRoomForCoreFiles, __FILE__, __LINE__);
        return;
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    environment.insert(QStringLiteral("HOME"), m_dir->path());
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), path(QStringLiteral("config")));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), path(QStringLiteral("data")));
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), path(QStringLiteral("cache")));
    environment.insert(QStringLiteral("ASAN_OPTIONS"), asanOptionsKeepingCoreFiles());
    QProcess window;
    window.setProgram(QStringLiteral(VELMARIN_WINDOW));
    window.setProcessEnvironment(environment);
    window.setStandardOutputFile(QProcess::nullDevice());
    window.setStandardErrorFile(QProcess::nullDevice());
    window.start();
    QVERIFY(window.waitForStarted());

    // Nothing tells from outside when main() has begun: the limit must drop soon after the start,
    // long before anyone could unlock.
    QByteArray limit;
    const QDeadlineTimer deadline(WaitMs / 2);
    while (!deadline.hasExpired() && window.state() == QProcess::Running && limit != "0") {
        limit = coreLimit(window.processId());
        QThread::msleep(10);
    }
    const bool stillRunning = window.state() == QProcess::Running;
    window.kill();
    window.waitForFinished(WaitMs);
    QVERIFY(stillRunning);
    QCOMPARE(limit, QByteArray("0"));
}

void TestCliProcessProtection::passwordVariableIsGoneOnceRead()
{
    if (!mayInspectOtherProcesses()) {
        QTest::qSkip(NoPtraceCapability, __FILE__, __LINE__);
        return;
    }
    const QString source = path(QStringLiteral("grande.bin"));
    QVERIFY(TestFiles::writePattern(source, ExportSize, 7));
    m_cli->useTestPassword();
    QCOMPARE(m_cli->run({QStringLiteral("import"), m_container, source}).exitCode, 0);

    // The export fills the pipe nobody reads yet and then waits on it, long after the password was read.
    const std::unique_ptr<QProcess> process = m_cli->start(
        {QStringLiteral("export"), m_container, QStringLiteral("grande.bin"), QStringLiteral("-")});
    QVERIFY(process->waitForStarted());
    QVERIFY2(waitInSystemCall(process->processId(), SYS_write, 1), "the export never waited on its output");
    const QByteArrayList environment = environmentOf(process->processId());
    const QByteArray all = environment.join('\n');

    QVERIFY(process->waitForFinished(WaitMs));
    QCOMPARE(process->exitCode(), 0);
    QVERIFY(process->readAllStandardOutput() == TestFiles::read(source));
    QVERIFY2(environment.contains("LANG=pt_BR.UTF-8"), "the child's environment could not be read");
    QVERIFY2(!all.contains(TestFiles::password()), "the password is still in the process environment");
    QVERIFY(!hasVariable(environment, "VELMARIN_PASSWORD"));
}

void TestCliProcessProtection::newPasswordVariableIsGoneOnceRead()
{
    if (!mayInspectOtherProcesses()) {
        QTest::qSkip(NoPtraceCapability, __FILE__, __LINE__);
        return;
    }
    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), QString::fromUtf8(NewPassword));
    const std::unique_ptr<QProcess> process = m_cli->start(
        {QStringLiteral("passwd"), m_container, QStringLiteral("--password-file"), QStringLiteral("-")});
    QVERIFY(process->waitForStarted());
    const qint64 pid = process->processId();
    QVERIFY2(waitInSystemCall(pid, SYS_read, 0), "velmarin-cli never waited for the current password");
    // Not read yet, so still there: the test can see it.
    QVERIFY(environmentOf(pid).join('\n').contains(NewPassword));
    const qint64 before = addressSpaceKiB(pid);

    process->write(TestFiles::password() + '\n');
    QVERIFY(process->waitForBytesWritten(WaitMs));
    process->closeWriteChannel();
    // Both passwords are read before the first key derivation starts.
    bool deriving = false;
    const QDeadlineTimer deadline(WaitMs);
    while (!deriving && !deadline.hasExpired() && process->state() == QProcess::Running) {
        deriving = addressSpaceKiB(pid) > before + Argon2JumpKiB;
        QThread::msleep(1);
    }
    const QByteArrayList environment = environmentOf(pid);

    QVERIFY(process->waitForFinished(WaitMs));
    QCOMPARE(process->exitCode(), 0);
    QVERIFY2(deriving, "the key derivation was never seen running");
    QVERIFY2(environment.contains("LANG=pt_BR.UTF-8"), "the child's environment could not be read");
    QVERIFY2(!environment.join('\n').contains(NewPassword),
             "the new password is still in the process environment");
    QVERIFY(!hasVariable(environment, "VELMARIN_NEW_PASSWORD"));
}

QTEST_GUILESS_MAIN(TestCliProcessProtection)
#include "tst_cliprocessprotection.moc"
