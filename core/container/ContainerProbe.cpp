#include "core/container/ContainerProbe.h"

#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"
#include "core/container/RegularFile.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>

namespace Velmarin::Core {

namespace {

using Finding = ContainerProbe::Finding;
using Verdict = ContainerProbe::Verdict;

Finding found(Verdict verdict)
{
    Finding finding;
    finding.verdict = verdict;
    return finding;
}

Finding refused(const QString& systemError, int errorNumber)
{
    Finding finding;
    finding.verdict = Verdict::Unreadable;
    finding.systemError = systemError;
    finding.errorNumber = errorNumber;
    return finding;
}

// Read failures leave their errno behind; Qt keeps only the text.
Finding readFailure(const QFile& file, int errorNumber)
{
#ifdef Q_OS_WIN
    errorNumber = 0;
#endif
    return refused(file.errorString(), errorNumber);
}

bool openRegularFile(const QString& path, QFile& file, Finding& finding)
{
    const RegularFile::Result opened = RegularFile::open(path, QIODevice::ReadOnly, file);
    switch (opened.outcome) {
    case RegularFile::Outcome::Opened:
        return true;
    case RegularFile::Outcome::Missing:
        finding = found(Verdict::Missing);
        return false;
    case RegularFile::Outcome::NotAFile:
        finding = found(Verdict::NotAFile);
        return false;
    case RegularFile::Outcome::Refused:
        break;
    }
    finding = refused(opened.systemError, opened.errorNumber);
    return false;
}

// "VLTBOX" and a digit above ours: the layout of a later format, whatever follows.
bool hasNewerFileMagic(const QByteArray& magic)
{
    if (magic.size() != ContainerFile::FileMagic.size() || !magic.startsWith(ContainerHeader::MagicText)) {
        return false;
    }
    const char digit = magic.back();
    return digit >= '0' && digit <= '9' && digit - '0' > ContainerHeader::CurrentFormatVersion;
}

bool hasNewerFormatVersion(const QByteArray& json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    return document.isObject() && document.object().value(QLatin1String("formatVersion")).toInteger(0) >
                                      ContainerHeader::CurrentFormatVersion;
}

} // namespace

ContainerProbe::Finding ContainerProbe::probe(const QString& path)
{
    QFile file;
    Finding finding;
    if (!openRegularFile(path, file, finding)) {
        return finding;
    }
    errno = 0;
    const QByteArray magic = file.peek(ContainerFile::FileMagic.size());
    if (file.error() != QFileDevice::NoError) {
        return readFailure(file, errno);
    }
    if (magic != ContainerFile::FileMagic) {
        return found(hasNewerFileMagic(magic) ? Verdict::NewerFormat : Verdict::NotAContainer);
    }
    QByteArray line;
    QByteArray json;
    errno = 0;
    if (!ContainerFile::readRawHeader(file, line, json)) {
        const int error = errno;
        return file.error() != QFileDevice::NoError ? readFailure(file, error)
                                                    : found(Verdict::NotAContainer);
    }
    ContainerHeader header;
    if (ContainerFile::parseHeader(json, header)) {
        return found(Verdict::Readable);
    }
    return found(hasNewerFormatVersion(json) ? Verdict::NewerFormat : Verdict::NotAContainer);
}

} // namespace Velmarin::Core
