// Unlocking a mutated container with its right password, then reading back everything its index
// names: every block read must be checked before it is trusted, every size before it is allocated.
#include "FuzzContainer.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"
#include "core/vault/VaultManager.h"
#include "core/vault/VerificationReport.h"

#include <QBuffer>
#include <QTemporaryDir>

#include <cstdlib>

using namespace Velmarin;

namespace {
// Mutations that only make the key derivation slow (Argon2id, millions of PBKDF2 rounds) test
// nothing after it; they are left out so each run stays fast.
bool isQuickToUnlock(const Core::ContainerHeader& header)
{
    return header.crypto.kdf != QLatin1String("Argon2id") && header.crypto.kdfIterations <= 64;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QTemporaryDir scratch;
    static const QString path = scratch.filePath(QStringLiteral("velmarin.vltx"));
    if (!Tests::FuzzContainer::write(path, data, size)) {
        std::abort();
    }
    Core::ContainerHeader header;
    if (Core::ContainerFile().readHeader(path, header) && !isQuickToUnlock(header)) {
        return 0;
    }
    Core::VaultManager vault(scratch.path());
    if (!vault.unlock(path, Tests::FuzzContainer::Password, Core::VaultManager::Access::ReadOnly)) {
        return 0;
    }
    Core::VerificationReport report;
    (void)vault.verifyContents(report);
    const auto files = vault.index().files();
    for (const Core::FileEntry& file : files) {
        QBuffer exported;
        exported.open(QIODevice::WriteOnly);
        (void)vault.exportFile(file.vaultPath, &exported);
    }
    if (!vault.lock()) {
        std::abort();
    }
    return 0;
}
