// Writes the seed corpora of the fuzz targets: fuzz_seeds <folder>, which receives header/, unlock/,
// index/ and path/. The committed seeds came from this program; run it again after a format change.
#include "FuzzContainer.h"
#include "LockedVaultEditor.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"
#include "core/container/IndexCipher.h"
#include "core/crypto/VaultCrypto.h"
#include "core/index/VaultIndex.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

using namespace Velmarin;
using namespace Velmarin::Core;

namespace {

bool writeSeed(const QString& folder, const QString& name, const QByteArray& bytes)
{
    QFile file(QDir(folder).filePath(name));
    return QDir().mkpath(folder) && file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(bytes) == bytes.size();
}

QByteArray compactFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? Tests::FuzzContainer::compact(file.readAll()) : QByteArray();
}

using Edit = std::function<bool(Tests::LockedVaultEditor&)>;

// A vault built by edit, in compact form; empty on failure.
QByteArray vaultSeed(const QString& folder, const QString& name, const Edit& edit)
{
    const QString path = QDir(folder).filePath(name);
    Tests::LockedVaultEditor editor;
    if (!Tests::FuzzContainer::writeEmptyVault(path) || !editor.open(path, Tests::FuzzContainer::Password) ||
        !edit(editor) || !editor.save()) {
        return {};
    }
    return compactFile(path);
}

const QDateTime Stamp = QDateTime(QDate(2026, 3, 14), QTime(15, 9, 26), Qt::UTC);

bool addFiles(Tests::LockedVaultEditor& editor)
{
    editor.index().ensureParentDirectories(QStringLiteral("Pasta vazia/x"));
    return editor.appendFile(QStringLiteral("leia-me.txt"), "Olá, cofre.\n", Stamp) &&
           editor.appendFile(QStringLiteral("Fotos/2026/praia.jpg"), QByteArray(700, '\xff'), Stamp) &&
           editor.appendFile(QStringLiteral("vazio.bin"), QByteArray(), Stamp);
}

// Blocks the index vouches for but the file does not hold: past the end, and shared by two files.
bool addLyingBlocks(Tests::LockedVaultEditor& editor)
{
    if (!addFiles(editor)) {
        return false;
    }
    QList<FileEntry> files = editor.index().files();
    FileEntry pastEnd = files.at(0);
    pastEnd.vaultPath = QStringLiteral("além do fim.txt");
    pastEnd.blocks[0].offset += 1 << 20;
    FileEntry shared = files.at(1);
    shared.vaultPath = QStringLiteral("Fotos/cópia.jpg");
    shared.blocks[0].offset -= 8;
    return editor.index().upsertFile(pastEnd) && editor.index().upsertFile(shared);
}

// A header of the older layout, with its index in the clear and a payload per file.
QByteArray legacyHeader()
{
    const QByteArray json =
        R"({"magic":"VLTBOX","formatVersion":3,"fileIndex":{"files":[]},"filePayloads":{"a":"YQ"}})";
    return ContainerFile::FileMagic +
           QByteArray::number(json.size()).rightJustified(ContainerFile::LengthDigits, '0') + '\n' + json;
}

bool writeUnlockSeeds(const QString& folder, const QString& scratch)
{
    const QByteArray empty = vaultSeed(scratch, QStringLiteral("vazio.vltx"), [](auto&) { return true; });
    const QByteArray full = vaultSeed(scratch, QStringLiteral("cheio.vltx"), addFiles);
    const QByteArray lying = vaultSeed(scratch, QStringLiteral("mentiroso.vltx"), addLyingBlocks);
    return !empty.isEmpty() && !full.isEmpty() && !lying.isEmpty() &&
           writeSeed(folder + QStringLiteral("/unlock"), QStringLiteral("vazio"), empty) &&
           writeSeed(folder + QStringLiteral("/unlock"), QStringLiteral("arquivos"), full) &&
           writeSeed(folder + QStringLiteral("/unlock"), QStringLiteral("blocos-falsos"), lying) &&
           writeSeed(folder + QStringLiteral("/header"), QStringLiteral("vazio"), empty) &&
           writeSeed(folder + QStringLiteral("/header"), QStringLiteral("arquivos"), full) &&
           writeSeed(folder + QStringLiteral("/header"), QStringLiteral("legado"), legacyHeader());
}

bool writeIndexSeeds(const QString& folder)
{
    VaultIndex index;
    index.ensureParentDirectories(QStringLiteral("Documentos/2026/x"));
    FileEntry entry;
    entry.id = QStringLiteral("5d1c0f0e-8a77-4d33-9d43-0e0a3f1f2b6c");
    entry.vaultPath = QStringLiteral("Documentos/2026/relatório \"final\".pdf");
    entry.sizeBytes = 17000000;
    entry.lastModifiedUtc = Stamp;
    entry.sha256 = QCryptographicHash::hash("relatório", QCryptographicHash::Sha256);
    entry.blocks = {BlockEntry{8388636, 16777216, 16777232, QByteArray(24, 'n')},
                    BlockEntry{25165868, 222784, 222800, QByteArray(24, 'm')}};
    index.upsertFile(entry);
    const QString folderPath = folder + QStringLiteral("/index");
    return writeSeed(folderPath, QStringLiteral("indice"), index.toJson()) &&
           writeSeed(folderPath, QStringLiteral("vazio"), VaultIndex().toJson()) &&
           writeSeed(
               folderPath, QStringLiteral("tamanhos-hostis"),
               R"({"directories":[{"path":"a"}],"files":[{"id":"x","vaultPath":"a/b","sizeBytes":-5,)"
               R"("blocks":[{"offset":-1,"plainSize":9007199254740993,"encryptedSize":1e300,"nonce":"!"}]}]})");
}

bool writePathSeeds(const QString& folder)
{
    const QString folderPath = folder + QStringLiteral("/path");
    const QList<QPair<QString, QByteArray>> seeds = {
        {QStringLiteral("simples"), "Fotos/2026/praia.jpg"},
        {QStringLiteral("barras"), " \\Fotos//2026\\ / praia.jpg/ "},
        {QStringLiteral("pontos"), "a/./b/../c"},
        {QStringLiteral("reservados"), "CON/aux.txt/LPT1\x01\x1b[31m"},
        {QStringLiteral("acentos"), "Ação/été/\xf0\x9f\x93\x81"},
    };
    for (const auto& [name, text] : seeds) {
        if (!writeSeed(folderPath, name, text)) {
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream err(stderr);
    if (argc != 2) {
        err << "uso: fuzz_seeds <pasta>\n";
        return 2;
    }
    const QString folder = QString::fromLocal8Bit(argv[1]);
    QTemporaryDir scratch;
    if (!scratch.isValid() || !writeUnlockSeeds(folder, scratch.path()) || !writeIndexSeeds(folder) ||
        !writePathSeeds(folder)) {
        err << "falha ao escrever as sementes em " << folder << '\n';
        return 1;
    }
    return 0;
}
