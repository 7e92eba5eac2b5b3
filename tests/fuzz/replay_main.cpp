// Runs a fuzz target once on every file named or found in the folders named, without libFuzzer:
// every build replays the seeds and the inputs that once crashed (regressions/<target>).
#include <QByteArray>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QTextStream>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

QStringList inputFiles(const QString& argument)
{
    if (!QFileInfo(argument).isDir()) {
        return {argument};
    }
    QStringList files;
    QDirIterator it(argument, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        files << it.next();
    }
    files.sort();
    return files;
}

} // namespace

int main(int argc, char* argv[])
{
    QTextStream out(stdout);
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const QString& name : inputFiles(QString::fromLocal8Bit(argv[i]))) {
            QFile file(name);
            if (!file.open(QIODevice::ReadOnly)) {
                out << "ilegível: " << name << Qt::endl;
                return 1;
            }
            const QByteArray input = file.readAll();
            out << name << Qt::endl;
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.constData()),
                                   static_cast<size_t>(input.size()));
            ++replayed;
        }
    }
    out << replayed << " entradas" << Qt::endl;
    // No input at all means a wrong folder, not a pass.
    return replayed > 0 ? 0 : 1;
}
