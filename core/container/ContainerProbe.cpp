#include "core/container/ContainerProbe.h"

#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>

#ifdef Q_OS_WIN
#include <QFileInfo>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

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

#ifdef Q_OS_WIN
bool openRegularFile(const QString& path, QFile& file, Finding& finding)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        finding = found(Verdict::Missing);
        return false;
    }
    if (!info.isFile()) {
        finding = found(Verdict::NotAFile);
        return false;
    }
    file.setFileName(path);
    if (!file.open(QIODevice::ReadOnly)) {
        finding = refused(file.errorString(), 0);
        return false;
    }
    return true;
}
#else
// Opened without blocking, since a pipe with no writer would hold a plain open forever, and judged by
// what was opened rather than by what the path named a moment before.
bool openRegularFile(const QString& path, QFile& file, Finding& finding)
{
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        const int error = errno;
        finding = error == ENOENT ? found(Verdict::Missing) : refused(qt_error_string(error), error);
        return false;
    }
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0) {
        const int error = errno;
        finding = refused(qt_error_string(error), error);
        ::close(descriptor);
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        finding = found(Verdict::NotAFile);
        ::close(descriptor);
        return false;
    }
    // From here the file owns the descriptor, and closes it even when this open fails.
    if (!file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        finding = refused(file.errorString(), 0);
        return false;
    }
    return true;
}
#endif

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
