// Cuts velmarin-cli short at every write boundary of the operations that change a vault, one cut per
// run, with the crash shim preloaded (crashshim.c): killed before the call, killed half-way through
// a write, killed with every write that no sync covered undone, the same but for the newest such
// write, and the same after a torn write; and once with the unsynced writes undone right after the
// command reported success, when only the state after may remain. It checks after each cut that the vault
// opens (after velmarin-cli recover, given the password when only the password can tell the journal
// is ours) with either the state from before the operation or the state after it
// (or, for a batch with checkpoints, the state one of its checkpoints wrote), that every file exports byte
// for byte, that velmarin-cli verify passes, and that nothing but the container is left on the drive.
//
// Usage: velmarin-crash-harness --cli <velmarin-cli> --shim <libvelmarin_crashshim.so>
//        [--batch-tool <velmarin-batch-import>] [--quick]
// Exit status 0 when every cut point survived.
#include "FuzzContainer.h"
#include "VaultState.h"
#include "core/vault/VaultManager.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>

#include <cstdio>

using namespace Velmarin;
using Core::VaultManager;
using Tests::VaultState;

namespace {

const QByteArray OldPassword = Tests::FuzzContainer::Password;
const QByteArray NewPassword = QByteArrayLiteral("a senha nova do cofre");
// The power cut right after the command reported success: only the state after may remain.
const QString AtExit = QStringLiteral("após o sucesso");
constexpr qint64 MiB = 1024 * 1024;

struct Scenario
{
    QString name;
    QStringList arguments;
    bool noRoom = false;
    // Another program than velmarin-cli, given the container first.
    QString program = {};
    // A batch with checkpoints: the vault paths it imports, in order, whose prefixes may remain.
    QStringList batch = {};
};

struct Outcome
{
    int tried = 0;
    int survived = 0;
    // Cuts whose journal only recover given the password could apply.
    int byPassword = 0;
};

QByteArray pattern(qint64 size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = seed * 2654435761u + 1;
    for (qint64 i = 0; i < size; ++i) {
        state = state * 1103515245u + 12345u;
        bytes[i] = static_cast<char>(state >> 24);
    }
    return bytes;
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).absolutePath()) &&
           file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

class CrashHarness
{
public:
    CrashHarness(const QString& cli, const QString& shim, const QString& batchTool, bool quick)
        : m_cli(cli)
        , m_shim(shim)
        , m_batchTool(batchTool)
        , m_quick(quick)
    {}

    int run();

private:
    QString path(const QString& name) const { return m_work.filePath(name); }
    QString drive() const { return path(QStringLiteral("usb")); }
    QString container() const { return drive() + QStringLiteral("/velmarin.vltx"); }
    QString base() const { return path(QStringLiteral("base/velmarin.vltx")); }
    bool prepareBase();
    // Puts the base container on an otherwise empty drive and empties the temporary folder.
    bool resetDrive() const;
    QProcessEnvironment environment(const QByteArray& password) const;
    // Runs the command with the shim cutting at boundary `at` (0: no cut); true when it was cut.
    bool runCut(const Scenario& scenario, const QString& mode, long at, int* exitCode) const;
    // The command's exit code, or -1 when it did not end normally.
    int runCli(const QStringList& arguments, const QByteArray& password) const;
    bool stateOf(VaultState& state) const;
    Outcome runScenario(const Scenario& scenario);
    // Everything a user relies on after a cut; a reason when it does not hold. byPassword tells
    // whether the journal waited for the password.
    // tornWrite: the cut left half of a write, the only way a header that reads can be torn.
    QString checkAfterCut(const VaultState& before, const VaultState& after, const Scenario& scenario,
                          bool tornWrite, bool* byPassword) const;
    QList<Scenario> scenarios() const;

    QString m_cli;
    QString m_shim;
    QString m_batchTool;
    bool m_quick;
    QTemporaryDir m_work;
    QTextStream m_out{stdout};
};

