#include "cli/Command.h"

#include <QCommandLineParser>

namespace Velmarin::Cli {

QString CommandContext::passwordFile() const
{
    return parser.optionNames().contains(QStringLiteral("password-file"))
               ? parser.value(QStringLiteral("password-file"))
               : QString();
}

QString CommandContext::newPasswordFile() const
{
    return parser.optionNames().contains(QStringLiteral("new-password-file"))
               ? parser.value(QStringLiteral("new-password-file"))
               : QString();
}

} // namespace Velmarin::Cli
