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
            WrongDigest,
            // What the index records about the file, whatever its blocks hold (see IndexAudit).
            // A path with a "." or ".." segment, or one that is nothing but slashes and blanks.
            DotSegment,
            // A path that starts at a root ("/x") or names a drive ("C:x").
            AbsolutePath,
            BackslashPath,
            // Any other change normalisation would make: blanks around segments, doubled slashes.
            PathNotNormal,
            // Another file has the same path in another letter case (otherPath).
            CaseDuplicate,
            // The folder holding the file has no entry of its own (otherPath).
            MissingFolder,
            // Block blockNumber shares bytes of the payload with a block of otherPath (the file's own
            // path when it overlaps another of its own blocks).
            OverlappingBlocks
        };

        QString vaultPath;
        Problem problem = Problem::UnreadableBlock;
        // For an unreadable or overlapping block: its position in the file, counting from 1.
        int blockNumber = 0;
        int blockCount = 0;
        QString otherPath;
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
