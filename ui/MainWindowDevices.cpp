// The device list: filling it from the device manager and pointing at the container's drive.
#include "core/index/DisplayFormat.h"
#include "ui/MainWindow.h"
#include "ui/MessageBoxes.h"

#include <QDir>
#include <QFileInfo>
#include <QFont>
#include <QListWidget>

namespace Velmarin::UI {

namespace {

constexpr int DeviceNameRole = Qt::UserRole + 1;

// A line that explains the list rather than naming a drive: readable, but nothing to choose.
void addNotice(QListWidget* list, const QString& text)
{
    auto* item = new QListWidgetItem(text, list);
    item->setFlags(item->flags() & ~Qt::ItemIsSelectable);
}

// "E:\", "e:/" and "E:" all become "E:/", so a drive root can be compared with a folder.
QString normalizedRoot(const QString& path)
{
    QString root = QDir::fromNativeSeparators(path.trimmed());
    while (root.size() >= 4 && root.endsWith(QLatin1Char('/'))) {
        root.chop(1);
    }
    if (!root.endsWith(QLatin1Char('/'))) {
        root.append(QLatin1Char('/'));
    }
    return root;
}

} // namespace

void MainWindow::refreshDeviceList()
{
    m_deviceList->clear();
    if (!m_deviceManager) {
        addNotice(m_deviceList, tr("Detecção de USB ainda não disponível neste sistema."));
        highlightDeviceForContainer(m_containerPath);
        updateActionStates();
        return;
    }

    const QList<Platform::UsbDevice> devices = m_deviceManager->listDevices();
    if (devices.isEmpty()) {
        addNotice(m_deviceList, tr("Nenhum dispositivo USB detectado."));
        highlightDeviceForContainer(m_containerPath);
        updateActionStates();
        return;
    }

    for (const Platform::UsbDevice& device : devices) {
        QString location = device.mountPath;
        if (!device.mounted) {
            location = device.devicePath.isEmpty() ? tr("não montado") : device.devicePath;
        }
        const QString name = device.label.isEmpty() ? location : device.label;
        QString text = QStringLiteral("%1 (%2)").arg(name, location);
        if (!device.mounted) {
            text += tr(" | não montado");
        } else if (const Core::DriveSpace space = m_storage->space(device.mountPath); space.available) {
            text += QStringLiteral(" | %1").arg(tr("%1 livres").arg(Core::formatDataSize(*space.available)));
        }

        auto* item = new QListWidgetItem(text, m_deviceList);
        item->setData(Qt::UserRole, device.mounted ? device.mountPath : QString());
        item->setData(DeviceNameRole, name);
        if (!device.mounted) {
            item->setFlags(item->flags() & ~Qt::ItemIsSelectable);
            item->setForeground(QColor(110, 110, 110));
            item->setToolTip(tr("Monte a unidade USB no gerenciador de arquivos e atualize a lista."));
        }
    }

    if (!m_containerPath.isEmpty()) {
        highlightDeviceForContainer(m_containerPath);
    } else {
        // Only an unambiguous choice is made for the user: a single mounted drive.
        QListWidgetItem* onlyMounted = nullptr;
        int mountedCount = 0;
        for (int row = 0; row < m_deviceList->count() && mountedCount < 2; ++row) {
            QListWidgetItem* item = m_deviceList->item(row);
            if (!item->data(Qt::UserRole).toString().isEmpty()) {
                onlyMounted = item;
                ++mountedCount;
            }
        }
        const QSignalBlocker blocker(m_deviceList);
        if (mountedCount == 1) {
            m_deviceList->setCurrentItem(onlyMounted);
        } else {
            m_deviceList->clearSelection();
            m_deviceList->setCurrentRow(-1);
        }
    }
    updateActionStates();
}

void MainWindow::highlightDeviceForContainer(const QString& containerPath)
{
    const QSignalBlocker blocker(m_deviceList);
    const QString containerDirectory =
        containerPath.isEmpty() ? QString() : normalizedRoot(QFileInfo(containerPath).absolutePath());

    QListWidgetItem* match = nullptr;
    for (int row = 0; row < m_deviceList->count(); ++row) {
        QListWidgetItem* item = m_deviceList->item(row);
        item->setData(Qt::BackgroundRole, QVariant());
        // An unmounted drive keeps its hint; only the association's own tip goes.
        const bool unmountedDevice =
            item->data(DeviceNameRole).isValid() && item->data(Qt::UserRole).toString().isEmpty();
        item->setToolTip(unmountedDevice
                             ? tr("Monte a unidade USB no gerenciador de arquivos e atualize a lista.")
                             : QString());
        QFont font = item->font();
        font.setWeight(QFont::Normal);
        item->setFont(font);

        const QString root = item->data(Qt::UserRole).toString();
        if (!root.isEmpty() && !containerDirectory.isEmpty() &&
            containerDirectory.startsWith(normalizedRoot(root), Qt::CaseInsensitive)) {
            match = item;
        }
    }

    if (!match) {
        m_deviceList->clearSelection();
        m_deviceList->setCurrentRow(-1);
    } else {
        QFont font = match->font();
        font.setWeight(QFont::Bold);
        match->setFont(font);
        match->setBackground(QColor(222, 237, 255));
        match->setToolTip(tr("Dispositivo associado ao container selecionado."));
        m_deviceList->setCurrentItem(match);
        m_deviceList->scrollToItem(match);
    }
    updateActionStates();
}

void MainWindow::onDeviceItemChanged()
{
    if (!m_containerPath.isEmpty()) {
        highlightDeviceForContainer(m_containerPath);
    }
    updateActionStates();
}

void MainWindow::discoverContainer(QListWidgetItem* item)
{
    if (!item) {
        return;
    }
    const QString root = item->data(Qt::UserRole).toString();
    if (root.isEmpty()) {
        return;
    }
    const QString candidate = Core::VaultManager::containerPathOn(root);
    // A compaction cut short may have left only its journal: unlocking puts the container back.
    if (!QFileInfo::exists(candidate) && !Core::VaultManager::hasInterruptedChange(candidate)) {
        MessageBoxes::information(this, tr("Velmarin"),
                                  tr("Nenhum velmarin.vltx foi encontrado em %1. Use Criar cofre para "
                                     "criar um novo container.")
                                      .arg(root));
        return;
    }
    m_containerPath = candidate;
    highlightDeviceForContainer(m_containerPath);
    updateActionStates();
}

} // namespace Velmarin::UI
