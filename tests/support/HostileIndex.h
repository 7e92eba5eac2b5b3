#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace Velmarin::Tests {

// Crafts authentic indexes that no change of the engine writes, into a locked container, with its
// password (through LockedVaultEditor): what a faulty or hostile writer holding the password could
// leave on a stick.
class HostileIndex
{
public:
    struct File
    {
        // Taken exactly as given: no normalisation, and no folder entry is made for it.
        QString vaultPath;
        QByteArray contents;
    };

    // Seals each file's contents as blocks at the container's end and records the entry as it is.
    static bool addFiles(const QString& container, const QByteArray& password, const QList<File>& files);
    // "dup.txt" and "DUP.txt", two files whose paths differ only in letter case, each its own bytes.
    static bool addCaseDuplicates(const QString& container, const QByteArray& password);
    static QByteArray lowerContents() { return QByteArrayLiteral("conteúdo de dup.txt"); }
    static QByteArray upperContents() { return QByteArrayLiteral("conteúdo de DUP.TXT, outro"); }
    // One block of contents named times times by vaultPath, whose recorded size and SHA-256 stay
    // those of contents alone.
    static bool addRepeatedBlock(const QString& container, const QByteArray& password,
                                 const QString& vaultPath, const QByteArray& contents, int times);
    // vaultPath records extra bytes more than its blocks hold.
    static bool addShortFile(const QString& container, const QByteArray& password, const QString& vaultPath,
                             const QByteArray& contents, qint64 extra);
    // copyPath names the very blocks of an existing file, sourcePath.
    static bool addSharedBlocks(const QString& container, const QByteArray& password,
                                const QString& sourcePath, const QString& copyPath);
    // Flips one byte in the middle of the first block of vaultPath, as a failing drive could.
    static bool alterFirstBlock(const QString& container, const QByteArray& password,
                                const QString& vaultPath);
    // Removes the folder entry path (its files stay).
    static bool removeFolder(const QString& container, const QByteArray& password, const QString& path);
};

} // namespace Velmarin::Tests
