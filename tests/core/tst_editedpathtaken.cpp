// A copy open for editing whose vault path a folder took before the lock (or whose folder became a
// file) is stored under a free name beside it: the lock goes through and no edit is lost.
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/vault/VaultManager.h"

#include <QDateTime>
#include <QFile>
#include <QTest>

using namespace Velmarin::Core;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;

namespace {

using Moves = QList<QPair<QString, QString>>;

// An editor's save: new bytes and a later time than the copy was written with.
bool editCopy(const QString& path, const QByteArray& text)
{
    QFile file(path);
    return TestFiles::write(path, text) && file.open(QIODevice::ReadWrite) &&
           file.setFileTime(QDateTime::currentDateTimeUtc().addSecs(10), QFileDevice::FileModificationTime);
}

} // namespace

class EditedPathTakenTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void aCopyWhosePathBecameAFolderIsStoredBesideIt();
    void theNameBesideItSkipsNamesAlreadyTaken();
    void aCopyWhoseFolderBecameAFileGoesToTheRoot();
    void anOrdinaryLockMovesNothing();

private:
    // Opens path for editing and changes the copy to text.
    bool openAndEdit(const QString& path, const QByteArray& text);

    VaultFixture m_fixture;
};

void EditedPathTakenTest::init()
{
    QVERIFY(m_fixture.setUp(QStringLiteral("velmarin.vltx"), QStringLiteral("tmp")));
}

void EditedPathTakenTest::cleanup()
{
    m_fixture.tearDown();
}

bool EditedPathTakenTest::openAndEdit(const QString& path, const QByteArray& text)
{
    QString local;
    return m_fixture.vault().openForEdit(path, &local) && editCopy(local, text);
}

void EditedPathTakenTest::aCopyWhosePathBecameAFolderIsStoredBesideIt()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Docs/nota.txt"), "original"));
    QVERIFY(openAndEdit(QStringLiteral("Docs/nota.txt"), "editado"));
    // While the copy is open: the file goes, and a folder is renamed onto its name.
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("Docs/nota.txt")));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Docs/Pasta")));
    QVERIFY(m_fixture.vault().renameFolder(QStringLiteral("Docs/Pasta"), QStringLiteral("Docs/nota.txt")));

    QVERIFY2(m_fixture.vault().lock(), qPrintable(m_fixture.vault().lastFailure().path));
    QCOMPARE(m_fixture.vault().movedEdits(),
             Moves({{QStringLiteral("Docs/nota.txt"), QStringLiteral("Docs/nota (2).txt")}}));
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.exported(QStringLiteral("Docs/nota (2).txt")), QByteArray("editado"));
    QVERIFY(m_fixture.vault().directoryExists(QStringLiteral("Docs/nota.txt")));
    QVERIFY(m_fixture.vault().leftoverEdits().isEmpty());
    // The next lock, with nothing edited, tells of no move.
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(m_fixture.vault().movedEdits().isEmpty());
}

void EditedPathTakenTest::theNameBesideItSkipsNamesAlreadyTaken()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Nota.txt"), "original"));
    QVERIFY(m_fixture.importText(QStringLiteral("nota (2).txt"), "outro"));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("NOTA (3).txt")));
    QVERIFY(openAndEdit(QStringLiteral("Nota.txt"), "editado"));
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("Nota.txt")));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("nota.TXT")));

    QVERIFY(m_fixture.vault().lock());
    QCOMPARE(m_fixture.vault().movedEdits(),
             Moves({{QStringLiteral("Nota.txt"), QStringLiteral("Nota (4).txt")}}));
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.exported(QStringLiteral("Nota (4).txt")), QByteArray("editado"));
    QCOMPARE(m_fixture.exported(QStringLiteral("nota (2).txt")), QByteArray("outro"));
}

void EditedPathTakenTest::aCopyWhoseFolderBecameAFileGoesToTheRoot()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Docs/a.txt"), "original"));
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "da raiz"));
    QVERIFY(openAndEdit(QStringLiteral("Docs/a.txt"), "editado"));
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("Docs/a.txt")));
    QVERIFY(m_fixture.vault().deleteEmptyFolder(QStringLiteral("Docs")));
    QVERIFY(m_fixture.importText(QStringLiteral("Docs"), "um arquivo"));

    QVERIFY(m_fixture.vault().lock());
    QCOMPARE(m_fixture.vault().movedEdits(),
             Moves({{QStringLiteral("Docs/a.txt"), QStringLiteral("a (2).txt")}}));
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.exported(QStringLiteral("a (2).txt")), QByteArray("editado"));
    QCOMPARE(m_fixture.exported(QStringLiteral("a.txt")), QByteArray("da raiz"));
    QCOMPARE(m_fixture.exported(QStringLiteral("Docs")), QByteArray("um arquivo"));
}

void EditedPathTakenTest::anOrdinaryLockMovesNothing()
{
    QVERIFY(m_fixture.importText(QStringLiteral("nota.txt"), "original"));
    QVERIFY(openAndEdit(QStringLiteral("nota.txt"), "editado"));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(m_fixture.vault().movedEdits().isEmpty());
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.exported(QStringLiteral("nota.txt")), QByteArray("editado"));
    QCOMPARE(m_fixture.vault().index().files().size(), 1);
}

QTEST_GUILESS_MAIN(EditedPathTakenTest)
#include "tst_editedpathtaken.moc"
