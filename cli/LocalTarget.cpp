#include "cli/LocalTarget.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"

#include <QDir>
#include <QFileInfo>

namespace Velmarin::Cli {

QString LocalTarget::resolve(const QString& argument, const QString& nameInFolder)
{
    return QFileInfo(argument).isDir() ? QDir(argument).filePath(nameInFolder) : argument;
}

int LocalTarget::checkWritable(Console& console, const QString& path, bool force)
{
    if (checkFolderExists(console, path) != Success) {
        return Failed;
    }
    const QFileInfo info(path);
    if (info.isDir()) {
        console.message(tr("%1 é uma pasta.").arg(QDir::toNativeSeparators(path)));
        return Failed;
    }
    if (info.exists() && !force) {
        console.message(existsText(path));
        return Failed;
    }
    return Success;
}

int LocalTarget::checkFolderExists(Console& console, const QString& path)
{
    const QFileInfo info(path);
    if (!info.absoluteDir().exists()) {
        console.message(
            tr("A pasta de destino não existe: %1").arg(QDir::toNativeSeparators(info.absolutePath())));
        return Failed;
    }
    return Success;
}

QString LocalTarget::existsText(const QString& path)
{
    return tr("O destino já existe: %1. Use --force para substituí-lo.").arg(QDir::toNativeSeparators(path));
}

} // namespace Velmarin::Cli
