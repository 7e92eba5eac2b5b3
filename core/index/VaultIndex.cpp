#include "core/index/VaultIndex.h"

#include "core/index/VaultPath.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QVariant>

#include <algorithm>

namespace Velmarin::Core {

namespace {

QString key(const char* name)
{
    return QString::fromLatin1(name);
}

template <typename Entry, typename PathOf>
bool upsert(QList<Entry>& list, QHash<QString, qsizetype>& positions, FoldedPaths& folded, const Entry& entry,
            PathOf pathOf)
{
    const QString& path = pathOf(entry);
    if (path.isEmpty()) {
        return false;
    }
    const auto found = positions.constFind(path);
    if (found != positions.cend()) {
        list[found.value()] = entry;
        return true;
    }
    positions.insert(path, list.size());
    folded.added(path, list.size());
    list.append(entry);
    return true;
}

template <typename Entry, typename PathOf>
bool removeExact(QList<Entry>& list, QHash<QString, qsizetype>& positions, FoldedPaths& folded,
                 const QString& path, PathOf pathOf)
{
    const auto found = positions.find(path);
    if (found == positions.end()) {
        return false;
    }
    const qsizetype at = found.value();
    positions.erase(found);
    list.removeAt(at);
    for (qsizetype i = at; i < list.size(); ++i) {
        positions[pathOf(list.at(i))] = i;
    }
    folded.invalidate();
    return true;
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

// The index is written as compact JSON with its keys in sorted order, the bytes QJsonDocument
// gives, but without building a document: that costs several microseconds an entry, which in a
// vault of thousands of files was most of the time of every change.
void appendString(QByteArray& out, const QString& text)
{
    const auto plain = [](QChar c) {
        return c.unicode() >= 0x20 && c.unicode() < 0x7f && c != u'"' && c != u'\\';
    };
    if (std::all_of(text.cbegin(), text.cend(), plain)) {
        out += '"';
        out += text.toLatin1();
        out += '"';
        return;
    }
    // Anything that needs escaping or encoding is left to Qt's writer: names, now and then.
    const QByteArray quoted = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    out += QByteArrayView(quoted).sliced(1, quoted.size() - 2);
}

void appendMember(QByteArray& out, const char* name, const QString& text)
{
    out += '"';
    out += name;
    out += "\":";
    appendString(out, text);
}

void appendMember(QByteArray& out, const char* name, qint64 number)
{
    out += '"';
    out += name;
    out += "\":";
    out += QByteArray::number(number);
}

void appendBlock(QByteArray& out, const BlockEntry& block)
{
    out += '{';
    appendMember(out, "encryptedSize", block.encryptedSize);
    out += ',';
    appendMember(out, "nonce", QString::fromLatin1(block.nonce.toBase64()));
    out += ',';
    appendMember(out, "offset", block.offset);
    out += ',';
    appendMember(out, "plainSize", block.plainSize);
    out += '}';
}

template <typename Entry, typename Append>
void appendArray(QByteArray& out, const QList<Entry>& entries, Append append)
{
    out += '[';
    for (qsizetype i = 0; i < entries.size(); ++i) {
        if (i > 0) {
            out += ',';
        }
        append(out, entries.at(i));
    }
    out += ']';
}

void appendFile(QByteArray& out, const FileEntry& file)
{
    out += "{\"blocks\":";
    appendArray(out, file.blocks, appendBlock);
    out += ',';
    appendMember(out, "id", file.id);
    out += ',';
    appendMember(out, "lastModifiedUtc", VaultIndex::formatTimestamp(file.lastModifiedUtc));
    out += ',';
    appendMember(out, "sha256", QString::fromLatin1(file.sha256.toHex()));
    out += ',';
    appendMember(out, "sizeBytes", file.sizeBytes);
    out += ',';
    appendMember(out, "vaultPath", file.vaultPath);
    out += '}';
}

void appendDirectory(QByteArray& out, const DirectoryEntry& directory)
{
    out += '{';
    appendMember(out, "createdUtc", VaultIndex::formatTimestamp(directory.createdUtc));
    out += ',';
    appendMember(out, "modifiedUtc", VaultIndex::formatTimestamp(directory.modifiedUtc));
    out += ',';
    appendMember(out, "path", directory.path);
    out += '}';
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
    return upsert(m_files, m_filePositions, m_foldedFiles, entry, filePath);
}

bool VaultIndex::upsertDirectory(const DirectoryEntry& entry)
{
    return upsert(m_directories, m_directoryPositions, m_foldedDirectories, entry, directoryPath);
}

bool VaultIndex::removeFile(const QString& vaultPath)
{
    return removeExact(m_files, m_filePositions, m_foldedFiles, vaultPath, filePath);
}

bool VaultIndex::removeDirectory(const QString& path)
{
    return removeExact(m_directories, m_directoryPositions, m_foldedDirectories, path, directoryPath);
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
    return m_foldedFiles.find(m_files, path, filePath);
}

const FileEntry* VaultIndex::findFilePreferringExact(const QString& path) const
{
    const auto exact = m_filePositions.constFind(path);
    return exact != m_filePositions.cend() ? &m_files.at(exact.value()) : findFile(path);
}

const DirectoryEntry* VaultIndex::findDirectory(const QString& path) const
{
    return m_foldedDirectories.find(m_directories, path, directoryPath);
}

bool VaultIndex::crossesFile(const QString& path) const
{
    for (QString folder = parentVaultPath(path); !folder.isEmpty(); folder = parentVaultPath(folder)) {
        if (fileExists(folder)) {
            return true;
        }
    }
    return false;
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
    m_filePositions.clear();
    m_directoryPositions.clear();
    m_foldedFiles.invalidate();
    m_foldedDirectories.invalidate();
}

QByteArray VaultIndex::toJson() const
{
    QByteArray out;
    // About 330 bytes an entry: one allocation up front instead of many regrowths.
    out.reserve(64 + 360 * (m_files.size() + m_directories.size()));
    out += "{\"directories\":";
    appendArray(out, m_directories, appendDirectory);
    out += ",\"files\":";
    appendArray(out, m_files, appendFile);
    out += ",\"formatVersion\":1}";
    return out;
}

qint64 VaultIndex::jsonSize(const FileEntry& file)
{
    QByteArray out;
    appendFile(out, file);
    return out.size() + 1;
}

qint64 VaultIndex::jsonSize(const DirectoryEntry& directory)
{
    QByteArray out;
    appendDirectory(out, directory);
    return out.size() + 1;
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
    // Qt's formatter costs about a microsecond a call, a large share of every index change in a
    // vault of thousands of files; four-digit years, the only ones a file ever carries, go this way.
    const QDateTime utc = dateTime.toUTC();
    const QDate date = utc.date();
    if (!utc.isValid() || date.year() < 1000 || date.year() > 9999) {
        return utc.toString(Qt::ISODateWithMs);
    }
    const QTime time = utc.time();
    char text[] = "0000-00-00T00:00:00.000Z";
    const auto put = [&text](int at, int value, int digits) {
        for (int digit = digits - 1; digit >= 0; --digit, value /= 10) {
            text[at + digit] = static_cast<char>('0' + value % 10);
        }
    };
    put(0, date.year(), 4);
    put(5, date.month(), 2);
    put(8, date.day(), 2);
    put(11, time.hour(), 2);
    put(14, time.minute(), 2);
    put(17, time.second(), 2);
    put(20, time.msec(), 3);
    return QString::fromLatin1(text, sizeof(text) - 1);
}

QDateTime VaultIndex::parseTimestamp(const QString& text)
{
    return QDateTime::fromString(text, Qt::ISODateWithMs).toUTC();
}

} // namespace Velmarin::Core
