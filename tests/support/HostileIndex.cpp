#include "HostileIndex.h"

#include "LockedVaultEditor.h"

#include <QDateTime>
#include <QFile>
#include <QTimeZone>

namespace Velmarin::Tests {

using namespace Core;

namespace {

const QDateTime When = QDateTime(QDate(2024, 5, 3), QTime(14, 7, 9), QTimeZone::utc());

// Appends contents as a file under a scratch path the engine would write, then gives the entry the
// path wanted, and takes back any folder entry the append made.
bool append(LockedVaultEditor& editor, const QString& vaultPath, const QByteArray& contents, FileEntry* made)
{
    const QString scratch = QStringLiteral("hostil-%1.bin").arg(editor.index().files().size());
    if (!editor.appendFile(scratch, contents, When)) {
        return false;
    }
    FileEntry entry = editor.index().files().constLast();
    editor.index().removeFile(scratch);
    entry.vaultPath = vaultPath;
    *made = entry;
    return editor.index().upsertFile(entry);
}

} // namespace

bool HostileIndex::addFiles(const QString& container, const QByteArray& password, const QList<File>& files)
{
    LockedVaultEditor editor;
    if (!editor.open(container, password)) {
        return false;
    }
    for (const File& file : files) {
        FileEntry entry;
        if (!append(editor, file.vaultPath, file.contents, &entry)) {
            return false;
        }
    }
    return editor.save();
}

bool HostileIndex::addCaseDuplicates(const QString& container, const QByteArray& password)
{
    return addFiles(
        container, password,
        {{QStringLiteral("dup.txt"), lowerContents()}, {QStringLiteral("DUP.txt"), upperContents()}});
}

bool HostileIndex::addRepeatedBlock(const QString& container, const QByteArray& password,
                                    const QString& vaultPath, const QByteArray& contents, int times)
{
    LockedVaultEditor editor;
    FileEntry entry;
    if (!editor.open(container, password) || !append(editor, vaultPath, contents, &entry) ||
        entry.blocks.size() != 1) {
        return false;
    }
    const BlockEntry block = entry.blocks.constFirst();
    entry.blocks.clear();
    for (int i = 0; i < times; ++i) {
        entry.blocks.append(block);
    }
    return editor.index().upsertFile(entry) && editor.save();
}

bool HostileIndex::addShortFile(const QString& container, const QByteArray& password,
                                const QString& vaultPath, const QByteArray& contents, qint64 extra)
{
    LockedVaultEditor editor;
    FileEntry entry;
    if (!editor.open(container, password) || !append(editor, vaultPath, contents, &entry)) {
        return false;
    }
    entry.sizeBytes += extra;
    return editor.index().upsertFile(entry) && editor.save();
}

bool HostileIndex::addSharedBlocks(const QString& container, const QByteArray& password,
                                   const QString& sourcePath, const QString& copyPath)
{
    LockedVaultEditor editor;
    if (!editor.open(container, password)) {
        return false;
    }
    const FileEntry* source = editor.index().findFile(sourcePath);
    if (source == nullptr) {
        return false;
    }
    FileEntry copy = *source;
    copy.vaultPath = copyPath;
    return editor.index().upsertFile(copy) && editor.save();
}

bool HostileIndex::alterFirstBlock(const QString& container, const QByteArray& password,
                                   const QString& vaultPath)
{
    qint64 at = -1;
    {
        LockedVaultEditor editor;
        if (!editor.open(container, password)) {
            return false;
        }
        const FileEntry* entry = editor.index().findFile(vaultPath);
        if (entry == nullptr || entry->blocks.isEmpty()) {
            return false;
        }
        at = entry->blocks.constFirst().offset + entry->blocks.constFirst().encryptedSize / 2;
    }
    QFile file(container);
    char byte = 0;
    return file.open(QIODevice::ReadWrite) && file.seek(at) && file.getChar(&byte) && file.seek(at) &&
           file.putChar(static_cast<char>(byte ^ 0x01));
}

bool HostileIndex::removeFolder(const QString& container, const QByteArray& password, const QString& path)
{
    LockedVaultEditor editor;
    return editor.open(container, password) && editor.index().removeDirectory(path) && editor.save();
}

} // namespace Velmarin::Tests
