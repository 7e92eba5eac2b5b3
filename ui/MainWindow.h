#pragma once

#include "core/vault/VaultManager.h"
#include "ui/AutoLock.h"
#include "ui/FileTypeIcons.h"
#include "ui/MainWindowServices.h"

#include <QMainWindow>
#include <QString>
#include <QStringList>

class QAction;
class QCloseEvent;
class QLabel;
class QListWidget;
class QListWidgetItem;
class QMenu;
class QMimeData;
class QPoint;
class QTableWidget;
class QTableWidgetItem;
class QToolButton;

namespace Velmarin::UI {

// The program's only window. Its state is the selected container, the folder shown and the vault's
// session; every action's enabled flag is a pure function of these and of the table's selection.
// The implementation is split by concern: layout and state (MainWindow.cpp), menus
// (MainWindowMenus.cpp), devices (MainWindowDevices.cpp), the file table (MainWindowFileTable.cpp),
// vault actions (MainWindowVaultActions.cpp), file actions (MainWindowFileActions.cpp), importing
// (MainWindowImport.cpp, and folders and drops in MainWindowImportFolders.cpp), exporting folders
// and dragging rows out (MainWindowExportFolders.cpp) and locking on its own (MainWindowAutoLock.cpp).
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    // Row kinds carried by the file table's items in Qt::UserRole + 1.
    enum RowKind
    {
        FileRow = 0,
        FolderRow = 1,
        ParentRow = 2
    };

    explicit MainWindow(QWidget* parent = nullptr);
    explicit MainWindow(MainWindowServices services, QWidget* parent = nullptr);
    ~MainWindow() override;

    QString containerPath() const { return m_containerPath; }
    QString currentFolder() const { return m_currentFolder; }
    bool isVaultUnlocked() const { return m_vault.isUnlocked(); }

    QString selectedFilePath() const;
    QString selectedFolderPath() const;
    bool isFolderSelected() const;
    bool isNavigationRowSelected() const;
    // The selected file or folder row, decrypted into the private workspace and handed over as the
    // URL of that copy, for a drag to the file manager; nullptr when nothing can be dragged (told).
    QMimeData* dragMimeData();

public Q_SLOTS:
    void updateActionStates();
    void updateLockButton();
    void updateContainerStatus();
    void updateVaultStatusLabel();
    void refreshDeviceList();
    void highlightDeviceForContainer(const QString& containerPath);
    void refreshFileTable();

    void discoverContainer(QListWidgetItem* item);
    void chooseContainer();
    void createVault();
    void unlockVault();
    void lockVault();
    void backupContainer();
    void changePassword();
    void compactVault();
    // Reads back every file and lists what is damaged (MainWindowVerify.cpp).
    void verifyVault();

    void importFiles();
    void importFolder();
    void exportFile();
    void exportFolder();
    void openFile();
    void moveFile();
    void renameFile();
    void renameFolder();
    void createFolder();
    void deleteFolder();
    void deleteFile();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    struct Actions
    {
        QAction* quit = nullptr;
        QAction* refreshDevices = nullptr;
        QAction* chooseContainer = nullptr;
        QAction* createVault = nullptr;
        QAction* backup = nullptr;
        QAction* changePassword = nullptr;
        QAction* unlock = nullptr;
        QAction* lock = nullptr;
        QAction* newFolder = nullptr;
        QAction* importFiles = nullptr;
        QAction* importFolder = nullptr;
        QAction* exportFile = nullptr;
        QAction* exportFolder = nullptr;
        QAction* openFile = nullptr;
        QAction* moveFile = nullptr;
        QAction* renameFile = nullptr;
        QAction* renameFolder = nullptr;
        QAction* deleteFolder = nullptr;
        QAction* deleteFile = nullptr;
        QAction* compact = nullptr;
        QAction* verify = nullptr;
        QAction* help = nullptr;
        QAction* visitProductPage = nullptr;
        QAction* about = nullptr;
    };

    // Layout and state (MainWindow.cpp).
    void buildCentralWidget();
    void buildStatusBar();
    void fixWindowSize();
    void refreshVersionLabel();
    void onLockButtonClicked();
    void showOutcome(const QString& text);
    void resetToRoot();

    // Menus (MainWindowMenus.cpp).
    void createActions();
    void buildMenus();
    void connectSignals();
    void showHelp();
    void showAbout();
    void visitProductPage();

