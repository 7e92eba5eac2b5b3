#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

namespace Velmarin::Tests {

// What a vault holds, as a user would check it: every folder, and every file with its digest, and
// the password that opened it.
struct VaultState
{
    QStringList folders;
    QMap<QString, QByteArray> files;
    QByteArray password;

    bool operator==(const VaultState& other) const
    {
        return folders == other.folders && files == other.files;
    }

    // Reads the container with the first of passwords that opens it, exporting every file.
    static bool read(const QString& container, const QList<QByteArray>& passwords, VaultState& state);

    // Whether this is what a batch leaves at one of its checkpoints: the state before with the
    // batch's first files (in order, by vault path) as they are after, each whole, and folders of
    // either state.
    bool isCheckpointBetween(const VaultState& before, const VaultState& after,
                             const QStringList& order) const;
};

} // namespace Velmarin::Tests