bool CrashHarness::prepareBase()
{
    // Like every velmarin-cli command, the base vault is built without a workspace.
    VaultManager vault;
    if (!QDir().mkpath(path(QStringLiteral("tmp"))) || !QDir().mkpath(path(QStringLiteral("base"))) ||
        !Tests::FuzzContainer::writeEmptyVault(base()) || !vault.unlock(base(), OldPassword)) {
        return false;
    }
    // Files of one block and, in the full run, of two; a deleted file leaves dead bytes to compact.
    const qint64 large = m_quick ? 300 * 1024 : 17 * MiB;
    const QList<QPair<QString, qint64>> files = {{QStringLiteral("a.txt"), 40},
                                                 {QStringLiteral("Pasta/b.bin"), 200 * 1024},
                                                 {QStringLiteral("grande.bin"), large},
                                                 {QStringLiteral("morto.bin"), large}};
    quint32 seed = 1;
    for (const auto& [name, size] : files) {
        const QString source = path(QStringLiteral("fonte-%1").arg(seed));
        if (!writeFile(source, pattern(size, seed++)) || !vault.importFile(source, name)) {
            return false;
        }
    }
    // What the batches bring in: a replacement for a.txt, a new file, a folder with a file and an
    // empty folder.
    return vault.createFolder(QStringLiteral("Vazia")) && vault.deleteFile(QStringLiteral("morto.bin")) &&
           vault.lock() &&
           writeFile(path(QStringLiteral("novo.bin")), pattern(m_quick ? 100 * 1024 : 20 * MiB, 99)) &&
           writeFile(path(QStringLiteral("lote/a.txt")), pattern(60, 100)) &&
           writeFile(path(QStringLiteral("lote/lote-1.bin")), pattern(m_quick ? 50 * 1024 : 17 * MiB, 101)) &&
           writeFile(path(QStringLiteral("Lote/foto.jpg")), pattern(30 * 1024, 102)) &&
           QDir().mkpath(path(QStringLiteral("Lote/Vazia")));
}

bool CrashHarness::resetDrive() const
{
    QDir(drive()).removeRecursively();
    QDir(path(QStringLiteral("tmp"))).removeRecursively();
    // Each run starts on a computer that never saw the vault, so a run's states are no earlier ones.
    QDir(path(QStringLiteral("dados"))).removeRecursively();
    return QDir().mkpath(drive()) && QDir().mkpath(path(QStringLiteral("tmp"))) &&
           QFile::copy(base(), container());
}

QProcessEnvironment CrashHarness::environment(const QByteArray& password) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (password.isEmpty()) {
        environment.remove(QStringLiteral("VELMARIN_PASSWORD"));
    } else {
        environment.insert(QStringLiteral("VELMARIN_PASSWORD"), QString::fromUtf8(password));
    }
    environment.insert(QStringLiteral("VELMARIN_NEW_PASSWORD"), QString::fromUtf8(NewPassword));
    environment.insert(QStringLiteral("TMPDIR"), path(QStringLiteral("tmp")));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), path(QStringLiteral("dados")));
    environment.remove(QStringLiteral("VELMARIN_ACCEPT_EARLIER_STATE"));
    return environment;
}

bool CrashHarness::runCut(const Scenario& scenario, const QString& mode, long at, int* exitCode) const
{
    QProcessEnvironment environment = this->environment(OldPassword);
    // Behind any preload already there (a sanitizer's runtime must stay first).
    const QString preload = environment.value(QStringLiteral("LD_PRELOAD"));
    environment.insert(QStringLiteral("LD_PRELOAD"),
                       preload.isEmpty() ? m_shim : preload + QLatin1Char(':') + m_shim);
    environment.insert(QStringLiteral("VELMARIN_CRASH_PATH"), drive());
    environment.insert(QStringLiteral("VELMARIN_CRASH_AT"), QString::number(at));
    if (mode == AtExit) {
        environment.insert(QStringLiteral("VELMARIN_CRASH_MODE"), QStringLiteral("lose"));
        environment.insert(QStringLiteral("VELMARIN_CRASH_AT_EXIT"), QStringLiteral("1"));
    } else {
        environment.insert(QStringLiteral("VELMARIN_CRASH_MODE"), mode);
    }
    environment.insert(QStringLiteral("VELMARIN_CRASH_COUNT"), path(QStringLiteral("count")));
    if (scenario.noRoom) {
        environment.insert(QStringLiteral("VELMARIN_CRASH_NO_ROOM"), QStringLiteral("1"));
    }
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setStandardErrorFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardInputFile(QProcess::nullDevice());
    QStringList arguments = scenario.arguments;
    arguments.insert(scenario.program.isEmpty() ? 1 : 0, container());
    process.start(scenario.program.isEmpty() ? m_cli : scenario.program, arguments);
    process.waitForFinished(-1);
    *exitCode = process.exitCode();
    return process.exitStatus() == QProcess::CrashExit;
}

