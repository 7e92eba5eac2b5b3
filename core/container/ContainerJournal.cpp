#include "core/container/ContainerJournal.h"

#include "core/container/FileSync.h"
#include "core/container/JournalReserve.h"
#include "core/crypto/Sha256.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace Velmarin::Core {

namespace {

const QString HeaderKind = QStringLiteral("header");
const QString CompactionKind = QStringLiteral("compaction");
constexpr int FormatVersion = 1;
// A whole header region and a path fit many times over; anything longer is not our journal.
constexpr qint64 MaxJournalSize = 16 * 1024 * 1024;
constexpr qint64 MaxHeaderSize = 21 + 8388608;

QString key(const char* name)
{
    return QString::fromLatin1(name);
}

QByteArray digestOf(const QByteArray& bytes)
{
    return Sha256::hash(bytes).toHex();
}

bool sameSize(qint64 recorded, qint64 size)
{
    return recorded < 0 || recorded == size;
}

} // namespace

QString ContainerJournal::pathFor(const QString& containerPath)
{
    return containerPath + QStringLiteral(".journal");
}

ContainerJournal ContainerJournal::forHeaderChange(const QByteArray& oldHeader, const QByteArray& newHeader)
{
    ContainerJournal journal;
    journal.m_kind = Kind::Header;
    journal.m_oldHeader = oldHeader;
    journal.m_oldDigest = digestOf(oldHeader);
    journal.m_newDigest = digestOf(newHeader);
    return journal;
}

ContainerJournal ContainerJournal::forCompaction(const QByteArray& oldHeader, qint64 oldSize,
                                                 const QByteArray& newHeader, qint64 newSize,
                                                 const QString& localCopy)
{
    ContainerJournal journal;
    journal.m_kind = Kind::Compaction;
    journal.m_oldDigest = digestOf(oldHeader);
    journal.m_newDigest = digestOf(newHeader);
    journal.m_oldSize = oldSize;
    journal.m_newSize = newSize;
    journal.m_localCopy = localCopy;
    return journal;
}

QByteArray ContainerJournal::serialize() const
{
    QJsonObject about;
    about.insert(key("journal"), FormatVersion);
    about.insert(key("kind"), m_kind == Kind::Header ? HeaderKind : CompactionKind);
    about.insert(key("oldSha256"), QString::fromLatin1(m_oldDigest));
    about.insert(key("newSha256"), QString::fromLatin1(m_newDigest));
    about.insert(key("oldSize"), m_oldSize);
    about.insert(key("newSize"), m_newSize);
    about.insert(key("oldHeaderLength"), m_oldHeader.size());
    about.insert(key("localCopy"), m_localCopy);
    QByteArray bytes = QJsonDocument(about).toJson(QJsonDocument::Compact);
    bytes += '\n';
    bytes += m_oldHeader;
    bytes += '\n';
    bytes += digestOf(bytes);
    bytes += '\n';
    return bytes;
}

bool ContainerJournal::write(const QString& containerPath, bool* tookReserve, QString* systemError) const
{
    if (tookReserve != nullptr) {
        *tookReserve = false;
    }
    if (writeOnce(containerPath, systemError)) {
        return true;
    }
    if (!JournalReserve::isHeld(containerPath) || !JournalReserve::giveUp(containerPath)) {
        return false;
    }
    if (tookReserve != nullptr) {
        *tookReserve = true;
    }
    return writeOnce(containerPath, systemError);
}

bool ContainerJournal::writeOnce(const QString& containerPath, QString* systemError) const
{
    // Written in place rather than through a temporary file: a cut leaves a journal whose digest
    // fails, which is as good as none, and never a stray temporary file on the drive.
    QFile file(pathFor(containerPath));
    const QByteArray bytes = serialize();
    const bool written = file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                         FileSync::writeAll(file, bytes.constData(), bytes.size()) &&
                         FileSync::flushToDevice(file);
    if (!written && systemError != nullptr) {
        *systemError = file.errorString();
    }
    file.close();
    return written && FileSync::syncFolderOf(file.fileName());
}

bool ContainerJournal::read(const QString& containerPath, ContainerJournal& out)
{
    QFile file(pathFor(containerPath));
    if (!file.open(QIODevice::ReadOnly) || file.size() > MaxJournalSize) {
        return false;
    }
    const QByteArray bytes = file.readAll();
    const qsizetype digestStart = bytes.size() - 65;
    if (digestStart < 0 || !bytes.endsWith('\n') ||
        bytes.mid(digestStart, 64) != digestOf(bytes.left(digestStart))) {
        return false;
    }
    const qsizetype lineEnd = bytes.indexOf('\n');
    if (lineEnd < 0) {
        return false;
    }
    const QJsonDocument document = QJsonDocument::fromJson(bytes.left(lineEnd));
    if (!document.isObject()) {
        return false;
    }
    const QJsonObject about = document.object();
    const QString kind = about.value(key("kind")).toString();
    const qint64 headerLength = about.value(key("oldHeaderLength")).toInteger(-1);
    if (about.value(key("journal")).toInt() != FormatVersion ||
        (kind != HeaderKind && kind != CompactionKind) || headerLength < 0 || headerLength > MaxHeaderSize ||
        lineEnd + 1 + headerLength + 1 != digestStart) {
        return false;
    }
    ContainerJournal journal;
    journal.m_kind = kind == HeaderKind ? Kind::Header : Kind::Compaction;
    journal.m_oldHeader = bytes.mid(lineEnd + 1, headerLength);
    journal.m_oldDigest = about.value(key("oldSha256")).toString().toLatin1();
    journal.m_newDigest = about.value(key("newSha256")).toString().toLatin1();
    journal.m_oldSize = about.value(key("oldSize")).toInteger(-1);
    journal.m_newSize = about.value(key("newSize")).toInteger(-1);
    journal.m_localCopy = about.value(key("localCopy")).toString();
    // A header journal without the header it exists to keep is no journal.
    if (journal.m_kind == Kind::Header && digestOf(journal.m_oldHeader) != journal.m_oldDigest) {
        return false;
    }
    out = std::move(journal);
    return true;
}

bool ContainerJournal::remove(const QString& containerPath)
{
    return FileSync::removeFile(pathFor(containerPath));
}

bool ContainerJournal::removeFinished(const QString& containerPath)
{
    const QString path = pathFor(containerPath);
    return QFile::remove(path) || !QFileInfo::exists(path);
}

bool ContainerJournal::isOldState(const QByteArray& header, qint64 size) const
{
    return sameSize(m_oldSize, size) && digestOf(header) == m_oldDigest;
}

bool ContainerJournal::isNewState(const QByteArray& header, qint64 size) const
{
    return sameSize(m_newSize, size) && digestOf(header) == m_newDigest;
}

} // namespace Velmarin::Core
