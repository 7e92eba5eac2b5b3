#pragma once

#include "core/container/ContainerHeader.h"
#include "core/crypto/VaultCrypto.h"
#include "core/index/VaultIndex.h"

#include <QByteArray>
#include <QDateTime>
#include <QFile>
#include <QString>

namespace Velmarin::Tests {

// Opens a locked container's index with its password, past the engine, so tests and benchmarks can
// write vaults the engine would take too long to build (thousands of files) or would never write
// (an authentic index that lies about its blocks).
class LockedVaultEditor
{
public:
    LockedVaultEditor() = default;
    ~LockedVaultEditor();
    LockedVaultEditor(const LockedVaultEditor&) = delete;
    LockedVaultEditor& operator=(const LockedVaultEditor&) = delete;

    bool open(const QString& container, const QByteArray& password);
    Core::VaultIndex& index() { return m_index; }
    const QByteArray& masterKey() const { return m_masterKey; }

    // Seals contents as blocks at the container's end and adds a file entry for them.
    bool appendFile(const QString& vaultPath, const QByteArray& contents, const QDateTime& modifiedUtc);
    // Writes index() into the header the way the engine does.
    bool save();
    // The header JSON index would make, as the engine would write it; empty on failure.
    QByteArray headerJsonFor(const Core::VaultIndex& index) const;

private:
    QByteArray blockKey() const { return m_masterKey.left(Core::VaultCrypto::KeySize); }

    Core::VaultCrypto m_crypto;
    QString m_path;
    QFile m_container;
    Core::ContainerHeader m_header;
    QByteArray m_masterKey;
    Core::VaultIndex m_index;
};

} // namespace Velmarin::Tests
