#pragma once

#include "core/vault/Failure.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

namespace Velmarin::Tests {

// What a container holds, checked from outside any session: whether a password opens it, and whether
// it holds exactly the files and folders a test put in, each exporting byte for byte.
class VaultContents
{
public:
    // Read-only, so nothing beside the container changes; failure, when given, tells why it did not open.
    static bool opens(const QString& containerPath, const QByteArray& password,
                      Core::Failure* failure = nullptr);
    // Empty when the vault's files are exactly sources' keys, each exporting the bytes of the file its
    // value names, every folder is there and verification finds nothing; otherwise what differs.
    // scratch is a file path the exports may use.
    static QString mismatch(const QString& containerPath, const QByteArray& password,
                            const QMap<QString, QString>& sources, const QStringList& folders,
                            const QString& scratch);
};

} // namespace Velmarin::Tests
