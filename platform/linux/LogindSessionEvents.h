#pragma once

#include "platform/SessionEvents.h"

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QString>

class QDBusPendingCallWatcher;

namespace Velmarin::Platform::Linux {

// Sleep and session locks as systemd-logind (on the system bus) and the desktop's screen saver (on
// the session bus) announce them. While a vault is open it holds a logind "delay" inhibitor, so the
// computer waits for the lock before it sleeps. Every call is asynchronous: the window never waits
// for logind, and a bus or a service that is missing only means that no event comes.
class LogindSessionEvents : public SessionEvents
{
    Q_OBJECT

public:
    LogindSessionEvents(const QDBusConnection& systemBus, const QDBusConnection& sessionBus,
                        QObject* parent = nullptr);
    ~LogindSessionEvents() override;

    void setVaultOpen(bool open) override;

    // The logind session watched for Lock; empty until logind named it.
    QString sessionPath() const { return m_sessionPath; }

private Q_SLOTS:
    void onPrepareForSleep(bool starting);
    void onSessionLock();
    void onScreenSaverActiveChanged(bool active);

private:
    void askForSession();
    void askForSessionById(const QString& sessionId);
    void onSessionFound(QDBusPendingCallWatcher* watcher, bool lastTry);
    void updateSleepDelay();
    void onSleepDelayReply(QDBusPendingCallWatcher* watcher);

    QDBusConnection m_systemBus;
    QDBusConnection m_sessionBus;
    QString m_sessionPath;
    QDBusUnixFileDescriptor m_sleepDelay;
    bool m_vaultOpen = false;
    bool m_sleepDelayAsked = false;
};

} // namespace Velmarin::Platform::Linux
