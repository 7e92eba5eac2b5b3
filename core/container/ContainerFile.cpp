#include "core/container/ContainerFile.h"

#include "core/container/ContainerJournal.h"
#include "core/container/FileSync.h"
#include "core/container/JournalReserve.h"
#include "core/container/RegularFile.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace Velmarin::Core {

namespace {

// Only a regular file is read or written as a container: see RegularFile.
bool openExisting(const QString& path, QIODevice::OpenMode mode, QFile& file)
{
    return RegularFile::open(path, mode, file).outcome == RegularFile::Outcome::Opened;
}

// Longer than any length line a writer could mean; bounds what a damaged file makes us read.
constexpr qint64 MaxLengthLine = 4096;

QString key(const char* name)
{
    return QString::fromLatin1(name);
}

QByteArray decodeBase64(const QJsonValue& value)
{
    return QByteArray::fromBase64(value.toString().toLatin1());
}

QString encodeBase64(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

CryptoHeader cryptoFromJson(const QJsonObject& object)
{
    CryptoHeader crypto;
    crypto.kdf = object.value(key("kdf")).toString();
    crypto.cipher = object.value(key("cipher")).toString();
    crypto.kdfIterations = object.value(key("kdfIterations")).toInt(250000);
    crypto.salt = decodeBase64(object.value(key("salt")));
    crypto.nonce = decodeBase64(object.value(key("nonce")));
    crypto.payloadNonce = decodeBase64(object.value(key("payloadNonce")));
    crypto.authTag = decodeBase64(object.value(key("authTag")));
    crypto.encryptedMasterKey = decodeBase64(object.value(key("encryptedMasterKey")));
    return crypto;
}

} // namespace

QString ContainerFile::defaultContainerPath(const QString& driveRoot)
{
    return QDir(driveRoot).filePath(DefaultFileName);
}

bool ContainerFile::readRawHeader(QFile& file, QByteArray& line, QByteArray& json)
{
    if (file.read(FileMagic.size()) != FileMagic) {
        return false;
    }
    line = file.readLine(MaxLengthLine);
    if (!line.endsWith('\n')) {
        return false;
    }
    bool isNumber = false;
    const qint64 length = line.trimmed().toLongLong(&isNumber, 10);
    if (!isNumber || length < 1 || length > HeaderRegionSize) {
        return false;
    }
    // Only the JSON is read; the zeros after it are not needed to know the header, but a file too
    // short to hold the whole region is still refused.
    if (file.size() < FileMagic.size() + line.size() + HeaderRegionSize) {
        return false;
    }
    json = file.read(length);
    return json.size() == length;
}

bool ContainerFile::readHeaderBytes(const QString& path, QByteArray& out) const
{
    QFile file;
    QByteArray line;
    QByteArray json;
    if (!openExisting(path, QIODevice::ReadOnly, file) || !readRawHeader(file, line, json)) {
        return false;
    }
    out = line + json;
    return true;
}

bool ContainerFile::readHeader(const QString& path, ContainerHeader& out) const
{
    QFile file;
    QByteArray line;
    QByteArray json;
    ContainerHeader header;
    if (!openExisting(path, QIODevice::ReadOnly, file) || !readRawHeader(file, line, json) ||
        !parseHeader(json, header)) {
        return false;
    }
    header.payloadOffset = FileMagic.size() + line.size() + HeaderRegionSize;
    header.headerLength = json.size();
    out = std::move(header);
    return true;
}

bool ContainerFile::parseHeader(const QByteArray& json, ContainerHeader& out)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isObject()) {
        return false;
    }
    const QJsonObject root = document.object();
    const QJsonValue magic = root.value(key("magic"));
    // Any other version, newer ones included, is refused whole: its fields may mean other things.
    if (!magic.isString() || magic.toString().toLatin1() != ContainerHeader::MagicText ||
        root.value(key("formatVersion")).toInt(0) != ContainerHeader::CurrentFormatVersion) {
        return false;
    }
    out.formatVersion = ContainerHeader::CurrentFormatVersion;
    out.crypto = cryptoFromJson(root.value(key("crypto")).toObject());
    // Older writers also left fileIndex, encryptedPayload and filePayloads here. Nothing reads them,
    // so they stay in the JSON unparsed, and the next rewrite drops them.
    out.encryptedIndex = decodeBase64(root.value(key("encryptedIndex")));
    return true;
}

bool ContainerFile::writeNewContainer(const QString& path, const ContainerHeader& header,
                                      const PayloadWriter& payloadWriter) const
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    const QByteArray placeholder = QByteArray(LengthDigits, '0') + '\n' + QByteArray(HeaderRegionSize, '\0');
    if (file.write(FileMagic) != FileMagic.size() || file.write(placeholder) != placeholder.size()) {
        return false;
    }
    if (payloadWriter && !payloadWriter(file)) {
        return false;
    }
    const QByteArray json = serializeHeader(header);
    if (json.size() > HeaderRegionSize) {
        return false;
    }
    const QByteArray bytes = headerBytes(json);
    if (!file.seek(FileMagic.size()) || file.write(bytes) != bytes.size()) {
        return false;
    }
    // The save file syncs its contents before taking the name; the name lives in the folder.
    return file.commit() && FileSync::syncFolderOf(path);
}

