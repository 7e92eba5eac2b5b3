// Rows dragged from the window's file table to the file manager: a file, or a folder with its tree,
// decrypted into the private workspace and handed over as a URL, offered as a copy only, wiped at
// lock and never taken for an edit to bring back.
#include "TestFiles.h"
#include "WindowFixture.h"
#include "core/vault/VaultManager.h"
#include "ui/FileTableDrag.h"

#include <QAction>
#include <QApplication>
#include <QBuffer>
#include <QDir>
#include <QDrag>
#include <QFile>
#include <QMimeData>
#include <QMouseEvent>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>
#include <QUrl>

using namespace Velmarin;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

class DragOutTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void aDraggedFileIsACopyOnlyInTheWorkspace();
    void aDraggedFolderComesWithItsTree();
    void aDragStartsFromTheMouseOfferingOnlyACopy();
    void dragCopiesAreNeverOfferedAsEdits();

private:
    bool write(const QString& relative, const QByteArray& bytes);
    QString statusMessage() { return m_fixture.window().statusBar()->currentMessage(); }

    WindowFixture m_fixture;
};

void DragOutTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
}

void DragOutTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

bool DragOutTest::write(const QString& relative, const QByteArray& bytes)
{
    const QString path = m_fixture.path(relative);
    return QDir().mkpath(QFileInfo(path).absolutePath()) && TestFiles::write(path, bytes);
}

void DragOutTest::aDraggedFileIsACopyOnlyInTheWorkspace()
{
    const QByteArray bytes = TestFiles::pattern(200 * 1024, 3);
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs")}, {{QStringLiteral("Docs/relatório 📄.pdf"), bytes}}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QVERIFY(m_fixture.selectRow(QStringLiteral("relatório 📄.pdf")));
    const std::unique_ptr<QMimeData> mime(m_fixture.window().dragMimeData());
    QVERIFY(mime);
    QCOMPARE(mime->urls().size(), 1);
    const QUrl url = mime->urls().constFirst();
    QVERIFY(url.isLocalFile());
    const QString copy = url.toLocalFile();
    QCOMPARE(QFileInfo(copy).fileName(), QStringLiteral("relatório 📄.pdf"));
    QCOMPARE(TestFiles::read(copy), bytes);
    // In the workspace, apart from the copies opened for editing.
    const QString workspaces = QFileInfo(m_fixture.path(QStringLiteral("workspaces"))).canonicalFilePath();
    QVERIFY2(QFileInfo(copy).canonicalFilePath().startsWith(workspaces + QLatin1Char('/')), qPrintable(copy));
    QVERIFY2(copy.contains(QStringLiteral("/outgoing/")), qPrintable(copy));
    QVERIFY(m_fixture.driver().progressTitles().isEmpty());
    QVERIFY(m_fixture.window().isVaultUnlocked());

    // A second drag of the same file gets a copy of its own: the first may still be read.
    const std::unique_ptr<QMimeData> again(m_fixture.window().dragMimeData());
    QVERIFY(again);
    const QString second = again->urls().value(0).toLocalFile();
    QVERIFY(second != copy);
    QVERIFY(QFileInfo::exists(copy));

    // Locking wipes them.
    const QString outgoing = QFileInfo(QFileInfo(copy).absolutePath()).absolutePath();
    QCOMPARE(QFileInfo(outgoing).fileName(), QStringLiteral("outgoing"));
    m_fixture.lockButton()->click();
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QVERIFY(!QFileInfo::exists(copy));
    QVERIFY(!QFileInfo::exists(second));
    QVERIFY(!QFileInfo::exists(outgoing));

    // Locked, nothing is dragged.
    QVERIFY(!m_fixture.window().dragMimeData());
}

