#pragma once

#include <QIODevice>
#include <QString>

class QFile;

namespace Velmarin::Core {

// Opens an existing container only when the path itself is a regular file. A pipe with no writer
// would hold a plain open forever, a device would be read without end, and a link could send the
// program's writes somewhere the user never chose; a stick someone else had in hand may hold any of
// them under the container's name. The verdict is taken on what was opened, not on what the path
// named a moment before.
class RegularFile
{
public:
    enum class Outcome
    {
        Opened,
        // Nothing at the path.
        Missing,
        // A folder, pipe, socket, device, or a link of any kind.
        NotAFile,
        // The system refused (see errorNumber and systemError).
        Refused
    };

    struct Result
    {
        Outcome outcome = Outcome::Refused;
        int errorNumber = 0;
        QString systemError;
    };

    // mode is ReadOnly or ReadWrite; file takes the descriptor and closes it.
    static Result open(const QString& path, QIODevice::OpenMode mode, QFile& file);
};

} // namespace Velmarin::Core
