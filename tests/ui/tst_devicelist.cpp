// The device list: how devices read, which one is chosen after a refresh, and how the container's
// drive is pointed out.
#include "WindowFixture.h"
#include "platform/windows/WindowsDeviceRecords.h"

#include <QAction>
#include <QListWidget>
#include <QTest>

using namespace Velmarin;
using Velmarin::Platform::UsbDevice;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::WindowFixture;

namespace {

UsbDevice mounted(const QString& root, const QString& label, const QString& id = QString())
{
    UsbDevice device;
    device.mountPath = root;
    device.devicePath = QStringLiteral("/dev/sdx1");
    device.label = label;
    device.id = id.isEmpty() ? root : id;
    device.mounted = true;
    device.removable = true;
    return device;
}

UsbDevice unmounted(const QString& devicePath, const QString& label)
{
    UsbDevice device;
    device.devicePath = devicePath;
    device.label = label;
    device.id = devicePath;
    return device;
}

QStringList texts(const QListWidget* list)
{
    QStringList result;
    for (int row = 0; row < list->count(); ++row) {
        result.append(list->item(row)->text());
    }
    return result;
}

} // namespace

class DeviceListTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void withoutDetection();
    void noDevices();
    void emptyLabelOnF();
    void itemTextsAndData();
    void unmountedDeviceIsGreyAndUnselectable();
    void volumeWithoutStorageInformationShowsNoFreeSpace();
    void exactlyOneMountedDeviceIsSelected();
    void twoDevicesSelectNothing();
    void containerDriveIsHighlighted();
    void prefixMatchIgnoresCaseAndLastMatchWins();
    void noMatchClearsTheCurrentRow();
    void clickingAnotherDeviceSnapsBack();
    void refreshKeepsTheAssociation();
    void doubleClickFindsTheContainer();
    void doubleClickOnADriveWithoutContainer();
    void doubleClickOnAnUnmountedDeviceDoesNothing();

private:
    void setUp(const QList<UsbDevice>& devices, bool withDetection = true);

    WindowFixture m_fixture;
};

void DeviceListTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
}

void DeviceListTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

void DeviceListTest::setUp(const QList<UsbDevice>& devices, bool withDetection)
{
    QVERIFY(m_fixture.setUp({}, {}, withDetection));
    if (withDetection) {
        m_fixture.fakes().devices->devices = devices;
        m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    }
}

void DeviceListTest::withoutDetection()
{
    setUp({}, false);
    QCOMPARE(texts(m_fixture.deviceList()),
             QStringList({QStringLiteral("Detecção de USB ainda não disponível neste sistema.")}));
    QCOMPARE(m_fixture.deviceList()->currentRow(), -1);
}

void DeviceListTest::noDevices()
{
    setUp({});
    QCOMPARE(texts(m_fixture.deviceList()),
             QStringList({QStringLiteral("Nenhum dispositivo USB detectado.")}));
    QCOMPARE(m_fixture.deviceList()->currentRow(), -1);
    QVERIFY(m_fixture.deviceList()->selectedItems().isEmpty());
}

void DeviceListTest::emptyLabelOnF()
{
    // The record Windows would make for a stick in F: without a label, with 7,4 GB free.
    Platform::Windows::VolumeProbe probe;
    probe.letter = 'F';
    probe.driveType = 2;
    probe.handleOpened = true;
    probe.queryOk = true;
    probe.busType = 7;
    probe.volumeInfoOk = true;
    probe.serial = 0xF00D;
    QVERIFY(m_fixture.setUp());
    m_fixture.fakes().storage->available = qint64(7.4 * 1024 * 1024 * 1024);
    m_fixture.fakes().devices->devices = Platform::Windows::WindowsDeviceRecords::fromProbes({probe});
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    QCOMPARE(texts(m_fixture.deviceList()), QStringList({QStringLiteral("USB F: (F:\\) | 7,4 GB livres")}));
    QCOMPARE(m_fixture.fakes().storage->askedPaths.last(), QStringLiteral("F:\\"));
}

void DeviceListTest::itemTextsAndData()
{
    m_fixture.setUp();
    m_fixture.fakes().storage->available = qint64(12) * 1024 * 1024 * 1024 + 300 * 1024 * 1024;
    m_fixture.fakes().devices->devices = {
        mounted(QStringLiteral("/media/ana/SANDISK"), QStringLiteral("SANDISK")),
        mounted(QStringLiteral("/media/ana/sem-nome"), QString())};
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    QListWidget* list = m_fixture.deviceList();
    QCOMPARE(texts(list),
             QStringList({QStringLiteral("SANDISK (/media/ana/SANDISK) | 12,3 GB livres"),
                          QStringLiteral("/media/ana/sem-nome (/media/ana/sem-nome) | 12,3 GB livres")}));
    QCOMPARE(list->item(0)->data(Qt::UserRole).toString(), QStringLiteral("/media/ana/SANDISK"));
    QCOMPARE(list->item(0)->data(Qt::UserRole + 1).toString(), QStringLiteral("SANDISK"));
    QCOMPARE(list->item(1)->data(Qt::UserRole + 1).toString(), QStringLiteral("/media/ana/sem-nome"));
    QVERIFY(list->item(0)->flags() & Qt::ItemIsSelectable);
}