void DragOutTest::aDraggedFolderComesWithItsTree()
{
    QVERIFY(m_fixture.setUp({}, {}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(write(QStringLiteral("origem/Álbum/fotos ☀/sol.jpg"), TestFiles::pattern(64 * 1024, 5)));
    QVERIFY(write(QStringLiteral("origem/Álbum/vazio.txt"), QByteArray()));
    QVERIFY(QDir().mkpath(m_fixture.path(QStringLiteral("origem/Álbum/nada"))));
    m_fixture.fakes().dialogs->folderAnswers.push_back(m_fixture.path(QStringLiteral("origem/Álbum")));
    m_fixture.action(QStringLiteral("Importar pasta..."))->trigger();
    QCOMPARE(statusMessage(), QStringLiteral("2 arquivos importados com sucesso."));
    QVERIFY(m_fixture.selectRow(QStringLiteral("Álbum")));

    const std::unique_ptr<QMimeData> mime(m_fixture.window().dragMimeData());
    QVERIFY(mime);
    QCOMPARE(mime->urls().size(), 1);
    const QString copy = mime->urls().constFirst().toLocalFile();
    QCOMPARE(QFileInfo(copy).fileName(), QStringLiteral("Álbum"));
    QVERIFY(TestFiles::sameTree(m_fixture.path(QStringLiteral("origem/Álbum")), copy));
    QCOMPARE(m_fixture.driver().progressTitles().last(), QStringLiteral("Exportar pasta"));

    // The parent row is no folder to drag.
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Álbum")));
    QVERIFY(m_fixture.selectRow(QStringLiteral("..")));
    QVERIFY(!m_fixture.window().dragMimeData());

    m_fixture.lockButton()->click();
    QVERIFY(!QFileInfo::exists(copy));
}

void DragOutTest::aDragStartsFromTheMouseOfferingOnlyACopy()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("a.txt"), "conteúdo"}, {QStringLiteral("b.txt"), "b"}}));
    QVERIFY(m_fixture.unlock());
    QTableWidget* table = m_fixture.table();
    auto* drag = table->findChild<UI::FileTableDrag*>();
    QVERIFY(drag);
    QList<QUrl> handed;
    Qt::DropActions offered;
    connect(drag, &UI::FileTableDrag::dragStarting, this, [&](QDrag* started, Qt::DropActions actions) {
        handed = started->mimeData()->urls();
        offered = actions;
    });
    const QPoint start =
        table->visualItemRect(table->item(m_fixture.rowOf(QStringLiteral("a.txt")), 1)).center();
    const QPoint end = start + QPoint(QApplication::startDragDistance() + 20, 40);
    QTest::mousePress(table->viewport(), Qt::LeftButton, Qt::NoModifier, start);
    QMouseEvent move(QEvent::MouseMove, QPointF(end), table->viewport()->mapToGlobal(QPointF(end)),
                     Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(table->viewport(), &move);
    QTest::mouseRelease(table->viewport(), Qt::LeftButton, Qt::NoModifier, end);

    QCOMPARE(offered, Qt::DropActions(Qt::CopyAction));
    QCOMPARE(handed.size(), 1);
    QCOMPARE(TestFiles::read(handed.constFirst().toLocalFile()), QByteArray("conteúdo"));
    // The selection stayed on the dragged row.
    QCOMPARE(m_fixture.window().selectedFilePath(), QStringLiteral("a.txt"));

    // Locked, a press and a move start nothing.
    m_fixture.lockButton()->click();
    handed.clear();
    QTest::mousePress(table->viewport(), Qt::LeftButton, Qt::NoModifier, start);
    QCoreApplication::sendEvent(table->viewport(), &move);
    QTest::mouseRelease(table->viewport(), Qt::LeftButton, Qt::NoModifier, end);
    QVERIFY(handed.isEmpty());
}

void DragOutTest::dragCopiesAreNeverOfferedAsEdits()
{
    QVERIFY(m_fixture.setUp(
        {}, {{QStringLiteral("editado.txt"), "antes"}, {QStringLiteral("levado.txt"), "levado"}}));
    // A session that ends without locking: its edit waits, its drag copies go at once.
    QString workspace;
    {
        Core::VaultManager session(m_fixture.path(QStringLiteral("workspaces")));
        QVERIFY(session.unlock(m_fixture.container(), TestFiles::password()));
        workspace = session.workspaceDirectory();
        QString edited;
        QVERIFY(session.openForEdit(QStringLiteral("editado.txt"), &edited));
        QString dragged;
        QVERIFY(session.copyOut(QStringLiteral("levado.txt"), &dragged));
        QTest::qSleep(20);
        QVERIFY(TestFiles::write(edited, "depois"));
        // Written after the edit: were it taken for one, it would come back.
        QVERIFY(TestFiles::write(dragged, "alterado no gerenciador"));
        session.lockKeepingEdits();
        QVERIFY(QFileInfo::exists(edited));
        QVERIFY(!QFileInfo::exists(dragged));
        QVERIFY(!QFileInfo::exists(workspace + QStringLiteral("/outgoing")));
    }
    // What a crash would leave: a drag copy of the same name beside the edit.
    QVERIFY(QDir().mkpath(workspace + QStringLiteral("/outgoing/1f")));
    QVERIFY(TestFiles::write(workspace + QStringLiteral("/outgoing/1f/levado.txt"), "deixado"));
    QVERIFY(TestFiles::write(workspace + QStringLiteral("/outgoing/1f/editado.txt"), "deixado"));

    MessageRecord offer;
    m_fixture.chooseContainer(m_fixture.container());
    m_fixture.driver().expectInput(QString::fromUtf8(TestFiles::password()));
    m_fixture.driver().expectMessage(QStringLiteral("Sim"), &offer);
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QCOMPARE(offer.text, QStringLiteral("Foram encontradas alterações de uma sessão anterior que não foi "
                                        "encerrada. Deseja trazê-las de volta para o cofre?"));
    QVERIFY(!QFileInfo::exists(workspace + QStringLiteral("/outgoing")));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("editado.txt"), QStringLiteral("levado.txt")}));
    m_fixture.lockButton()->click();

    Core::VaultManager vault;
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password(), Core::VaultManager::Access::ReadOnly));
    QCOMPARE(vault.index().files().size(), 2);
    QBuffer edited;
    QBuffer dragged;
    QVERIFY(edited.open(QIODevice::WriteOnly) && vault.exportFile(QStringLiteral("editado.txt"), &edited));
    QVERIFY(dragged.open(QIODevice::WriteOnly) && vault.exportFile(QStringLiteral("levado.txt"), &dragged));
    QCOMPARE(edited.data(), QByteArray("depois"));
    QCOMPARE(dragged.data(), QByteArray("levado"));
}

QTEST_MAIN(DragOutTest)
#include "tst_dragout.moc"
