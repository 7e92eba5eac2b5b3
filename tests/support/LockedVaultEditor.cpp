#include "LockedVaultEditor.h"

#include "core/container/ContainerFile.h"
#include "core/container/IndexCipher.h"
#include "core/container/PayloadStore.h"

#include <QBuffer>
#include <QUuid>

namespace Velmarin::Tests {

using namespace Core;

LockedVaultEditor::~LockedVaultEditor()
{
    VaultCrypto::wipe(m_masterKey);
}

bool LockedVaultEditor::open(const QString& container, const QByteArray& password)
{
    m_path = container;
    if (!ContainerFile().readHeader(container, m_header)) {
        return false;
    }
    QByteArray passwordKey =
        m_crypto.deriveKey(password, KdfParams{m_header.crypto.kdf, m_header.crypto.salt,
                                               m_header.crypto.kdfIterations, VaultCrypto::DerivedKeySize});
    m_masterKey = m_crypto.decrypt(m_header.crypto.encryptedMasterKey, passwordKey.left(VaultCrypto::KeySize),
                                   m_header.crypto.nonce, m_header.associatedData("master-key"));
    VaultCrypto::wipe(passwordKey);
    m_container.setFileName(container);
    return m_masterKey.size() == VaultCrypto::MasterKeySize &&
           IndexCipher(m_crypto, blockKey()).decryptIndex(m_header, m_index) &&
           m_container.open(QIODevice::ReadWrite);
}

bool LockedVaultEditor::appendFile(const QString& vaultPath, const QByteArray& contents,
                                   const QDateTime& modifiedUtc)
{
    QByteArray copy = contents;
    QBuffer source(&copy);
    source.open(QIODevice::ReadOnly);
    const PayloadStore store(m_crypto, blockKey(), ContainerHeader().associatedData("file-block"));
    FileEntry entry;
    entry.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    entry.vaultPath = vaultPath;
    entry.lastModifiedUtc = modifiedUtc;
    if (!m_container.seek(m_container.size()) ||
        !store.appendBlocks(source, m_container, contents.size(), vaultPath, {}, entry) ||
        !m_container.flush()) {
        return false;
    }
    m_index.ensureParentDirectories(vaultPath);
    return m_index.upsertFile(entry);
}

bool LockedVaultEditor::save()
{
    return m_container.flush() && IndexCipher(m_crypto, blockKey()).sealInto(m_header, m_index) &&
           ContainerFile().rewriteHeader(m_path, m_header);
}

QByteArray LockedVaultEditor::headerJsonFor(const VaultIndex& index) const
{
    ContainerHeader header = m_header;
    if (!IndexCipher(m_crypto, blockKey()).sealInto(header, index)) {
        return {};
    }
    return ContainerFile().serializeHeader(header);
}

} // namespace Velmarin::Tests