void DeviceListTest::unmountedDeviceIsGreyAndUnselectable()
{
    setUp({unmounted(QStringLiteral("/dev/sdc1"), QStringLiteral("USB sdc1")),
           unmounted(QString(), QString())});
    QListWidget* list = m_fixture.deviceList();
    QCOMPARE(texts(list), QStringList({QStringLiteral("USB sdc1 (/dev/sdc1) | não montado"),
                                       QStringLiteral("não montado (não montado) | não montado")}));
    for (int row = 0; row < 2; ++row) {
        QListWidgetItem* item = list->item(row);
        QVERIFY(!(item->flags() & Qt::ItemIsSelectable));
        QVERIFY(item->flags() & Qt::ItemIsEnabled);
        QCOMPARE(item->foreground().color(), QColor(110, 110, 110, 255));
        QCOMPARE(item->toolTip(),
                 QStringLiteral("Monte a unidade USB no gerenciador de arquivos e atualize a lista."));
        QCOMPARE(item->data(Qt::UserRole).toString(), QString());
    }
    // Nothing mounted, nothing chosen.
    QCOMPARE(list->currentRow(), -1);
}

void DeviceListTest::volumeWithoutStorageInformationShowsNoFreeSpace()
{
    QVERIFY(m_fixture.setUp());
    m_fixture.fakes().storage->ready = false;
    m_fixture.fakes().devices->devices = {
        mounted(QStringLiteral("/media/ana/LENTO"), QStringLiteral("LENTO"))};
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    QCOMPARE(texts(m_fixture.deviceList()), QStringList({QStringLiteral("LENTO (/media/ana/LENTO)")}));
}

void DeviceListTest::exactlyOneMountedDeviceIsSelected()
{
    setUp({unmounted(QStringLiteral("/dev/sdc1"), QStringLiteral("OUTRO")),
           mounted(QStringLiteral("/media/ana/UNICO"), QStringLiteral("UNICO"))});
    QCOMPARE(m_fixture.deviceList()->currentRow(), 1);
}

void DeviceListTest::twoDevicesSelectNothing()
{
    setUp({mounted(QStringLiteral("/media/ana/A"), QStringLiteral("A")),
           mounted(QStringLiteral("/media/ana/B"), QStringLiteral("B"))});
    QCOMPARE(m_fixture.deviceList()->currentRow(), -1);
    QVERIFY(m_fixture.deviceList()->selectedItems().isEmpty());
}

void DeviceListTest::containerDriveIsHighlighted()
{
    QVERIFY(m_fixture.setUp());
    m_fixture.fakes().devices->devices = {mounted(QStringLiteral("/media/ana/A"), QStringLiteral("A")),
                                          mounted(m_fixture.driveRoot(), QStringLiteral("COFRE"))};
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    m_fixture.chooseContainer(m_fixture.container());
    QListWidget* list = m_fixture.deviceList();
    QCOMPARE(list->currentRow(), 1);
    QListWidgetItem* item = list->item(1);
    QCOMPARE(item->font().weight(), QFont::Bold);
    QCOMPARE(item->background().color(), QColor(222, 237, 255));
    QCOMPARE(item->toolTip(), QStringLiteral("Dispositivo associado ao container selecionado."));
    QCOMPARE(list->item(0)->font().weight(), QFont::Normal);
    QCOMPARE(list->item(0)->toolTip(), QString());
    QVERIFY(!list->item(0)->data(Qt::BackgroundRole).isValid());
}

void DeviceListTest::prefixMatchIgnoresCaseAndLastMatchWins()
{
    QVERIFY(m_fixture.setUp());
    m_fixture.fakes().devices->devices = {
        mounted(QStringLiteral("/MEDIA/Ana"), QStringLiteral("pai")),
        mounted(QStringLiteral("/media/ana/Pen/"), QStringLiteral("filho")),
        mounted(QStringLiteral("/media/ana/Penultimo"), QStringLiteral("outro"))};
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    m_fixture.chooseContainer(QStringLiteral("/media/ana/pen/velmarin.vltx"));
    QListWidget* list = m_fixture.deviceList();
    // Both of the first two are prefixes of the container's folder; the later one wins. The third is
    // not: "/media/ana/penultimo/" does not contain the container.
    QCOMPARE(list->currentRow(), 1);
    QCOMPARE(list->item(1)->font().weight(), QFont::Bold);
    QCOMPARE(list->item(0)->font().weight(), QFont::Normal);
    QCOMPARE(list->item(2)->font().weight(), QFont::Normal);
}

