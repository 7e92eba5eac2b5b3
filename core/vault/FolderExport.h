#pragma once

#include "core/container/ProgressCallback.h"
#include "core/vault/Failure.h"

#include <QList>
#include <QString>

#include <functional>
#include <optional>

namespace Velmarin::Core {

class FileTransfer;
class VaultSession;

// Writes a vault folder and everything below it into a folder on disk. Each file goes through
// FileTransfer's export, so every block authenticates before its plaintext is written, and through a
// save file, so a file that fails leaves nothing half written and keeps what it was to replace.
// A file that cannot be exported is reported and the others go on. Nothing is written outside the
// destination: a vault path that would lead out of it (a hostile index) is refused.
class FolderExport
{
public:
    // What to do with a file whose destination already exists; the two "all" answers stand for every
    // later file of the same run, which is then not asked about.
    enum class Answer
    {
        Overwrite,
        Skip,
        OverwriteAll,
        SkipAll
    };

    // How a front end takes part; every member may be left empty.
    struct Handler
    {
        // (vault path, destination file) of a file that exists on disk; without an answer, Skip.
        std::function<Answer(const QString&, const QString&)> existing;
        // A file or folder (vault path) that was not exported, and why; the export goes on.
        std::function<void(const QString&, bool isFolder, const Failure&)> failed;
        // (bytes done, bytes of every file, vault path of the file being written).
        ProgressCallback progress;
    };

    struct FailedEntry
    {
        QString vaultPath;
        bool isFolder = false;
        // The reason's path is the vault path, or the file on disk that could not be written.
        Failure failure;
    };

    struct Outcome
    {
        int files = 0;
        // Folders below the one exported, made or found on disk.
        int folders = 0;
        // Existing files kept because the answer was to skip them.
        int skipped = 0;
        // Each told to Handler::failed as it happened.
        QList<FailedEntry> failed;

        bool succeeded() const { return failed.isEmpty(); }
    };

    FolderExport(VaultSession& session, const FileTransfer& transfer);

    // Exports the contents of folder ("" is the whole vault) into destination, which is made when
    // missing (its parent must exist). False, with the session's failure, when nothing could start:
    // the vault is locked, the folder is not in it, the destination cannot be a folder. Otherwise true,
    // with the files that failed in outcome and the first of them as the session's failure.
    bool run(const QString& folder, const QString& destination, const Handler& handler, Outcome& outcome);

    // A path below the exported folder as the engine stores paths, and never one that names a drive:
    // an index that lies can hold "..", a leading "/", backslashes or "C:".
    static bool isPlainRelative(const QString& relative);

private:
    // Finds target, the file or folder on disk for relative (a path below the exported folder), making
    // the folders on its way; false with failure when it would not lie inside the destination or a
    // folder could not be made.
    bool place(const QString& vaultPath, const QString& relative, bool isFolder, QString* target,
               Failure* failure) const;
    // Whether an existing path, followed through links, still lies inside the destination.
    bool staysInside(const QString& existingPath) const;
    void exportOne(const QString& vaultPath, const QString& target, qint64 size, const Handler& handler,
                   Outcome& outcome);
    void finishFile(const QString& vaultPath, qint64 end, const Handler& handler);
    static void report(const QString& vaultPath, bool isFolder, const Failure& failure,
                       const Handler& handler, Outcome& outcome);

    VaultSession& m_session;
    const FileTransfer& m_transfer;
    QString m_root;
    QString m_canonicalRoot;
    // An "all" answer already given.
    std::optional<Answer> m_standing;
    qint64 m_done = 0;
    qint64 m_total = 0;
};

} // namespace Velmarin::Core
