// A vault folder and its whole tree written out to disk: byte for byte, empty folders included, every
// answer about an existing file honoured, a failing file reported while the rest go on, and nothing
// written outside the destination whatever the index says.
#include "FailureInjection.h"
#include "LockedVaultEditor.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <algorithm>

using namespace Velmarin::Core;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::LockedVaultEditor;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;

namespace {

constexpr qint64 Block = 16 * 1024 * 1024;

using Answer = FolderExport::Answer;

// The vault paths of the entries that failed, or the paths their failures name.
QStringList paths(const QList<FolderExport::FailedEntry>& failed, bool reasonPaths = false)
{
    QStringList list;
    for (const FolderExport::FailedEntry& entry : failed) {
        list << (reasonPaths ? entry.failure.path : entry.vaultPath);
    }
    list.sort();
    return list;
}

} // namespace

class TestFolderExport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void wholeTreeComesOutByteForByte();
    void aFolderBringsOnlyWhatIsBelowIt();
    void refusesWhatCannotStart();
    void existingFilesAreAskedAndEachAnswerIsHonoured();
    void aFailingFileIsReportedWhileTheRestGoOn();
    void hostilePathsAreRefusedAndNothingIsWrittenOutside();
    void aLinkInTheDestinationCannotLeadOutside();

private:
    QString path(const QString& name) const { return m_fixture.path(name); }
    VaultManager& vault() { return m_fixture.vault(); }
    // Imports every file below src into the vault under the same path and makes its empty folders.
    bool importSourceTree();
    // Rewrites the locked vault's index through the editor, then unlocks it again.
    bool appendHostile(const QStringList& vaultPaths);

    VaultFixture m_fixture;
};

void TestFolderExport::init()
{
    QVERIFY(m_fixture.setUp());
}

void TestFolderExport::cleanup()
{
    m_fixture.tearDown();
}

bool TestFolderExport::importSourceTree()
{
    const QString root = path(QStringLiteral("src"));
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString file = it.next();
        const QString relative = QDir(root).relativeFilePath(file);
        const bool done = it.fileInfo().isDir()
                              ? (vault().directoryExists(relative) || vault().createFolder(relative))
                              : vault().importFile(file, relative);
        if (!done) {
            return false;
        }
    }
    return true;
}

bool TestFolderExport::appendHostile(const QStringList& vaultPaths)
{
    if (!vault().lock()) {
        return false;
    }
    {
        LockedVaultEditor editor;
        if (!editor.open(m_fixture.container(), TestFiles::password())) {
            return false;
        }
        for (const QString& vaultPath : vaultPaths) {
            if (!editor.appendFile(vaultPath, "hostil", QDateTime::currentDateTimeUtc())) {
                return false;
            }
        }
        if (!editor.save()) {
            return false;
        }
    }
    return vault().unlock(m_fixture.container(), TestFiles::password());
}

