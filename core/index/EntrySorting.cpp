#include "core/index/EntrySorting.h"

#include "core/index/VaultPath.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <algorithm>

namespace Velmarin::Core {

namespace {

int compareNames(const QString& pathA, const QString& pathB)
{
    return vaultFileName(pathA).compare(vaultFileName(pathB), Qt::CaseInsensitive);
}

template <typename Number>
int threeWay(const Number& a, const Number& b)
{
    return a < b ? -1 : (b < a ? 1 : 0);
}

template <typename Entry, typename Compare>
void stableSort(QList<Entry>& entries, Qt::SortOrder order, Compare compare)
{
    std::stable_sort(entries.begin(), entries.end(), [&](const Entry& a, const Entry& b) {
        const int result = compare(a, b);
        return order == Qt::AscendingOrder ? result < 0 : result > 0;
    });
}

} // namespace

int EntrySorting::compareFolders(const DirectoryEntry& a, const DirectoryEntry& b, int column)
{
    if (column == 4) {
        const int byTime = threeWay(a.modifiedUtc, b.modifiedUtc);
        if (byTime != 0) {
            return byTime;
        }
    }
    return compareNames(a.path, b.path);
}

int EntrySorting::compareFiles(const FileEntry& a, const FileEntry& b, int column)
{
    int result = 0;
    switch (column) {
    case 2:
        result = threeWay(a.sizeBytes, b.sizeBytes);
        break;
    case 3:
        result = typeText(vaultFileName(a.vaultPath))
                     .compare(typeText(vaultFileName(b.vaultPath)), Qt::CaseInsensitive);
        break;
    case 4:
        result = threeWay(a.lastModifiedUtc, b.lastModifiedUtc);
        break;
    default:
        break;
    }
    return result != 0 ? result : compareNames(a.vaultPath, b.vaultPath);
}

void EntrySorting::sortFolders(QList<DirectoryEntry>& folders, int column, Qt::SortOrder order)
{
    stableSort(folders, order, [column](const DirectoryEntry& a, const DirectoryEntry& b) {
        return compareFolders(a, b, column);
    });
}

void EntrySorting::sortFiles(QList<FileEntry>& files, int column, Qt::SortOrder order)
{
    stableSort(files, order,
               [column](const FileEntry& a, const FileEntry& b) { return compareFiles(a, b, column); });
}

QString EntrySorting::typeText(const QString& fileName)
{
    const QString suffix = QFileInfo(fileName).suffix();
    return suffix.isEmpty() ? QCoreApplication::translate("Velmarin::Core::EntrySorting", "Arquivo")
                            : suffix.toUpper();
}

} // namespace Velmarin::Core
