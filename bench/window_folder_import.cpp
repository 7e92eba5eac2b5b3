// Measures "Importar pasta..." in the real window (offscreen) against the engine's own batch, which is
// what velmarin-cli import runs once it has unlocked, and, given --cli, against the whole
// velmarin-cli import process (its start and Argon2id unlock included): a folder of small files of
// 1 B to 64 KiB in 100 sub-folders, each into a new vault, the best of --runs. It prints how often
// the progress dialog moved and the ratios of the times; it asserts nothing.
//   velmarin-bench-window-folder [--files N] [--runs N] [--cli velmarin-cli] [directory]
#include "DialogDriver.h"
#include "FakeWindowServices.h"
#include "SampleVault.h"
#include "core/vault/ImportPlan.h"
#include "core/vault/VaultManager.h"
#include "ui/MainWindow.h"

#include <QAction>
#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QProgressDialog>
#include <QRandomGenerator>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

#include <algorithm>
#include <cstring>

using namespace Velmarin;

namespace {

constexpr int Folders = 100;
// The sampling timer asks to run far more often than the dialog may be redrawn.
constexpr int TickMs = 5;

bool writeTree(const QString& root, int count)
{
    QRandomGenerator random(2026);
    QByteArray bytes(65536, '\0');
    for (int i = 0; i < count; ++i) {
        const QString folder =
            QDir(root).filePath(QStringLiteral("pasta%1").arg(i % Folders, 3, 10, QLatin1Char('0')));
        const qsizetype size = 1 + random.bounded(65536);
        for (qsizetype at = 0; at < size; at += 4) {
            const quint32 word = random.generate();
            std::memcpy(bytes.data() + at, &word, std::min<qsizetype>(4, size - at));
        }
        QFile file(QDir(folder).filePath(QStringLiteral("arquivo%1.bin").arg(i, 5, 10, QLatin1Char('0'))));
        if (!QDir().mkpath(folder) || !file.open(QIODevice::WriteOnly) ||
            file.write(bytes.constData(), size) != size) {
            return false;
        }
    }
    return true;
}

double seconds(qint64 nanoseconds)
{
    return static_cast<double>(nanoseconds) / 1e9;
}

// The engine's batch alone, as the command line runs it after its unlock.
qint64 engineImport(const QString& container, const QByteArray& password, const QString& tree, int count)
{
    Core::VaultManager vault;
    if (!vault.unlock(container, password)) {
        return -1;
    }
    QElapsedTimer clock;
    clock.start();
    Core::ImportPlan plan;
    if (plan.add(tree, QString()) != Core::ImportPlan::Result::Added) {
        return -1;
    }
    Core::ImportBatch::Handler handler;
    handler.progress = [](const Core::ImportBatch::Progress&) {};
    const Core::ImportBatch::Outcome outcome = vault.importBatch(plan.items(), handler);
    const qint64 elapsed = clock.nsecsElapsed();
    return outcome.imported == count && vault.lock() ? elapsed : -1;
}

// The whole command a user would run, from its start to its exit.
qint64 cliImport(const QString& cli, const QString& container, const QByteArray& password,
                 const QString& tree, const QString& dataHome)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("VELMARIN_PASSWORD"), QString::fromUtf8(password));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), dataHome);
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    QElapsedTimer clock;
    clock.start();
    process.start(cli, {QStringLiteral("import"), container, tree});
    const bool finished = process.waitForFinished(-1);
    const qint64 elapsed = clock.nsecsElapsed();
    return finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0 ? elapsed : -1;
}

struct WindowRun
{
    qint64 total = -1;
    // Times the dialog's bar or text was seen to change, and the longest time it stood still.
    int moves = 0;
    qint64 longestStill = 0;
};

WindowRun windowImport(const QString& container, const QByteArray& password, const QString& tree, int count,
                       const QString& workspaces)
{
    WindowRun run;
    Tests::FakeWindowServices fakes(false, workspaces);
    Tests::DialogDriver driver;
    UI::MainWindow window(fakes.take());
    window.show();
    fakes.dialogs->fileAnswers.push_back(container);
    window.chooseContainer();
    driver.expectInput(QString::fromUtf8(password));
    window.unlockVault();
    QAction* importFolder = nullptr;
    for (QAction* action : window.findChildren<QAction*>()) {
        importFolder = action->text() == QStringLiteral("Importar pasta...") ? action : importFolder;
    }
    if (!window.isVaultUnlocked() || importFolder == nullptr) {
        return run;
    }
    QElapsedTimer clock;
    QTimer ticker;
    ticker.setInterval(TickMs);
    int lastValue = -2;
    QString lastLabel;
    qint64 lastMove = 0;
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            auto* dialog = qobject_cast<QProgressDialog*>(widget);
            if (dialog == nullptr || !dialog->isVisible()) {
                continue;
            }
            if (dialog->value() != lastValue || dialog->labelText() != lastLabel) {
                const qint64 now = clock.nsecsElapsed();
                if (run.moves > 0) {
                    run.longestStill = std::max(run.longestStill, now - lastMove);
                }
                ++run.moves;
                lastMove = now;
                lastValue = dialog->value();
                lastLabel = dialog->labelText();
            }
        }
    });
    fakes.dialogs->folderAnswers.push_back(tree);
    clock.start();
    ticker.start();
    importFolder->trigger();
    run.total = clock.nsecsElapsed();
    ticker.stop();
    const QString expected = QStringLiteral("%1 arquivos importados com sucesso.").arg(count);
    if (window.statusBar()->currentMessage() != expected) {
        run.total = -1;
    }
    window.lockVault();
    return run;
}

