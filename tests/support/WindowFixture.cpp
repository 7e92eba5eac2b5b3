#include "WindowFixture.h"

#include "TestFiles.h"
#include "core/vault/VaultManager.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>

namespace Velmarin::Tests {

bool WindowFixture::setUp(const QStringList& folders, const QList<Entry>& files, bool withDeviceManager)
{
    m_dir = std::make_unique<QTemporaryDir>();
    // The workspace root is left to the engine, which makes it owner-only.
    if (!m_dir->isValid() || !QDir(m_dir->path()).mkpath(QStringLiteral("usb")) ||
        !TestFiles::copyEmptyVault(container())) {
        return false;
    }
    if (!folders.isEmpty() || !files.isEmpty()) {
        Core::VaultManager vault(path(QStringLiteral("workspaces")));
        if (!vault.unlock(container(), TestFiles::password())) {
            return false;
        }
        for (const QString& folder : folders) {
            if (!vault.createFolder(folder)) {
                return false;
            }
            // Folders made one after another get distinct times, so sorting by time is meaningful.
            QTest::qSleep(3);
        }
        const QString scratch = path(QStringLiteral("scratch"));
        for (const Entry& file : files) {
            if (!TestFiles::write(scratch, file.contents)) {
                return false;
            }
            if (file.modified.isValid()) {
                QFile source(scratch);
                if (!source.open(QIODevice::ReadWrite) ||
                    !source.setFileTime(file.modified, QFileDevice::FileModificationTime)) {
                    return false;
                }
            }
            if (!vault.importFile(scratch, file.path)) {
                return false;
            }
        }
        if (!vault.lock()) {
            return false;
        }
    }
    m_fakes = std::make_unique<FakeWindowServices>(withDeviceManager, path(QStringLiteral("workspaces")),
                                                   path(QStringLiteral("states")));
    m_driver = std::make_unique<DialogDriver>();
    UI::MainWindowServices services = m_fakes->take();
    services.sessionEvents = std::move(m_sessionEvents);
    m_window = std::make_unique<UI::MainWindow>(std::move(services));
    m_window->show();
    return QTest::qWaitForWindowExposed(m_window.get());
}

void WindowFixture::tearDown()
{
    if (m_window && m_window->isVaultUnlocked()) {
        m_window->lockVault();
    }
    m_window.reset();
    m_driver.reset();
    m_fakes.reset();
    m_dir.reset();
}

void WindowFixture::verifyDialogsAndTearDown()
{
    if (!isSetUp()) {
        return;
    }
    const QStringList unexpected = m_driver->unexpected();
    const bool allHandled = m_driver->allHandled();
    tearDown();
    QVERIFY2(unexpected.isEmpty(),
             qPrintable(QStringLiteral("unexpected dialogs: ") + unexpected.join(QLatin1Char('\n'))));
    QVERIFY2(allHandled, "a dialog the test expected never appeared");
}

QAction* WindowFixture::action(const QString& text) const
{
    for (QAction* candidate : m_window->findChildren<QAction*>()) {
        if (candidate->text() == text) {
            return candidate;
        }
    }
    return nullptr;
}

QTableWidget* WindowFixture::table() const
{
    return m_window->findChild<QTableWidget*>(QStringLiteral("fileTable"));
}

QListWidget* WindowFixture::deviceList() const
{
    return m_window->findChild<QListWidget*>(QStringLiteral("deviceList"));
}

QToolButton* WindowFixture::lockButton() const
{
    return m_window->findChild<QToolButton*>(QStringLiteral("lockButton"));
}

QLabel* WindowFixture::label(const QString& objectName) const
{
    return m_window->findChild<QLabel*>(objectName);
}

void WindowFixture::chooseContainer(const QString& path)
{
    m_fakes->dialogs->fileAnswers.push_back(path);
    action(QStringLiteral("Escolher container..."))->trigger();
}

bool WindowFixture::unlock()
{
    if (m_window->containerPath().isEmpty()) {
        chooseContainer(container());
    }
    m_driver->expectInput(QString::fromUtf8(TestFiles::password()));
    action(QStringLiteral("Desbloquear"))->trigger();
    return m_window->isVaultUnlocked() && m_driver->allHandled();
}

QStringList WindowFixture::names() const
{
    QStringList result;
    for (int row = 0; row < table()->rowCount(); ++row) {
        result.append(table()->item(row, 1)->text());
    }
    return result;
}

int WindowFixture::rowOf(const QString& name) const
{
    return static_cast<int>(names().indexOf(name));
}

bool WindowFixture::selectRow(const QString& name)
{
    const int row = rowOf(name);
    if (row < 0) {
        return false;
    }
    table()->selectRow(row);
    return table()->currentRow() == row;
}

bool WindowFixture::doubleClickRow(const QString& name)
{
    const int row = rowOf(name);
    if (row < 0) {
        return false;
    }
    QTableWidget* view = table();
    const QRect cell = view->visualItemRect(view->item(row, 1));
    // A double-click counts only on the item its first press landed on, as with a real mouse.
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, cell.center());
    QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, cell.center());
    return true;
}

void WindowFixture::clickHeader(int column)
{
    QHeaderView* header = table()->horizontalHeader();
    const QPoint point(header->sectionViewportPosition(column) + header->sectionSize(column) / 2,
                       header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, point);
}

} // namespace Velmarin::Tests