    // File table (MainWindowFileTable.cpp).
    int currentRowKind() const;
    QString currentRowPath() const;
    void addTableRow(RowKind kind, const QString& path, const QString& name, const QString& size,
                     const QString& type, const QDateTime& modified);
    void onHeaderClicked(int column);
    void onTableItemDoubleClicked(QTableWidgetItem* item);
    void showTableContextMenu(const QPoint& position);
    // The folder a row stands for: its own for a folder or ".." row, the current one otherwise.
    QString folderAtRow(int row) const;
    void onDeviceItemChanged();

    // Vault actions (MainWindowVaultActions.cpp).
    bool requireSelectedContainer();
    // Why an unlock failed, in the box that fits: in use, missing, newer, or the password and its reason.
    void explainUnlockFailure();
    // After an unlock that had to put back what a cut-short change left behind.
    void tellAboutRecovery();
    // Warns and answers true when another session holds the selected container.
    bool refuseIfInUse(const QString& title);
    // After a lock: which edited copies went back under another name, their path being taken.
    QString movedEditsText() const;
    // The password change that also seals the vault again under a new key (MainWindowRekey.cpp);
    // wipes both passwords.
    void rekeyVault(QByteArray& currentPassword, QByteArray& newPassword);

    // Copies of files opened for editing (MainWindowWorkspace.cpp).
    // Says why the vault's workspace cannot be used, after an unlock that opened the keys.
    void explainWorkspaceProblem();
    // After an unlock: edits a session of this vault left behind, offered back with one question.
    void offerLeftoverEdits();
    // At start: copies that sessions of other vaults left behind, offered for removal.
    void offerToRemoveStrayWorkspaces();

    // Importing (MainWindowImport.cpp): one batch for what was chosen, with what was left out of it.
    struct ImportRequest
    {
        QList<Core::ImportItem> items;
        // Local paths whose names the vault cannot take, and those whose vault path another item of
        // the selection has too, but for letter case.
        QStringList refusedNames;
        QStringList caseTwins;
        // Symbolic links and special files inside folders, left out.
        int skipped = 0;
        // Folders and drops: many replacements may be asked, so they can be answered for all.
        bool offerForAll = false;
    };
    void runImport(ImportRequest request);
    // The index's room and the drive's free space for the files, told or asked about before
    // anything is written.
    bool confirmImportSpace(const QList<Core::ImportItem>& items);
    // Tells why a batch stopped: the file where it did, the reason, and how many went in before.
    void explainImportStop(const QList<Core::ImportItem>& items, const Core::ImportBatch::Outcome& outcome);

    // Folders and drops (MainWindowImportFolders.cpp).
    // Plans local files and folders into the vault folder target; false when one is missing (told).
    bool planImport(const QStringList& localPaths, const QString& target, ImportRequest& request);
    void importDropped(const QStringList& localPaths, const QString& target);
    void acceptDrops();
    // After a batch: the names left out, in one box.
    void tellLeftOut(const ImportRequest& request);
    QString importOutcomeText(int imported, int ignored) const;

    // Exporting folders (MainWindowExportFolders.cpp).
    // The folder on disk that receives folder ("" for the whole vault): its own name.
    QString exportedFolderName(const QString& folder) const;
    // After a folder export: what could not be written, and what was refused, in one box.
    void tellExportFailures(const Core::FolderExport::Outcome& outcome);
    QString exportOutcomeText(const Core::FolderExport::Outcome& outcome) const;
    void allowDragsOut();

    // File actions (MainWindowFileActions.cpp).
    void renameEntry(bool folder);

    // Locking on its own (MainWindowAutoLock.cpp).
    void connectAutoLock();
    // Runs the slot as one operation, so an automatic lock never cuts into it (see AutoLock).
    void connectOperation(QAction* action, void (MainWindow::*slot)());
    void lockAutomatically(AutoLock::Reason reason);

    Core::VaultManager m_vault;
    QString m_containerPath;
    QString m_currentFolder;
    QListWidget* m_deviceList = nullptr;
    QTableWidget* m_fileTable = nullptr;
    QLabel* m_vaultStatusLabel = nullptr;
    QLabel* m_containerLabel = nullptr;
    QLabel* m_versionLabel = nullptr;
    QLabel* m_dateLabel = nullptr;
    QLabel* m_vaultBadge = nullptr;
    QToolButton* m_lockButton = nullptr;
    Actions m_actions;

    std::unique_ptr<Platform::DeviceManager> m_deviceManager;
    std::unique_ptr<FileDialogs> m_fileDialogs;
    std::unique_ptr<StorageProbe> m_storage;
    std::unique_ptr<UrlOpener> m_urlOpener;
    // Destroyed before the vault, so it never announces a lock to a window half gone.
    std::unique_ptr<AutoLock> m_autoLock;
    FileTypeIcons m_typeIcons;
    int m_sortColumn = 1;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
};

} // namespace Velmarin::UI
