#include "ui/MainWindow.h"

#include "ui/FailureText.h"
#include "ui/MessageBoxes.h"
#include "ui/PadlockIcon.h"
#include "ui/ProductInfo.h"
#include "ui/WindowGeometry.h"

#include <QAction>
#include <QCloseEvent>
#include <QDate>
#include <QFileInfo>
#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QScreen>
#include <QStatusBar>
#include <QTableWidget>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace Velmarin::UI {

namespace {

constexpr int OutcomeTimeoutMs = 5000;
const char* const SmallLabelStyle = "QLabel { font-size: 11px; padding-left: 4px; padding-right: 4px; }";
const char* const UnlockedBadgeStyle =
    "QLabel { background-color: #7bd88f; color: #000000; font-size: 11px; font-weight: 600; "
    "padding-left: 4px; padding-right: 4px; }";
const char* const LockedBadgeStyle =
    "QLabel { background-color: #f06a6a; color: #000000; font-size: 11px; font-weight: 600; "
    "padding-left: 4px; padding-right: 4px; }";
const char* const LockButtonStyle =
    "QToolButton { border: 1px solid #d0d0d0; border-radius: 4px; background: #f7f7f7; }"
    "QToolButton:hover:enabled { background: #eeeeee; border-color: #b8b8b8; }"
    "QToolButton:pressed:enabled { background: #e2e2e2; }"
    "QToolButton:disabled { background: #f1f1f1; border-color: #dedede; }";
const char* const FileTableStyle = "QTableWidget::item { border-bottom: 1px solid #d8d8d8; }"
                                   "QTableWidget::item:focus { outline: none; }"
                                   "QTableWidget::item:selected { background-color: palette(highlight); "
                                   "color: palette(highlighted-text); }";

QLabel* statusField(const QString& text, int width, const char* style)
{
    auto* label = new QLabel(text);
    label->setFixedWidth(width);
    label->setAlignment(Qt::AlignCenter);
    label->setStyleSheet(QString::fromLatin1(style));
    return label;
}

} // namespace

MainWindow::MainWindow(QWidget* parent)
    : MainWindow(MainWindowServices::forSystem(), parent)
{}

MainWindow::MainWindow(MainWindowServices services, QWidget* parent)
    : QMainWindow(parent)
    , m_vault(services.workspaceRoot, services.stateRoot)
    , m_deviceManager(std::move(services.deviceManager))
    , m_fileDialogs(std::move(services.fileDialogs))
    , m_storage(std::move(services.storage))
    , m_urlOpener(std::move(services.urlOpener))
    , m_autoLock(std::make_unique<AutoLock>(std::move(services.sessionEvents)))
{
    setWindowTitle(tr("Velmarin"));
    buildCentralWidget();
    buildStatusBar();
    createActions();
    buildMenus();
    connectSignals();
    fixWindowSize();
    m_autoLock->watchWindow(this);
    refreshDeviceList();
    updateActionStates();
    statusBar()->showMessage(tr("Pronto"));
    // Once the window is up, so the question has a window to belong to.
    QTimer::singleShot(0, this, &MainWindow::offerToRemoveStrayWorkspaces);
}

MainWindow::~MainWindow() = default;

