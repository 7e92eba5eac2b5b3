#pragma once

#include "DialogDriver.h"
#include "FakeWindowServices.h"
#include "ui/MainWindow.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

class QAction;
class QLabel;
class QListWidget;
class QTableWidget;
class QToolButton;

namespace Velmarin::Tests {

// A real MainWindow on fake system services, with a drive folder "usb" that holds a copy of the
// empty test vault, and a driver that answers the window's dialogs.
class WindowFixture
{
public:
    struct Entry
    {
        QString path;
        QByteArray contents;
        // The source file's modification time, which the vault keeps; invalid for "now".
        QDateTime modified = {};
    };

    // Puts folders and files into the drive's vault before the window opens.
    bool setUp(const QStringList& folders = {}, const QList<Entry>& files = {},
               bool withDeviceManager = true);
    // The next setUp hands these to the window; without them it has none.
    void useSessionEvents(std::unique_ptr<Platform::SessionEvents> events)
    {
        m_sessionEvents = std::move(events);
    }
    void tearDown();
    // For a test's cleanup: every dialog the test expected appeared and no other did, then tearDown.
    void verifyDialogsAndTearDown();

    bool isSetUp() const { return m_window != nullptr; }
    UI::MainWindow& window() { return *m_window; }
    FakeWindowServices& fakes() { return *m_fakes; }
    DialogDriver& driver() { return *m_driver; }

    QString path(const QString& name) const { return m_dir->filePath(name); }
    QString driveRoot() const { return m_dir->filePath(QStringLiteral("usb")); }
    QString container() const { return m_dir->filePath(QStringLiteral("usb/velmarin.vltx")); }

    QAction* action(const QString& text) const;
    QTableWidget* table() const;
    QListWidget* deviceList() const;
    QToolButton* lockButton() const;
    QLabel* label(const QString& objectName) const;

    // Through "Escolher container..." with the picker answering path.
    void chooseContainer(const QString& path);
    // Chooses the drive's container when none is selected, then "Desbloquear" with the test password.
    bool unlock();

    // Column 1 texts from top to bottom.
    QStringList names() const;
    int rowOf(const QString& name) const;
    bool selectRow(const QString& name);
    bool doubleClickRow(const QString& name);
    // A real click on the header of column.
    void clickHeader(int column);

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<FakeWindowServices> m_fakes;
    std::unique_ptr<DialogDriver> m_driver;
    std::unique_ptr<Platform::SessionEvents> m_sessionEvents;
    std::unique_ptr<UI::MainWindow> m_window;
};

} // namespace Velmarin::Tests
