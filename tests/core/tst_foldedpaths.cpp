// The index finds entries ignoring letter case through a hash of folded paths; every answer must be
// the one Qt's case-blind comparison gives by walking the whole list.
#include "core/index/FoldedPaths.h"
#include "core/index/VaultIndex.h"
#include "core/index/VaultPath.h"

#include <QRandomGenerator>
#include <QtTest>

using namespace Velmarin::Core;

namespace {

// Letters whose case is not plain ASCII: accents, the sharp s, final sigma, a ligature, dotted I,
// Deseret (outside the first plane) and an unpaired surrogate.
const QStringList Pieces = {
    QStringLiteral("a"),          QStringLiteral("A"),          QStringLiteral("é"),    QStringLiteral("É"),
    QStringLiteral("ß"),          QStringLiteral("ẞ"),          QStringLiteral("σ"),    QStringLiteral("Σ"),
    QStringLiteral("ς"),          QStringLiteral("ﬁ"),          QStringLiteral("İ"),    QStringLiteral("i"),
    QStringLiteral("\U00010400"), QStringLiteral("\U00010428"), QString(QChar(0xD801)), QStringLiteral("ç"),
    QStringLiteral("Ç"),          QStringLiteral("/"),
};

QString randomPath(QRandomGenerator& random)
{
    QString path;
    const int length = 1 + random.bounded(4);
    for (int i = 0; i < length; ++i) {
        path += Pieces.at(random.bounded(Pieces.size()));
    }
    return path;
}

const FileEntry* walk(const VaultIndex& index, const QString& path)
{
    for (const FileEntry& file : index.files()) {
        if (isSameVaultPath(file.vaultPath, path)) {
            return &file;
        }
    }
    return nullptr;
}

} // namespace

class TestFoldedPaths : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findsWhatTheWholeWalkFinds();
    void theFirstOfTwoAlikeIsFoundUntilItGoes();
};

void TestFoldedPaths::findsWhatTheWholeWalkFinds()
{
    QRandomGenerator random(19);
    VaultIndex index;
    for (int i = 0; i < 400; ++i) {
        FileEntry file;
        file.vaultPath = randomPath(random);
        index.upsertFile(file);
    }
    for (int round = 0; round < 4; ++round) {
        for (int i = 0; i < 2000; ++i) {
            const QString query = randomPath(random);
            QCOMPARE(index.findFile(query), walk(index, query));
        }
        // Removals shift positions: the next lookup rebuilds them.
        for (int i = 0; i < 40 && !index.files().isEmpty(); ++i) {
            index.removeFile(QString(index.files().at(random.bounded(index.files().size())).vaultPath));
        }
    }
}

void TestFoldedPaths::theFirstOfTwoAlikeIsFoundUntilItGoes()
{
    VaultIndex index;
    FileEntry first;
    first.vaultPath = QStringLiteral("Fotos/Ação.jpg");
    FileEntry second;
    second.vaultPath = QStringLiteral("FOTOS/AÇÃO.JPG");
    QVERIFY(index.upsertFile(first));
    QVERIFY(index.findFile(QStringLiteral("fotos/ação.jpg")) != nullptr);
    QVERIFY(index.upsertFile(second));
    QCOMPARE(index.findFile(QStringLiteral("fotos/ação.jpg"))->vaultPath, first.vaultPath);
    QVERIFY(index.removeFile(first.vaultPath));
    QCOMPARE(index.findFile(QStringLiteral("fotos/ação.jpg"))->vaultPath, second.vaultPath);
    QCOMPARE(FoldedPaths::fold(QStringLiteral("\U00010400")), QStringLiteral("\U00010428"));
}

QTEST_GUILESS_MAIN(TestFoldedPaths)
#include "tst_foldedpaths.moc"
