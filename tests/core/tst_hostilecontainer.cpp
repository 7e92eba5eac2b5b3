#include "TestFiles.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"
#include "core/container/ContainerProbe.h"
#include "core/container/IndexCipher.h"
#include "core/crypto/KdfParams.h"
#include "core/crypto/VaultCrypto.h"
#include "core/vault/MasterKeyWrap.h"
#include "core/vault/VaultManager.h"

#include <QTemporaryDir>
#include <QtTest>

#include <climits>
#include <csignal>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Velmarin::Core;
using Velmarin::Tests::TestFiles;
using Reason = Failure::Reason;
using Access = VaultManager::Access;

namespace {

// What a stick someone else had in hand can hold under the container's name costs at most this to
// refuse. A refusal that waits (a pipe with no writer) or derives for hours ends the test instead.
constexpr unsigned WatchdogSeconds = 60;

KdfParams pbkdf2(int iterations)
{
    return KdfParams{QStringLiteral("PBKDF2-SHA256"), QByteArray(16, 's'), iterations, 64};
}

// A listening socket bound at path, as a program on the stick's computer could leave; -1 on failure.
int bindSocket(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address{};
    if (name.size() >= static_cast<qsizetype>(sizeof address.sun_path)) {
        return -1;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.constData(), static_cast<size_t>(name.size()));
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (descriptor >= 0 && ::bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(descriptor);
        return -1;
    }
    return descriptor;
}

} // namespace

// Whatever stands at the container's path and whatever its header asks, the program answers at once
// and with the reason, before any password is tried.
class TestHostileContainer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void aPipeNamedLikeTheContainerIsRefusedAtOnce();
    void aLinkToAContainerIsRefusedAndItsTargetUntouched();
    void aFolderASocketAndADeviceAreRefused();
    void pbkdf2CountsAreBounded();
    void aHeaderAskingForHoursOfDerivationIsRefusedBeforeThePassword();
    void theFallbackKeyOfThisProgramStillOpens();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    // Unlocks path both ways and expects the same refusal each time, with nothing left unlocked.
    void expectRefusal(const QString& containerPath, Reason reason);

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestHostileContainer::initTestCase()
{
    std::signal(SIGALRM, SIG_DFL);
    ::alarm(WatchdogSeconds);
}

void TestHostileContainer::cleanupTestCase()
{
    ::alarm(0);
}

void TestHostileContainer::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestHostileContainer::expectRefusal(const QString& containerPath, Reason reason)
{
    for (const Access access : {Access::ReadWrite, Access::ReadOnly}) {
        VaultManager vault;
        QVERIFY(!vault.unlock(containerPath, TestFiles::password(), access));
        QCOMPARE(vault.lastFailure().reason, reason);
        QCOMPARE(vault.lastFailure().path, containerPath);
        QVERIFY(!vault.isUnlocked());
    }
}

void TestHostileContainer::aPipeNamedLikeTheContainerIsRefusedAtOnce()
{
    const QString pipe = path(QStringLiteral("velmarin.vltx"));
    QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    ContainerHeader header;
    QVERIFY(!ContainerFile().readHeader(pipe, header));
    QByteArray bytes;
    QVERIFY(!ContainerFile().readHeaderBytes(pipe, bytes));
    QCOMPARE(ContainerProbe::probe(pipe).verdict, ContainerProbe::Verdict::NotAFile);
    expectRefusal(pipe, Reason::NotARegularFile);
    VaultManager vault;
    QVERIFY(!vault.changePassword(pipe, TestFiles::password(), "uma senha nova e longa"));
    QCOMPARE(vault.lastFailure().reason, Reason::NotARegularFile);
}

void TestHostileContainer::aLinkToAContainerIsRefusedAndItsTargetUntouched()
{
    const QString target = path(QStringLiteral("outro/velmarin.vltx"));
    QVERIFY(QDir().mkpath(path(QStringLiteral("outro"))));
    QVERIFY(TestFiles::copyEmptyVault(target));
    const QByteArray before = TestFiles::read(target);
    const QString link = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(QFile::link(target, link));
    expectRefusal(link, Reason::NotARegularFile);
    VaultManager vault;
    QVERIFY(!vault.changePassword(link, TestFiles::password(), "uma senha nova e longa"));
    QCOMPARE(vault.lastFailure().reason, Reason::NotARegularFile);
    QCOMPARE(TestFiles::read(target), before);

    // A link to nothing is no missing container either: something stands at the path.
    const QString dangling = path(QStringLiteral("quebrado.vltx"));
    QVERIFY(QFile::link(path(QStringLiteral("nada")), dangling));
    expectRefusal(dangling, Reason::NotARegularFile);
}