void MainWindow::buildCentralWidget()
{
    auto* central = new QWidget(this);
    central->setFixedSize(WindowGeometry::centralSize(QGuiApplication::primaryScreen()));
    auto* layout = new QVBoxLayout(central);

    layout->addWidget(new QLabel(tr("Dispositivos USB"), central));

    m_deviceList = new QListWidget(central);
    m_deviceList->setObjectName(QStringLiteral("deviceList"));
    const int rowHeight = m_deviceList->fontMetrics().height() + 8;
    const int listHeight = 3 * rowHeight + 2 * m_deviceList->frameWidth();
    m_deviceList->setFixedHeight(listHeight);
    m_deviceList->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    // Keyboard focus would make the first drive current on its own when the window opens or a
    // dialog closes; a drive is chosen by the user or by the rules of the list, never by focus.
    m_deviceList->setFocusPolicy(Qt::ClickFocus);

    auto* iconLabel = new QLabel(central);
    iconLabel->setObjectName(QStringLiteral("applicationIcon"));
    iconLabel->setPixmap(QIcon(QStringLiteral(":/icons/Velmarin.ico")).pixmap(listHeight, listHeight));
    iconLabel->setAlignment(Qt::AlignCenter);

    m_lockButton = new QToolButton(central);
    m_lockButton->setObjectName(QStringLiteral("lockButton"));
    m_lockButton->setFixedSize(listHeight, listHeight);
    m_lockButton->setIconSize(QSize(48, 48));
    m_lockButton->setCheckable(true);
    m_lockButton->setAutoRaise(false);
    m_lockButton->setFocusPolicy(Qt::NoFocus);
    m_lockButton->setStyleSheet(QString::fromLatin1(LockButtonStyle));

    auto* deviceRow = new QHBoxLayout();
    deviceRow->setContentsMargins(0, 0, 0, 0);
    deviceRow->setSpacing(10);
    deviceRow->addWidget(iconLabel);
    deviceRow->addWidget(m_deviceList, 1);
    deviceRow->addWidget(m_lockButton);
    layout->addLayout(deviceRow);

    m_vaultStatusLabel = new QLabel(central);
    m_vaultStatusLabel->setObjectName(QStringLiteral("vaultStatusLabel"));
    layout->addWidget(m_vaultStatusLabel);

    m_fileTable = new QTableWidget(0, 5, central);
    m_fileTable->setObjectName(QStringLiteral("fileTable"));
    m_fileTable->setHorizontalHeaderLabels(
        {QString(), tr("Nome do arquivo"), tr("Tamanho"), tr("Tipo"), tr("Modificado em")});
    m_fileTable->setMinimumHeight(220);
    m_fileTable->setContextMenuPolicy(Qt::CustomContextMenu);
    m_fileTable->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_fileTable->setFocusPolicy(Qt::NoFocus);
    m_fileTable->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_fileTable->setSelectionMode(QAbstractItemView::SingleSelection);
    m_fileTable->setAlternatingRowColors(true);
    m_fileTable->setShowGrid(false);
    m_fileTable->setIconSize(QSize(18, 18));
    m_fileTable->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_fileTable->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_fileTable->verticalHeader()->setVisible(false);
    QHeaderView* header = m_fileTable->horizontalHeader();
    header->setStretchLastSection(false);
    header->setSectionsClickable(true);
    header->setSortIndicatorShown(true);
    header->setSortIndicator(m_sortColumn, m_sortOrder);
    header->setSectionResizeMode(0, QHeaderView::Fixed);
    header->setSectionResizeMode(1, QHeaderView::Stretch);
    header->setSectionResizeMode(2, QHeaderView::Fixed);
    header->setSectionResizeMode(3, QHeaderView::Fixed);
    header->setSectionResizeMode(4, QHeaderView::Fixed);
    m_fileTable->setColumnWidth(0, 28);
    m_fileTable->setColumnWidth(2, 110);
    m_fileTable->setColumnWidth(3, 70);
    m_fileTable->setColumnWidth(4, 140);
    m_fileTable->setStyleSheet(QString::fromLatin1(FileTableStyle));
    layout->addWidget(m_fileTable);

    setCentralWidget(central);
}

void MainWindow::buildStatusBar()
{
    auto* containerBox = new QWidget(this);
    containerBox->setObjectName(QStringLiteral("containerBox"));
    containerBox->setFixedWidth(180);
    auto* boxLayout = new QHBoxLayout(containerBox);
    boxLayout->setContentsMargins(0, 0, 0, 0);
    boxLayout->setSpacing(0);
    auto* separator = new QFrame(containerBox);
    separator->setFrameShape(QFrame::VLine);
    separator->setFixedWidth(1);
    separator->setStyleSheet(QStringLiteral("QFrame { background-color: #c8c8c8; }"));
    m_containerLabel = new QLabel(tr("Container: nenhum"), containerBox);
    m_containerLabel->setObjectName(QStringLiteral("containerLabel"));
    m_containerLabel->setAlignment(Qt::AlignCenter);
    m_containerLabel->setStyleSheet(QString::fromLatin1(SmallLabelStyle));
    boxLayout->addWidget(separator);
    boxLayout->addWidget(m_containerLabel, 1);

    m_versionLabel = statusField(QString(), 180, SmallLabelStyle);
    m_dateLabel = statusField(QDate::currentDate().toString(QStringLiteral("dd/MM/yyyy")), 78,
                              "QLabel { font-size: 11px; }");
    m_vaultBadge = statusField(tr("COFRE"), 50, LockedBadgeStyle);
    m_versionLabel->setObjectName(QStringLiteral("versionLabel"));
    m_dateLabel->setObjectName(QStringLiteral("dateLabel"));
    m_vaultBadge->setObjectName(QStringLiteral("vaultBadge"));

    statusBar()->addPermanentWidget(containerBox);
    statusBar()->addPermanentWidget(m_versionLabel);
    statusBar()->addPermanentWidget(m_dateLabel);
    statusBar()->addPermanentWidget(m_vaultBadge);
    refreshVersionLabel();
}

void MainWindow::fixWindowSize()
{
    adjustSize();
    setFixedSize(sizeHint());
}

