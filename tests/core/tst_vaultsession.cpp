#include "FailureInjection.h"
#include "TestFiles.h"
#include "core/container/ContainerFile.h"
#include "core/container/IndexCipher.h"
#include "core/crypto/VaultCrypto.h"
#include "core/vault/VaultManager.h"

#include <QBuffer>
#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/prctl.h>
#include <sys/resource.h>

using namespace Velmarin::Core;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;

class TestVaultSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void passwordLengthCountsCharacters_data();
    void passwordLengthCountsCharacters();
    void createdVaultUnlocksAndLocks();
    void anUnlockedProcessCannotDumpCore();
    void createReplacesAnExistingFileAndKeepsItOnFailure();
    void unlockRefusesWrongOrEmptyPassword();
    void unlockRefusesAMalformedContainer();
    void alteredEncryptedIndexFailsAfterThePasswordIsAccepted();
    void alteredHeaderFieldMakesThePasswordFail_data();
    void alteredHeaderFieldMakesThePasswordFail();
    void changePasswordWhileUnlockedChangesNothing();
    void changePasswordKeepsContentsAndSize();
    void changePasswordRefusesShortNewOrWrongCurrent();
    void changePasswordMovesPbkdf2VaultToArgon2id();
    void lockWhenLockedReportsTheRelease();
    void failedWorkspaceStillLeavesTheSessionOpen();
    void secondUnlockWhileUnlockedIsRefused();
    void readOnlySessionWritesNothingAndRefusesChanges();
    void aReadOnlyDriveOpensButRefusesEveryChange();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_container;
};

void TestVaultSession::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

void TestVaultSession::passwordLengthCountsCharacters_data()
{
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("acceptable");
    QTest::newRow("11 characters") << QStringLiteral("abcdefghijk") << false;
    QTest::newRow("12 characters") << QStringLiteral("abcdefghijkl") << true;
    // "ção" is 3 characters in 5 bytes: 9 + 3 = 12 characters, 14 bytes.
    QTest::newRow("12 characters with accents") << QStringLiteral("abcdefghição") << true;
    QTest::newRow("11 characters in 13 bytes") << QStringLiteral("abcdefghiçã") << false;
}

void TestVaultSession::passwordLengthCountsCharacters()
{
    QFETCH(QString, password);
    QFETCH(bool, acceptable);
    QCOMPARE(VaultManager::isPasswordAcceptable(password.toUtf8()), acceptable);

    VaultManager vault;
    const QString created = path(QStringLiteral("novo.vltx"));
    QCOMPARE(vault.createVault(created, password.toUtf8()), acceptable);
    QCOMPARE(QFile::exists(created), acceptable);

    const QByteArray before = TestFiles::read(m_container);
    QCOMPARE(vault.changePassword(m_container, TestFiles::password(), password.toUtf8()), acceptable);
    QCOMPARE(TestFiles::read(m_container) == before, !acceptable);
}

void TestVaultSession::anUnlockedProcessCannotDumpCore()
{
    // Made dumpable again first, since creating the test vault already turned dumps off; raising the
    // core limit back needs root, so that half is checked where the test may do it.
    QCOMPARE(prctl(PR_SET_DUMPABLE, 1, 0, 0, 0), 0);
    const rlimit some{4096, 4096};
    const bool limitRaised = setrlimit(RLIMIT_CORE, &some) == 0;

    VaultManager vault;
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(prctl(PR_GET_DUMPABLE, 0, 0, 0, 0), 0);
    rlimit core{};
    QCOMPARE(getrlimit(RLIMIT_CORE, &core), 0);
    QCOMPARE(core.rlim_cur, rlim_t(0));
    QCOMPARE(core.rlim_max, rlim_t(0));
    QVERIFY(vault.lock());
    if (!limitRaised) {
        qInfo("core limit could not be raised first (not root); only its value after unlocking was checked");
    }
}

