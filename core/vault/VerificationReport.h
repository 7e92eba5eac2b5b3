#pragma once

#include <QList>
#include <QString>
#include <QtGlobal>

namespace Velmarin::Core {

// What reading back every block of a vault found, and how much compaction would free.
struct VerificationReport
{
    struct DamagedFile
    {
        enum class Problem
        {
            // A block lies outside the container, has impossible sizes or does not authenticate.
            UnreadableBlock,
            // Every block decrypted, but together they do not hold the recorded size.
            WrongSize,
            // The right number of bytes, but not the ones the file's SHA-256 was taken of.
            WrongDigest
        };

        QString vaultPath;
        Problem problem = Problem::UnreadableBlock;
        // For an unreadable block: its position in the file, counting from 1.
        int blockNumber = 0;
        int blockCount = 0;
    };

    int fileCount = 0;
    int folderCount = 0;
    // Encrypted bytes the index still refers to, and the payload bytes nothing refers to any more.
    qint64 liveBytes = 0;
    qint64 deadBytes = 0;
    QList<DamagedFile> damagedFiles;

    bool isSound() const { return damagedFiles.isEmpty(); }
};

} // namespace Velmarin::Core
