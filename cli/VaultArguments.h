#pragma once

#include <QCoreApplication>
#include <QString>

namespace Velmarin::Cli {

class Console;

// Vault paths typed on the command line, checked before any password is asked for.
class VaultArguments
{
    Q_DECLARE_TR_FUNCTIONS(VaultArguments)

public:
    // A path naming an entry: ExitCode::Success with path normalised, or UsageError after telling
    // why (an empty path, a "." or ".." segment, the root).
    static int entryPath(Console& console, const QString& text, QString& path);
    // Like entryPath, but "" and "/" name the root, which path then holds as "".
    static int folderPath(Console& console, const QString& text, QString& path);
};

} // namespace Velmarin::Cli