void TestVaultSession::createdVaultUnlocksAndLocks()
{
    VaultManager vault(path(QStringLiteral("area")));
    QCOMPARE(vault.state(), VaultManager::State::Locked);
    const QString created = path(QStringLiteral("novo.vltx"));
    QVERIFY(vault.createVault(created, TestFiles::password()));
    QCOMPARE(vault.state(), VaultManager::State::Locked);
    QCOMPARE(vault.containerPath(), created);

    QVERIFY(vault.unlock(created, TestFiles::password()));
    QCOMPARE(vault.state(), VaultManager::State::Unlocked);
    QVERIFY(vault.index().files().isEmpty());
    QVERIFY(vault.index().directories().isEmpty());
    const QString workspace = vault.workspaceDirectory();
    QVERIFY(QFileInfo(workspace).isDir());

    QVERIFY(vault.lock());
    QCOMPARE(vault.state(), VaultManager::State::Locked);
    QVERIFY(!QFileInfo::exists(workspace));
    QVERIFY(vault.workspaceDirectory().isEmpty());
}

void TestVaultSession::createReplacesAnExistingFileAndKeepsItOnFailure()
{
    VaultManager vault;
    const QString existing = path(QStringLiteral("existente.vltx"));
    QVERIFY(TestFiles::write(existing, "conteúdo antigo"));
    QVERIFY(vault.createVault(existing, TestFiles::password()));
    QCOMPARE(QFileInfo(existing).size(), 8388636);

    QVERIFY(!vault.createVault(path(QStringLiteral("não/existe/velmarin.vltx")), TestFiles::password()));
    QVERIFY(!vault.createVault(existing, "curta"));
    QCOMPARE(QFileInfo(existing).size(), 8388636);
    QVERIFY(vault.unlock(existing, TestFiles::password()));
}

void TestVaultSession::unlockRefusesWrongOrEmptyPassword()
{
    VaultManager vault;
    QVERIFY(!vault.unlock(m_container, QByteArray()));
    QVERIFY(!vault.unlock(m_container, "senha-errada-123"));
    QCOMPARE(vault.state(), VaultManager::State::Locked);
    QVERIFY(!vault.exportFile(QStringLiteral("x"), path(QStringLiteral("x"))));
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
}

void TestVaultSession::unlockRefusesAMalformedContainer()
{
    VaultManager vault;
    QVERIFY(TestFiles::write(m_container, TestFiles::read(m_container).left(8388635)));
    QVERIFY(!vault.unlock(m_container, TestFiles::password()));
    QVERIFY(!vault.unlock(path(QStringLiteral("ausente.vltx")), TestFiles::password()));
    QCOMPARE(vault.state(), VaultManager::State::Locked);
}

void TestVaultSession::alteredEncryptedIndexFailsAfterThePasswordIsAccepted()
{
    ContainerFile file;
    ContainerHeader header;
    QVERIFY(file.readHeader(m_container, header));
    header.encryptedIndex[5] = static_cast<char>(header.encryptedIndex[5] ^ 0x01);
    QVERIFY(file.rewriteHeader(m_container, header));

    VaultManager vault;
    QVERIFY(!vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.state(), VaultManager::State::Locked);
    // No key stayed behind: nothing that needs one works.
    QVERIFY(!vault.createFolder(QStringLiteral("a")));
    QVERIFY(!vault.compactVault({}, nullptr));
}

void TestVaultSession::alteredHeaderFieldMakesThePasswordFail_data()
{
    QTest::addColumn<QString>("field");
    for (const char* field : {"salt", "nonce", "kdf", "cipher", "kdfIterations", "encryptedMasterKey"}) {
        QTest::newRow(field) << QString::fromLatin1(field);
    }
}

void TestVaultSession::alteredHeaderFieldMakesThePasswordFail()
{
    QFETCH(QString, field);
    ContainerFile file;
    ContainerHeader header;
    QVERIFY(file.readHeader(m_container, header));
    CryptoHeader& crypto = header.crypto;
    if (field == QLatin1String("salt")) {
        crypto.salt[15] = static_cast<char>(crypto.salt[15] ^ 0x80);
    } else if (field == QLatin1String("nonce")) {
        crypto.nonce[0] = static_cast<char>(crypto.nonce[0] ^ 0x01);
    } else if (field == QLatin1String("kdf")) {
        // Still Argon2id to the KDF's own eyes? No: another letter case takes the PBKDF2 branch.
        crypto.kdf = QStringLiteral("argon2id");
    } else if (field == QLatin1String("cipher")) {
        crypto.cipher = QStringLiteral("XChaCha20-Poly1305 ");
    } else if (field == QLatin1String("kdfIterations")) {
        // Argon2id ignores it, but it is bound into the wrapped key.
        crypto.kdfIterations = 250001;
    } else {
        crypto.encryptedMasterKey[79] = static_cast<char>(crypto.encryptedMasterKey[79] ^ 0x01);
    }
    QVERIFY(file.rewriteHeader(m_container, header));
    VaultManager vault;
    QVERIFY(!vault.unlock(m_container, TestFiles::password()));
}

