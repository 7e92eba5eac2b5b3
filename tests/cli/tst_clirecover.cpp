// velmarin-cli recover and what commands say about a container put back: a change cut short and
// undone, a journal left beside a header that reads, the password that proves it, an earlier state.
#include "CliRunner.h"
#include "TestFiles.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerJournal.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::TestFiles;

namespace {

// After the 7-byte magic: the length line, then the JSON.
constexpr qint64 HeaderStart = 7;
const QString LeftText =
    QStringLiteral("Há ao lado do container um diário de alteração que não corresponde a ele. Ele não "
                   "foi aplicado e foi deixado onde está: nada foi alterado no container.");
const QString UndoneText = QStringLiteral(
    "A última alteração no cofre foi interrompida e foi desfeita. O cofre voltou ao estado anterior a ela.");
const QString UnlockFailedText =
    QStringLiteral("Não foi possível desbloquear o cofre. Verifique a senha ou se o container foi alterado.");
const QString EarlierText = QStringLiteral(
    "Este cofre voltou a um estado anterior ao que este computador viu por último: arquivos excluídos podem "
    "ter voltado e arquivos novos podem ter sumido. Alguém pode ter gravado no USB uma cópia antiga do "
    "container.");

} // namespace

class TestCliRecover : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void recoverUndoesAnInterruptedChange();
    void aForgedJournalIsLeftAndTold();
    void recoverAppliesATornIndexsJournalOnlyGivenThePassword();
    void recoverWarnsWhenWhatItPutsBackIsAnEarlierState();
    void aJournalAppliedButNotOpeningIsToldAsApplied();
    void anEarlierStateIsToldAndChangesWaitForConsent();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    CliResult run(const QString& command, const QStringList& arguments = {}) const;
    // A vault with a.txt, renamed by renamer, its new header then torn half-way beside the rename's
    // journal; before is the container before the rename.
    void renameTornHalfWay(const CliRunner& renamer, QByteArray& before);
    bool overwriteHeader(const QByteArray& header) const;
    // Imports a.txt into the vault; header is the container's header after it.
    bool importA(QByteArray& header) const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<CliRunner> m_cli;
    QString m_container;
};

void TestCliRecover::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_dir->path());
    m_cli->useTestPassword();
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

CliResult TestCliRecover::run(const QString& command, const QStringList& arguments) const
{
    return m_cli->run(QStringList{command, m_container} + arguments);
}

void TestCliRecover::recoverUndoesAnInterruptedChange()
{
    const Velmarin::Core::ContainerFile file;
    QByteArray oldHeader;
    QVERIFY(importA(oldHeader));
    const QByteArray before = TestFiles::read(m_container);
    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("Nova")}).exitCode, 0);
    QByteArray newHeader;
    QVERIFY(file.readHeaderBytes(m_container, newHeader));
    // The new header was cut off half-way; the journal of the change is still beside it.
    QVERIFY(Velmarin::Core::ContainerJournal::forHeaderChange(oldHeader, newHeader).write(m_container));
    {
        QFile container(m_container);
        QVERIFY(container.open(QIODevice::ReadWrite) && container.seek(7 + 21 + 100));
        QCOMPARE(container.write(QByteArray(4, '\0')), qint64(4));
    }

    const CliResult listed = run(QStringLiteral("ls"));
    QCOMPARE(listed.exitCode, 1);
    QCOMPARE(listed.errorLines(),
             QStringList({QStringLiteral("Uma alteração no cofre foi interrompida antes de terminar. Execute "
                                         "\"velmarin-cli recover %1\" para restaurá-lo.")
                              .arg(m_container)}));

    const CliResult recovered = run(QStringLiteral("recover"));
    QCOMPARE(recovered.exitCode, 0);
    QCOMPARE(recovered.errorLines(),
             QStringList({QStringLiteral("A última alteração no cofre foi interrompida e "
                                         "foi desfeita. O cofre voltou ao estado anterior "
                                         "a ela.")}));
    QCOMPARE(TestFiles::read(m_container), before);
    QVERIFY(!QFile::exists(m_container + QStringLiteral(".journal")));
    const QStringList lines = run(QStringLiteral("ls")).outputLines();
    QCOMPARE(lines.size(), 1);
    QVERIFY(lines.at(0).endsWith(QLatin1String(" a.txt")));
    QCOMPARE(run(QStringLiteral("verify")).exitCode, 0);

    const CliResult again = run(QStringLiteral("recover"));
    QCOMPARE(again.exitCode, 0);
    QCOMPARE(again.errorLines(),
             QStringList({QStringLiteral("Nada a restaurar: nenhuma alteração foi interrompida.")}));
    const CliResult missing = m_cli->run({QStringLiteral("recover"), path(QStringLiteral("outro.vltx"))});
    QCOMPARE(missing.exitCode, 1);
    QCOMPARE(missing.errorLines(),
             QStringList({QStringLiteral("O arquivo do container não foi encontrado.")}));
}

