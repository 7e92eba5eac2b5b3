// The window's import as one batch: the index's room checked before anything is written, a drive
// that stops taking bytes told once with how many went in, and a file that fails told with why.
#include "FailureInjection.h"
#include "TestFiles.h"
#include "WindowFixture.h"
#include "core/vault/VaultManager.h"

#include <QAction>
#include <QBuffer>
#include <QDir>
#include <QRegularExpression>
#include <QStatusBar>
#include <QTest>
#include <QToolButton>

using namespace Velmarin;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

namespace {

constexpr qint64 KiB = 1024;

} // namespace

class ImportWindowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void refusesWhatTheIndexCannotHoldBeforeWriting();
    void aDriveThatStopsEndsTheImportWithOneBox();
    void aFileThatFailsIsToldWithItsReason();
    void replacingIsStillAskedFileByFile();

private:
    QStringList localFiles(const QString& stem, int count, qint64 size);
    // A file's bytes as a session of its own reads them, once the window has locked the vault.
    QByteArray contentsOf(const QString& vaultPath);
    QString statusMessage() { return m_fixture.window().statusBar()->currentMessage(); }

    WindowFixture m_fixture;
};

void ImportWindowTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
    QVERIFY(FailureInjection::isAvailable());
}

void ImportWindowTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

QStringList ImportWindowTest::localFiles(const QString& stem, int count, qint64 size)
{
    QStringList files;
    for (int i = 0; i < count; ++i) {
        const QString path =
            m_fixture.path(QStringLiteral("%1%2.bin").arg(stem).arg(i, 5, 10, QLatin1Char('0')));
        if (!TestFiles::writePattern(path, size, static_cast<quint32>(i + 1))) {
            return {};
        }
        files << path;
    }
    return files;
}

QByteArray ImportWindowTest::contentsOf(const QString& vaultPath)
{
    Core::VaultManager vault;
    QBuffer buffer;
    if (!vault.unlock(m_fixture.container(), TestFiles::password(), Core::VaultManager::Access::ReadOnly) ||
        !buffer.open(QIODevice::WriteOnly) || !vault.exportFile(vaultPath, &buffer)) {
        return QByteArrayLiteral("<falhou>");
    }
    return buffer.data();
}

void ImportWindowTest::refusesWhatTheIndexCannotHoldBeforeWriting()
{
    QVERIFY(m_fixture.setUp({}, {}));
    QVERIFY(m_fixture.unlock());
    // Far more long names than the index has room for.
    const QStringList files = localFiles(QString(200, QLatin1Char('n')), 16000, 1);
    QCOMPARE(files.size(), 16000);
    m_fixture.fakes().dialogs->fileListAnswers.push_back(files);
    const QByteArray before = TestFiles::read(m_fixture.container());
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Importar..."))->trigger();
    QCOMPARE(warning.title, QStringLiteral("Importar arquivos"));
    const QRegularExpression text(QStringLiteral("^O índice do cofre comporta mais (\\d+) dos 16000 arquivos "
                                                 "selecionados\\. Importe em partes menores\\.$"));
    const QRegularExpressionMatch match = text.match(warning.text);
    QVERIFY2(match.hasMatch(), qPrintable(warning.text));
    const int fitting = match.captured(1).toInt();
    QVERIFY(fitting > 1000 && fitting < 16000);
    QCOMPARE(warning.icon, QMessageBox::Warning);
    // Nothing was written, and no progress was shown.
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QVERIFY(m_fixture.driver().progressTitles().isEmpty());
    QVERIFY(m_fixture.names().isEmpty());
}

void ImportWindowTest::aDriveThatStopsEndsTheImportWithOneBox()
{
    QVERIFY(m_fixture.setUp({}, {}));
    QVERIFY(m_fixture.unlock());
    const QStringList files = localFiles(QStringLiteral("video"), 5, 400 * KiB);
    m_fixture.fakes().dialogs->fileListAnswers.push_back(files);
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        // The drive takes one megabyte more: two whole files and part of the third.
        const FailureInjection full(m_fixture.container() + QLatin1Char('$'), "write", 1024 * KiB);
        m_fixture.action(QStringLiteral("Importar..."))->trigger();
    }
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível importar video00002.bin."));
    QCOMPARE(warning.informativeText,
             QStringLiteral("Não há espaço livre suficiente na unidade do container.\n\n"
                            "O sistema informou: No space left on device\n\n"
                            "Arquivos importados antes da interrupção: 2. Os demais não foram tentados."));
    QCOMPARE(statusMessage(), QStringLiteral("2 arquivos importados com sucesso."));
    QCOMPARE(m_fixture.names(),
             QStringList({QStringLiteral("video00000.bin"), QStringLiteral("video00001.bin")}));
}

void ImportWindowTest::aFileThatFailsIsToldWithItsReason()
{
    QVERIFY(m_fixture.setUp({}, {}));
    QVERIFY(m_fixture.unlock());
    const QStringList files = localFiles(QStringLiteral("doc"), 3, 10 * KiB);
    m_fixture.fakes().dialogs->fileListAnswers.push_back(files);
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        const FailureInjection unreadable(files.at(1), "open-read");
        m_fixture.action(QStringLiteral("Importar..."))->trigger();
    }
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível importar doc00001.bin."));
    QVERIFY2(warning.informativeText.startsWith(QStringLiteral("Não foi possível ler %1.").arg(files.at(1))),
             qPrintable(warning.informativeText));
    QCOMPARE(statusMessage(), QStringLiteral("2 arquivos importados com sucesso."));
    QCOMPARE(m_fixture.names(),
             QStringList({QStringLiteral("doc00000.bin"), QStringLiteral("doc00002.bin")}));
}

void ImportWindowTest::replacingIsStillAskedFileByFile()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("DOC00000.bin"), QByteArray("antigo")},
                                 {QStringLiteral("doc00001.bin"), QByteArray("antigo")}}));
    QVERIFY(m_fixture.unlock());
    const QStringList files = localFiles(QStringLiteral("doc"), 3, 10 * KiB);
    m_fixture.fakes().dialogs->fileListAnswers.push_back(files);
    MessageRecord first;
    MessageRecord second;
    m_fixture.driver().expectMessage(QStringLiteral("Não"), &first);
    m_fixture.driver().expectMessage(QStringLiteral("Sim"), &second);
    m_fixture.action(QStringLiteral("Importar..."))->trigger();
    QCOMPARE(first.title, QStringLiteral("Substituir arquivo"));
    QCOMPARE(first.text,
             QStringLiteral("doc00000.bin já existe no cofre. Deseja substituir o arquivo protegido?"));
    QCOMPARE(second.text,
             QStringLiteral("doc00001.bin já existe no cofre. Deseja substituir o arquivo protegido?"));
    QCOMPARE(statusMessage(), QStringLiteral("2 arquivos importados com sucesso."));
    QCOMPARE(m_fixture.names().size(), 3);
    m_fixture.lockButton()->click();
    QCOMPARE(contentsOf(QStringLiteral("DOC00000.bin")), QByteArray("antigo"));
    QCOMPARE(contentsOf(QStringLiteral("doc00001.bin")), TestFiles::read(files.at(1)));
    QCOMPARE(contentsOf(QStringLiteral("doc00002.bin")), TestFiles::read(files.at(2)));
}

QTEST_MAIN(ImportWindowTest)
#include "tst_importwindow.moc"
