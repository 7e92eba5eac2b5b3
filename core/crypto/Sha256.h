#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <memory>

namespace Velmarin::Core {

// SHA-256, fed piece by piece. Backed by OpenSSL's libcrypto, which uses the CPU's SHA instructions
// where it has them: several times faster than Qt's portable code, so an import is bound by the
// drive and the cipher rather than by the hash. The digest is the standard one either way.
class Sha256
{
public:
    static constexpr int DigestSize = 32;

    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void addData(QByteArrayView data);
    // The 32-byte digest of everything added, or an empty array if the library failed at any step.
    // The object is spent afterwards.
    QByteArray result();

    static QByteArray hash(QByteArrayView data);

private:
    struct Context;
    std::unique_ptr<Context> m_context;
    bool m_failed = false;
};

} // namespace Velmarin::Core
