#include "core/index/VaultPath.h"

#include <QStringList>

namespace Velmarin::Core {

QString normalizeVaultPath(const QString& text)
{
    QString path = text.trimmed();
    path.replace(QLatin1Char('\\'), QLatin1Char('/'));

    const QStringList rawSegments = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    QStringList segments;
    segments.reserve(rawSegments.size());
    for (const QString& raw : rawSegments) {
        const QString segment = raw.trimmed();
        if (segment.isEmpty() || segment == QLatin1String(".") || segment == QLatin1String("..")) {
            return {};
        }
        segments.append(segment);
    }
    return segments.join(QLatin1Char('/'));
}

bool isSameVaultPath(const QString& a, const QString& b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

bool liesBelow(const QString& path, const QString& folder)
{
    if (folder.isEmpty()) {
        return !path.isEmpty();
    }
    return path.size() > folder.size() + 1 && path.at(folder.size()) == QLatin1Char('/') &&
           path.startsWith(folder, Qt::CaseInsensitive);
}

QString vaultFileName(const QString& path)
{
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

QString parentVaultPath(const QString& path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash > 0 ? path.left(slash) : QString();
}

QString joinVaultPath(const QString& folder, const QString& name)
{
    return folder.isEmpty() ? name : folder + QLatin1Char('/') + name;
}

bool isValidEntryName(const QString& name)
{
    const QString trimmed = name.trimmed();
    return !trimmed.isEmpty() && !trimmed.contains(QLatin1Char('/')) &&
           !trimmed.contains(QLatin1Char('\\')) && trimmed != QLatin1String(".") &&
           trimmed != QLatin1String("..");
}

QString joinEntryPath(const QString& folder, const QString& name)
{
    return normalizeVaultPath(joinVaultPath(folder, name));
}

} // namespace Velmarin::Core
