#include "VaultState.h"

#include "core/crypto/Sha256.h"
#include "core/vault/VaultManager.h"

#include <QBuffer>

namespace Velmarin::Tests {

bool VaultState::read(const QString& container, const QList<QByteArray>& passwords, VaultState& state)
{
    for (const QByteArray& password : passwords) {
        Core::VaultManager vault;
        if (!vault.unlock(container, password, Core::VaultManager::Access::ReadOnly)) {
            continue;
        }
        state = VaultState();
        state.password = password;
        for (const Core::DirectoryEntry& folder : vault.index().directories()) {
            state.folders << folder.path;
        }
        state.folders.sort();
        for (const Core::FileEntry& file : vault.index().files()) {
            QByteArray bytes;
            QBuffer buffer(&bytes);
            if (!buffer.open(QIODevice::WriteOnly) || !vault.exportFile(file.vaultPath, &buffer)) {
                return false;
            }
            state.files.insert(file.vaultPath, Core::Sha256::hash(bytes).toHex());
        }
        return vault.lock();
    }
    return false;
}

bool VaultState::isCheckpointBetween(const VaultState& before, const VaultState& after,
                                     const QStringList& order) const
{
    if (password != before.password) {
        return false;
    }
    for (qsizetype done = 0; done <= order.size(); ++done) {
        VaultState expected = before;
        for (const QString& vaultPath : order.mid(0, done)) {
            expected.files.insert(vaultPath, after.files.value(vaultPath));
        }
        if (files != expected.files) {
            continue;
        }
        for (const QString& folder : folders) {
            if (!before.folders.contains(folder) && !after.folders.contains(folder)) {
                return false;
            }
        }
        // A batch only adds folders: every one from before is still there.
        for (const QString& folder : before.folders) {
            if (!folders.contains(folder)) {
                return false;
            }
        }
        return true;
    }
    return false;
}

} // namespace Velmarin::Tests
