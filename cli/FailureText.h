#pragma once

#include "core/vault/Failure.h"

#include <QCoreApplication>
#include <QString>

namespace Velmarin::Cli {

class Console;

// The engine's reasons in the tool's words, and the exit code each stands for. A sentence that a
// command also says when it finds the same thing itself comes from here, so it is written once.
class FailureText
{
    Q_DECLARE_TR_FUNCTIONS(FailureText)

public:
    // Whether a damaged file block is what the command looks for (verify, compact) or stops it.
    enum class Damage
    {
        Fails,
        IsFinding
    };

    // One sentence, with the path and the system's own words when the failure has them; empty for
    // Reason::None.
    static QString sentence(const Core::Failure& failure);
    static QString sentence(Core::Failure::Reason reason, const QString& path = QString());
    // The exit code the reason stands for; Reason::None, a failure nobody explained, is Failed.
    static int exitCode(const Core::Failure& failure, Damage damage = Damage::Fails);

    // Prints the reason's sentence on a line of its own and returns its exit code. With no reason
    // known it prints nothing and returns fallback, the code the command gives without one.
    static int report(Console& console, const Core::Failure& failure, int fallback,
                      Damage damage = Damage::Fails);

    // NotFound, when the command knows it looked for a file or for a folder.
    static QString missingFile(const QString& path);
    static QString missingFolder(const QString& path);
    // A folder export met a vault path (from an index that lies) that would lead out of the destination.
    static QString outsideDestination(const QString& path);
    // What a new name must look like, said by rename before the engine is asked.
    static QString fileNameRule();
    static QString folderNameRule();
    // A batch the index cannot hold: how many of the selected files, in order, it still takes.
    static QString indexCapacity(int fitting, int selected);
};

} // namespace Velmarin::Cli
