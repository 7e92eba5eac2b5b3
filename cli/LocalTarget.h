#pragma once

#include <QCoreApplication>
#include <QString>

namespace Velmarin::Cli {

class Console;

// A file the tool is about to write outside the vault (a new container, an export, a backup).
class LocalTarget
{
    Q_DECLARE_TR_FUNCTIONS(LocalTarget)

public:
    // The argument itself, or nameInFolder inside it when the argument is an existing folder.
    static QString resolve(const QString& argument, const QString& nameInFolder);
    // ExitCode::Success when path can be written: its folder exists, it is not a folder, and it
    // does not exist yet unless force. Otherwise Failed after telling why.
    static int checkWritable(Console& console, const QString& path, bool force);
    // ExitCode::Success when the folder that is to hold path exists; otherwise Failed after telling so.
    static int checkFolderExists(Console& console, const QString& path);
    // What is said of a target that exists and is replaced only with --force.
    static QString existsText(const QString& path);
};

} // namespace Velmarin::Cli