void TestFolderExport::wholeTreeComesOutByteForByte()
{
    const QString src = path(QStringLiteral("src"));
    QVERIFY(QDir().mkpath(src + QStringLiteral("/Fotos/2026")));
    QVERIFY(QDir().mkpath(src + QStringLiteral("/Fotos/vazia")));
    QVERIFY(QDir().mkpath(src + QStringLiteral("/Músicas/Ação 🎉/mais funda")));
    QVERIFY(TestFiles::writePattern(src + QStringLiteral("/Fotos/praia.jpg"), Block + 3, 1));
    QVERIFY(TestFiles::writePattern(src + QStringLiteral("/Fotos/2026/Coração ☃ 🎉.txt"), 1000, 2));
    QVERIFY(TestFiles::write(src + QStringLiteral("/vazio.bin"), QByteArray()));
    QVERIFY(TestFiles::write(src + QStringLiteral("/Músicas/ópera.flac"), "lá lá"));
    QVERIFY(importSourceTree());

    QList<std::tuple<qint64, qint64, QString>> calls;
    FolderExport::Handler handler;
    handler.progress = [&](qint64 done, qint64 total, const QString& label) {
        calls.append({done, total, label});
    };
    int asked = 0;
    handler.existing = [&](const QString&, const QString&) {
        ++asked;
        return Answer::Skip;
    };
    FolderExport::Outcome outcome;
    const QString destination = path(QStringLiteral("destino"));
    QVERIFY(vault().exportFolder(QString(), destination, handler, outcome));
    QVERIFY(outcome.succeeded());
    QCOMPARE(vault().lastFailure().reason, Failure::Reason::None);
    QCOMPARE(outcome.files, 4);
    QCOMPARE(outcome.folders, 6);
    QCOMPARE(outcome.skipped, 0);
    QCOMPARE(asked, 0);

    QCOMPARE(TestFiles::tree(destination), TestFiles::tree(src));
    QVERIFY(TestFiles::tree(destination).contains(QStringLiteral("Músicas/Ação 🎉/mais funda/")));
    for (const QString& entry : TestFiles::tree(src)) {
        if (!entry.endsWith(QLatin1Char('/'))) {
            QVERIFY2(TestFiles::sameContents(src + QLatin1Char('/') + entry,
                                             destination + QLatin1Char('/') + entry),
                     qPrintable(entry));
        }
    }
    QCOMPARE(QFileInfo(destination + QStringLiteral("/vazio.bin")).size(), 0);

    // Progress: over the whole tree, never backwards, labelled with vault paths, ending full.
    qint64 total = 0;
    for (const QString& entry : TestFiles::tree(src)) {
        total += QFileInfo(src + QLatin1Char('/') + entry).isFile()
                     ? QFileInfo(src + QLatin1Char('/') + entry).size()
                     : 0;
    }
    QCOMPARE(total, Block + 3 + 1000 + 0 + 7);
    QVERIFY(!calls.isEmpty());
    qint64 last = 0;
    QSet<QString> labels;
    for (const auto& [done, all, label] : calls) {
        QCOMPARE(all, total);
        QVERIFY(done >= last);
        last = done;
        labels.insert(label);
    }
    QCOMPARE(std::get<0>(calls.constLast()), total);
    QCOMPARE(labels,
             QSet<QString>({QStringLiteral("Fotos/praia.jpg"), QStringLiteral("Fotos/2026/Coração ☃ 🎉.txt"),
                            QStringLiteral("vazio.bin"), QStringLiteral("Músicas/ópera.flac")}));
    // The large file reports within itself, after its first block (the files go in path order).
    QVERIFY(calls.contains(std::make_tuple(qint64(1000) + Block, total, QStringLiteral("Fotos/praia.jpg"))));
}

void TestFolderExport::aFolderBringsOnlyWhatIsBelowIt()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Docs/a.txt"), "a"));
    QVERIFY(m_fixture.importText(QStringLiteral("Docs/Sub/b.txt"), "b"));
    QVERIFY(m_fixture.importText(QStringLiteral("Docsx/c.txt"), "c"));
    QVERIFY(m_fixture.importText(QStringLiteral("raiz.txt"), "r"));
    QVERIFY(vault().createFolder(QStringLiteral("Docs/Vazia")));

    FolderExport::Outcome outcome;
    // Any letter case names the folder.
    const QString destination = path(QStringLiteral("saida"));
    QVERIFY(vault().exportFolder(QStringLiteral("docs/"), destination, {}, outcome));
    QVERIFY(outcome.succeeded());
    QCOMPARE(outcome.files, 2);
    QCOMPARE(outcome.folders, 2);
    QCOMPARE(TestFiles::tree(destination), QStringList({QStringLiteral("Sub/"), QStringLiteral("Sub/b.txt"),
                                                        QStringLiteral("Vazia/"), QStringLiteral("a.txt")}));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/Sub/b.txt")), QByteArray("b"));

    // An empty folder exports as an empty folder.
    FolderExport::Outcome empty;
    QVERIFY(vault().exportFolder(QStringLiteral("Docs/Vazia"), path(QStringLiteral("v")), {}, empty));
    QVERIFY(QFileInfo(path(QStringLiteral("v"))).isDir());
    QVERIFY(TestFiles::tree(path(QStringLiteral("v"))).isEmpty());
    QCOMPARE(empty.files, 0);
}