void TestHostileContainer::aFolderASocketAndADeviceAreRefused()
{
    const QString folder = path(QStringLiteral("pasta.vltx"));
    QVERIFY(QDir().mkpath(folder));
    expectRefusal(folder, Reason::NotARegularFile);

    const QString socket = path(QStringLiteral("soquete.vltx"));
    const int descriptor = bindSocket(socket);
    QVERIFY(descriptor >= 0);
    expectRefusal(socket, Reason::NotARegularFile);
    ::close(descriptor);

    // A device reads without end; it is refused before its first byte.
    expectRefusal(QStringLiteral("/dev/zero"), Reason::NotARegularFile);
}

void TestHostileContainer::pbkdf2CountsAreBounded()
{
    QVERIFY(VaultCrypto::isCostBounded(pbkdf2(1)));
    QVERIFY(VaultCrypto::isCostBounded(pbkdf2(250000)));
    QVERIFY(VaultCrypto::isCostBounded(pbkdf2(VaultCrypto::MaxPbkdf2Iterations)));
    QCOMPARE(VaultCrypto::MaxPbkdf2Iterations, 2000000);
    QVERIFY(!VaultCrypto::isCostBounded(pbkdf2(VaultCrypto::MaxPbkdf2Iterations + 1)));
    QVERIFY(!VaultCrypto::isCostBounded(pbkdf2(INT_MAX)));
    QVERIFY(!VaultCrypto::isCostBounded(pbkdf2(0)));
    QVERIFY(!VaultCrypto::isCostBounded(pbkdf2(-1)));
    // Argon2id's cost is the program's own, whatever the header's count says.
    KdfParams argon = pbkdf2(INT_MAX);
    argon.algorithm = QStringLiteral("Argon2id");
    QVERIFY(VaultCrypto::isCostBounded(argon));

    // Refused by the derivation itself, not only by its callers: deriving this would take hours.
    const VaultCrypto crypto;
    QVERIFY(crypto.deriveKey("senha de teste longa", pbkdf2(INT_MAX)).isEmpty());
    QVERIFY(crypto.deriveKey("senha de teste longa", pbkdf2(VaultCrypto::MaxPbkdf2Iterations + 1)).isEmpty());
    QCOMPARE(crypto.deriveKey("senha de teste longa", pbkdf2(2)).size(), 64);
}

void TestHostileContainer::aHeaderAskingForHoursOfDerivationIsRefusedBeforeThePassword()
{
    const QString container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    ContainerHeader header;
    QVERIFY(ContainerFile().readHeader(container, header));
    header.crypto.kdf = QStringLiteral("PBKDF2");
    header.crypto.kdfIterations = INT_MAX;
    QVERIFY(ContainerFile().rewriteHeader(container, header));
    const QByteArray altered = TestFiles::read(container);

    expectRefusal(container, Reason::KeyCostTooHigh);
    VaultManager vault;
    QVERIFY(!vault.changePassword(container, TestFiles::password(), "uma senha nova e longa"));
    QCOMPARE(vault.lastFailure().reason, Reason::KeyCostTooHigh);
    QCOMPARE(TestFiles::read(container), altered);
}

void TestHostileContainer::theFallbackKeyOfThisProgramStillOpens()
{
    // An empty vault whose key comes from the fallback at the count this program's fallback writes.
    const QString container = path(QStringLiteral("velmarin.vltx"));
    const VaultCrypto crypto;
    ContainerHeader header;
    header.crypto.kdf = QStringLiteral("PBKDF2-SHA256");
    header.crypto.cipher = QStringLiteral("XChaCha20-Poly1305");
    header.crypto.kdfIterations = 250000;
    header.crypto.salt = crypto.randomBytes(VaultCrypto::SaltSize);
    header.crypto.nonce = crypto.randomBytes(VaultCrypto::NonceSize);
    const QByteArray masterKey = crypto.randomBytes(VaultCrypto::MasterKeySize);
    header.crypto.encryptedMasterKey = MasterKeyWrap(crypto).wrap(header, TestFiles::password(), masterKey);
    QVERIFY(!header.crypto.encryptedMasterKey.isEmpty());
    QVERIFY(IndexCipher(crypto, masterKey.left(VaultCrypto::KeySize)).sealInto(header, VaultIndex()));
    QVERIFY(ContainerFile().writeNewContainer(container, header));

    VaultManager vault;
    QVERIFY(vault.unlock(container, TestFiles::password(), Access::ReadOnly));
    QVERIFY(vault.index().files().isEmpty());
}

QTEST_GUILESS_MAIN(TestHostileContainer)
#include "tst_hostilecontainer.moc"
