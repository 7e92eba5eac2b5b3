// The menu bar, its actions and shortcuts, and the signal wiring made once at construction.
#include "ui/AboutDialog.h"
#include "ui/HelpDialog.h"
#include "ui/MainWindow.h"
#include "ui/ProductInfo.h"

#include <QAction>
#include <QHeaderView>
#include <QListWidget>
#include <QMenuBar>
#include <QTableWidget>
#include <QToolButton>
#include <QUrl>

namespace Velmarin::UI {

void MainWindow::createActions()
{
    const auto make = [this](const QString& text, const QKeySequence& shortcut = {}) {
        auto* action = new QAction(text, this);
        action->setShortcut(shortcut);
        return action;
    };
    m_actions.quit = make(tr("Sair"), QKeySequence(QStringLiteral("Ctrl+Q")));
    m_actions.refreshDevices = make(tr("Atualizar lista"), QKeySequence(QStringLiteral("Ctrl+F5")));
    m_actions.chooseContainer = make(tr("Escolher container..."), QKeySequence(QStringLiteral("Ctrl+O")));
    m_actions.createVault = make(tr("Criar novo cofre..."), QKeySequence(QStringLiteral("Ctrl+N")));
    m_actions.backup = make(tr("Fazer backup..."), QKeySequence(QStringLiteral("Ctrl+B")));
    m_actions.changePassword = make(tr("Alterar senha..."), QKeySequence(QStringLiteral("Ctrl+P")));
    m_actions.unlock = make(tr("Desbloquear"), QKeySequence(QStringLiteral("Ctrl+L")));
    m_actions.lock = make(tr("Bloquear"), QKeySequence(QStringLiteral("Ctrl+Shift+L")));
    m_actions.newFolder = make(tr("Nova pasta..."), QKeySequence(QStringLiteral("Ctrl+Shift+N")));
    m_actions.importFiles = make(tr("Importar..."), QKeySequence(QStringLiteral("Ctrl+I")));
    m_actions.importFolder = make(tr("Importar pasta..."));
    m_actions.exportFile = make(tr("Exportar..."), QKeySequence(QStringLiteral("Ctrl+E")));
    m_actions.exportFolder = make(tr("Exportar pasta..."));
    m_actions.openFile = make(tr("Abrir"), QKeySequence(QStringLiteral("Return")));
    m_actions.renameFolder = make(tr("Renomear pasta..."));
    m_actions.deleteFolder = make(tr("Excluir pasta vazia"));
    m_actions.deleteFile = make(tr("Excluir..."), QKeySequence(QStringLiteral("Delete")));
    m_actions.compact = make(tr("Compactar cofre..."), QKeySequence(QStringLiteral("F6")));
    m_actions.verify = make(tr("Verificar cofre..."));
    m_actions.help = make(tr("Ajuda"));
    m_actions.visitProductPage = make(tr("Visitar a página oficial do Velmarin"));
    m_actions.about = make(tr("Sobre o Velmarin"));
    // Only in the file table's context menu, yet ruled by the same enabled states.
    m_actions.moveFile = make(tr("Mover para pasta..."));
    m_actions.renameFile = make(tr("Renomear arquivo..."));
}

void MainWindow::buildMenus()
{
    QMenu* fileMenu = menuBar()->addMenu(tr("Arquivo"));
    fileMenu->addAction(m_actions.quit);

    QMenu* usbMenu = menuBar()->addMenu(tr("USB"));
    QMenu* devicesMenu = usbMenu->addMenu(tr("Dispositivos"));
    devicesMenu->addAction(m_actions.refreshDevices);

    QMenu* containerMenu = usbMenu->addMenu(tr("Container"));
    containerMenu->addAction(m_actions.chooseContainer);
    containerMenu->addAction(m_actions.createVault);
    containerMenu->addSeparator();
    containerMenu->addAction(m_actions.backup);
    containerMenu->addAction(m_actions.changePassword);

    QMenu* accessMenu = usbMenu->addMenu(tr("Acesso ao cofre"));
    accessMenu->addAction(m_actions.unlock);
    accessMenu->addAction(m_actions.lock);
    accessMenu->addSeparator();
    QMenu* filesMenu = accessMenu->addMenu(tr("Arquivos protegidos"));
    filesMenu->addAction(m_actions.newFolder);
    filesMenu->addSeparator();
    filesMenu->addAction(m_actions.importFiles);
    filesMenu->addAction(m_actions.importFolder);
    filesMenu->addAction(m_actions.exportFile);
    filesMenu->addAction(m_actions.exportFolder);
    filesMenu->addAction(m_actions.openFile);
    filesMenu->addSeparator();
    filesMenu->addAction(m_actions.renameFolder);
    filesMenu->addAction(m_actions.deleteFolder);
    filesMenu->addSeparator();
    filesMenu->addAction(m_actions.deleteFile);
    accessMenu->addSeparator();
    accessMenu->addAction(m_actions.compact);
    accessMenu->addAction(m_actions.verify);

    QMenu* aboutMenu = menuBar()->addMenu(tr("Sobre"));
    aboutMenu->addAction(m_actions.help);
    aboutMenu->addAction(m_actions.visitProductPage);
    aboutMenu->addSeparator();
    aboutMenu->addAction(m_actions.about);
}

void MainWindow::connectSignals()
{
    // Help, the product page and About never touch the vault: a page left open must not hold an
    // automatic lock back. Quitting locks through closeEvent.
    connect(m_actions.quit, &QAction::triggered, this, &QWidget::close);
    connect(m_actions.help, &QAction::triggered, this, &MainWindow::showHelp);
    connect(m_actions.visitProductPage, &QAction::triggered, this, &MainWindow::visitProductPage);
    connect(m_actions.about, &QAction::triggered, this, &MainWindow::showAbout);

    connectOperation(m_actions.refreshDevices, &MainWindow::refreshDeviceList);
    connectOperation(m_actions.chooseContainer, &MainWindow::chooseContainer);
    connectOperation(m_actions.createVault, &MainWindow::createVault);
    connectOperation(m_actions.backup, &MainWindow::backupContainer);
    connectOperation(m_actions.changePassword, &MainWindow::changePassword);
    connectOperation(m_actions.unlock, &MainWindow::unlockVault);
    connectOperation(m_actions.lock, &MainWindow::lockVault);
    connectOperation(m_actions.newFolder, &MainWindow::createFolder);
    connectOperation(m_actions.importFiles, &MainWindow::importFiles);
    connectOperation(m_actions.importFolder, &MainWindow::importFolder);
    connectOperation(m_actions.exportFile, &MainWindow::exportFile);
    connectOperation(m_actions.exportFolder, &MainWindow::exportFolder);
    connectOperation(m_actions.openFile, &MainWindow::openFile);
    connectOperation(m_actions.moveFile, &MainWindow::moveFile);
    connectOperation(m_actions.renameFile, &MainWindow::renameFile);
    connectOperation(m_actions.renameFolder, &MainWindow::renameFolder);
    connectOperation(m_actions.deleteFolder, &MainWindow::deleteFolder);
    connectOperation(m_actions.deleteFile, &MainWindow::deleteFile);
    connectOperation(m_actions.compact, &MainWindow::compactVault);
    connectOperation(m_actions.verify, &MainWindow::verifyVault);

    // The button and the double-clicks start the same operations as the actions.
    connect(m_lockButton, &QToolButton::clicked, this,
            [this] { m_autoLock->run([this] { onLockButtonClicked(); }); });
    connect(m_deviceList, &QListWidget::itemDoubleClicked, this,
            [this](QListWidgetItem* item) { m_autoLock->run([this, item] { discoverContainer(item); }); });
    connect(m_fileTable, &QTableWidget::itemDoubleClicked, this, [this](QTableWidgetItem* item) {
        m_autoLock->run([this, item] { onTableItemDoubleClicked(item); });
    });
    connect(m_deviceList, &QListWidget::currentItemChanged, this, &MainWindow::onDeviceItemChanged);
    connect(m_fileTable, &QTableWidget::itemSelectionChanged, this, &MainWindow::updateActionStates);
    connect(m_fileTable->horizontalHeader(), &QHeaderView::sectionClicked, this,
            &MainWindow::onHeaderClicked);
    connect(m_fileTable, &QTableWidget::customContextMenuRequested, this, &MainWindow::showTableContextMenu);
    connectAutoLock();
    acceptDrops();
    allowDragsOut();
}

void MainWindow::showHelp()
{
    HelpDialog dialog(this);
    dialog.exec();
}

void MainWindow::showAbout()
{
    AboutDialog dialog(*m_urlOpener, this);
    dialog.exec();
}

void MainWindow::visitProductPage()
{
    m_urlOpener->openUrl(QUrl(QString::fromLatin1(ProductPageUrl)));
}

} // namespace Velmarin::UI