void DeviceListTest::noMatchClearsTheCurrentRow()
{
    setUp({mounted(QStringLiteral("/media/ana/UNICO"), QStringLiteral("UNICO"))});
    QCOMPARE(m_fixture.deviceList()->currentRow(), 0);
    m_fixture.chooseContainer(m_fixture.path(QStringLiteral("em-outro-lugar.vltx")));
    QCOMPARE(m_fixture.deviceList()->currentRow(), -1);
    QVERIFY(m_fixture.deviceList()->selectedItems().isEmpty());
    QCOMPARE(m_fixture.deviceList()->item(0)->font().weight(), QFont::Normal);
}

void DeviceListTest::clickingAnotherDeviceSnapsBack()
{
    QVERIFY(m_fixture.setUp());
    m_fixture.fakes().devices->devices = {
        mounted(m_fixture.driveRoot(), QStringLiteral("COFRE")),
        mounted(QStringLiteral("/media/ana/OUTRO"), QStringLiteral("OUTRO"))};
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    m_fixture.chooseContainer(m_fixture.container());
    QListWidget* list = m_fixture.deviceList();
    QCOMPARE(list->currentRow(), 0);
    const QRect other = list->visualItemRect(list->item(1));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, other.center());
    QCOMPARE(list->currentRow(), 0);
    QCOMPARE(list->item(0)->font().weight(), QFont::Bold);
}

void DeviceListTest::refreshKeepsTheAssociation()
{
    QVERIFY(m_fixture.setUp());
    m_fixture.fakes().devices->devices = {mounted(QStringLiteral("/media/ana/A"), QStringLiteral("A")),
                                          mounted(m_fixture.driveRoot(), QStringLiteral("COFRE"))};
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    m_fixture.chooseContainer(m_fixture.container());
    m_fixture.fakes().devices->devices.prepend(
        mounted(QStringLiteral("/media/ana/NOVO"), QStringLiteral("NOVO")));
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    QCOMPARE(m_fixture.deviceList()->count(), 3);
    QCOMPARE(m_fixture.deviceList()->currentRow(), 2);
    QCOMPARE(m_fixture.deviceList()->item(2)->font().weight(), QFont::Bold);
}

void DeviceListTest::doubleClickFindsTheContainer()
{
    QVERIFY(m_fixture.setUp());
    m_fixture.fakes().devices->devices = {mounted(QStringLiteral("/media/ana/A"), QStringLiteral("A")),
                                          mounted(m_fixture.driveRoot(), QStringLiteral("COFRE"))};
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    QListWidget* list = m_fixture.deviceList();
    const QRect drive = list->visualItemRect(list->item(1));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, drive.center());
    QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, drive.center());
    QCOMPARE(m_fixture.window().containerPath(),
             QDir(m_fixture.driveRoot()).filePath(QStringLiteral("velmarin.vltx")));
    QCOMPARE(list->currentRow(), 1);
    QVERIFY(m_fixture.action(QStringLiteral("Desbloquear"))->isEnabled());
}

void DeviceListTest::doubleClickOnADriveWithoutContainer()
{
    const QString empty = QDir::tempPath();
    setUp({mounted(empty, QStringLiteral("VAZIO"))});
    m_fixture.chooseContainer(m_fixture.container());
    const QString before = m_fixture.window().containerPath();
    MessageRecord information;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &information);
    m_fixture.window().discoverContainer(m_fixture.deviceList()->item(0));
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(information.title, QStringLiteral("Velmarin"));
    QCOMPARE(information.icon, QMessageBox::Information);
    QCOMPARE(information.text,
             QStringLiteral("Nenhum velmarin.vltx foi encontrado em %1. Use Criar cofre para "
                            "criar um novo container.")
                 .arg(empty));
    QCOMPARE(m_fixture.window().containerPath(), before);
}

void DeviceListTest::doubleClickOnAnUnmountedDeviceDoesNothing()
{
    setUp({unmounted(QStringLiteral("/dev/sdc1"), QStringLiteral("X"))});
    m_fixture.window().discoverContainer(m_fixture.deviceList()->item(0));
    m_fixture.window().discoverContainer(nullptr);
    QCOMPARE(m_fixture.window().containerPath(), QString());
}

QTEST_MAIN(DeviceListTest)
#include "tst_devicelist.moc"
