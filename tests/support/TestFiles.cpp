#include "TestFiles.h"

#include "core/vault/VaultManager.h"

#include <QDebug>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <memory>

namespace Velmarin::Tests {

QByteArray TestFiles::password()
{
    return QStringLiteral("correção-segura").toUtf8();
}

QByteArray TestFiles::pattern(qint64 size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = seed * 2654435761u + 1u;
    for (qint64 i = 0; i < size; ++i) {
        // xorshift: cheap, and no two 16 MiB blocks of a file look alike.
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        bytes[i] = static_cast<char>(state & 0xff);
    }
    return bytes;
}

bool TestFiles::writePattern(const QString& path, qint64 size, quint32 seed)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    constexpr qint64 chunk = 4 * 1024 * 1024;
    for (qint64 done = 0, index = 0; done < size; done += chunk, ++index) {
        const QByteArray bytes = pattern(qMin(chunk, size - done), seed + static_cast<quint32>(index));
        if (file.write(bytes) != bytes.size()) {
            return false;
        }
    }
    return file.flush();
}

bool TestFiles::write(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size() &&
           file.flush();
}

QByteArray TestFiles::read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool TestFiles::sameContents(const QString& a, const QString& b)
{
    QFile first(a);
    QFile second(b);
    if (!first.open(QIODevice::ReadOnly) || !second.open(QIODevice::ReadOnly) ||
        first.size() != second.size()) {
        return false;
    }
    constexpr qint64 chunk = 4 * 1024 * 1024;
    while (!first.atEnd()) {
        if (first.read(chunk) != second.read(chunk)) {
            return false;
        }
    }
    return true;
}

QByteArray TestFiles::sha256sum(const QString& path)
{
    QProcess process;
    process.start(QStringLiteral("sha256sum"), {path});
    if (!process.waitForFinished(120000) || process.exitCode() != 0) {
        return {};
    }
    return QByteArray::fromHex(process.readAllStandardOutput().left(64));
}

bool TestFiles::copyEmptyVault(const QString& path)
{
    static std::unique_ptr<QTemporaryDir> templateDir;
    static QString templatePath;
    if (templatePath.isEmpty()) {
        templateDir = std::make_unique<QTemporaryDir>();
        const QString candidate = templateDir->filePath(QStringLiteral("template.vltx"));
        Core::VaultManager vault;
        if (!vault.createVault(candidate, password())) {
            return false;
        }
        templatePath = candidate;
    }
    QFile::remove(path);
    return QFile::copy(templatePath, path);
}

bool TestFiles::makeSparse(const QString& path, qint64 size)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite) && file.resize(size);
}

QStringList TestFiles::tree(const QString& root)
{
    QStringList entries;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = QDir(root).relativeFilePath(path);
        entries << (it.fileInfo().isDir() ? relative + QLatin1Char('/') : relative);
    }
    entries.sort();
    return entries;
}

bool TestFiles::sameTree(const QString& a, const QString& b)
{
    const QStringList entries = tree(a);
    if (entries.isEmpty() || entries != tree(b)) {
        qWarning() << entries << tree(b);
        return false;
    }
    for (const QString& entry : entries) {
        if (!entry.endsWith(QLatin1Char('/')) &&
            read(QDir(a).filePath(entry)) != read(QDir(b).filePath(entry))) {
            qWarning() << "differs:" << entry;
            return false;
        }
    }
    return true;
}

} // namespace Velmarin::Tests