void TestVaultSession::changePasswordWhileUnlockedChangesNothing()
{
    VaultManager vault;
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    const QByteArray before = TestFiles::read(m_container);
    QVERIFY(!vault.changePassword(m_container, TestFiles::password(), "uma-senha-nova-longa"));
    QCOMPARE(TestFiles::read(m_container), before);
    QVERIFY(vault.isUnlocked());
}

void TestVaultSession::changePasswordKeepsContentsAndSize()
{
    const QString source = path(QStringLiteral("nota.txt"));
    QVERIFY(TestFiles::write(source, "uma nota qualquer"));
    VaultManager vault;
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(vault.importFile(source, QStringLiteral("Docs/nota.txt")));
    QVERIFY(vault.createFolder(QStringLiteral("Fotos/2024")));
    const QByteArray indexBefore = vault.index().toJson();
    QVERIFY(vault.lock());
    const qint64 sizeBefore = QFileInfo(m_container).size();
    const QByteArray payloadBefore = TestFiles::read(m_container).mid(8388636);

    const QByteArray newPassword = QStringLiteral("nova senha ção 2024").toUtf8();
    QVERIFY(vault.changePassword(m_container, TestFiles::password(), newPassword));
    QCOMPARE(QFileInfo(m_container).size(), sizeBefore);
    QCOMPARE(TestFiles::read(m_container).mid(8388636), payloadBefore);

    QVERIFY(!vault.unlock(m_container, TestFiles::password()));
    QVERIFY(vault.unlock(m_container, newPassword));
    QCOMPARE(vault.index().toJson(), indexBefore);
    QVERIFY(vault.exportFile(QStringLiteral("docs/NOTA.txt"), path(QStringLiteral("saida.txt"))));
    QCOMPARE(TestFiles::read(path(QStringLiteral("saida.txt"))), QByteArray("uma nota qualquer"));
}

void TestVaultSession::changePasswordRefusesShortNewOrWrongCurrent()
{
    VaultManager vault;
    const QByteArray before = TestFiles::read(m_container);
    QVERIFY(!vault.changePassword(m_container, "senha-errada-123", "uma-senha-nova-longa"));
    QVERIFY(!vault.changePassword(m_container, QByteArray(), "uma-senha-nova-longa"));
    QVERIFY(!vault.changePassword(m_container, TestFiles::password(), "curta-11ch"));
    QVERIFY(!vault.changePassword(path(QStringLiteral("ausente.vltx")), TestFiles::password(),
                                  "uma-senha-nova-longa"));
    QCOMPARE(TestFiles::read(m_container), before);
}

void TestVaultSession::changePasswordMovesPbkdf2VaultToArgon2id()
{
    // A container whose key is derived with PBKDF2, laid out by hand from the primitives.
    VaultCrypto crypto;
    ContainerHeader header;
    header.crypto.kdf = QStringLiteral("PBKDF2-SHA256");
    header.crypto.cipher = QStringLiteral("XChaCha20-Poly1305");
    header.crypto.kdfIterations = 1000;
    header.crypto.salt = crypto.randomBytes(16);
    header.crypto.nonce = crypto.randomBytes(24);
    header.crypto.payloadNonce = crypto.randomBytes(24);
    const QByteArray masterKey = crypto.randomBytes(64);
    const QByteArray passwordKey =
        crypto.deriveKey("senha antiga PBKDF2",
                         KdfParams{header.crypto.kdf, header.crypto.salt, header.crypto.kdfIterations, 64});
    header.crypto.encryptedMasterKey = crypto.encrypt(masterKey, passwordKey.left(32), header.crypto.nonce,
                                                      header.associatedData("master-key"));
    VaultIndex index;
    index.upsertDirectory(DirectoryEntry{QStringLiteral("Legado"), {}, {}});
    header.encryptedIndex = IndexCipher(crypto, masterKey.left(32)).encryptIndex(header, index);
    ContainerFile file;
    const QString legacy = path(QStringLiteral("legado.vltx"));
    QVERIFY(file.writeNewContainer(legacy, header));

    VaultManager vault;
    QVERIFY(vault.unlock(legacy, "senha antiga PBKDF2"));
    QVERIFY(vault.directoryExists(QStringLiteral("legado")));
    QVERIFY(vault.lock());
    QVERIFY(vault.changePassword(legacy, "senha antiga PBKDF2", "senha nova em Argon2id"));
    ContainerHeader changed;
    QVERIFY(file.readHeader(legacy, changed));
    QCOMPARE(changed.crypto.kdf, QStringLiteral("Argon2id"));
    QCOMPARE(changed.crypto.kdfIterations, 1000);
    QCOMPARE(changed.crypto.payloadNonce, header.crypto.payloadNonce);
    QCOMPARE(changed.encryptedIndex, header.encryptedIndex);
    QVERIFY(changed.crypto.salt != header.crypto.salt);
    QVERIFY(vault.unlock(legacy, "senha nova em Argon2id"));
    QVERIFY(vault.directoryExists(QStringLiteral("Legado")));
}

