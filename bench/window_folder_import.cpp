// Measures "Importar pasta..." in the real window (offscreen) against the engine's own batch, which is
// what velmarin-cli import runs once it has unlocked: a folder of small files of 1 B to 64 KiB in
// 100 sub-folders. It prints how often the progress dialog moved and the ratio of the two times;
// it asserts nothing.
//   velmarin-bench-window-folder [--files N] [directory]
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

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QTextStream out(stdout);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Window folder import against the engine's batch."));
    parser.addHelpOption();
    const QCommandLineOption filesOption(QStringLiteral("files"), QStringLiteral("Files in the tree."),
                                         QStringLiteral("N"), QStringLiteral("10000"));
    parser.addOption(filesOption);
    parser.addPositionalArgument(QStringLiteral("directory"),
                                 QStringLiteral("Where to work (default /tmp)."));
    parser.process(app);
    bool ok = false;
    const int count = parser.value(filesOption).toInt(&ok);
    QTemporaryDir work(QDir(parser.positionalArguments().value(0, QStringLiteral("/tmp")))
                           .filePath(QStringLiteral("velmarin-window-folder-XXXXXX")));
    const QByteArray password("senha de medição 2026");
    const QString tree = work.filePath(QStringLiteral("Arvore"));
    const QString engineVault = work.filePath(QStringLiteral("motor/velmarin.vltx"));
    const QString windowVault = work.filePath(QStringLiteral("janela/velmarin.vltx"));
    if (!ok || count < 1 || !work.isValid() || !QDir().mkpath(work.filePath(QStringLiteral("motor"))) ||
        !QDir().mkpath(work.filePath(QStringLiteral("janela"))) || !writeTree(tree, count) ||
        !Bench::SampleVault::create(engineVault, password, 0) ||
        !Bench::SampleVault::create(windowVault, password, 0)) {
        QTextStream(stderr) << "velmarin-bench-window-folder: could not prepare the tree or the vaults\n";
        return 1;
    }
    const qint64 engine = engineImport(engineVault, password, tree, count);
    const WindowRun window =
        windowImport(windowVault, password, tree, count, work.filePath(QStringLiteral("workspaces")));
    if (engine < 0 || window.total < 0) {
        QTextStream(stderr) << "velmarin-bench-window-folder: an import did not bring every file in\n";
        return 1;
    }
    out << count << " files of 1 B to 64 KiB in " << Folders << " folders\n"
        << "engine batch (velmarin-cli import after its unlock): " << QString::number(seconds(engine), 'f', 3)
        << " s\n"
        << "window, \"Importar pasta...\" whole flow: " << QString::number(seconds(window.total), 'f', 3)
        << " s, " << QString::number(seconds(window.total) / seconds(engine), 'f', 2) << "x the engine\n"
        << "progress dialog moved " << window.moves << " times, "
        << QString::number(window.moves / seconds(window.total), 'f', 1)
        << " a second; longest still: " << QString::number(seconds(window.longestStill) * 1000, 'f', 0)
        << " ms\n";
    return 0;
}
