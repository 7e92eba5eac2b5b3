#pragma once

#include "core/container/ProgressCallback.h"
#include "core/index/VaultIndex.h"
#include "core/vault/VerificationReport.h"

#include <QString>

namespace Velmarin::Core {

class PayloadStore;

// Reads back every block of every file of an unlocked vault and checks it the way an export would,
// plus each file's size and SHA-256, and reports what IndexAudit finds in the index itself. Only
// reads: nothing is written anywhere.
class VaultVerifier
{
public:
    explicit VaultVerifier(const PayloadStore& store);

    // False only when the container cannot be read at all; damage is reported, not failed.
    // Progress counts plaintext bytes over all files, labelled with the file being read.
    bool verify(const QString& containerPath, qint64 payloadOffset, const VaultIndex& index,
                const ProgressCallback& progress, VerificationReport& report) const;

private:
    const PayloadStore& m_store;
};

} // namespace Velmarin::Core
