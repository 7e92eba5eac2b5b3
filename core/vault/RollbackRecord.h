#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace Velmarin::Core {

// What this computer last saw of each container it opened: the digests of the indexes it read or
// wrote there, newest last, one file per container identity in a folder only this user can reach.
// An unlock that meets an index seen here before, but not the newest, found a container put back
// to an earlier state: an old copy written over it, deleted files back and new ones gone.
// Only digests keyed by the master key are kept: nothing names a file, and without the key nothing
// ties the record to a drive. An empty root keeps no record, so nothing is ever found earlier.
class RollbackRecord
{
public:
    enum class Verdict
    {
        // Never seen here: a first unlock on this computer, or a change made elsewhere.
        New,
        Latest,
        Earlier
    };

    // How many digests are kept per container, newest last.
    static constexpr int MaxStates = 64;

    explicit RollbackRecord(const QString& root = QString());
    // The per-user folder the window and velmarin-cli share.
    static QString defaultRoot();

    bool isEnabled() const { return !m_root.isEmpty(); }
    Verdict check(const QString& id, const QByteArray& digest) const;
    // Records digest as the newest state of id. False when the record could not be written.
    bool remember(const QString& id, const QByteArray& digest) const;
    // For a re-key, which gives the vault a new identity: the history moves to newId, and every
    // state of oldId, which only copies from before the re-key still open, reads as earlier.
    bool carryOver(const QString& oldId, const QString& newId) const;

private:
    // The digests of id, oldest first; the line Superseded stands for a state newer than any.
    QList<QByteArray> states(const QString& id) const;
    bool write(const QString& id, const QList<QByteArray>& states) const;

    QString m_root;
};

} // namespace Velmarin::Core
