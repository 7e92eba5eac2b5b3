// The file table: filling it from the index, sorting, navigation and the selection queries.
#include "core/index/DisplayFormat.h"
#include "core/index/EntrySorting.h"
#include "core/index/VaultPath.h"
#include "ui/MainWindow.h"

#include <QAction>
#include <QHeaderView>
#include <QMenu>
#include <QTableWidget>

namespace Velmarin::UI {

namespace {

constexpr int KindRole = Qt::UserRole + 1;
constexpr int NameColumn = 1;

} // namespace

void MainWindow::refreshFileTable()
{
    m_fileTable->setRowCount(0);
    m_fileTable->clearSelection();
    m_fileTable->setCurrentCell(-1, -1);
    updateActionStates();
    if (!m_vault.isUnlocked()) {
        return;
    }

    // Painting once at the end is what keeps a folder of thousands of files quick to show.
    m_fileTable->setUpdatesEnabled(false);
    if (!m_currentFolder.isEmpty()) {
        addTableRow(ParentRow, Core::parentVaultPath(m_currentFolder), QStringLiteral(".."), QString(),
                    tr("Pasta"), QDateTime());
    }

    QList<Core::DirectoryEntry> folders;
    for (const Core::DirectoryEntry& folder : m_vault.index().directories()) {
        if (Core::isSameVaultPath(Core::parentVaultPath(folder.path), m_currentFolder)) {
            folders.append(folder);
        }
    }
    Core::EntrySorting::sortFolders(folders, m_sortColumn, m_sortOrder);
    for (const Core::DirectoryEntry& folder : folders) {
        addTableRow(FolderRow, folder.path, Core::vaultFileName(folder.path), QString(), tr("Pasta"),
                    folder.modifiedUtc);
    }

    QList<Core::FileEntry> files;
    for (const Core::FileEntry& file : m_vault.index().files()) {
        if (Core::isSameVaultPath(Core::parentVaultPath(file.vaultPath), m_currentFolder)) {
            files.append(file);
        }
    }
    Core::EntrySorting::sortFiles(files, m_sortColumn, m_sortOrder);
    for (const Core::FileEntry& file : files) {
        const QString name = Core::vaultFileName(file.vaultPath);
        addTableRow(FileRow, file.vaultPath, name, Core::formatDataSize(file.sizeBytes),
                    Core::EntrySorting::typeText(name), file.lastModifiedUtc);
    }
    m_fileTable->setUpdatesEnabled(true);

    m_fileTable->clearSelection();
    m_fileTable->setCurrentCell(-1, -1);
}

void MainWindow::addTableRow(RowKind kind, const QString& path, const QString& name, const QString& size,
                             const QString& type, const QDateTime& modified)
{
    const int row = m_fileTable->rowCount();
    m_fileTable->insertRow(row);
    const Qt::Alignment centred = Qt::AlignHCenter | Qt::AlignVCenter;

    const auto cell = [&](int column, const QString& text) {
        auto* item = new QTableWidgetItem(text);
        item->setData(Qt::UserRole, path);
        item->setData(KindRole, static_cast<int>(kind));
        m_fileTable->setItem(row, column, item);
        return item;
    };

    QTableWidgetItem* icon = cell(0, QString());
    icon->setIcon(m_typeIcons.iconFor(kind, path, style()));
    icon->setTextAlignment(centred);
    cell(NameColumn, name);
    QTableWidgetItem* sizeItem = cell(2, size);
    if (kind == FileRow) {
        sizeItem->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    }
    cell(3, type)->setTextAlignment(centred);
    QTableWidgetItem* modifiedItem = cell(4, kind == ParentRow ? QString() : Core::formatTableDate(modified));
    if (kind != ParentRow) {
        modifiedItem->setTextAlignment(centred);
    }
}

int MainWindow::currentRowKind() const
{
    const int row = m_fileTable->currentRow();
    const QTableWidgetItem* item = row < 0 ? nullptr : m_fileTable->item(row, NameColumn);
    return item ? item->data(KindRole).toInt() : -1;
}

QString MainWindow::currentRowPath() const
{
    const int row = m_fileTable->currentRow();
    const QTableWidgetItem* item = row < 0 ? nullptr : m_fileTable->item(row, NameColumn);
    return item ? item->data(Qt::UserRole).toString() : QString();
}

QString MainWindow::selectedFilePath() const
{
    return currentRowKind() == FileRow ? currentRowPath() : QString();
}

QString MainWindow::selectedFolderPath() const
{
    const int kind = currentRowKind();
    return kind == FolderRow || kind == ParentRow ? currentRowPath() : QString();
}

QString MainWindow::folderAtRow(int row) const
{
    const QTableWidgetItem* item = row < 0 ? nullptr : m_fileTable->item(row, NameColumn);
    const int kind = item ? item->data(KindRole).toInt() : FileRow;
    return kind == FolderRow || kind == ParentRow ? item->data(Qt::UserRole).toString() : m_currentFolder;
}

bool MainWindow::isFolderSelected() const
{
    return currentRowKind() == FolderRow;
}

bool MainWindow::isNavigationRowSelected() const
{
    return currentRowKind() == ParentRow;
}

void MainWindow::onHeaderClicked(int column)
{
    if (column == 0) {
        // The icon column has nothing to sort by; the indicator stays where it was.
        m_fileTable->horizontalHeader()->setSortIndicator(m_sortColumn, m_sortOrder);
        return;
    }
    if (column == m_sortColumn) {
        m_sortOrder = m_sortOrder == Qt::AscendingOrder ? Qt::DescendingOrder : Qt::AscendingOrder;
    } else {
        m_sortColumn = column;
        m_sortOrder = Qt::AscendingOrder;
    }
    m_fileTable->horizontalHeader()->setSortIndicator(m_sortColumn, m_sortOrder);
    refreshFileTable();
    updateActionStates();
}

void MainWindow::onTableItemDoubleClicked(QTableWidgetItem* item)
{
    if (!item) {
        return;
    }
    const int kind = item->data(KindRole).toInt();
    const QString path = item->data(Qt::UserRole).toString();
    if (kind == ParentRow) {
        m_currentFolder = Core::parentVaultPath(m_currentFolder);
    } else if (kind == FolderRow && !path.isEmpty()) {
        m_currentFolder = path;
    } else {
        if (kind == FileRow && m_actions.openFile->isEnabled()) {
            openFile();
        }
        return;
    }
    refreshFileTable();
    updateActionStates();
}

void MainWindow::showTableContextMenu(const QPoint& position)
{
    QMenu menu(this);
    const int kind = currentRowKind();
    if (kind == FileRow) {
        menu.addAction(m_actions.openFile);
        menu.addAction(m_actions.exportFile);
        menu.addAction(m_actions.moveFile);
        menu.addAction(m_actions.renameFile);
        menu.addAction(m_actions.deleteFile);
        menu.addSeparator();
    } else if (kind == FolderRow) {
        menu.addAction(m_actions.exportFolder);
        menu.addAction(m_actions.renameFolder);
        menu.addAction(m_actions.deleteFolder);
        menu.addSeparator();
    }
    menu.addAction(m_actions.newFolder);
    menu.addAction(m_actions.importFiles);
    menu.exec(m_fileTable->viewport()->mapToGlobal(position));
}

} // namespace Velmarin::UI
