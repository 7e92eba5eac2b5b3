#include "core/vault/ContainerOpener.h"

#include "core/container/ContainerRecovery.h"
#include "core/container/IndexCipher.h"
#include "core/vault/MasterKeyWrap.h"
#include "core/vault/VaultSession.h"

namespace Velmarin::Core {

ContainerOpener::ContainerOpener(VaultSession& session)
    : m_session(session)
{}

bool ContainerOpener::open(const QString& containerPath, const QByteArray& password, bool mayRecover,
                           Opened& opened)
{
    using Outcome = ContainerRecovery::Outcome;
    const VaultCrypto& crypto = m_session.crypto();
    for (bool journalApplied = false;; journalApplied = true) {
        if (!m_session.containerFile().readHeader(containerPath, opened.header)) {
            return m_session.failRead(containerPath);
        }
        if (!MasterKeyWrap::isCostBounded(opened.header)) {
            return m_session.fail(Failure::Reason::KeyCostTooHigh, containerPath);
        }
        opened.masterKey = MasterKeyWrap(crypto).unwrap(opened.header, password);
        if (opened.masterKey.isEmpty()) {
            return m_session.failUnlessKnown(Failure::Reason::WrongPassword);
        }
        if (IndexCipher(crypto, opened.masterKey.view(VaultCrypto::KeySize))
                .decryptIndex(opened.header, opened.index)) {
            return true;
        }
        // The master key opened, so the header is this vault's and its index was torn or altered, as
        // a cut half-way through a header leaves it: only now is a journal left beside a header that
        // reads applied. What it puts back is still checked against the states this computer saw.
        const bool journalLeft = m_session.lastRecovery() == Outcome::JournalLeft;
        if (journalApplied || !mayRecover || !journalLeft ||
            m_session.recoverContainer(containerPath, ContainerRecovery::HeaderJournals::Always) !=
                Outcome::HeaderRestored) {
            opened.masterKey = SecretBytes();
            return m_session.failUnlessKnown(Failure::Reason::Damaged);
        }
    }
}

} // namespace Velmarin::Core
