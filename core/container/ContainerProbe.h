#pragma once

#include <QString>

namespace Velmarin::Core {

// Why a path does or does not read as a container. ContainerFile::readHeader answers only yes or no;
// the front ends need to tell a missing file, a refusing drive, a container made by a newer version
// and a file that is not one apart. Reads no more than the header region, and never waits on a pipe.
class ContainerProbe
{
public:
    enum class Verdict
    {
        // readHeader reads it.
        Readable,
        // Nothing at that path, or a link to nothing.
        Missing,
        // Something other than a regular file: a folder, a pipe, a device.
        NotAFile,
        // The system refused to open or read it.
        Unreadable,
        // A container of a later format (file magic digit or formatVersion above ours): made by a
        // newer version, not damaged.
        NewerFormat,
        // Anything else: another kind of file, or a container damaged or cut short.
        NotAContainer
    };

    struct Finding
    {
        Verdict verdict = Verdict::Readable;
        // For Unreadable: the system's own words and its error number (errno), 0 where it gave none.
        QString systemError;
        int errorNumber = 0;
    };

    static Finding probe(const QString& path);
};

} // namespace Velmarin::Core