void TestFolderExport::refusesWhatCannotStart()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Docs/a.txt"), "a"));
    FolderExport::Outcome outcome;

    QVERIFY(!vault().exportFolder(QStringLiteral("Nada"), path(QStringLiteral("d1")), {}, outcome));
    QCOMPARE(vault().lastFailure().reason, Failure::Reason::NotFound);
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("d1"))));

    // A file is not a folder, and ".." names none.
    QVERIFY(!vault().exportFolder(QStringLiteral("Docs/a.txt"), path(QStringLiteral("d2")), {}, outcome));
    QCOMPARE(vault().lastFailure().reason, Failure::Reason::NotFound);
    QVERIFY(!vault().exportFolder(QStringLiteral(".."), path(QStringLiteral("d2")), {}, outcome));
    QCOMPARE(vault().lastFailure().reason, Failure::Reason::NotFound);
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("d2"))));

    // The destination is a file, or its parent is missing.
    QVERIFY(TestFiles::write(path(QStringLiteral("arquivo")), "x"));
    QVERIFY(!vault().exportFolder(QStringLiteral("Docs"), path(QStringLiteral("arquivo")), {}, outcome));
    QCOMPARE(vault().lastFailure().reason, Failure::Reason::DestinationUnwritable);
    QVERIFY(!vault().exportFolder(QStringLiteral("Docs"), path(QStringLiteral("falta/d3")), {}, outcome));
    QCOMPARE(vault().lastFailure().reason, Failure::Reason::DestinationUnwritable);
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("falta"))));

    QVERIFY(vault().lock());
    QVERIFY(!vault().exportFolder(QString(), path(QStringLiteral("d4")), {}, outcome));
    QCOMPARE(vault().lastFailure().reason, Failure::Reason::NotUnlocked);
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("d4"))));
}

void TestFolderExport::existingFilesAreAskedAndEachAnswerIsHonoured()
{
    const QStringList names{QStringLiteral("a.txt"), QStringLiteral("b.txt"), QStringLiteral("c.txt"),
                            QStringLiteral("d.txt"), QStringLiteral("e.txt")};
    for (const QString& name : names) {
        QVERIFY(m_fixture.importText(QStringLiteral("P/") + name, "novo " + name.toUtf8()));
    }
    const QString destination = path(QStringLiteral("destino"));
    const auto fillOld = [&] {
        QVERIFY(QDir().mkpath(destination));
        for (const QString& name : names) {
            QVERIFY(TestFiles::write(destination + QLatin1Char('/') + name, "velho"));
        }
    };
    const auto contents = [&] {
        QStringList list;
        for (const QString& name : names) {
            list << QString::fromUtf8(TestFiles::read(destination + QLatin1Char('/') + name));
        }
        return list;
    };

    // Yes, no, yes to all: the rest are not asked and are overwritten.
    fillOld();
    QList<Answer> answers{Answer::Overwrite, Answer::Skip, Answer::OverwriteAll};
    QStringList asked;
    FolderExport::Handler handler;
    handler.existing = [&](const QString& vaultPath, const QString& target) {
        asked << vaultPath;
        [&] { QCOMPARE(target, destination + QLatin1Char('/') + vaultFileName(vaultPath)); }();
        return answers.takeFirst();
    };
    FolderExport::Outcome outcome;
    QVERIFY(vault().exportFolder(QStringLiteral("P"), destination, handler, outcome));
    QCOMPARE(asked,
             QStringList({QStringLiteral("P/a.txt"), QStringLiteral("P/b.txt"), QStringLiteral("P/c.txt")}));
    QCOMPARE(contents(),
             QStringList({QStringLiteral("novo a.txt"), QStringLiteral("velho"), QStringLiteral("novo c.txt"),
                          QStringLiteral("novo d.txt"), QStringLiteral("novo e.txt")}));
    QCOMPARE(outcome.files, 4);
    QCOMPARE(outcome.skipped, 1);
    QVERIFY(outcome.succeeded());

    // No to all, after one yes: the rest keep what they had.
    fillOld();
    answers = {Answer::Overwrite, Answer::SkipAll};
    asked.clear();
    QVERIFY(vault().exportFolder(QStringLiteral("P"), destination, handler, outcome));
    QCOMPARE(asked, QStringList({QStringLiteral("P/a.txt"), QStringLiteral("P/b.txt")}));
    QCOMPARE(contents(),
             QStringList({QStringLiteral("novo a.txt"), QStringLiteral("velho"), QStringLiteral("velho"),
                          QStringLiteral("velho"), QStringLiteral("velho")}));
    QCOMPARE(outcome.files, 1);
    QCOMPARE(outcome.skipped, 4);

    // Nobody to ask: nothing is overwritten.
    fillOld();
    QVERIFY(vault().exportFolder(QStringLiteral("P"), destination, {}, outcome));
    QCOMPARE(contents(), QStringList(names.size(), QStringLiteral("velho")));
    QCOMPARE(outcome.skipped, 5);
    QCOMPARE(outcome.files, 0);
}

