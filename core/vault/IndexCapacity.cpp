#include "core/vault/IndexCapacity.h"

#include "core/container/ContainerFile.h"
#include "core/container/PayloadStore.h"
#include "core/crypto/VaultCrypto.h"
#include "core/index/FoldedPaths.h"
#include "core/index/VaultIndex.h"
#include "core/index/VaultPath.h"

#include <QSet>

#include <limits>

namespace Velmarin::Core {

namespace {

// Room for a modification time past year 9999, which Qt writes longer than the usual 24 characters.
constexpr qint64 TimestampSlack = 8;

qint64 base64Size(qint64 bytes)
{
    return 4 * ((bytes + 2) / 3);
}

QDateTime widestTime()
{
    return QDateTime(QDate(9999, 12, 31), QTime(23, 59, 59, 999), Qt::UTC);
}

} // namespace

IndexCapacity::IndexCapacity(const ContainerFile& file, const ContainerHeader& header,
                             const VaultIndex& index)
    : m_index(index)
    , m_fixedSize(file.serializeHeader(header).size() - base64Size(header.encryptedIndex.size()))
    , m_indexJsonSize(header.encryptedIndex.size() - VaultCrypto::TagSize)
{}

qint64 IndexCapacity::headerSize(qint64 sealedSize) const
{
    return m_fixedSize + base64Size(sealedSize);
}

int IndexCapacity::fittingFiles(const QList<ImportItem>& items) const
{
    qint64 json = m_indexJsonSize;
    QSet<QString> newFolders;
    const auto addFolder = [&](const QString& folder) {
        if (!folder.isEmpty() && !m_index.directoryExists(folder) &&
            !newFolders.contains(FoldedPaths::fold(folder))) {
            newFolders.insert(FoldedPaths::fold(folder));
            json += folderBound(folder);
        }
    };
    int fitting = 0;
    for (const ImportItem& item : items) {
        const QString path = normalizeVaultPath(item.vaultPath);
        for (QString folder = parentVaultPath(path); !folder.isEmpty(); folder = parentVaultPath(folder)) {
            addFolder(folder);
        }
        if (item.isFolder) {
            addFolder(path);
        } else {
            json += fileBound(path, item.size);
        }
        if (headerSize(json + VaultCrypto::TagSize) > ContainerFile::HeaderRegionSize) {
            return fitting;
        }
        fitting += item.isFolder ? 0 : 1;
    }
    return fitting;
}

qint64 IndexCapacity::fileBound(const QString& vaultPath, qint64 size)
{
    FileEntry entry;
    entry.id = QString(36, QLatin1Char('0'));
    entry.vaultPath = vaultPath;
    entry.sizeBytes = size;
    entry.lastModifiedUtc = widestTime();
    entry.sha256 = QByteArray(32, '\0');
    const BlockEntry farthest{std::numeric_limits<qint64>::max(), PayloadStore::BlockSize,
                              PayloadStore::BlockSize + VaultCrypto::TagSize,
                              QByteArray(VaultCrypto::NonceSize, '\0')};
    for (qint64 left = size; left > 0; left -= PayloadStore::BlockSize) {
        entry.blocks.append(farthest);
    }
    return VaultIndex::jsonSize(entry) + TimestampSlack;
}

bool IndexCapacity::isWithinBound(const FileEntry& entry, qint64 listedSize)
{
    return VaultIndex::jsonSize(entry) <= fileBound(entry.vaultPath, listedSize);
}

qint64 IndexCapacity::folderBound(const QString& path)
{
    return VaultIndex::jsonSize(DirectoryEntry{path, widestTime(), widestTime()}) + 2 * TimestampSlack;
}

} // namespace Velmarin::Core
