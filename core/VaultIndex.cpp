#include "VaultIndex.h"

#include "VaultPath.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QVariant>

namespace Velmarin::Core {

namespace {

QString key(const char* name)
{
    return QString::fromLatin1(name);
}

template <typename Entry, typename PathOf>
bool upsert(QList<Entry>& list, const Entry& entry, PathOf pathOf)
{
    const QString& path = pathOf(entry);
    if (path.isEmpty()) {
        return false;
    }
    for (Entry& existing : list) {
        if (pathOf(existing) == path) {
            existing = entry;
            return true;
        }
    }
    list.append(entry);
    return true;
}

template <typename Entry, typename PathOf>
bool removeExact(QList<Entry>& list, const QString& path, PathOf pathOf)
{
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (pathOf(list.at(i)) == path) {
            list.removeAt(i);
            return true;
        }
    }
    return false;
}

template <typename Entry, typename PathOf>
const Entry* findIgnoringCase(const QList<Entry>& list, const QString& path, PathOf pathOf)
{
    for (const Entry& entry : list) {
        if (isSameVaultPath(pathOf(entry), path)) {
            return &entry;
        }
    }
    return nullptr;
}

const QString& filePath(const FileEntry& entry)
{
    return entry.vaultPath;
}

const QString& directoryPath(const DirectoryEntry& entry)
{
    return entry.path;
}

// Numbers go through a general value so that a numeric string still reads.
qint64 readInt64(const QJsonObject& object, const char* name)
{
    return object.value(key(name)).toVariant().toLongLong();
}

QJsonObject blockToJson(const BlockEntry& block)
{
    QJsonObject object;
    object.insert(key("offset"), block.offset);
    object.insert(key("plainSize"), block.plainSize);
    object.insert(key("encryptedSize"), block.encryptedSize);
    object.insert(key("nonce"), QString::fromLatin1(block.nonce.toBase64()));
    return object;
}

QJsonObject fileToJson(const FileEntry& file)
{
    QJsonArray blocks;
    for (const BlockEntry& block : file.blocks) {
        blocks.append(blockToJson(block));
    }
    QJsonObject object;
    object.insert(key("id"), file.id);
    object.insert(key("vaultPath"), file.vaultPath);
    object.insert(key("sizeBytes"), file.sizeBytes);
    object.insert(key("lastModifiedUtc"), VaultIndex::formatTimestamp(file.lastModifiedUtc));
    object.insert(key("sha256"), QString::fromLatin1(file.sha256.toHex()));
    object.insert(key("blocks"), blocks);
    return object;
}

QJsonObject directoryToJson(const DirectoryEntry& directory)
{
    QJsonObject object;
    object.insert(key("path"), directory.path);
    object.insert(key("createdUtc"), VaultIndex::formatTimestamp(directory.createdUtc));
    object.insert(key("modifiedUtc"), VaultIndex::formatTimestamp(directory.modifiedUtc));
    return object;
}

FileEntry fileFromJson(const QJsonObject& object)
{
    FileEntry file;
    file.id = object.value(key("id")).toString();
    file.vaultPath = object.value(key("vaultPath")).toString();
    file.sizeBytes = readInt64(object, "sizeBytes");
    file.lastModifiedUtc = VaultIndex::parseTimestamp(object.value(key("lastModifiedUtc")).toString());
    file.sha256 = QByteArray::fromHex(object.value(key("sha256")).toString().toLatin1());
    const QJsonArray blocks = object.value(key("blocks")).toArray();
    for (const QJsonValue& value : blocks) {
        const QJsonObject blockObject = value.toObject();
        BlockEntry block;
        block.offset = readInt64(blockObject, "offset");
        block.plainSize = readInt64(blockObject, "plainSize");
        block.encryptedSize = readInt64(blockObject, "encryptedSize");
        block.nonce = QByteArray::fromBase64(blockObject.value(key("nonce")).toString().toLatin1());
        file.blocks.append(block);
    }
    return file;
}

DirectoryEntry directoryFromJson(const QJsonObject& object)
{
    DirectoryEntry directory;
    directory.path = object.value(key("path")).toString();
    directory.createdUtc = VaultIndex::parseTimestamp(object.value(key("createdUtc")).toString());
    directory.modifiedUtc = VaultIndex::parseTimestamp(object.value(key("modifiedUtc")).toString());
    return directory;
}

} // namespace

bool VaultIndex::upsertFile(const FileEntry& entry)
{
    return upsert(m_files, entry, filePath);
}

bool VaultIndex::upsertDirectory(const DirectoryEntry& entry)
{
    return upsert(m_directories, entry, directoryPath);
}

bool VaultIndex::removeFile(const QString& vaultPath)
{
    return removeExact(m_files, vaultPath, filePath);
}

bool VaultIndex::removeDirectory(const QString& path)
{
    return removeExact(m_directories, path, directoryPath);
}

bool VaultIndex::fileExists(const QString& path) const
{
    return findFile(path) != nullptr;
}

bool VaultIndex::directoryExists(const QString& path) const
{
    return findDirectory(path) != nullptr;
}

const FileEntry* VaultIndex::findFile(const QString& path) const
{
    return findIgnoringCase(m_files, path, filePath);
}

const DirectoryEntry* VaultIndex::findDirectory(const QString& path) const
{
    return findIgnoringCase(m_directories, path, directoryPath);
}

bool VaultIndex::hasEntriesBelow(const QString& folder) const
{
    for (const DirectoryEntry& directory : m_directories) {
        if (liesBelow(directory.path, folder)) {
            return true;
        }
    }
    for (const FileEntry& file : m_files) {
        if (liesBelow(file.vaultPath, folder)) {
            return true;
        }
    }
    return false;
}

void VaultIndex::ensureParentDirectories(const QString& path)
{
    const QString parent = parentVaultPath(path);
    if (parent.isEmpty()) {
        return;
    }
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QString prefix;
    for (const QString& segment : parent.split(QLatin1Char('/'))) {
        prefix = joinVaultPath(prefix, segment);
        if (!directoryExists(prefix)) {
            upsertDirectory(DirectoryEntry{prefix, now, now});
        }
    }
}

void VaultIndex::clear()
{
    m_files.clear();
    m_directories.clear();
}

QByteArray VaultIndex::toJson() const
{
    QJsonArray files;
    for (const FileEntry& file : m_files) {
        files.append(fileToJson(file));
    }
    QJsonArray directories;
    for (const DirectoryEntry& directory : m_directories) {
        directories.append(directoryToJson(directory));
    }
    QJsonObject root;
    root.insert(key("formatVersion"), 1);
    root.insert(key("files"), files);
    root.insert(key("directories"), directories);
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

VaultIndex VaultIndex::fromJson(const QByteArray& json)
{
    VaultIndex index;
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isObject()) {
        return index;
    }
    const QJsonObject root = document.object();
    for (const QJsonValue& value : root.value(key("files")).toArray()) {
        index.upsertFile(fileFromJson(value.toObject()));
    }
    for (const QJsonValue& value : root.value(key("directories")).toArray()) {
        index.upsertDirectory(directoryFromJson(value.toObject()));
    }
    return index;
}

QString VaultIndex::formatTimestamp(const QDateTime& dateTime)
{
    return dateTime.toUTC().toString(Qt::ISODateWithMs);
}

QDateTime VaultIndex::parseTimestamp(const QString& text)
{
    return QDateTime::fromString(text, Qt::ISODateWithMs).toUTC();
}

} // namespace Velmarin::Core
