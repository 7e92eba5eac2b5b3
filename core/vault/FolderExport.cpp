#include "core/vault/FolderExport.h"

#include "core/index/VaultIndex.h"
#include "core/index/VaultPath.h"
#include "core/vault/FileTransfer.h"
#include "core/vault/VaultSession.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>

#include <algorithm>

namespace Velmarin::Core {

namespace {

#ifdef Q_OS_WIN
constexpr Qt::CaseSensitivity FileNameCase = Qt::CaseInsensitive;
#else
constexpr Qt::CaseSensitivity FileNameCase = Qt::CaseSensitive;
#endif

Failure failureOf(Failure::Reason reason, const QString& path, const QString& systemError = QString())
{
    Failure failure;
    failure.reason = reason;
    failure.path = path;
    failure.systemError = systemError;
    return failure;
}

} // namespace

bool FolderExport::isPlainRelative(const QString& relative)
{
    if (relative.isEmpty() || normalizeVaultPath(relative) != relative) {
        return false;
    }
    static const QRegularExpression drive(QStringLiteral("^[A-Za-z]:"));
    if (drive.match(relative).hasMatch()) {
        return false;
    }
#ifdef Q_OS_WIN
    // A colon anywhere else names a stream of the file before it.
    if (relative.contains(QLatin1Char(':'))) {
        return false;
    }
#endif
    return true;
}

FolderExport::FolderExport(VaultSession& session, const FileTransfer& transfer)
    : m_session(session)
    , m_transfer(transfer)
{}

bool FolderExport::run(const QString& folder, const QString& destination, const Handler& handler,
                       Outcome& outcome)
{
    outcome = Outcome();
    if (!m_session.isOpen()) {
        return m_session.fail(Failure::Reason::NotUnlocked);
    }
    QString source = normalizeVaultPath(folder);
    QString typed = folder;
    typed.remove(QLatin1Char('/')).remove(QLatin1Char('\\'));
    const VaultIndex& index = m_session.index();
    if (!source.isEmpty()) {
        const DirectoryEntry* entry = index.findDirectory(source);
        if (entry == nullptr) {
            return m_session.fail(Failure::Reason::NotFound, folder);
        }
        source = entry->path;
    } else if (!typed.trimmed().isEmpty()) {
        // ".." and the like name no folder, and never the root.
        return m_session.fail(Failure::Reason::NotFound, folder);
    }

    const QFileInfo info(destination);
    m_root = QDir::cleanPath(info.absoluteFilePath());
    if (info.exists() ? !info.isDir() : !QDir().mkdir(m_root)) {
        return m_session.fail(Failure::Reason::DestinationUnwritable, destination);
    }
    m_canonicalRoot = QFileInfo(m_root).canonicalFilePath();
    if (m_canonicalRoot.isEmpty()) {
        return m_session.fail(Failure::Reason::DestinationUnwritable, destination);
    }

    QList<const DirectoryEntry*> folders;
    for (const DirectoryEntry& entry : index.directories()) {
        if (liesBelow(entry.path, source)) {
            folders.append(&entry);
        }
    }
    QList<const FileEntry*> files;
    m_done = 0;
    m_total = 0;
    for (const FileEntry& entry : index.files()) {
        if (liesBelow(entry.vaultPath, source)) {
            files.append(&entry);
            m_total += std::max<qint64>(entry.sizeBytes, 0);
        }
    }
    std::sort(folders.begin(), folders.end(),
              [](const DirectoryEntry* a, const DirectoryEntry* b) { return a->path < b->path; });
    std::sort(files.begin(), files.end(),
              [](const FileEntry* a, const FileEntry* b) { return a->vaultPath < b->vaultPath; });

    const qsizetype prefix = source.isEmpty() ? 0 : source.size() + 1;
    m_standing.reset();
    for (const DirectoryEntry* entry : folders) {
        QString target;
        Failure failure;
        if (place(entry->path, entry->path.mid(prefix), true, &target, &failure)) {
            ++outcome.folders;
        } else {
            report(entry->path, true, failure, handler, outcome);
        }
    }
    for (const FileEntry* entry : files) {
        QString target;
        Failure failure;
        if (place(entry->vaultPath, entry->vaultPath.mid(prefix), false, &target, &failure)) {
            exportOne(entry->vaultPath, target, std::max<qint64>(entry->sizeBytes, 0), handler, outcome);
        } else {
            finishFile(entry->vaultPath, m_done + std::max<qint64>(entry->sizeBytes, 0), handler);
            report(entry->vaultPath, false, failure, handler, outcome);
        }
    }

    m_session.clearFailure();
    if (!outcome.failed.isEmpty()) {
        const Failure& first = outcome.failed.constFirst().failure;
        m_session.fail(first.reason, first.path, first.systemError);
    }
    return true;
}

bool FolderExport::place(const QString& vaultPath, const QString& relative, bool isFolder, QString* target,
                         Failure* failure) const
{
    const QString joined = QDir::cleanPath(m_root + QLatin1Char('/') + relative);
    const QString rootPrefix = m_root.endsWith(QLatin1Char('/')) ? m_root : m_root + QLatin1Char('/');
    if (!isPlainRelative(relative) || !joined.startsWith(rootPrefix, FileNameCase)) {
        *failure = failureOf(Failure::Reason::NameNotAllowed, vaultPath);
        return false;
    }
    const QStringList segments = relative.split(QLatin1Char('/'));
    const qsizetype folderSegments = isFolder ? segments.size() : segments.size() - 1;
    QString current = m_root;
    for (qsizetype i = 0; i < folderSegments; ++i) {
        current += QLatin1Char('/') + segments.at(i);
        const QFileInfo info(current);
        if (!info.exists() && !info.isSymLink() && !QDir().mkdir(current)) {
            *failure = failureOf(Failure::Reason::DestinationUnwritable, current);
            return false;
        }
        // Checked on the disk as it is, so a link already there cannot lead the export elsewhere.
        if (!staysInside(current)) {
            *failure = failureOf(Failure::Reason::NameNotAllowed, vaultPath);
            return false;
        }
        if (!QFileInfo(current).isDir()) {
            *failure = failureOf(Failure::Reason::DestinationUnwritable, current);
            return false;
        }
    }
    if (!isFolder) {
        current += QLatin1Char('/') + segments.constLast();
        const QFileInfo info(current);
        if ((info.exists() || info.isSymLink()) && !staysInside(current)) {
            *failure = failureOf(Failure::Reason::NameNotAllowed, vaultPath);
            return false;
        }
    }
    *target = current;
    return true;
}

bool FolderExport::staysInside(const QString& existingPath) const
{
    const QString canonical = QFileInfo(existingPath).canonicalFilePath();
    if (canonical.isEmpty()) {
        return false;
    }
    const QString rootPrefix =
        m_canonicalRoot.endsWith(QLatin1Char('/')) ? m_canonicalRoot : m_canonicalRoot + QLatin1Char('/');
    return canonical.compare(m_canonicalRoot, FileNameCase) == 0 ||
           canonical.startsWith(rootPrefix, FileNameCase);
}

void FolderExport::exportOne(const QString& vaultPath, const QString& target, qint64 size,
                             const Handler& handler, Outcome& outcome)
{
    const qint64 end = m_done + size;
    const QFileInfo info(target);
    if (info.isDir()) {
        finishFile(vaultPath, end, handler);
        report(vaultPath, false, failureOf(Failure::Reason::DestinationUnwritable, target), handler, outcome);
        return;
    }
    if (info.exists()) {
        Answer answer = Answer::Skip;
        if (m_standing) {
            answer = *m_standing;
        } else if (handler.existing) {
            answer = handler.existing(vaultPath, target);
        }
        if (answer == Answer::OverwriteAll || answer == Answer::SkipAll) {
            m_standing = answer;
        }
        if (answer == Answer::Skip || answer == Answer::SkipAll) {
            ++outcome.skipped;
            finishFile(vaultPath, end, handler);
            return;
        }
    }

    // Written beside the target and renamed at the end: a failure leaves no half file behind and
    // keeps the one an overwrite was to replace.
    QSaveFile file(target);
    const auto systemError = [&file] {
        return file.error() != QFileDevice::NoError ? file.errorString() : QString();
    };
    if (!file.open(QIODevice::WriteOnly)) {
        finishFile(vaultPath, end, handler);
        report(vaultPath, false, failureOf(Failure::Reason::DestinationUnwritable, target, systemError()),
               handler, outcome);
        return;
    }
    // The file itself goes to the export, so its writes reach the drive as they are made.
    const qint64 start = m_done;
    const ProgressCallback perFile = [&](qint64 written, qint64, const QString&) {
        m_done = start + written;
        if (handler.progress) {
            handler.progress(m_done, m_total, vaultPath);
        }
    };
    Failure failure;
    if (!m_transfer.exportFile(vaultPath, &file, perFile)) {
        failure = m_session.failure();
        if (failure.reason == Failure::Reason::DestinationUnwritable && failure.systemError.isEmpty()) {
            failure.systemError = systemError();
        }
    } else if (!file.flush() || !file.commit()) {
        // Flushed first: commit lets a failed flush of the buffer pass and puts a short copy in place.
        failure = failureOf(Failure::Reason::DestinationUnwritable, target, systemError());
    }
    if (failure.reason != Failure::Reason::None) {
        file.cancelWriting();
    }
    finishFile(vaultPath, end, handler);
    if (failure.reason != Failure::Reason::None) {
        report(vaultPath, false, failure, handler, outcome);
        return;
    }
    ++outcome.files;
}

void FolderExport::finishFile(const QString& vaultPath, qint64 end, const Handler& handler)
{
    // A skipped or failed file counts as done, so the bar still ends full.
    m_done = end;
    if (handler.progress) {
        handler.progress(m_done, m_total, vaultPath);
    }
}

void FolderExport::report(const QString& vaultPath, bool isFolder, const Failure& failure,
                          const Handler& handler, Outcome& outcome)
{
    outcome.failed.append(FailedEntry{vaultPath, isFolder, failure});
    if (handler.failed) {
        handler.failed(vaultPath, isFolder, failure);
    }
}

} // namespace Velmarin::Core
