#include "TableFillBench.h"

#include "BenchTable.h"
#include "DialogDriver.h"
#include "FakeWindowServices.h"
#include "SampleVault.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QLocale>
#include <QTableWidget>

#include <algorithm>

namespace Velmarin::Bench {

TableFillBench::TableFillBench(const QString& workDirectory, const QByteArray& password)
    : m_work(workDirectory)
    , m_password(password)
{}

bool TableFillBench::fail(const QString& why)
{
    m_failure = why;
    return false;
}

bool TableFillBench::run(int fileCount, BenchTable& table)
{
    const QDir work(m_work);
    const QString folder = work.filePath(QStringLiteral("tabela"));
    const QString container = QDir(folder).filePath(QStringLiteral("velmarin.vltx"));
    if (!work.mkpath(folder) || !SampleVault::create(container, m_password, fileCount)) {
        return fail(QStringLiteral("could not build a vault of %1 files").arg(fileCount));
    }
    {
        // The workspace root is the engine's to make: it must be owner-only.
        Tests::FakeWindowServices fakes(false, QDir(folder).filePath(QStringLiteral("workspaces")));
        Tests::DialogDriver driver;
        UI::MainWindow window(fakes.take());
        window.show();
        fakes.dialogs->fileAnswers.push_back(container);
        window.chooseContainer();
        driver.expectInput(QString::fromUtf8(m_password));
        window.unlockVault();
        auto* fileTable = window.findChild<QTableWidget*>();
        if (!window.isVaultUnlocked() || fileTable == nullptr) {
            return fail(QStringLiteral("the window did not unlock the vault of %1 files").arg(fileCount));
        }
        // The fill as unlocking, navigating and sorting do it, then the first paint of the table.
        QList<qint64> fills;
        QList<qint64> paints;
        for (int run = 0; run < 5; ++run) {
            QElapsedTimer timer;
            timer.start();
            window.refreshFileTable();
            fills.append(timer.nsecsElapsed());
            timer.restart();
            fileTable->viewport()->repaint();
            paints.append(timer.nsecsElapsed());
            if (fileTable->rowCount() != fileCount) {
                return fail(QStringLiteral("the table shows %1 rows, not %2")
                                .arg(fileTable->rowCount())
                                .arg(fileCount));
            }
        }
        std::sort(fills.begin(), fills.end());
        std::sort(paints.begin(), paints.end());
        table.add(QStringLiteral("File table, %1 files in one folder")
                      .arg(QLocale(QLocale::English).toString(fileCount)),
                  BenchTable::duration(fills.at(2)),
                  QStringLiteral("median of 5 fills; then painting the visible rows: %1")
                      .arg(BenchTable::duration(paints.at(2))));
        window.lockVault();
    }
    return QDir(folder).removeRecursively();
}

} // namespace Velmarin::Bench