void TestVaultSession::lockWhenLockedReportsTheRelease()
{
    VaultManager vault(path(QStringLiteral("area")));
    QVERIFY(vault.lock());
    QCOMPARE(vault.state(), VaultManager::State::Locked);

    // A copy in the workspace that cannot be deleted: the release fails, the vault is locked all
    // the same, and the copy goes at the next unlock.
    QVERIFY(FailureInjection::isAvailable());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    const QString source = path(QStringLiteral("sobra.txt"));
    QVERIFY(TestFiles::write(source, "x"));
    QVERIFY(vault.importFile(source, QStringLiteral("sobra.txt")));
    QString leftover;
    QVERIFY(vault.openForEdit(QStringLiteral("sobra.txt"), &leftover));
    {
        const FailureInjection injection(QStringLiteral("sobra.txt"), "unlink");
        QVERIFY(!vault.lock());
    }
    QCOMPARE(vault.state(), VaultManager::State::Locked);
    QVERIFY(vault.lock());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(vault.leftoverEdits().isEmpty());
    QVERIFY(!QFile::exists(leftover));
    // Whatever the failed removal left, under whatever name, went at this unlock.
    QCOMPARE(
        QDir(path(QStringLiteral("area"))).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList{QFileInfo(vault.workspaceDirectory()).fileName()});
    QVERIFY(vault.lock());
}

void TestVaultSession::failedWorkspaceStillLeavesTheSessionOpen()
{
    // The workspace's parent is a file, so the workspace folder cannot be made.
    const QString parent = path(QStringLiteral("arquivo-no-lugar"));
    QVERIFY(TestFiles::write(parent, "x"));
    VaultManager vault(parent);
    QVERIFY(!vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.state(), VaultManager::State::Unlocked);
    QCOMPARE(vault.containerPath(), m_container);
    QVERIFY(vault.lock());
    QCOMPARE(vault.state(), VaultManager::State::Locked);
}