int CrashHarness::runCli(const QStringList& arguments, const QByteArray& password) const
{
    QProcess process;
    process.setProcessEnvironment(environment(password));
    process.setStandardErrorFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(m_cli, arguments);
    process.waitForFinished(-1);
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

bool CrashHarness::stateOf(VaultState& state) const
{
    return VaultState::read(container(), {OldPassword, NewPassword}, state);
}

QString CrashHarness::checkAfterCut(const VaultState& before, const VaultState& after,
                                    const Scenario& scenario, bool tornWrite, bool* byPassword) const
{
    *byPassword = false;
    // Half of a header the same length as the one before reads, key wrapping whole and index half
    // old, half new. Without the password nothing tells it from a header someone wrote there, so
    // recover leaves the journal and changes nothing; given the password, which opens the key but
    // not the index, it applies it, as the window's unlock does.
    const QStringList recover = {QStringLiteral("recover"), container()};
    QFile file(container());
    const QByteArray cut = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    file.close();
    const int plain = runCli(recover, {});
    if (plain != 0) {
        if (plain != 1 || !tornWrite || !VaultManager::hasInterruptedChange(container()) ||
            !file.open(QIODevice::ReadOnly) || file.readAll() != cut) {
            return QStringLiteral("recover falhou");
        }
        file.close();
        if (runCli(recover, OldPassword) != 0 && runCli(recover, NewPassword) != 0) {
            return QStringLiteral("recover com a senha falhou");
        }
        *byPassword = true;
    }
    const QStringList left = QDir(drive()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    if (left != QStringList({QStringLiteral("velmarin.vltx")})) {
        return QStringLiteral("no USB: %1").arg(left.join(QStringLiteral(", ")));
    }
    VaultState state;
    if (!stateOf(state)) {
        return QStringLiteral("o cofre não abre ou um arquivo não exporta");
    }
    const bool isOld = state == before && state.password == before.password;
    const bool isNew = state == after && state.password == after.password;
    const bool isCheckpoint =
        !scenario.batch.isEmpty() && state.isCheckpointBetween(before, after, scenario.batch);
    if (!isOld && !isNew && !isCheckpoint) {
        return QStringLiteral("nem o estado de antes nem o de depois");
    }
    if (runCli({QStringLiteral("verify"), container()}, state.password) != 0) {
        return QStringLiteral("verify falhou");
    }
    return {};
}

Outcome CrashHarness::runScenario(const Scenario& scenario)
{
    Outcome outcome;
    VaultState before;
    VaultState after;
    int exitCode = -1;
    // One run without a cut counts the boundaries and gives the state after the operation.
    if (!resetDrive() || !stateOf(before) || runCut(scenario, QStringLiteral("kill"), 0, &exitCode) ||
        exitCode != 0 || !stateOf(after)) {
        m_out << scenario.name << ": a operação não roda sem cortes\n";
        outcome.tried = 1;
        return outcome;
    }
    QFile count(path(QStringLiteral("count")));
    long boundaries = 0;
    long writes = 0;
    if (!count.open(QIODevice::ReadOnly) ||
        std::sscanf(count.readAll().constData(), "%ld %ld", &boundaries, &writes) != 2) {
        m_out << scenario.name << ": o shim não contou\n";
        outcome.tried = 1;
        return outcome;
    }
    for (const auto& [mode, total] :
         {qMakePair(QStringLiteral("kill"), boundaries), qMakePair(QStringLiteral("tear"), writes),
          qMakePair(QStringLiteral("lose"), boundaries), qMakePair(QStringLiteral("reorder"), boundaries),
          qMakePair(QStringLiteral("tear-reorder"), writes)}) {
        for (long at = 1; at <= total; ++at) {
            ++outcome.tried;
            QString failure;
            bool byPassword = false;
            if (!resetDrive()) {
                failure = QStringLiteral("não foi possível preparar o USB");
            } else if (!runCut(scenario, mode, at, &exitCode)) {
                failure = QStringLiteral("o corte não aconteceu (saída %1)").arg(exitCode);
            } else {
                failure = checkAfterCut(before, after, scenario, mode.startsWith(QLatin1String("tear")),
                                        &byPassword);
            }
            if (failure.isEmpty()) {
                ++outcome.survived;
                outcome.byPassword += byPassword ? 1 : 0;
            } else {
                m_out << QStringLiteral("  %1, %2 no ponto %3: %4\n")
                             .arg(scenario.name, mode)
                             .arg(at)
                             .arg(failure);
            }
        }
    }
    ++outcome.tried;
    bool byPassword = false;
    const QString failure = !resetDrive() || runCut(scenario, AtExit, 0, &exitCode) || exitCode != 0
                                ? QStringLiteral("a operação falhou")
                                : checkAfterCut(after, after, scenario, false, &byPassword);
    if (failure.isEmpty()) {
        ++outcome.survived;
        outcome.byPassword += byPassword ? 1 : 0;
    } else {
        m_out << QStringLiteral("  %1, %2: %3\n").arg(scenario.name, AtExit, failure);
    }
    m_out << QStringLiteral("%1: %2 pontos de corte (%3 kill, %4 tear, %3 lose, %3 reorder, %4 "
                            "tear-reorder, 1 após o sucesso), %5 sobreviveram\n")
                 .arg(scenario.name)
                 .arg(outcome.tried)
                 .arg(boundaries)
                 .arg(writes)
                 .arg(outcome.survived);
    if (outcome.byPassword > 0) {
        m_out << QStringLiteral("  %1 deles com o diário aplicado só pelo recover com a senha\n")
                     .arg(outcome.byPassword);
    }
    m_out.flush();
    return outcome;
}

QList<Scenario> CrashHarness::scenarios() const
{
    QList<Scenario> scenarios = {
        {QStringLiteral("import"), {QStringLiteral("import"), path(QStringLiteral("novo.bin"))}},
        // Several files and a folder tree: one batch, its index written once at the end.
        {QStringLiteral("import de vários"),
         {QStringLiteral("import"), path(QStringLiteral("lote/a.txt")), path(QStringLiteral("Lote")),
          QStringLiteral("--replace")}},
        {QStringLiteral("rename"),
         {QStringLiteral("rename"), QStringLiteral("a.txt"), QStringLiteral("c.txt")}},
        {QStringLiteral("rm"), {QStringLiteral("rm"), QStringLiteral("Pasta/b.bin")}},
        {QStringLiteral("mkdir"), {QStringLiteral("mkdir"), QStringLiteral("Nova pasta")}},
        {QStringLiteral("passwd"), {QStringLiteral("passwd")}},
        {QStringLiteral("compact"), {QStringLiteral("compact")}},
        {QStringLiteral("compact sem espaço"), {QStringLiteral("compact")}, true},
    };
    if (!m_batchTool.isEmpty()) {
        // A checkpoint after every file, replacing one: each cut leaves a checkpoint's state.
        scenarios.append({QStringLiteral("lote com pontos de controle"),
                          {path(QStringLiteral("lote/a.txt")), path(QStringLiteral("lote/lote-1.bin"))},
                          false,
                          m_batchTool,
                          {QStringLiteral("a.txt"), QStringLiteral("lote-1.bin")}});
    }
    return scenarios;
}

int CrashHarness::run()
{
    if (!m_work.isValid() || !prepareBase()) {
        m_out << "não foi possível preparar o cofre de teste\n";
        return 2;
    }
    Outcome all;
    for (const Scenario& scenario : scenarios()) {
        const Outcome outcome = runScenario(scenario);
        all.tried += outcome.tried;
        all.survived += outcome.survived;
    }
    m_out << QStringLiteral("Pontos de corte tentados: %1, sobreviveram: %2\n")
                 .arg(all.tried)
                 .arg(all.survived);
    return all.tried > 0 && all.survived == all.tried ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption cli(QStringLiteral("cli"), QStringLiteral("velmarin-cli"),
                                 QStringLiteral("caminho"));
    const QCommandLineOption shim(QStringLiteral("shim"), QStringLiteral("libvelmarin_crashshim.so"),
                                  QStringLiteral("caminho"));
    const QCommandLineOption batchTool(QStringLiteral("batch-tool"), QStringLiteral("velmarin-batch-import"),
                                       QStringLiteral("caminho"));
    const QCommandLineOption quick(QStringLiteral("quick"), QStringLiteral("Arquivos pequenos (um bloco)."));
    parser.addOptions({cli, shim, batchTool, quick});
    parser.addHelpOption();
    parser.process(application);
    if (!parser.isSet(cli) || !parser.isSet(shim)) {
        parser.showHelp(2);
    }
    CrashHarness harness(parser.value(cli), parser.value(shim), parser.value(batchTool), parser.isSet(quick));
    return harness.run();
}