void TestFolderExport::aFailingFileIsReportedWhileTheRestGoOn()
{
    QVERIFY(FailureInjection::isAvailable());
    QVERIFY(m_fixture.importText(QStringLiteral("T/antes.txt"), "antes"));
    const QString big = path(QStringLiteral("grande.bin"));
    QVERIFY(TestFiles::writePattern(big, Block + 10, 7));
    QVERIFY(vault().importFile(big, QStringLiteral("T/quebra/grande.bin")));
    QVERIFY(vault().importFile(big, QStringLiteral("T/quebra/outro.bin")));
    QVERIFY(m_fixture.importText(QStringLiteral("T/z/depois.txt"), "depois"));

    const QString destination = path(QStringLiteral("destino"));
    // The one the user chose to overwrite keeps its bytes when its replacement fails.
    QVERIFY(QDir().mkpath(destination + QStringLiteral("/quebra")));
    QVERIFY(TestFiles::write(destination + QStringLiteral("/quebra/outro.bin"), "velho"));
    QList<FolderExport::FailedEntry> told;
    FolderExport::Handler handler;
    handler.existing = [](const QString&, const QString&) { return Answer::Overwrite; };
    handler.failed = [&](const QString& vaultPath, bool isFolder, const Failure& failure) {
        told << FolderExport::FailedEntry{vaultPath, isFolder, failure};
    };
    FolderExport::Outcome outcome;
    {
        // Writes in the folder quebra stop after 1 MiB: each file there fails half written.
        const FailureInjection refusing(QStringLiteral("destino/quebra"), "write", 1024 * 1024);
        QVERIFY(vault().exportFolder(QStringLiteral("T"), destination, handler, outcome));
    }
    QCOMPARE(outcome.files, 2);
    QCOMPARE(outcome.failed.size(), 2);
    QCOMPARE(paths(told), paths(outcome.failed));
    QCOMPARE(paths(outcome.failed),
             QStringList({QStringLiteral("T/quebra/grande.bin"), QStringLiteral("T/quebra/outro.bin")}));
    for (const FolderExport::FailedEntry& entry : outcome.failed) {
        QCOMPARE(entry.failure.reason, Failure::Reason::DestinationUnwritable);
        QVERIFY(!entry.isFolder);
    }
    QCOMPARE(paths(outcome.failed, true), QStringList({destination + QStringLiteral("/quebra/grande.bin"),
                                                       destination + QStringLiteral("/quebra/outro.bin")}));
    QCOMPARE(vault().lastFailure().reason, Failure::Reason::DestinationUnwritable);
    // No partial file; the others all there.
    QCOMPARE(TestFiles::tree(destination),
             QStringList({QStringLiteral("antes.txt"), QStringLiteral("quebra/"),
                          QStringLiteral("quebra/outro.bin"), QStringLiteral("z/"),
                          QStringLiteral("z/depois.txt")}));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/quebra/outro.bin")), QByteArray("velho"));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/antes.txt")), QByteArray("antes"));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/z/depois.txt")), QByteArray("depois"));
}

