#include "ContainerFile.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace Velmarin::Core {

namespace {

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

bool ContainerFile::readHeader(const QString& path, ContainerHeader& out) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    if (file.read(FileMagic.size()) != FileMagic) {
        return false;
    }
    const QByteArray line = file.readLine(MaxLengthLine);
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
    const qint64 payloadOffset = FileMagic.size() + line.size() + HeaderRegionSize;
    if (file.size() < payloadOffset) {
        return false;
    }
    const QByteArray json = file.read(length);
    if (json.size() != length) {
        return false;
    }
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isObject()) {
        return false;
    }
    const QJsonObject root = document.object();
    const QJsonValue magic = root.value(key("magic"));
    if (!magic.isString() || magic.toString().toLatin1() != ContainerHeader::MagicText ||
        root.value(key("formatVersion")).toInt(0) != ContainerHeader::CurrentFormatVersion) {
        return false;
    }

    ContainerHeader header;
    header.formatVersion = ContainerHeader::CurrentFormatVersion;
    header.crypto = cryptoFromJson(root.value(key("crypto")).toObject());
    const QJsonValue fileIndex = root.value(key("fileIndex"));
    if (fileIndex.isObject()) {
        header.fileIndex =
            VaultIndex::fromJson(QJsonDocument(fileIndex.toObject()).toJson(QJsonDocument::Compact));
    }
    header.encryptedIndex = decodeBase64(root.value(key("encryptedIndex")));
    header.encryptedPayload = decodeBase64(root.value(key("encryptedPayload")));
    const QJsonObject payloads = root.value(key("filePayloads")).toObject();
    for (auto it = payloads.constBegin(); it != payloads.constEnd(); ++it) {
        header.filePayloads.insert(it.key(), decodeBase64(it.value()));
    }
    header.payloadOffset = payloadOffset;
    header.headerLength = length;
    out = std::move(header);
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
    return file.commit();
}

bool ContainerFile::rewriteHeader(const QString& path, const ContainerHeader& header) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite)) {
        return false;
    }
    if (file.read(FileMagic.size()) != FileMagic) {
        return false;
    }
    // A foreign writer may have left a shorter length line; our 21 bytes would then spill over the
    // first block, so such a header is never rewritten in place.
    const QByteArray line = file.readLine(MaxLengthLine);
    if (line.size() != LengthDigits + 1 || !line.endsWith('\n')) {
        return false;
    }
    const QByteArray json = serializeHeader(header);
    if (json.size() > HeaderRegionSize) {
        return false;
    }
    // The rest of the region is zeros already; only what the old JSON covered and the new one no
    // longer does needs clearing. An unreadable old length clears the whole region.
    bool isNumber = false;
    const qint64 oldLength = line.trimmed().toLongLong(&isNumber, 10);
    const qint64 covered =
        isNumber && oldLength >= 0 && oldLength <= HeaderRegionSize ? oldLength : HeaderRegionSize;
    QByteArray bytes = QByteArray::number(json.size()).rightJustified(LengthDigits, '0') + '\n' + json;
    if (covered > json.size()) {
        bytes += QByteArray(covered - json.size(), '\0');
    }
    if (!file.seek(FileMagic.size()) || file.write(bytes) != bytes.size()) {
        return false;
    }
    return file.flush();
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
    QByteArray bytes = QByteArray::number(json.size()).rightJustified(LengthDigits, '0');
    bytes.reserve(LengthDigits + 1 + HeaderRegionSize);
    bytes += '\n';
    bytes += json;
    bytes += QByteArray(HeaderRegionSize - json.size(), '\0');
    return bytes;
}

} // namespace Velmarin::Core
