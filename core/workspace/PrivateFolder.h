#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <utility>

class QByteArray;
class QFile;

namespace Velmarin::Core {

// A folder only the current user can reach, held open from the moment it was checked: whatever is
// done to its path afterwards (a rename, a link put in its place) cannot redirect what is written,
// read or removed through it. Nothing below it is ever reached through a link: a link found inside
// is removed as a link, never followed.
class PrivateFolder
{
public:
    enum class Problem
    {
        None,
        // It, or a folder above it, belongs to another user, is open to others, or is a link.
        NotPrivate,
        // It could not be created or opened.
        Unavailable
    };

    PrivateFolder() = default;
    ~PrivateFolder() { close(); }
    PrivateFolder(PrivateFolder&& other) noexcept
        : m_handle(std::exchange(other.m_handle, -1))
        , m_lockHandle(std::exchange(other.m_lockHandle, -1))
        , m_path(std::move(other.m_path))
    {}
    PrivateFolder& operator=(PrivateFolder&& other) noexcept
    {
        if (this != &other) {
            close();
            m_handle = std::exchange(other.m_handle, -1);
            m_lockHandle = std::exchange(other.m_lockHandle, -1);
            m_path = std::move(other.m_path);
        }
        return *this;
    }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    // Opens path, made owner-only when missing. It must be this user's, owner-only and no link, and
    // every folder above it must belong to this user or the system and be closed to others (a
    // shared folder such as /tmp only with its sticky bit, so nobody can rename what is ours).
    static PrivateFolder open(const QString& path, Problem* problem);
    // A folder inside this one, made owner-only when missing (unless create is false). Being inside
    // a private folder, it can only be this user's: rights left too open are put back to owner-only.
    PrivateFolder child(const QString& name, Problem* problem, bool create = true) const;

    bool isOpen() const { return m_handle != -1; }
    // Lets go of the folder and of the lock taken in it; the platform's own part.
    void close();
    QString path() const { return m_path; }
    // Whether path() still names this very folder.
    bool isStillAtItsPath() const;

    // Creates relativePath anew for writing, owner-only, making its folders as needed; a file
    // already there is removed first, so a file someone else prepared is never written into.
    bool createFile(const QString& relativePath, QFile& file) const;
    // Opens an existing regular file for reading.
    bool openFile(const QString& relativePath, QFile& file) const;
    // Replaces name with contents in one step, synced, so a crash leaves the old or the new file.
    bool writeFile(const QString& name, const QByteArray& contents) const;
    // Takes an exclusive lock on name (created when missing) for as long as this folder is open.
    bool lock(const QString& name);
    // Whether some process holds the lock on name in this folder.
    bool isLocked(const QString& name) const;

    QStringList entries() const;
    // Removes relativePath and, for a folder, everything in it. The bytes of this user's files are
    // overwritten on the device before they are unlinked, so no plaintext stays behind.
    bool remove(const QString& relativePath) const;
    // Removes everything inside, the same way.
    bool removeAll() const;
    // The same, but for the relative paths in keep and the folders that lead to them.
    bool removeAllBut(const QStringList& keep) const;
    // Renames an entry of this folder; a link is renamed as a link.
    bool rename(const QString& from, const QString& to) const;

    // The last modification time of an open file, in UTC.
    static QDateTime modified(const QFile& file);

private:
    PrivateFolder(qintptr handle, const QString& path)
        : m_handle(handle)
        , m_path(path)
    {}
    // Opens the folder holding the last segment of relativePath, making missing folders when asked.
    PrivateFolder parentOf(const QString& relativePath, bool create, QString* name) const;

    // A descriptor on POSIX, a handle on Windows; -1 when closed.
    qintptr m_handle = -1;
    qintptr m_lockHandle = -1;
    QString m_path;
};

} // namespace Velmarin::Core