void TestCliRecover::aForgedJournalIsLeftAndTold()
{
    QByteArray earlier;
    QVERIFY(importA(earlier));
    QCOMPARE(run(QStringLiteral("rm"), {QStringLiteral("a.txt")}).exitCode, 0);
    // Someone puts the header from before the deletion beside today's, as a change never made.
    const QString journal = m_container + QStringLiteral(".journal");
    QVERIFY(Velmarin::Core::ContainerJournal::forHeaderChange(earlier, "forjado").write(m_container));
    const QByteArray today = TestFiles::read(m_container);
    const QByteArray forged = TestFiles::read(journal);
    const QString left =
        QStringLiteral("Há ao lado do container um diário de alteração que não corresponde a "
                       "ele. Ele não foi aplicado e foi deixado onde está: nada foi alterado "
                       "no container.");

    const CliResult recovered = run(QStringLiteral("recover"));
    QCOMPARE(recovered.exitCode, 1);
    QCOMPARE(recovered.errorLines(),
             QStringList({left, QStringLiteral("Se você sabe que o diário é seu, execute \"velmarin-cli "
                                               "recover --force %1\" para aplicá-lo.")
                                    .arg(m_container)}));
    QCOMPARE(TestFiles::read(m_container), today);
    QCOMPARE(TestFiles::read(journal), forged);

    // A command that unlocks for changes says so too, and goes on over today's vault.
    const CliResult made = run(QStringLiteral("mkdir"), {QStringLiteral("Nova")});
    QCOMPARE(made.exitCode, 0);
    QVERIFY(made.errorLines().contains(left));
    QVERIFY(!run(QStringLiteral("ls")).output.contains("a.txt"));

    QCOMPARE(run(QStringLiteral("recover"), {QStringLiteral("--force")}).exitCode, 0);
    QVERIFY(!QFile::exists(journal));
}

void TestCliRecover::renameTornHalfWay(const CliRunner& renamer, QByteArray& before)
{
    const Velmarin::Core::ContainerFile file;
    QByteArray oldHeader;
    QVERIFY(importA(oldHeader));
    before = TestFiles::read(m_container);
    QCOMPARE(
        renamer.run({QStringLiteral("rename"), m_container, QStringLiteral("a.txt"), QStringLiteral("c.txt")})
            .exitCode,
        0);
    QByteArray newHeader;
    QVERIFY(file.readHeaderBytes(m_container, newHeader));
    QCOMPARE(newHeader.size(), oldHeader.size());
    // Cut half-way through the new header: it reads, its key wrapping is whole, and its index is
    // half new, half old.
    const qsizetype index = newHeader.indexOf("\"encryptedIndex\":\"");
    QVERIFY(index > 0);
    const qsizetype cut = index + (newHeader.size() - index) / 2;
    QVERIFY(Velmarin::Core::ContainerJournal::forHeaderChange(oldHeader, newHeader).write(m_container));
    QVERIFY(overwriteHeader(newHeader.left(cut) + oldHeader.mid(cut)));
}

bool TestCliRecover::importA(QByteArray& header) const
{
    return TestFiles::write(path(QStringLiteral("a.txt")), "conteúdo") &&
           run(QStringLiteral("import"), {path(QStringLiteral("a.txt")), QStringLiteral("a.txt")}).exitCode ==
               0 &&
           Velmarin::Core::ContainerFile().readHeaderBytes(m_container, header);
}

bool TestCliRecover::overwriteHeader(const QByteArray& header) const
{
    QFile container(m_container);
    return container.open(QIODevice::ReadWrite) && container.seek(HeaderStart) &&
           container.write(header) == header.size();
}

void TestCliRecover::recoverAppliesATornIndexsJournalOnlyGivenThePassword()
{
    // The rename ran on another computer, so the state put back is the newest this one saw.
    CliRunner elsewhere(QStringLiteral(VELMARIN_CLI), m_dir->path());
    elsewhere.useTestPassword();
    QByteArray before;
    renameTornHalfWay(elsewhere, before);
    if (QTest::currentTestFailed()) {
        return;
    }
    const QString journal = m_container + QStringLiteral(".journal");
    const QByteArray torn = TestFiles::read(m_container);

    // Without a password nothing tells this header from one someone wrote.
    CliRunner bare(QStringLiteral(VELMARIN_CLI), m_dir->path());
    const CliResult unproven = bare.run({QStringLiteral("recover"), m_container});
    QCOMPARE(unproven.exitCode, 1);
    QCOMPARE(unproven.errorLines(),
             QStringList({LeftText, QStringLiteral("Se você sabe que o diário é seu, execute \"velmarin-cli "
                                                   "recover --force %1\" para aplicá-lo.")
                                        .arg(m_container)}));
    QCOMPARE(TestFiles::read(m_container), torn);
    QVERIFY(QFile::exists(journal));

    // A wrong password proves nothing either.
    const CliResult wrong = m_cli->run(
        {QStringLiteral("recover"), m_container, QStringLiteral("--password-file"), QStringLiteral("-")},
        "outra senha qualquer\n");
    QCOMPARE(wrong.exitCode, 3);
    QCOMPARE(wrong.errorLines(), QStringList({UnlockFailedText, LeftText}));
    QCOMPARE(TestFiles::read(m_container), torn);
    QVERIFY(QFile::exists(journal));

    // The right one opens the key but not the index: the cut was in the index.
    const CliResult proven = run(QStringLiteral("recover"));
    QCOMPARE(proven.exitCode, 0);
    QCOMPARE(proven.errorLines(), QStringList({UndoneText}));
    QCOMPARE(TestFiles::read(m_container), before);
    QVERIFY(!QFile::exists(journal));
    const CliResult listed = run(QStringLiteral("ls"));
    QVERIFY(listed.output.contains("a.txt"));
    QCOMPARE(listed.errorLines(), QStringList());
    QCOMPARE(run(QStringLiteral("verify")).exitCode, 0);
}

