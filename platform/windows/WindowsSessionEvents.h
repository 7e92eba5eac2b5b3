#pragma once

#include "platform/SessionEvents.h"

#include <QAbstractNativeEventFilter>

namespace Velmarin::Platform::Windows {

// Sleep and session locks as Windows reports them to the program's windows: WM_POWERBROADCAST
// with PBT_APMSUSPEND, and WM_WTSSESSION_CHANGE with WTS_SESSION_LOCK once the window is registered
// for session notifications. Windows gives a suspending program about two seconds and has no delay
// to hold, so setVaultOpen has nothing to do.
class WindowsSessionEvents : public SessionEvents, public QAbstractNativeEventFilter
{
    Q_OBJECT

public:
    explicit WindowsSessionEvents(QObject* parent = nullptr);
    ~WindowsSessionEvents() override;

    void setVaultOpen(bool open) override;
    void watchWindow(quintptr nativeWindow) override;

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

private:
    void stopWatchingWindow();

    quintptr m_window = 0;
};

} // namespace Velmarin::Platform::Windows