void MainWindow::updateActionStates()
{
    const bool unlocked = m_vault.isUnlocked();
    const bool hasContainer = !m_containerPath.isEmpty();
    const bool fileSelected = !selectedFilePath().isEmpty();
    const bool folderSelected = isFolderSelected();
    const bool vaultHasFolder = unlocked && !m_vault.index().directories().isEmpty();

    m_actions.refreshDevices->setEnabled(!unlocked);
    m_actions.chooseContainer->setEnabled(!unlocked);
    m_actions.createVault->setEnabled(!unlocked);
    m_actions.backup->setEnabled(hasContainer && !unlocked);
    m_actions.changePassword->setEnabled(hasContainer && !unlocked);
    m_actions.unlock->setEnabled(hasContainer && !unlocked);
    m_actions.lock->setEnabled(unlocked);
    m_actions.newFolder->setEnabled(unlocked);
    m_actions.importFiles->setEnabled(unlocked);
    m_actions.importFolder->setEnabled(unlocked);
    // Read-only sessions too: an export writes nothing to the container.
    m_actions.exportFolder->setEnabled(unlocked);
    m_actions.compact->setEnabled(unlocked);
    // Read-only sessions too: verification only reads.
    m_actions.verify->setEnabled(unlocked);
    m_actions.renameFolder->setEnabled(unlocked && folderSelected);
    m_actions.deleteFolder->setEnabled(unlocked && folderSelected);
    m_actions.exportFile->setEnabled(unlocked && fileSelected);
    m_actions.openFile->setEnabled(unlocked && fileSelected);
    m_actions.renameFile->setEnabled(unlocked && fileSelected);
    m_actions.deleteFile->setEnabled(unlocked && fileSelected);
    m_actions.moveFile->setEnabled(unlocked && fileSelected && vaultHasFolder);
    // Every change of the vault's state passes here, so the automatic lock always knows it.
    m_autoLock->watch(unlocked ? m_vault.containerPath() : QString());

    updateLockButton();
    refreshVersionLabel();
    updateContainerStatus();
    updateVaultStatusLabel();
}

void MainWindow::updateLockButton()
{
    const QSignalBlocker blocker(m_lockButton);
    const bool unlocked = m_vault.isUnlocked();
    const bool enabled = unlocked ? m_actions.lock->isEnabled() : m_actions.unlock->isEnabled();
    m_lockButton->setEnabled(enabled);
    m_lockButton->setChecked(unlocked);
    m_lockButton->setIcon(PadlockIcon::create(unlocked, enabled));
    if (unlocked) {
        m_lockButton->setToolTip(tr("Bloquear cofre"));
    } else if (enabled) {
        m_lockButton->setToolTip(tr("Desbloquear cofre"));
    } else {
        m_lockButton->setToolTip(tr("Selecione um container para desbloquear o cofre."));
    }
}

void MainWindow::refreshVersionLabel()
{
    m_versionLabel->setText(tr("Versão %1").arg(QString::fromLatin1(ProductVersion)));
}

void MainWindow::updateContainerStatus()
{
    QString name = tr("nenhum");
    if (!m_containerPath.isEmpty()) {
        name = QFileInfo(m_containerPath).fileName();
        // The usual container reads as the product's name rather than as a file name.
        if (name.compare(QStringLiteral("velmarin.vltx"), Qt::CaseInsensitive) == 0) {
            name = QStringLiteral("Velmarin");
        }
    }
    const QString text = tr("Container: %1").arg(name);
    m_containerLabel->setText(
        m_containerLabel->fontMetrics().elidedText(text, Qt::ElideMiddle, m_containerLabel->width() - 8));
    m_containerLabel->setToolTip(text);

    m_vaultBadge->setText(tr("COFRE"));
    m_vaultBadge->setStyleSheet(
        QString::fromLatin1(m_vault.isUnlocked() ? UnlockedBadgeStyle : LockedBadgeStyle));
}

void MainWindow::updateVaultStatusLabel()
{
    if (!m_vault.isUnlocked()) {
        m_vaultStatusLabel->setText(tr("Nenhum cofre em uso (aberto)"));
        return;
    }
    const qsizetype count = m_vault.index().files().size();
    QString files;
    if (count == 0) {
        files = tr("O cofre está vazio.");
    } else if (count == 1) {
        files = tr("1 arquivo no cofre.");
    } else {
        files = tr("%1 arquivos no cofre.").arg(count);
    }
    const QString folder = m_currentFolder.isEmpty() ? tr("Raiz") : m_currentFolder;
    m_vaultStatusLabel->setText(tr("Arquivos protegidos | Pasta: %1 | %2").arg(folder, files));
}

void MainWindow::onLockButtonClicked()
{
    if (m_vault.isUnlocked()) {
        if (m_actions.lock->isEnabled()) {
            lockVault();
        }
    } else if (m_actions.unlock->isEnabled()) {
        unlockVault();
    }
    // The button is checkable; its checked state follows the vault, not the click.
    updateLockButton();
}

void MainWindow::showOutcome(const QString& text)
{
    statusBar()->showMessage(text, OutcomeTimeoutMs);
}

void MainWindow::resetToRoot()
{
    m_currentFolder.clear();
    refreshFileTable();
    updateActionStates();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_vault.isUnlocked() && !m_vault.lock()) {
        MessageBoxes::warning(this, tr("Velmarin"), tr("Não foi possível bloquear o cofre."),
                              FailureText::why(m_vault.lastFailure()));
        event->ignore();
        // A lock that failed only at cleaning the workspace did lock: show what is true now.
        refreshFileTable();
        updateActionStates();
        return;
    }
    event->accept();
}

} // namespace Velmarin::UI