// The best of each way over several runs, every run into new vaults.
struct Best
{
    qint64 engine = -1;
    qint64 cli = -1;
    WindowRun window;
};

qint64 fastest(qint64 best, qint64 now)
{
    return best < 0 ? now : std::min(best, now);
}

bool runOnce(const QString& folder, const QByteArray& password, const QString& tree, int count,
             const QString& cli, Best& best)
{
    const QString engineVault = QDir(folder).filePath(QStringLiteral("motor/velmarin.vltx"));
    const QString windowVault = QDir(folder).filePath(QStringLiteral("janela/velmarin.vltx"));
    const QString cliVault = QDir(folder).filePath(QStringLiteral("cli/velmarin.vltx"));
    for (const QString& vault : {engineVault, windowVault, cliVault}) {
        if (!QDir().mkpath(QFileInfo(vault).absolutePath()) ||
            !Bench::SampleVault::create(vault, password, 0)) {
            return false;
        }
    }
    const qint64 engine = engineImport(engineVault, password, tree, count);
    const WindowRun window =
        windowImport(windowVault, password, tree, count, QDir(folder).filePath(QStringLiteral("workspaces")));
    const qint64 command = cli.isEmpty() ? 0
                                         : cliImport(cli, cliVault, password, tree,
                                                     QDir(folder).filePath(QStringLiteral("dados")));
    if (engine < 0 || window.total < 0 || command < 0) {
        return false;
    }
    best.engine = fastest(best.engine, engine);
    best.cli = cli.isEmpty() ? -1 : fastest(best.cli, command);
    if (best.window.total < 0 || window.total < best.window.total) {
        best.window = window;
    }
    return QDir(folder).removeRecursively();
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QTextStream out(stdout);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Window folder import against the engine's batch and the velmarin-cli process."));
    parser.addHelpOption();
    const QCommandLineOption filesOption(QStringLiteral("files"), QStringLiteral("Files in the tree."),
                                         QStringLiteral("N"), QStringLiteral("10000"));
    const QCommandLineOption runsOption(QStringLiteral("runs"),
                                        QStringLiteral("Runs; the best of each counts."), QStringLiteral("N"),
                                        QStringLiteral("3"));
    const QCommandLineOption cliOption(
        QStringLiteral("cli"), QStringLiteral("velmarin-cli to time as a process."), QStringLiteral("path"));
    parser.addOptions({filesOption, runsOption, cliOption});
    parser.addPositionalArgument(QStringLiteral("directory"),
                                 QStringLiteral("Where to work (default /tmp)."));
    parser.process(app);
    bool filesOk = false;
    bool runsOk = false;
    const int count = parser.value(filesOption).toInt(&filesOk);
    const int runs = parser.value(runsOption).toInt(&runsOk);
    const QString cli = parser.value(cliOption);
    QTemporaryDir work(QDir(parser.positionalArguments().value(0, QStringLiteral("/tmp")))
                           .filePath(QStringLiteral("velmarin-window-folder-XXXXXX")));
    const QByteArray password("senha de medição 2026");
    const QString tree = work.filePath(QStringLiteral("Arvore"));
    if (!filesOk || count < 1 || !runsOk || runs < 1 || !work.isValid() || !writeTree(tree, count)) {
        QTextStream(stderr) << "velmarin-bench-window-folder: could not prepare the tree\n";
        return 1;
    }
    Best best;
    for (int run = 0; run < runs; ++run) {
        if (!runOnce(work.filePath(QStringLiteral("run%1").arg(run)), password, tree, count, cli, best)) {
            QTextStream(stderr) << "velmarin-bench-window-folder: an import did not bring every file in\n";
            return 1;
        }
    }
    const double window = seconds(best.window.total);
    out << count << " files of 1 B to 64 KiB in " << Folders << " folders, best of " << runs << " runs\n"
        << "engine batch, in-process (velmarin-cli import after its unlock): "
        << QString::number(seconds(best.engine), 'f', 3) << " s\n";
    if (best.cli >= 0) {
        out << "velmarin-cli import, whole process with its unlock: "
            << QString::number(seconds(best.cli), 'f', 3) << " s\n";
    }
    out << "window, \"Importar pasta...\" whole flow, in-process: " << QString::number(window, 'f', 3)
        << " s, " << QString::number(window / seconds(best.engine), 'f', 2) << "x the engine";
    if (best.cli >= 0) {
        out << ", " << QString::number(window / seconds(best.cli), 'f', 2) << "x the velmarin-cli process";
    }
    out << "\nprogress dialog moved " << best.window.moves << " times, "
        << QString::number(best.window.moves / window, 'f', 1)
        << " a second; longest still: " << QString::number(seconds(best.window.longestStill) * 1000, 'f', 0)
        << " ms\n";
    return 0;
}
