// Times one import and one export of a file through the engine and reports the peak memory.
// Usage: velmarin-bench-io <file> [work-directory]
#include "VaultManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>

#include <sys/resource.h>

namespace {

double megabytesPerSecond(qint64 bytes, qint64 milliseconds)
{
    return milliseconds > 0 ? bytes / 1e6 / (milliseconds / 1000.0) : 0.0;
}

// Argon2id's 256 MiB would hide the import's own peak, so the peak is reset after unlocking.
void resetPeakResident()
{
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    if (clear.open(QIODevice::WriteOnly)) {
        clear.write("5");
    }
}

long peakResidentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (status.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : status.readAll().split('\n')) {
            if (line.startsWith("VmHWM:")) {
                return line.mid(6).trimmed().split(' ').value(0).toLong();
            }
        }
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    const QStringList arguments = app.arguments();
    if (arguments.size() < 2) {
        out << "uso: velmarin-bench-io <arquivo> [pasta-de-trabalho]" << Qt::endl;
        return 2;
    }
    const QString source = arguments.at(1);
    QTemporaryDir work(arguments.size() > 2 ? arguments.at(2) + QStringLiteral("/velmarin-bench-XXXXXX")
                                            : QDir::tempPath() + QStringLiteral("/velmarin-bench-XXXXXX"));
    const QString container = work.filePath(QStringLiteral("velmarin.vltx"));
    const QByteArray password("senha de medição 2026");

    Velmarin::Core::VaultManager vault;
    if (!vault.createVault(container, password) || !vault.unlock(container, password)) {
        out << "não foi possível preparar o cofre" << Qt::endl;
        return 1;
    }
    const qint64 size = QFileInfo(source).size();
    resetPeakResident();
    const long rssBefore = peakResidentKiB();
    QElapsedTimer timer;
    timer.start();
    if (!vault.importFile(source, QStringLiteral("medido.bin"))) {
        out << "importação falhou" << Qt::endl;
        return 1;
    }
    const qint64 importMs = timer.elapsed();
    const long rssImport = peakResidentKiB();
    timer.restart();
    if (!vault.exportFile(QStringLiteral("medido.bin"), work.filePath(QStringLiteral("exportado.bin")))) {
        out << "exportação falhou" << Qt::endl;
        return 1;
    }
    const qint64 exportMs = timer.elapsed();
    out << "file_bytes " << size << "\n"
        << "import_ms " << importMs << " import_MB_s " << megabytesPerSecond(size, importMs) << "\n"
        << "export_ms " << exportMs << " export_MB_s " << megabytesPerSecond(size, exportMs) << "\n"
        << "peak_rss_KiB_before_import " << rssBefore << " after_import " << rssImport << "\n";
    return 0;
}