bool ContainerFile::rewriteHeader(const QString& path, const ContainerHeader& header, bool* oldHeaderKept,
                                  QString* systemError) const
{
    if (oldHeaderKept != nullptr) {
        *oldHeaderKept = true;
    }
    QFile file;
    QByteArray line;
    QByteArray oldJson;
    if (!openExisting(path, QIODevice::ReadWrite, file) || !readRawHeader(file, line, oldJson)) {
        return false;
    }
    // A foreign writer may have left a shorter length line; our 21 bytes would then spill over the
    // first block, so such a header is never rewritten in place.
    if (line.size() != LengthDigits + 1) {
        return false;
    }
    const QByteArray json = serializeHeader(header);
    if (json.size() > HeaderRegionSize) {
        return false;
    }
    const QByteArray oldHeader = line + oldJson;
    const QByteArray newHeader = lengthLine(json.size()) + json;
    // The rest of the region is zeros already; only what the old JSON covered and the new one no
    // longer does needs clearing.
    const QByteArray bytes = padded(newHeader, oldHeader.size());
    // Until the new header is whole on the device, the journal can put the old one back.
    bool tookReserve = false;
    // A journal that took the reserve's room gives it back once it is gone.
    const auto retakeReserve = [&](qint64 headerSize) {
        if (tookReserve) {
            JournalReserve::hold(path, headerSize);
        }
    };
    if (!ContainerJournal::forHeaderChange(oldHeader, newHeader).write(path, &tookReserve, systemError)) {
        ContainerJournal::remove(path);
        retakeReserve(oldHeader.size());
        return false;
    }
    if (oldHeaderKept != nullptr) {
        *oldHeaderKept = false;
    }
    if (!writeAt(file, FileMagic.size(), bytes)) {
        file.close();
        // The drive still answers, perhaps: the old header goes back while the journal still guards it.
        QFile again;
        if (!openExisting(path, QIODevice::ReadWrite, again) ||
            !writeAt(again, FileMagic.size(), padded(oldHeader, newHeader.size())) ||
            !ContainerJournal::remove(path)) {
            return false;
        }
        if (oldHeaderKept != nullptr) {
            *oldHeaderKept = true;
        }
        retakeReserve(oldHeader.size());
        return false;
    }
    // The new header is on the device; a journal that cannot be removed now is stale, and the next
    // unlock removes it.
    ContainerJournal::removeFinished(path);
    retakeReserve(newHeader.size());
    if (!tookReserve && JournalReserve::isShortFor(path, newHeader.size())) {
        JournalReserve::hold(path, newHeader.size());
    }
    return true;
}

bool ContainerFile::restoreHeaderBytes(const QString& path, const QByteArray& header) const
{
    QFile file;
    if (header.size() > LengthDigits + 1 + HeaderRegionSize ||
        !openExisting(path, QIODevice::ReadWrite, file) || file.read(FileMagic.size()) != FileMagic ||
        file.size() < PayloadOffset) {
        return false;
    }
    return writeAt(file, FileMagic.size(), padded(header, LengthDigits + 1 + HeaderRegionSize));
}

bool ContainerFile::clearAfterHeader(const QString& path, qint64 coveredBefore) const
{
    QFile file;
    QByteArray line;
    QByteArray json;
    if (!openExisting(path, QIODevice::ReadWrite, file) || !readRawHeader(file, line, json)) {
        return false;
    }
    const qint64 end = line.size() + json.size();
    const qint64 limit = qMin<qint64>(coveredBefore, LengthDigits + 1 + HeaderRegionSize);
    return end >= limit || writeAt(file, FileMagic.size() + end, QByteArray(limit - end, '\0'));
}

bool ContainerFile::writeAt(QFile& file, qint64 offset, const QByteArray& bytes)
{
    return file.seek(offset) && file.write(bytes) == bytes.size() && FileSync::flushToDevice(file);
}

QByteArray ContainerFile::lengthLine(qint64 jsonSize)
{
    return QByteArray::number(jsonSize).rightJustified(LengthDigits, '0') + '\n';
}

QByteArray ContainerFile::padded(const QByteArray& header, qint64 coveredBefore)
{
    if (coveredBefore <= header.size()) {
        return header;
    }
    return header + QByteArray(coveredBefore - header.size(), '\0');
}

QByteArray ContainerFile::serializeHeader(const ContainerHeader& header) const
{
    QJsonObject crypto;
    crypto.insert(key("kdf"), header.crypto.kdf);
    crypto.insert(key("cipher"), header.crypto.cipher);
    crypto.insert(key("kdfIterations"), header.crypto.kdfIterations);
    crypto.insert(key("salt"), encodeBase64(header.crypto.salt));
    crypto.insert(key("nonce"), encodeBase64(header.crypto.nonce));
    crypto.insert(key("payloadNonce"), encodeBase64(header.crypto.payloadNonce));
    crypto.insert(key("authTag"), encodeBase64(header.crypto.authTag));
    crypto.insert(key("encryptedMasterKey"), encodeBase64(header.crypto.encryptedMasterKey));

    QJsonObject root;
    root.insert(key("magic"), QString::fromLatin1(ContainerHeader::MagicText));
    root.insert(key("formatVersion"), header.formatVersion);
    root.insert(key("crypto"), crypto);
    root.insert(key("encryptedIndex"), encodeBase64(header.encryptedIndex));
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

QByteArray ContainerFile::headerBytes(const QByteArray& json)
{
    QByteArray bytes = lengthLine(json.size());
    bytes.reserve(LengthDigits + 1 + HeaderRegionSize);
    bytes += json;
    bytes += QByteArray(HeaderRegionSize - json.size(), '\0');
    return bytes;
}

} // namespace Velmarin::Core
