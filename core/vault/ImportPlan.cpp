#include "core/vault/ImportPlan.h"

#include "core/index/VaultPath.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QHash>

#include <algorithm>

namespace Velmarin::Core {

ImportPlan::Result ImportPlan::add(const QString& source, const QString& target)
{
    const QFileInfo info(source);
    if (!info.exists()) {
        return Result::Missing;
    }
    if (!info.isFile() && !info.isDir()) {
        m_skipped.append(Skipped{source, Skipped::Reason::NotRegular});
        return Result::Added;
    }
    // A folder comes in under its own name; the root of a file system has none, so its contents do.
    const QString name = info.isFile() ? info.fileName() : QFileInfo(info.canonicalFilePath()).fileName();
    if (!name.isEmpty() && !isValidEntryName(name)) {
        return Result::NameNotAllowed;
    }
    if (info.isFile()) {
        m_items.append(ImportItem{source, joinEntryPath(target, name), info.size(), false});
        return Result::Added;
    }
    const QString base = name.isEmpty() ? target : joinEntryPath(target, name);
    if (!name.isEmpty()) {
        m_items.append(ImportItem{source, base, 0, true});
    }
    walk(info.canonicalFilePath(), base);
    return Result::Added;
}

void ImportPlan::walk(const QString& folder, const QString& base)
{
    const QDir root(folder);
    // Folders left out, whose contents stay out with them: under a name the vault would change,
    // they would land somewhere else.
    QStringList refused;
    QDirIterator it(root.path(), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        const QString path = info.filePath();
        if (std::any_of(refused.cbegin(), refused.cend(),
                        [&](const QString& prefix) { return path.startsWith(prefix); })) {
            continue;
        }
        if (info.isSymLink()) {
            m_skipped.append(Skipped{path, Skipped::Reason::SymbolicLink});
        } else if (!info.isDir() && !info.isFile()) {
            m_skipped.append(Skipped{path, Skipped::Reason::NotRegular});
        } else if (!isValidEntryName(info.fileName())) {
            m_skipped.append(Skipped{path, Skipped::Reason::NameNotAllowed});
            if (info.isDir()) {
                refused << path + QLatin1Char('/');
            }
        } else {
            m_items.append(ImportItem{path, joinEntryPath(base, root.relativeFilePath(path)),
                                      info.isDir() ? 0 : info.size(), info.isDir()});
        }
    }
}

QList<ImportItem> ImportPlan::items() const
{
    QList<ImportItem> sorted = m_items;
    std::stable_sort(sorted.begin(), sorted.end(), [](const ImportItem& a, const ImportItem& b) {
        return a.vaultPath.compare(b.vaultPath, Qt::CaseInsensitive) < 0;
    });
    return sorted;
}

QList<ImportPlan::Skipped> ImportPlan::takeSkipped()
{
    QList<Skipped> taken;
    taken.swap(m_skipped);
    return taken;
}

QList<ImportItem> ImportPlan::takeCaseTwins(QList<ImportItem>& items)
{
    const auto key = [](const ImportItem& item) { return normalizeVaultPath(item.vaultPath).toCaseFolded(); };
    QHash<QString, int> count;
    for (const ImportItem& item : items) {
        ++count[key(item)];
    }
    QList<ImportItem> twins;
    QList<ImportItem> kept;
    for (const ImportItem& item : items) {
        if (!item.isFolder && count.value(key(item)) > 1) {
            twins.append(item);
        } else {
            kept.append(item);
        }
    }
    items = kept;
    return twins;
}

} // namespace Velmarin::Core