void TestCliRecover::recoverWarnsWhenWhatItPutsBackIsAnEarlierState()
{
    // This computer saw the rename finish, so the header from before it is an earlier state.
    QByteArray before;
    renameTornHalfWay(*m_cli, before);
    if (QTest::currentTestFailed()) {
        return;
    }
    const CliResult proven = run(QStringLiteral("recover"));
    QCOMPARE(proven.exitCode, 1);
    QCOMPARE(proven.errorLines(), QStringList({UndoneText, EarlierText}));
    QCOMPARE(TestFiles::read(m_container), before);
    QVERIFY(!QFile::exists(m_container + QStringLiteral(".journal")));
    // A change waits for the user's consent, as after any earlier state.
    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("Nova")}).exitCode, 1);
}

void TestCliRecover::aJournalAppliedButNotOpeningIsToldAsApplied()
{
    // Today's header with its index altered, and beside it a journal holding a header of another
    // vault under another password.
    const QString other = path(QStringLiteral("outro.vltx"));
    QCOMPARE(m_cli
                 ->run({QStringLiteral("create"), other, QStringLiteral("--new-password-file"),
                        QStringLiteral("-")},
                       "outra senha longa o bastante\n")
                 .exitCode,
             0);
    const Velmarin::Core::ContainerFile file;
    QByteArray foreign;
    QByteArray today;
    QVERIFY(file.readHeaderBytes(other, foreign));
    QVERIFY(file.readHeaderBytes(m_container, today));
    const qsizetype index = today.indexOf("\"encryptedIndex\":\"") + 18;
    QVERIFY(index > 18);
    today[index + 4] = today.at(index + 4) == 'A' ? 'B' : 'A';
    QVERIFY(overwriteHeader(today));
    QVERIFY(Velmarin::Core::ContainerJournal::forHeaderChange(foreign, "forjado").write(m_container));

    const CliResult result = run(QStringLiteral("recover"));
    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.errorLines(), QStringList({UndoneText, UnlockFailedText}));
    QByteArray now;
    QVERIFY(file.readHeaderBytes(m_container, now));
    QCOMPARE(now, foreign);
    QVERIFY(!QFile::exists(m_container + QStringLiteral(".journal")));
}

void TestCliRecover::anEarlierStateIsToldAndChangesWaitForConsent()
{
    QCOMPARE(run(QStringLiteral("ls")).exitCode, 0);
    const QByteArray seen = TestFiles::read(m_container);
    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("Nova")}).exitCode, 0);
    // The copy from before the new folder, written back over the container.
    QVERIFY(TestFiles::write(m_container, seen));
    const QString warning = QStringLiteral(
        "Este cofre voltou a um estado anterior ao que este computador viu por último: arquivos excluídos "
        "podem ter voltado e arquivos novos podem ter sumido. Alguém pode ter gravado no USB uma cópia "
        "antiga do container.");

    // Reading changes nothing: told, and done.
    const CliResult listed = run(QStringLiteral("ls"));
    QCOMPARE(listed.exitCode, 0);
    QCOMPARE(listed.errorLines(), QStringList({warning}));

    const CliResult refused = run(QStringLiteral("mkdir"), {QStringLiteral("Outra")});
    QCOMPARE(refused.exitCode, 1);
    QCOMPARE(
        refused.errorLines(),
        QStringList({warning, QStringLiteral("Nada foi alterado. Para continuar com este estado, execute o "
                                             "comando de novo com a variável "
                                             "VELMARIN_ACCEPT_EARLIER_STATE=1.")}));
    QCOMPARE(TestFiles::read(m_container), seen);

    m_cli->setVariable(QStringLiteral("VELMARIN_ACCEPT_EARLIER_STATE"), QStringLiteral("1"));
    const CliResult accepted = run(QStringLiteral("mkdir"), {QStringLiteral("Outra")});
    QCOMPARE(accepted.exitCode, 0);
    QVERIFY(accepted.errorLines().contains(warning));
    m_cli->unsetVariable(QStringLiteral("VELMARIN_ACCEPT_EARLIER_STATE"));
    const CliResult after = run(QStringLiteral("ls"));
    QCOMPARE(after.exitCode, 0);
    QVERIFY(!after.errorLines().contains(warning));
}

QTEST_GUILESS_MAIN(TestCliRecover)
#include "tst_clirecover.moc"
