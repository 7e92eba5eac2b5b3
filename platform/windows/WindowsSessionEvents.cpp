#include "platform/windows/WindowsSessionEvents.h"

#include <QByteArray>
#include <QCoreApplication>

#include <windows.h>
#include <wtsapi32.h>

namespace Velmarin::Platform::Windows {

WindowsSessionEvents::WindowsSessionEvents(QObject* parent)
    : SessionEvents(parent)
{
    QCoreApplication::instance()->installNativeEventFilter(this);
}

// QAbstractNativeEventFilter takes itself out of the application.
WindowsSessionEvents::~WindowsSessionEvents()
{
    stopWatchingWindow();
}

void WindowsSessionEvents::setVaultOpen(bool) {}

void WindowsSessionEvents::watchWindow(quintptr nativeWindow)
{
    stopWatchingWindow();
    // Without the registration Windows never sends this window WM_WTSSESSION_CHANGE; failing
    // to register only means that session locks go unnoticed.
    if (nativeWindow != 0 &&
        WTSRegisterSessionNotification(reinterpret_cast<HWND>(nativeWindow), NOTIFY_FOR_THIS_SESSION)) {
        m_window = nativeWindow;
    }
}

void WindowsSessionEvents::stopWatchingWindow()
{
    if (m_window != 0) {
        WTSUnRegisterSessionNotification(reinterpret_cast<HWND>(m_window));
        m_window = 0;
    }
}

bool WindowsSessionEvents::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*)
{
    if (eventType != "windows_generic_MSG") {
        return false;
    }
    const MSG* msg = static_cast<const MSG*>(message);
    // Every top-level window gets the broadcast; a second announcement finds the vault locked.
    if (msg->message == WM_POWERBROADCAST && msg->wParam == PBT_APMSUSPEND) {
        Q_EMIT sleepImminent();
    } else if (msg->message == WM_WTSSESSION_CHANGE && msg->wParam == WTS_SESSION_LOCK) {
        Q_EMIT sessionLocked();
    }
    // Qt and the window still handle them as usual.
    return false;
}

} // namespace Velmarin::Platform::Windows
