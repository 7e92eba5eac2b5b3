#pragma once

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QList>
#include <QObject>
#include <QString>

namespace Velmarin::Tests {

// Stands in for systemd-logind and the desktop's screen savers on a private bus: it owns their
// names, answers the logind calls the window makes and sends their signals when the test asks.
// The slots are logind's Manager methods, exported under its interface name.
class FakeSessionBus : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Manager")

public:
    struct InhibitCall
    {
        QString what;
        QString who;
        QString why;
        QString mode;
    };

    static const QString SessionPath;

    explicit FakeSessionBus(const QDBusConnection& connection);
    ~FakeSessionBus() override;

    bool registerServices();

    QList<InhibitCall> inhibitCalls() const { return m_inhibitCalls; }
    QList<uint> askedPids() const { return m_askedPids; }
    // Inhibitors handed out of which some copy is still open somewhere.
    int heldInhibitors() const;

    void sendPrepareForSleep(bool starting);
    void sendSessionLock();
    // service is org.freedesktop.ScreenSaver or org.gnome.ScreenSaver; path the object sending.
    void sendActiveChanged(const QString& service, const QString& path, bool active);

public Q_SLOTS:
    QDBusUnixFileDescriptor Inhibit(const QString& what, const QString& who, const QString& why,
                                    const QString& mode);
    QDBusObjectPath GetSessionByPID(uint pid);
    QDBusObjectPath GetSession(const QString& sessionId);

private:
    QDBusConnection m_connection;
    QList<InhibitCall> m_inhibitCalls;
    QList<uint> m_askedPids;
    // The read ends of the pipes whose write ends were handed out as inhibitors.
    QList<int> m_readEnds;
};

} // namespace Velmarin::Tests