void TestFolderExport::hostilePathsAreRefusedAndNothingIsWrittenOutside()
{
    const QString outside = path(QStringLiteral("fora"));
    QVERIFY(QDir().mkpath(outside + QStringLiteral("/dentro")));
    const QString destination = outside + QStringLiteral("/dentro/destino");
    const QStringList hostile{QStringLiteral("../escapou1.txt"),
                              QStringLiteral("Pasta/../../escapou2.txt"),
                              QStringLiteral("Pasta/../../../escapou3.txt"),
                              outside + QStringLiteral("/escapou4.txt"),
                              QStringLiteral("Pasta\\..\\..\\escapou5.txt"),
                              QStringLiteral("C:/escapou6.txt"),
                              QStringLiteral("C:escapou7.txt")};
    QVERIFY(appendHostile(hostile + QStringList{QStringLiteral("Pasta/legitimo.txt")}));
    for (const QString& vaultPath : hostile) {
        QVERIFY2(vault().index().findFile(vaultPath) != nullptr, qPrintable(vaultPath));
    }
    const QStringList before = TestFiles::tree(outside);

    FolderExport::Outcome outcome;
    QVERIFY(vault().exportFolder(QString(), destination, {}, outcome));
    QCOMPARE(outcome.files, 1);
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/Pasta/legitimo.txt")), QByteArray("hostil"));
    for (const FolderExport::FailedEntry& entry : outcome.failed) {
        QCOMPARE(entry.failure.reason, Failure::Reason::NameNotAllowed);
        QCOMPARE(entry.failure.path, entry.vaultPath);
    }
    for (const QString& vaultPath : hostile) {
        QVERIFY2(paths(outcome.failed).contains(vaultPath), qPrintable(vaultPath));
    }
    // Outside the destination, nothing new; inside it, only the legitimate file and its folder.
    QStringList after = TestFiles::tree(outside);
    after.removeIf([](const QString& entry) { return entry.startsWith(QStringLiteral("dentro/destino/")); });
    QVERIFY(!before.contains(QStringLiteral("dentro/destino/")));
    QCOMPARE(after, before);
    // The folders the editor added above the absolute path are plain ones, made inside; no file but
    // the legitimate one is.
    QStringList files = TestFiles::tree(destination);
    files.removeIf([](const QString& entry) { return entry.endsWith(QLatin1Char('/')); });
    QCOMPARE(files, QStringList{QStringLiteral("Pasta/legitimo.txt")});
    QDirIterator everything(m_fixture.path(QString()), QDir::Files, QDirIterator::Subdirectories);
    while (everything.hasNext()) {
        QVERIFY2(!everything.next().contains(QStringLiteral("escapou")), qPrintable(everything.filePath()));
    }

    // Exported from a folder, its hostile entries are refused the same way.
    FolderExport::Outcome fromFolder;
    const QString second = outside + QStringLiteral("/dentro/segundo");
    QVERIFY(vault().exportFolder(QStringLiteral("Pasta"), second, {}, fromFolder));
    QCOMPARE(fromFolder.files, 1);
    QVERIFY(paths(fromFolder.failed).contains(QStringLiteral("Pasta/../../escapou2.txt")));
    QCOMPARE(TestFiles::tree(second), QStringList{QStringLiteral("legitimo.txt")});
    QVERIFY(!QFileInfo::exists(outside + QStringLiteral("/escapou2.txt")));
    QVERIFY(!QFileInfo::exists(outside + QStringLiteral("/dentro/escapou2.txt")));
}

void TestFolderExport::aLinkInTheDestinationCannotLeadOutside()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Link/segredo.txt"), "segredo"));
    QVERIFY(m_fixture.importText(QStringLiteral("arquivo.txt"), "novo"));
    QVERIFY(m_fixture.importText(QStringLiteral("ok.txt"), "ok"));
    const QString outside = path(QStringLiteral("fora"));
    QVERIFY(QDir().mkpath(outside));
    QVERIFY(TestFiles::write(outside + QStringLiteral("/alvo.txt"), "alvo"));
    const QString destination = path(QStringLiteral("destino"));
    QVERIFY(QDir().mkpath(destination));
    // A folder and a file of the destination that are links to outside it.
    QVERIFY(QFile::link(outside, destination + QStringLiteral("/Link")));
    QVERIFY(QFile::link(outside + QStringLiteral("/alvo.txt"), destination + QStringLiteral("/arquivo.txt")));

    FolderExport::Outcome outcome;
    FolderExport::Handler handler;
    handler.existing = [](const QString&, const QString&) { return Answer::OverwriteAll; };
    QVERIFY(vault().exportFolder(QString(), destination, handler, outcome));
    QCOMPARE(outcome.files, 1);
    QCOMPARE(paths(outcome.failed), QStringList({QStringLiteral("Link"), QStringLiteral("Link/segredo.txt"),
                                                 QStringLiteral("arquivo.txt")}));
    QCOMPARE(TestFiles::tree(outside), QStringList{QStringLiteral("alvo.txt")});
    QCOMPARE(TestFiles::read(outside + QStringLiteral("/alvo.txt")), QByteArray("alvo"));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/ok.txt")), QByteArray("ok"));
}

QTEST_GUILESS_MAIN(TestFolderExport)
#include "tst_folderexport.moc"
