#include "WindowImportBench.h"

#include "BenchTable.h"
#include "DialogDriver.h"
#include "FakeWindowServices.h"
#include "SampleVault.h"
#include "ui/MainWindow.h"

#include <QAction>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLocale>
#include <QRandomGenerator>
#include <QStatusBar>
#include <QTimer>

#include <algorithm>
#include <cstring>

namespace Velmarin::Bench {

namespace {

// How often the measuring timer asks to run: far more often than any redraw.
constexpr int TickMs = 5;

bool writeFiles(const QString& folder, int count, QStringList& files)
{
    QRandomGenerator random(2026);
    QByteArray bytes(65536, '\0');
    for (int i = 0; i < count; ++i) {
        const qsizetype size = 1 + random.bounded(65536);
        for (qsizetype at = 0; at < size; at += 4) {
            const quint32 word = random.generate();
            std::memcpy(bytes.data() + at, &word, std::min<qsizetype>(4, size - at));
        }
        QFile file(QDir(folder).filePath(QStringLiteral("arquivo%1.bin").arg(i, 5, 10, QLatin1Char('0'))));
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes.constData(), size) != size) {
            return false;
        }
        files << file.fileName();
    }
    return true;
}

} // namespace

WindowImportBench::WindowImportBench(const QString& workDirectory, const QByteArray& password)
    : m_work(workDirectory)
    , m_password(password)
{}

bool WindowImportBench::fail(const QString& why)
{
    m_failure = why;
    return false;
}

bool WindowImportBench::run(int fileCount, BenchTable& table)
{
    const QDir work(m_work);
    const QString folder = work.filePath(QStringLiteral("janela"));
    const QString sources = work.filePath(QStringLiteral("janela-fontes"));
    const QString container = QDir(folder).filePath(QStringLiteral("velmarin.vltx"));
    QStringList files;
    if (!work.mkpath(folder) || !work.mkpath(sources) || !SampleVault::create(container, m_password, 0) ||
        !writeFiles(sources, fileCount, files)) {
        return fail(QStringLiteral("could not prepare %1 files to import").arg(fileCount));
    }
    {
        Tests::FakeWindowServices fakes(false, QDir(folder).filePath(QStringLiteral("workspaces")));
        Tests::DialogDriver driver;
        UI::MainWindow window(fakes.take());
        window.show();
        fakes.dialogs->fileAnswers.push_back(container);
        window.chooseContainer();
        driver.expectInput(QString::fromUtf8(m_password));
        window.unlockVault();
        QAction* import = nullptr;
        for (QAction* action : window.findChildren<QAction*>()) {
            import = action->text() == QStringLiteral("Importar...") ? action : import;
        }
        if (!window.isVaultUnlocked() || import == nullptr) {
            return fail(QStringLiteral("the window did not unlock an empty vault"));
        }
        // The timer runs only when the window handles its events: the gaps between its runs are
        // the time the window did not answer.
        QList<qint64> ticks;
        QElapsedTimer clock;
        QTimer ticker;
        ticker.setInterval(TickMs);
        QObject::connect(&ticker, &QTimer::timeout, [&] { ticks.append(clock.nsecsElapsed()); });
        fakes.dialogs->fileListAnswers.push_back(files);
        clock.start();
        ticker.start();
        import->trigger();
        const qint64 total = clock.nsecsElapsed();
        ticker.stop();
        const QString expected = QStringLiteral("%1 arquivos importados com sucesso.").arg(fileCount);
        if (window.statusBar()->currentMessage() != expected) {
            return fail(QStringLiteral("the window's import ended with \"%1\"")
                            .arg(window.statusBar()->currentMessage()));
        }
        qint64 longest = 0;
        qint64 previous = 0;
        for (const qint64 tick : ticks) {
            longest = std::max(longest, tick - previous);
            previous = tick;
        }
        longest = std::max(longest, total - previous);
        table.add(QStringLiteral("Window import, %1 files of 1 B to 64 KiB")
                      .arg(QLocale(QLocale::English).toString(fileCount)),
                  BenchTable::duration(total),
                  QStringLiteral("the window answered %1 times a second; its longest pause %2")
                      .arg(static_cast<double>(ticks.size()) * 1e9 / static_cast<double>(total), 0, 'f', 0)
                      .arg(BenchTable::duration(longest)));
        window.lockVault();
    }
    return QDir(folder).removeRecursively() && QDir(sources).removeRecursively();
}

} // namespace Velmarin::Bench
