#pragma once

#include "ui/MainWindowServices.h"

#include <QList>
#include <QStringList>
#include <QUrl>

#include <deque>
#include <optional>

namespace Velmarin::Tests {

// A device manager that reports whatever the test put in devices.
class FakeDeviceManager : public Platform::DeviceManager
{
public:
    QList<Platform::UsbDevice> listDevices() override { return devices; }
    QList<Platform::UsbDevice> devices;
};

// One picker call as the window made it.
struct PickerCall
{
    QString kind; // "open", "openMany", "save" or "folder"
    QString caption;
    QString directory;
    QString filter;
};

// File pickers answered from queues; an empty queue answers as a cancel.
class FakeFileDialogs : public UI::FileDialogs
{
public:
    QString openFileName(QWidget*, const QString& caption, const QString& directory,
                         const QString& filter) override;
    QStringList openFileNames(QWidget*, const QString& caption, const QString& directory,
                              const QString& filter) override;
    QString saveFileName(QWidget*, const QString& caption, const QString& directory,
                         const QString& filter) override;
    QString existingDirectory(QWidget*, const QString& caption, const QString& directory) override;

    std::deque<QString> fileAnswers;
    std::deque<QStringList> fileListAnswers;
    std::deque<QString> folderAnswers;
    QList<PickerCall> calls;
};

class FakeStorageProbe : public UI::StorageProbe
{
public:
    Core::DriveSpace space(const QString& path) override
    {
        askedPaths.append(path);
        Core::DriveSpace answer;
        answer.ready = ready;
        answer.available = ready ? available : std::nullopt;
        answer.largestFile = largestFile;
        return answer;
    }
    // Whether the drive answers at all; one that does may still not tell its free space.
    bool ready = true;
    std::optional<qint64> available = qint64(64) * 1024 * 1024 * 1024;
    std::optional<qint64> largestFile;
    QStringList askedPaths;
};

class FakeUrlOpener : public UI::UrlOpener
{
public:
    bool openUrl(const QUrl& url) override
    {
        opened.append(url);
        return succeeds;
    }
    bool succeeds = true;
    QList<QUrl> opened;
};

// Services for a window under test, with the fakes still reachable after the window took them.
struct FakeWindowServices
{
    explicit FakeWindowServices(bool withDeviceManager = true, const QString& workspaceRoot = QString(),
                                const QString& stateRoot = QString());
    UI::MainWindowServices take();

    FakeDeviceManager* devices = nullptr;
    FakeFileDialogs* dialogs = nullptr;
    FakeStorageProbe* storage = nullptr;
    FakeUrlOpener* urls = nullptr;

private:
    UI::MainWindowServices m_services;
};

} // namespace Velmarin::Tests
