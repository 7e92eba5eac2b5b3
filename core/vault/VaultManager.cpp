#include "core/vault/VaultManager.h"

#include "core/container/ContainerJournal.h"
#include "core/container/ContainerRecovery.h"
#include "core/container/FileSync.h"
#include "core/container/IndexCipher.h"
#include "core/container/PayloadStore.h"
#include "core/crypto/ProcessProtection.h"
#include "core/index/VaultPath.h"
#include "core/vault/VaultCompactor.h"
#include "core/vault/VaultVerifier.h"
#include "core/workspace/PrivateFolder.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>

namespace Velmarin::Core {

namespace {

const QString KdfName = QStringLiteral("Argon2id");
const QString CipherName = QStringLiteral("XChaCha20-Poly1305");
const QByteArray MasterKeyLabel = QByteArrayLiteral("master-key");
const QByteArray FileBlockLabel = QByteArrayLiteral("file-block");
constexpr int MinimumPasswordLength = 12;

} // namespace

VaultManager::VaultManager(const QString& workspaceRoot)
    : m_workspace(workspaceRoot)
{}

VaultManager::~VaultManager() = default;

bool VaultManager::isPasswordAcceptable(const QByteArray& password)
{
    return QString::fromUtf8(password).size() >= MinimumPasswordLength;
}

bool VaultManager::canChange() const
{
    return isUnlocked() && m_access == Access::ReadWrite;
}

bool VaultManager::crossesFile(const QString& path) const
{
    for (QString folder = parentVaultPath(path); !folder.isEmpty(); folder = parentVaultPath(folder)) {
        if (m_index.fileExists(folder)) {
            return true;
        }
    }
    return false;
}

QByteArray VaultManager::blockKey() const
{
    return m_masterKey.view(VaultCrypto::KeySize);
}

IndexCipher VaultManager::indexCipher() const
{
    return IndexCipher(m_crypto, blockKey());
}

PayloadStore VaultManager::payloadStore() const
{
    // Block associated data names only the format version, which every readable header shares.
    return PayloadStore(m_crypto, blockKey(), ContainerHeader().associatedData(FileBlockLabel));
}

SecretBytes VaultManager::derivePasswordKey(const ContainerHeader& header, const QByteArray& password) const
{
    KdfParams params;
    params.algorithm = header.crypto.kdf;
    params.salt = header.crypto.salt;
    params.iterations = header.crypto.kdfIterations;
    params.keyLength = VaultCrypto::DerivedKeySize;
    QByteArray derived = m_crypto.deriveKey(password, params);
    return SecretBytes::takeFrom(derived);
}

QByteArray VaultManager::wrapMasterKey(const ContainerHeader& header, const QByteArray& password,
                                       const QByteArray& masterKey) const
{
    const SecretBytes passwordKey = derivePasswordKey(header, password);
    if (passwordKey.isEmpty() || masterKey.isEmpty()) {
        return {};
    }
    return m_crypto.encrypt(masterKey, passwordKey.view(VaultCrypto::KeySize), header.crypto.nonce,
                            header.associatedData(MasterKeyLabel));
}

SecretBytes VaultManager::unwrapMasterKey(const ContainerHeader& header, const QByteArray& password) const
{
    const SecretBytes passwordKey = derivePasswordKey(header, password);
    if (passwordKey.isEmpty() || header.crypto.encryptedMasterKey.isEmpty()) {
        return {};
    }
    QByteArray masterKey =
        m_crypto.decrypt(header.crypto.encryptedMasterKey, passwordKey.view(VaultCrypto::KeySize),
                         header.crypto.nonce, header.associatedData(MasterKeyLabel));
    SecretBytes secret = SecretBytes::takeFrom(masterKey);
    // The first 32 bytes are the block key; anything shorter cannot be a master key of ours.
    if (secret.size() < VaultCrypto::KeySize) {
        secret.clear();
    }
    return secret;
}

bool VaultManager::createVault(const QString& containerPath, const QByteArray& password)
{
    // An open session still holds edits and a workspace: it is closed with lock, never replaced.
    if (isUnlocked() || !isPasswordAcceptable(password)) {
        return false;
    }
    ProcessProtection::disableCoreDumps();
    ContainerHeader header;
    header.crypto.kdf = KdfName;
    header.crypto.cipher = CipherName;
    header.crypto.nonce = m_crypto.randomBytes(VaultCrypto::NonceSize);
    header.crypto.salt = m_crypto.randomBytes(VaultCrypto::SaltSize);
    header.crypto.payloadNonce = m_crypto.randomBytes(VaultCrypto::NonceSize);
    m_containerPath = containerPath;
    m_index.clear();

    QByteArray randomKey = m_crypto.randomBytes(VaultCrypto::MasterKeySize);
    const SecretBytes masterKey = SecretBytes::takeFrom(randomKey);
    header.crypto.encryptedMasterKey = wrapMasterKey(header, password, masterKey.view());
    if (header.crypto.encryptedMasterKey.isEmpty()) {
        return false;
    }
    header.encryptedIndex =
        IndexCipher(m_crypto, masterKey.view(VaultCrypto::KeySize)).encryptIndex(header, VaultIndex());
    if (header.encryptedIndex.isEmpty()) {
        return false;
    }
    m_state = State::Locked;
    return m_containerFile.writeNewContainer(containerPath, header);
}

bool VaultManager::unlock(const QString& containerPath, const QByteArray& password, Access access)
{
    if (isUnlocked() || password.isEmpty()) {
        return false;
    }
    // Before the master key exists in this process.
    ProcessProtection::disableCoreDumps();
    m_recovery = Recovery::Nothing;
    // A compaction cut short may have left only its journal where the container was.
    if (access == Access::ReadWrite && !QFileInfo::exists(containerPath) &&
        recoverContainer(containerPath) == Recovery::Failed) {
        return false;
    }
    // The lock comes first: a container another session holds is refused before any password work.
    if (m_lock.acquire(containerPath) != ContainerLock::Result::Acquired) {
        return false;
    }
    const auto refuse = [this] {
        m_lock.release();
        return false;
    };
    // A read-only session writes nothing, so it opens only what reads as it stands.
    if (access == Access::ReadWrite && m_recovery == Recovery::Nothing &&
        recoverContainer(containerPath) == Recovery::Failed) {
        return refuse();
    }
    ContainerHeader header;
    if (!m_containerFile.readHeader(containerPath, header)) {
        return refuse();
    }
    SecretBytes masterKey = unwrapMasterKey(header, password);
    if (masterKey.isEmpty()) {
        return refuse();
    }
    VaultIndex index;
    if (!IndexCipher(m_crypto, masterKey.view(VaultCrypto::KeySize)).decryptIndex(header, index)) {
        return refuse();
    }
    m_masterKey = std::move(masterKey);
    m_index = std::move(index);
    m_containerPath = containerPath;
    m_state = State::Unlocked;
    m_access = access;
    if (access == Access::ReadOnly || !m_workspace.isEnabled()) {
        return true;
    }
    // Failing to take the workspace still leaves the session open; the next lock releases it.
    return m_workspace.acquire(workspaceId());
}

VaultManager::Recovery VaultManager::recover(const QString& containerPath)
{
    if (isUnlocked()) {
        return Recovery::Failed;
    }
    m_recovery = Recovery::Nothing;
    ContainerLock lock;
    if (QFileInfo::exists(containerPath) && lock.acquire(containerPath) != ContainerLock::Result::Acquired) {
        return Recovery::Failed;
    }
    return recoverContainer(containerPath);
}

bool VaultManager::hasInterruptedChange(const QString& containerPath)
{
    return ContainerRecovery::hasJournal(containerPath);
}

VaultManager::Recovery VaultManager::recoverContainer(const QString& containerPath)
{
    if (!ContainerRecovery::hasJournal(containerPath) &&
        !QFileInfo::exists(ContainerRecovery::replacementPathFor(containerPath))) {
        return Recovery::Nothing;
    }
    // The journal's own lock: while a compaction copies onto a drive that has no whole container,
    // the container's lock guards nothing.
    ContainerLock journalLock;
    if (ContainerRecovery::hasJournal(containerPath) &&
        journalLock.acquire(ContainerJournal::pathFor(containerPath)) != ContainerLock::Result::Acquired) {
        return Recovery::Failed;
    }
    const ContainerRecovery::Outcome outcome = ContainerRecovery(m_containerFile).recover(containerPath);
    switch (outcome) {
    case ContainerRecovery::Outcome::HeaderRestored:
        m_recovery = Recovery::HeaderRestored;
        break;
    case ContainerRecovery::Outcome::ContainerRestored:
        m_recovery = Recovery::ContainerRestored;
        break;
    case ContainerRecovery::Outcome::Failed:
        return Recovery::Failed;
    case ContainerRecovery::Outcome::Nothing:
        break;
    }
    return m_recovery;
}

bool VaultManager::lock()
{
    if (isUnlocked()) {
        // Edits come home first; one that cannot be stored keeps the vault open so nothing is lost.
        if (!bringBack(m_workspace.changedFiles())) {
            return false;
        }
    }
    const bool released = m_workspace.release();
    endSession();
    return released;
}

void VaultManager::endSession()
{
    m_masterKey.clear();
    m_index.clear();
    m_state = State::Locked;
    m_access = Access::ReadWrite;
    m_lock.release();
}

void VaultManager::lockKeepingEdits()
{
    m_workspace.releaseKeepingEdits();
    endSession();
}

bool VaultManager::bringBack(const QList<EditedFile>& copies)
{
    for (const EditedFile& edited : copies) {
        QFile copy;
        if (!m_workspace.openCopy(edited.vaultPath, copy) ||
            !importFile(copy, copy.size(), PrivateFolder::modified(copy), edited.vaultPath)) {
            return false;
        }
    }
    return true;
}

bool VaultManager::bringBackLeftoverEdits()
{
    return canChange() && bringBack(m_workspace.leftovers()) && m_workspace.discardLeftovers();
}

bool VaultManager::discardLeftoverEdits()
{
    return m_workspace.discardLeftovers();
}

QString VaultManager::workspaceId() const
{
    const QByteArray digest =
        m_crypto.hmacSha256(m_masterKey.view(), QByteArrayLiteral("velmarin-workspace"));
    return QString::fromLatin1(digest.left(16).toHex());
}

bool VaultManager::changePassword(const QString& containerPath, const QByteArray& currentPassword,
                                  const QByteArray& newPassword)
{
    if (isUnlocked() || currentPassword.isEmpty() || !isPasswordAcceptable(newPassword)) {
        return false;
    }
    ProcessProtection::disableCoreDumps();
    // The wrapped master key shares the header with the index a session may be rewriting.
    ContainerLock lock;
    if (lock.acquire(containerPath) != ContainerLock::Result::Acquired) {
        return false;
    }
    m_recovery = Recovery::Nothing;
    ContainerHeader header;
    if (recoverContainer(containerPath) == Recovery::Failed ||
        !m_containerFile.readHeader(containerPath, header)) {
        return false;
    }
    const SecretBytes masterKey = unwrapMasterKey(header, currentPassword);
    if (masterKey.isEmpty()) {
        return false;
    }
    // Only the wrapping changes: the index's associated data has neither salt, nonce nor KDF name.
    header.crypto.kdf = KdfName;
    header.crypto.cipher = CipherName;
    header.crypto.nonce = m_crypto.randomBytes(VaultCrypto::NonceSize);
    header.crypto.salt = m_crypto.randomBytes(VaultCrypto::SaltSize);
    header.crypto.encryptedMasterKey = wrapMasterKey(header, newPassword, masterKey.view());
    if (header.crypto.encryptedMasterKey.isEmpty()) {
        return false;
    }
    return m_containerFile.rewriteHeader(containerPath, header);
}

bool VaultManager::saveIndex(const VaultIndex& newIndex)
{
    ContainerHeader header;
    return readCurrentHeader(header) && saveIndex(header, newIndex);
}

bool VaultManager::readCurrentHeader(ContainerHeader& header)
{
    if (m_containerFile.readHeader(m_containerPath, header)) {
        return true;
    }
    // An earlier change of this session may have been cut off by the drive half-way through its
    // header; this session holds the lock, so it can put the old header back itself.
    return recoverContainer(m_containerPath) != Recovery::Failed &&
           m_containerFile.readHeader(m_containerPath, header);
}

bool VaultManager::saveIndex(ContainerHeader& header, const VaultIndex& newIndex, bool* oldHeaderKept)
{
    if (oldHeaderKept != nullptr) {
        *oldHeaderKept = true;
    }
    if (!indexCipher().sealInto(header, newIndex) ||
        !m_containerFile.rewriteHeader(m_containerPath, header, oldHeaderKept)) {
        return false;
    }
    m_index = newIndex;
    return true;
}

bool VaultManager::importFile(const QString& sourcePath, const QString& vaultPath,
                              const ProgressCallback& progress)
{
    const QFileInfo sourceInfo(sourcePath);
    if (!sourceInfo.exists() || !sourceInfo.isFile()) {
        return false;
    }
    QFile source(sourcePath);
    return canChange() && source.open(QIODevice::ReadOnly) &&
           importFile(source, sourceInfo.size(), sourceInfo.lastModified().toUTC(), vaultPath, progress);
}

bool VaultManager::importFile(QFile& source, qint64 size, const QDateTime& modifiedUtc,
                              const QString& vaultPath, const ProgressCallback& progress)
{
    if (!canChange()) {
        return false;
    }
    const QString target = normalizeVaultPath(vaultPath);
    if (target.isEmpty() || crossesFile(target) || m_index.directoryExists(target)) {
        return false;
    }
    ContainerHeader header;
    if (!readCurrentHeader(header)) {
        return false;
    }

    // Importing over a file in any letter case replaces it; its blocks become dead space.
    VaultIndex newIndex;
    for (const DirectoryEntry& directory : m_index.directories()) {
        newIndex.upsertDirectory(directory);
    }
    newIndex.ensureParentDirectories(target);
    for (const FileEntry& file : m_index.files()) {
        if (!isSameVaultPath(file.vaultPath, target)) {
            newIndex.upsertFile(file);
        }
    }
    FileEntry entry;
    entry.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    entry.vaultPath = target;
    entry.sizeBytes = size;
    entry.lastModifiedUtc = modifiedUtc;

    // Unbuffered, so that a failed write leaves nothing pending that would block the truncation.
    QFile container(m_containerPath);
    if (!container.open(QIODevice::ReadWrite | QIODevice::Unbuffered)) {
        return false;
    }
    const qint64 rollbackSize = container.size();
    const PayloadStore store = payloadStore();
    // The blocks are on the device before the header that refers to them is written.
    const bool appended = container.seek(rollbackSize) &&
                          store.appendBlocks(source, container, entry.sizeBytes, target, progress, entry) &&
                          FileSync::flushToDevice(container);
    container.close();
    bool oldHeaderKept = true;
    if (!appended || !newIndex.upsertFile(entry) || !saveIndex(header, newIndex, &oldHeaderKept)) {
        // A header that may refer to the new blocks keeps them; they are dead space at worst.
        if (oldHeaderKept) {
            truncateContainer(container, m_containerPath, rollbackSize);
        }
        return false;
    }
    return true;
}

void VaultManager::truncateContainer(QFile& container, const QString& path, qint64 size)
{
    if (!container.isOpen()) {
        container.setFileName(path);
        if (!container.open(QIODevice::ReadWrite | QIODevice::Unbuffered)) {
            return;
        }
    }
    container.resize(size);
    FileSync::flushToDevice(container);
    container.close();
}

bool VaultManager::exportFile(const QString& vaultPath, QIODevice* destination)
{
    if (destination == nullptr || !isUnlocked()) {
        return false;
    }
    const FileEntry* entry = m_index.findFile(normalizeVaultPath(vaultPath));
    if (entry == nullptr) {
        return false;
    }
    QFile container(m_containerPath);
    if (!container.open(QIODevice::ReadOnly)) {
        return false;
    }
    return payloadStore().exportBlocks(container, *entry, *destination);
}

bool VaultManager::exportFile(const QString& vaultPath, const QString& destinationPath)
{
    const QString source = normalizeVaultPath(vaultPath);
    if (source.isEmpty() || !isUnlocked()) {
        return false;
    }
    QFile destination(destinationPath);
    if (!destination.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    return exportFile(source, &destination) && destination.flush();
}

bool VaultManager::createFolder(const QString& path)
{
    const QString folder = normalizeVaultPath(path);
    if (!canChange() || folder.isEmpty() || m_index.fileExists(folder) || m_index.directoryExists(folder) ||
        crossesFile(folder)) {
        return false;
    }
    VaultIndex newIndex = m_index;
    newIndex.ensureParentDirectories(folder);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    newIndex.upsertDirectory(DirectoryEntry{folder, now, now});
    return saveIndex(newIndex);
}

bool VaultManager::deleteEmptyFolder(const QString& path)
{
    const QString folder = normalizeVaultPath(path);
    if (!canChange() || folder.isEmpty()) {
        return false;
    }
    const DirectoryEntry* stored = m_index.findDirectory(folder);
    if (stored == nullptr || m_index.hasEntriesBelow(folder)) {
        return false;
    }
    VaultIndex newIndex = m_index;
    return newIndex.removeDirectory(stored->path) && saveIndex(newIndex);
}

bool VaultManager::deleteFile(const QString& path)
{
    const QString file = normalizeVaultPath(path);
    if (!canChange() || file.isEmpty()) {
        return false;
    }
    const FileEntry* stored = m_index.findFile(file);
    if (stored == nullptr) {
        return false;
    }
    VaultIndex newIndex = m_index;
    return newIndex.removeFile(stored->vaultPath) && saveIndex(newIndex);
}

bool VaultManager::moveFile(const QString& path, const QString& destinationFolder)
{
    const QString oldPath = normalizeVaultPath(path);
    const QString folder = normalizeVaultPath(destinationFolder);
    if (!canChange() || oldPath.isEmpty() || !m_index.fileExists(oldPath)) {
        return false;
    }
    if (!folder.isEmpty() && !m_index.directoryExists(folder)) {
        return false;
    }
    // A move never replaces anything, and moving into the folder that holds the file is no move.
    const QString newPath = joinVaultPath(folder, vaultFileName(oldPath));
    if (newPath.isEmpty() || isSameVaultPath(newPath, oldPath) || m_index.fileExists(newPath) ||
        m_index.directoryExists(newPath) || m_workspace.isOpen(oldPath)) {
        return false;
    }
    return saveIndex(withFileRenamed(oldPath, newPath));
}

bool VaultManager::renameFile(const QString& oldPath, const QString& newPath)
{
    const QString from = normalizeVaultPath(oldPath);
    const QString to = normalizeVaultPath(newPath);
    // A change of letter case alone is refused: existence tests could not tell the two apart.
    if (!canChange() || from.isEmpty() || to.isEmpty() || isSameVaultPath(from, to)) {
        return false;
    }
    if (!m_index.fileExists(from) || m_index.fileExists(to) || m_index.directoryExists(to) ||
        m_workspace.isOpen(from)) {
        return false;
    }
    return saveIndex(withFileRenamed(from, to));
}

VaultIndex VaultManager::withFileRenamed(const QString& oldPath, const QString& newPath) const
{
    VaultIndex newIndex;
    for (const DirectoryEntry& directory : m_index.directories()) {
        newIndex.upsertDirectory(directory);
    }
    bool renamed = false;
    for (FileEntry file : m_index.files()) {
        if (!renamed && isSameVaultPath(file.vaultPath, oldPath)) {
            file.vaultPath = newPath;
            renamed = true;
        }
        newIndex.upsertFile(file);
    }
    return newIndex;
}

bool VaultManager::renameFolder(const QString& oldPath, const QString& newPath)
{
    const QString from = normalizeVaultPath(oldPath);
    const QString to = normalizeVaultPath(newPath);
    if (!canChange() || from.isEmpty() || to.isEmpty() || isSameVaultPath(from, to) || liesBelow(to, from)) {
        return false;
    }
    if (!m_index.directoryExists(from) || m_index.directoryExists(to) || m_index.fileExists(to) ||
        crossesFile(to) || m_workspace.holdsOpenFile(from)) {
        return false;
    }
    // The new index starts with the ancestors the new place still lacks.
    VaultIndex withAncestors = m_index;
    withAncestors.ensureParentDirectories(to);
    VaultIndex newIndex;
    for (qsizetype i = m_index.directories().size(); i < withAncestors.directories().size(); ++i) {
        newIndex.upsertDirectory(withAncestors.directories().at(i));
    }
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const auto moved = [&](const QString& path) {
        return isSameVaultPath(path, from) ? to : to + path.mid(from.size());
    };
    for (DirectoryEntry directory : m_index.directories()) {
        if (isSameVaultPath(directory.path, from) || liesBelow(directory.path, from)) {
            directory.path = moved(directory.path);
            directory.modifiedUtc = now;
        }
        newIndex.upsertDirectory(directory);
    }
    for (FileEntry file : m_index.files()) {
        if (liesBelow(file.vaultPath, from)) {
            file.vaultPath = moved(file.vaultPath);
        }
        newIndex.upsertFile(file);
    }
    return saveIndex(newIndex);
}

bool VaultManager::fileExists(const QString& path) const
{
    const QString normalized = normalizeVaultPath(path);
    return !normalized.isEmpty() && m_index.fileExists(normalized);
}

bool VaultManager::directoryExists(const QString& path) const
{
    const QString normalized = normalizeVaultPath(path);
    return !normalized.isEmpty() && m_index.directoryExists(normalized);
}

bool VaultManager::isOpenForEdit(const QString& vaultPath) const
{
    return m_workspace.isOpen(normalizeVaultPath(vaultPath));
}

bool VaultManager::openForEdit(const QString& vaultPath, QString* localPath)
{
    if (!canChange() || localPath == nullptr || !m_workspace.isAcquired()) {
        return false;
    }
    const QString path = normalizeVaultPath(vaultPath);
    const FileEntry* stored = m_index.findFile(path);
    if (path.isEmpty() || stored == nullptr) {
        return false;
    }
    // The copy goes under the name the vault keeps, so it comes back to the same entry.
    const QString storedPath = stored->vaultPath;
    QFile copy;
    QString local;
    if (!m_workspace.createCopy(storedPath, copy, &local)) {
        return false;
    }
    const bool exported = exportFile(storedPath, &copy) && copy.flush();
    if (!exported || !m_workspace.record(storedPath, copy)) {
        return false;
    }
    *localPath = local;
    return true;
}

bool VaultManager::compactVault(const ProgressCallback& progress, QString* preservedPath)
{
    if (preservedPath != nullptr) {
        preservedPath->clear();
    }
    if (!canChange() || m_containerPath.isEmpty()) {
        return false;
    }
    const IndexCipher cipher = indexCipher();
    const VaultCompactor compactor(m_containerFile, cipher);
    VaultIndex compacted;
    if (!ContainerLock::SurvivesReplacement) {
        m_lock.release();
    }
    const bool done = compactor.compact(m_containerPath, m_index, progress, preservedPath, compacted);
    // The container may be a new file now; the lock goes onto whatever holds the vault.
    m_lock.acquire(m_containerPath);
    if (!done) {
        return false;
    }
    m_index = std::move(compacted);
    return true;
}

bool VaultManager::verifyContents(VerificationReport& report, const ProgressCallback& progress) const
{
    report = VerificationReport();
    ContainerHeader header;
    if (!isUnlocked() || !m_containerFile.readHeader(m_containerPath, header)) {
        return false;
    }
    const PayloadStore store = payloadStore();
    return VaultVerifier(store).verify(m_containerPath, header.payloadOffset, m_index, progress, report);
}

} // namespace Velmarin::Core
