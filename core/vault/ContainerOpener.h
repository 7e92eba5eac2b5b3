#pragma once

#include "core/container/ContainerHeader.h"
#include "core/crypto/SecretBytes.h"
#include "core/index/VaultIndex.h"

#include <QByteArray>
#include <QString>

namespace Velmarin::Core {

class VaultSession;

// Opens a container's header with a password: first the master key, then the index. A header that
// a cut left torn in its index can still read; once the password proves the vault is the user's,
// the journal left beside it puts back the header from before the change.
class ContainerOpener
{
public:
    struct Opened
    {
        ContainerHeader header;
        SecretBytes masterKey;
        VaultIndex index;
    };

    explicit ContainerOpener(VaultSession& session);

    // The caller holds the container's lock. mayRecover: it may also be written (not a read-only
    // session). On failure the session records why: not a container, a key too costly to derive,
    // a wrong password, or damage.
    bool open(const QString& containerPath, const QByteArray& password, bool mayRecover, Opened& opened);

private:
    VaultSession& m_session;
};

} // namespace Velmarin::Core
