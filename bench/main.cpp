// velmarin-bench: the figures of the README's "Performance" section, from one run in one directory.
#include "BenchTable.h"
#include "HelperModes.h"
#include "IndexChangeBench.h"
#include "StreamBench.h"
#include "TableFillBench.h"
#include "WindowImportBench.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QStorageInfo>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>

using namespace Velmarin::Bench;

namespace {

QString processorName()
{
    QFile cpuinfo(QStringLiteral("/proc/cpuinfo"));
    if (cpuinfo.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : cpuinfo.readAll().split('\n')) {
            if (line.startsWith("model name")) {
                return QString::fromUtf8(line.mid(line.indexOf(':') + 1).trimmed());
            }
        }
    }
    return QSysInfo::currentCpuArchitecture();
}

QList<int> parseCounts(const QString& text, bool& ok)
{
    QList<int> counts;
    ok = true;
    for (const QString& part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const int count = part.trimmed().toInt(&ok);
        ok = ok && count >= 5;
        if (!ok) {
            return {};
        }
        counts.append(count);
    }
    return counts;
}

} // namespace

int main(int argc, char* argv[])
{
    // The window's table is measured without a display.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    QTextStream out(stdout);
    QTextStream err(stderr);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Measures Velmarin's engine and window in one directory."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("directory"),
                                 QStringLiteral("Where the files go (default /tmp)."));
    const QCommandLineOption sizeOption(QStringLiteral("size-mib"), QStringLiteral("Size of the large file."),
                                        QStringLiteral("MiB"), QStringLiteral("1024"));
    const QCommandLineOption filesOption(QStringLiteral("files"),
                                         QStringLiteral("Vault sizes for index changes."),
                                         QStringLiteral("list"), QStringLiteral("10,1000,10000"));
    const QCommandLineOption tableOption(QStringLiteral("table-files"),
                                         QStringLiteral("Files in the folder the window shows."),
                                         QStringLiteral("count"), QStringLiteral("10000"));
    const QCommandLineOption windowOption(QStringLiteral("window-files"),
                                          QStringLiteral("Files the window imports at once."),
                                          QStringLiteral("count"), QStringLiteral("10000"));
    const QCommandLineOption fallbackOption(
        QStringLiteral("fallback-vault"),
        QStringLiteral("Only write an empty vault whose key comes from the key-derivation fallback "
                       "(password from VELMARIN_PASSWORD)."),
        QStringLiteral("container"));
    const QCommandLineOption argon2Option(QStringLiteral("argon2id-runs"),
                                          QStringLiteral("Only print the best time of N Argon2id "
                                                         "derivations as an unlock runs them, in seconds."),
                                          QStringLiteral("N"));
    parser.addOptions({sizeOption, filesOption, tableOption, windowOption, fallbackOption, argon2Option});
    parser.process(app);

    // The helper modes of bench/whole-process.sh.
    const QByteArray helperPassword = qEnvironmentVariableIsEmpty("VELMARIN_PASSWORD")
                                          ? QByteArrayLiteral("senha de medição 2026")
                                          : qgetenv("VELMARIN_PASSWORD");
    if (parser.isSet(fallbackOption)) {
        return HelperModes::writeFallbackVault(parser.value(fallbackOption), helperPassword) ? 0 : 1;
    }
    if (parser.isSet(argon2Option)) {
        const double seconds =
            HelperModes::argon2idSeconds(helperPassword, parser.value(argon2Option).toInt());
        out << QString::number(seconds, 'f', 3) << "\n";
        return seconds >= 0 ? 0 : 1;
    }

    bool sizeOk = false;
    bool countsOk = false;
    bool tableOk = false;
    bool windowOk = false;
    const qint64 sizeMiB = parser.value(sizeOption).toLongLong(&sizeOk);
    const QList<int> counts = parseCounts(parser.value(filesOption), countsOk);
    const int tableFiles = parser.value(tableOption).toInt(&tableOk);
    const int windowFiles = parser.value(windowOption).toInt(&windowOk);
    const QString directory = parser.positionalArguments().value(0, QStringLiteral("/tmp"));
    if (!sizeOk || sizeMiB < 1 || !countsOk || !tableOk || tableFiles < 1 || !windowOk || windowFiles < 1) {
        err << "velmarin-bench: sizes and counts must be positive whole numbers (counts at least 5)\n";
        return 2;
    }
    QTemporaryDir work(QDir(directory).filePath(QStringLiteral("velmarin-bench-XXXXXX")));
    if (!work.isValid()) {
        err << "velmarin-bench: cannot work in " << directory << ": " << work.errorString() << "\n";
        return 1;
    }

    const QByteArray password("senha de medição 2026");
    const QStorageInfo storage(work.path());
    out << "velmarin-bench " << QCoreApplication::arguments().mid(1).join(QLatin1Char(' ')) << "\n"
        << QDateTime::currentDateTime().toString(Qt::ISODate) << ", " << processorName() << ", "
        << QThread::idealThreadCount() << " cores, " << directory << " on "
        << QString::fromUtf8(storage.fileSystemType()) << " (" << QString::fromUtf8(storage.device())
        << ")\n\n";
    out.flush();

    BenchTable table;
    StreamBench stream(work.path(), sizeMiB * 1024 * 1024, password);
    IndexChangeBench changes(work.path(), password);
    TableFillBench fill(work.path(), password);
    bool ok = stream.run(table);
    QString failure = stream.failure();
    for (const int count : counts) {
        ok = ok && changes.run(count, table);
    }
    ok = ok && changes.countFilesThatFit(table);
    failure += changes.failure();
    ok = ok && fill.run(tableFiles, table);
    failure += fill.failure();
    WindowImportBench windowImport(work.path(), password);
    ok = ok && windowImport.run(windowFiles, table);
    failure += windowImport.failure();
    table.print(out);
    if (!ok) {
        err << "velmarin-bench: " << failure << "\n";
        return 1;
    }
    return 0;
}
