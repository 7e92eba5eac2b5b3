#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace Velmarin::Tests {

// Files and vaults for tests, made the same way by every test executable.
class TestFiles
{
public:
    // A 12-character password with an accent, so the UTF-8 path is always exercised.
    static QByteArray password();

    // Deterministic bytes that differ from block to block, so a misplaced block cannot go unnoticed.
    static QByteArray pattern(qint64 size, quint32 seed);
    static bool writePattern(const QString& path, qint64 size, quint32 seed);
    static bool write(const QString& path, const QByteArray& bytes);
    // Grows (or creates) path to size bytes without writing them: only its size is ever looked at,
    // and it takes no room on most file systems.
    static bool makeSparse(const QString& path, qint64 size);
    static QByteArray read(const QString& path);
    static bool sameContents(const QString& a, const QString& b);
    // Every file, folder and special file below root, relative, folders with a trailing "/", sorted.
    static QStringList tree(const QString& root);
    // The same non-empty tree with the same bytes in every file; says what differs when not.
    static bool sameTree(const QString& a, const QString& b);

    // SHA-256 from coreutils' sha256sum, independent of the engine's own hashing.
    static QByteArray sha256sum(const QString& path);

    // A fresh copy, at path, of an empty vault created once per test process with password().
    // Creating costs an Argon2id run; copying does not.
    static bool copyEmptyVault(const QString& path);
};

} // namespace Velmarin::Tests
