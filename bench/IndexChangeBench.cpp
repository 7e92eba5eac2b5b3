#include "IndexChangeBench.h"

#include "BenchTable.h"
#include "LockedVaultEditor.h"
#include "ProcessMeter.h"
#include "SampleVault.h"
#include "core/container/ContainerFile.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QUuid>

#include <algorithm>

namespace Velmarin::Bench {

using Core::ContainerFile;

IndexChangeBench::IndexChangeBench(const QString& workDirectory, const QByteArray& password)
    : m_work(workDirectory)
    , m_password(password)
{}

bool IndexChangeBench::fail(const QString& why)
{
    m_failure = why;
    return false;
}

bool IndexChangeBench::measure(const std::function<bool(int)>& change, Cost& cost)
{
    QList<qint64> times;
    cost = Cost();
    for (int run = 0; run < Repeats; ++run) {
        ProcessMeter::settle();
        const qint64 writtenBefore = ProcessMeter::bytesWritten();
        QElapsedTimer timer;
        timer.start();
        if (!change(run)) {
            return false;
        }
        times.append(timer.nsecsElapsed());
        cost.bytesWritten = qMax(cost.bytesWritten, ProcessMeter::bytesWritten() - writtenBefore);
    }
    std::sort(times.begin(), times.end());
    cost.nanoseconds = times.at(Repeats / 2);
    return true;
}

bool IndexChangeBench::measureWholeRegion(const QString& container, Cost& cost, qint64& jsonBytes)
{
    Tests::LockedVaultEditor editor;
    if (!editor.open(container, m_password)) {
        return false;
    }
    const qint64 regionStart = ContainerFile::FileMagic.size();
    const qint64 regionSize = ContainerFile::LengthDigits + 1 + ContainerFile::HeaderRegionSize;
    return measure(
        [&](int) {
            // As before: the whole region read, the header parsed, sealed, the whole region written.
            QFile file(container);
            Core::ContainerHeader header;
            if (!file.open(QIODevice::ReadWrite | QIODevice::Unbuffered) || !file.seek(regionStart) ||
                file.read(regionSize).size() != regionSize ||
                !ContainerFile().readHeader(container, header)) {
                return false;
            }
            const QByteArray json = editor.headerJsonFor(editor.index());
            jsonBytes = json.size();
            QByteArray region =
                QByteArray::number(json.size()).rightJustified(ContainerFile::LengthDigits, '0');
            region += '\n' + json;
            region += QByteArray(regionSize - region.size(), '\0');
            return !json.isEmpty() && file.seek(regionStart) && file.write(region) == regionSize;
        },
        cost);
}

bool IndexChangeBench::run(int fileCount, BenchTable& table)
{
    const QDir work(m_work);
    const QString folder = work.filePath(QStringLiteral("indice-%1").arg(fileCount));
    const QString container = QDir(folder).filePath(ContainerFile::DefaultFileName);
    const QString oneByte = work.filePath(QStringLiteral("um-byte.txt"));
    QFile byteFile(oneByte);
    if (!work.mkpath(folder) || !byteFile.open(QIODevice::WriteOnly) || byteFile.write("x") != 1) {
        return fail(QStringLiteral("could not prepare %1").arg(folder));
    }
    byteFile.close();
    if (!SampleVault::create(container, m_password, fileCount)) {
        return fail(QStringLiteral("could not build a vault of %1 files").arg(fileCount));
    }

    Core::VaultManager vault;
    if (!vault.unlock(container, m_password)) {
        return fail(QStringLiteral("could not unlock the vault of %1 files").arg(fileCount));
    }
    // Every run changes a different entry, from both ends of the list, so none repeats another's work.
    Cost rename;
    Cost newFolder;
    Cost remove;
    Cost import;
    const bool measured =
        measure(
            [&](int run) {
                return vault.renameFile(SampleVault::fileName(run),
                                        QStringLiteral("renomeada-%1.jpg").arg(run));
            },
            rename) &&
        measure([&](int run) { return vault.createFolder(QStringLiteral("Pasta nova %1").arg(run)); },
                newFolder) &&
        measure([&](int run) { return vault.deleteFile(SampleVault::fileName(fileCount - 1 - run)); },
                remove) &&
        measure([&](int run) { return vault.importFile(oneByte, QStringLiteral("um-byte-%1.txt").arg(run)); },
                import);
    if (!measured || !vault.lock()) {
        return fail(QStringLiteral("a change in the vault of %1 files failed").arg(fileCount));
    }
    Cost whole;
    qint64 jsonBytes = 0;
    if (!measureWholeRegion(container, whole, jsonBytes)) {
        return fail(QStringLiteral("could not rewrite the whole header region of %1").arg(container));
    }

    const QString files = QLocale(QLocale::English).toString(fileCount);
    const auto row = [&](const QString& change, const Cost& cost) {
        const double ratio = static_cast<double>(whole.nanoseconds) / qMax<qint64>(cost.nanoseconds, 1);
        table.add(QStringLiteral("%1, %2 files").arg(change, files),
                  QStringLiteral("%1, %2 written")
                      .arg(BenchTable::duration(cost.nanoseconds), BenchTable::size(cost.bytesWritten)),
                  ratio >= 1.5
                      ? QStringLiteral("1/%1 of the whole-region rewrite's time").arg(qRound(ratio))
                      : QStringLiteral("%1× the whole-region rewrite's time").arg(1 / ratio, 0, 'f', 1));
    };
    table.add(QStringLiteral("Whole-region rewrite (before), %1 files").arg(files),
              QStringLiteral("%1, %2 written")
                  .arg(BenchTable::duration(whole.nanoseconds), BenchTable::size(whole.bytesWritten)),
              QStringLiteral("reads 8 MiB, parses, seals, writes 8 MiB; header JSON now %1")
                  .arg(BenchTable::size(jsonBytes)));
    row(QStringLiteral("Rename"), rename);
    row(QStringLiteral("New folder"), newFolder);
    row(QStringLiteral("Delete"), remove);
    row(QStringLiteral("Import of 1 byte"), import);
    QFile::remove(oneByte);
    return QDir(folder).removeRecursively();
}

bool IndexChangeBench::countFilesThatFit(BenchTable& table)
{
    const QDir work(m_work);
    const QString container = work.filePath(QStringLiteral("capacidade.vltx"));
    Tests::LockedVaultEditor editor;
    if (!SampleVault::create(container, m_password, 1) || !editor.open(container, m_password)) {
        return fail(QStringLiteral("could not build the capacity vault"));
    }
    // Entries shaped like the sample vault's, each with one block of its own further along the payload.
    Core::VaultIndex index = editor.index();
    const Core::FileEntry model = index.files().first();
    const auto addFile = [&](int number) {
        Core::FileEntry file = model;
        file.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
        file.vaultPath = SampleVault::fileName(number);
        file.blocks.first().offset =
            model.blocks.first().offset + qint64(number) * model.blocks.first().encryptedSize;
        return index.upsertFile(file);
    };
    const auto fits = [&] {
        const QByteArray json = editor.headerJsonFor(index);
        return !json.isEmpty() && json.size() <= ContainerFile::HeaderRegionSize;
    };
    // Grow in steps, then one file at a time near the edge; every answer comes from a real sealing.
    int count = 1;
    for (int step = 4096; step >= 1; step /= 2) {
        while (true) {
            for (int number = count; number < count + step; ++number) {
                addFile(number);
            }
            if (fits()) {
                count += step;
                continue;
            }
            for (int number = count + step - 1; number >= count; --number) {
                index.removeFile(SampleVault::fileName(number));
            }
            break;
        }
    }
    if (!fits()) {
        return fail(QStringLiteral("the capacity search went wrong"));
    }
    table.add(QStringLiteral("Files that fit in the header region"),
              QLocale(QLocale::English).toString(count),
              QStringLiteral("names like %1, one block each: %2 of header JSON per file")
                  .arg(SampleVault::fileName(0), BenchTable::size(ContainerFile::HeaderRegionSize / count)));
    QFile::remove(container);
    return true;
}

} // namespace Velmarin::Bench