void TestVaultSession::secondUnlockWhileUnlockedIsRefused()
{
    VaultManager vault;
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    const QString other = path(QStringLiteral("outro.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(other));
    QVERIFY(!vault.unlock(other, TestFiles::password()));
    QVERIFY(!vault.createVault(other, TestFiles::password()));
    QCOMPARE(vault.containerPath(), m_container);
    QVERIFY(vault.isUnlocked());
}

void TestVaultSession::readOnlySessionWritesNothingAndRefusesChanges()
{
    const QString workspaceRoot = path(QStringLiteral("area"));
    const QString source = path(QStringLiteral("nota.txt"));
    QVERIFY(TestFiles::write(source, "conteúdo da nota"));
    VaultManager vault(workspaceRoot);
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(vault.importFile(source, QStringLiteral("Docs/nota.txt")));
    QVERIFY(vault.createFolder(QStringLiteral("Vazia")));
    QVERIFY(vault.lock());
    QVERIFY(QDir(workspaceRoot).removeRecursively());
    const QByteArray before = TestFiles::read(m_container);

    QVERIFY(vault.unlock(m_container, TestFiles::password(), VaultManager::Access::ReadOnly));
    QCOMPARE(vault.access(), VaultManager::Access::ReadOnly);
    QVERIFY(!QFileInfo::exists(workspaceRoot));
    QVERIFY(vault.fileExists(QStringLiteral("docs/NOTA.txt")));
    QBuffer exported;
    QVERIFY(exported.open(QIODevice::WriteOnly));
    QVERIFY(vault.exportFile(QStringLiteral("Docs/nota.txt"), &exported));
    QCOMPARE(exported.data(), QByteArray("conteúdo da nota"));

    QString local;
    QString preserved;
    QVERIFY(!vault.importFile(source, QStringLiteral("outra.txt")));
    QVERIFY(!vault.createFolder(QStringLiteral("Nova")));
    QVERIFY(!vault.deleteEmptyFolder(QStringLiteral("Vazia")));
    QVERIFY(!vault.deleteFile(QStringLiteral("Docs/nota.txt")));
    QVERIFY(!vault.moveFile(QStringLiteral("Docs/nota.txt"), QStringLiteral("Vazia")));
    QVERIFY(!vault.renameFile(QStringLiteral("Docs/nota.txt"), QStringLiteral("Docs/outra.txt")));
    QVERIFY(!vault.renameFolder(QStringLiteral("Vazia"), QStringLiteral("Cheia")));
    QVERIFY(!vault.openForEdit(QStringLiteral("Docs/nota.txt"), &local));
    QVERIFY(!vault.compactVault({}, &preserved));
    QVERIFY(local.isEmpty());
    QVERIFY(!QFileInfo::exists(workspaceRoot));
    QCOMPARE(TestFiles::read(m_container), before);
    QCOMPARE(vault.index().files().size(), 1);

    // Locking ends the read-only mode: the next session may change things again.
    QVERIFY(vault.lock());
    QCOMPARE(vault.access(), VaultManager::Access::ReadWrite);
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(QFileInfo::exists(vault.workspaceDirectory()));
    QVERIFY(vault.createFolder(QStringLiteral("Nova")));
}

void TestVaultSession::aReadOnlyDriveOpensButRefusesEveryChange()
{
    QVERIFY(FailureInjection::isAvailable());
    const QString drive = path(QStringLiteral("somente-leitura"));
    const QString container = drive + QStringLiteral("/velmarin.vltx");
    QVERIFY(QDir().mkpath(drive));
    QVERIFY(QFile::copy(m_container, container));
    VaultManager vault(m_dir->path());
    QVERIFY(vault.unlock(container, TestFiles::password()));
    QVERIFY(vault.createFolder(QStringLiteral("Antes")));
    const QString source = path(QStringLiteral("nota.txt"));
    QVERIFY(TestFiles::write(source, "nota"));
    QVERIFY(vault.importFile(source, QStringLiteral("Antes/nota.txt")));
    QVERIFY(vault.lock());
    const QByteArray before = TestFiles::read(container);

    {
        // As the system reports a drive mounted read-only, or a card with its lock switch on.
        const FailureInjection readOnly(QStringLiteral("/somente-leitura"), "read-only");
        QVERIFY(!vault.createVault(drive + QStringLiteral("/outro.vltx"), TestFiles::password()));
        QVERIFY(!QFile::exists(drive + QStringLiteral("/outro.vltx")));
        QVERIFY(vault.unlock(container, TestFiles::password()));
        QBuffer exported;
        exported.open(QIODevice::WriteOnly);
        QVERIFY(vault.exportFile(QStringLiteral("Antes/nota.txt"), &exported));
        QCOMPARE(exported.data(), QByteArray("nota"));
        QVERIFY(!vault.importFile(source, QStringLiteral("nova.txt")));
        QVERIFY(!vault.createFolder(QStringLiteral("Nova")));
        QVERIFY(!vault.renameFile(QStringLiteral("Antes/nota.txt"), QStringLiteral("Antes/outra.txt")));
        QVERIFY(!vault.deleteFile(QStringLiteral("Antes/nota.txt")));
        QString preserved;
        QVERIFY(!vault.compactVault({}, &preserved));
        QVERIFY(vault.fileExists(QStringLiteral("Antes/nota.txt")));
        QVERIFY(!vault.fileExists(QStringLiteral("nova.txt")));
        QVERIFY(vault.lock());
        QVERIFY(!vault.changePassword(container, TestFiles::password(), "uma senha nova e longa"));
        QVERIFY(TestFiles::read(container) == before);
    }
    QVERIFY(vault.unlock(container, TestFiles::password()));
    QVERIFY(vault.fileExists(QStringLiteral("Antes/nota.txt")));
    QVERIFY(vault.lock());
}

QTEST_GUILESS_MAIN(TestVaultSession)
#include "tst_vaultsession.moc"
