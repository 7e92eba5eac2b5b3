#include "FakeSessionBus.h"

#include <QDBusMessage>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace Velmarin::Tests {

namespace {

const QString Login1Service = QStringLiteral("org.freedesktop.login1");
const QString Login1Path = QStringLiteral("/org/freedesktop/login1");
const QStringList OwnedNames = {Login1Service, QStringLiteral("org.freedesktop.ScreenSaver"),
                                QStringLiteral("org.gnome.ScreenSaver")};

} // namespace

const QString FakeSessionBus::SessionPath = QStringLiteral("/org/freedesktop/login1/session/c7");

FakeSessionBus::FakeSessionBus(const QDBusConnection& connection)
    : m_connection(connection)
{}

FakeSessionBus::~FakeSessionBus()
{
    m_connection.unregisterObject(Login1Path);
    for (const QString& name : OwnedNames) {
        m_connection.unregisterService(name);
    }
    for (const int readEnd : m_readEnds) {
        ::close(readEnd);
    }
}

bool FakeSessionBus::registerServices()
{
    for (const QString& name : OwnedNames) {
        if (!m_connection.registerService(name)) {
            return false;
        }
    }
    return m_connection.registerObject(Login1Path, this, QDBusConnection::ExportAllSlots);
}

int FakeSessionBus::heldInhibitors() const
{
    int held = 0;
    for (const int readEnd : m_readEnds) {
        char byte = 0;
        // Nothing is ever written: EAGAIN while a write end is open, end of file once all are closed.
        if (::read(readEnd, &byte, 1) < 0 && errno == EAGAIN) {
            ++held;
        }
    }
    return held;
}

void FakeSessionBus::sendPrepareForSleep(bool starting)
{
    QDBusMessage signal = QDBusMessage::createSignal(
        Login1Path, QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"));
    signal << starting;
    m_connection.send(signal);
}

void FakeSessionBus::sendSessionLock()
{
    m_connection.send(QDBusMessage::createSignal(
        SessionPath, QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("Lock")));
}

void FakeSessionBus::sendActiveChanged(const QString& service, const QString& path, bool active)
{
    QDBusMessage signal = QDBusMessage::createSignal(path, service, QStringLiteral("ActiveChanged"));
    signal << active;
    m_connection.send(signal);
}

QDBusUnixFileDescriptor FakeSessionBus::Inhibit(const QString& what, const QString& who, const QString& why,
                                                const QString& mode)
{
    m_inhibitCalls.append({what, who, why, mode});
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        return {};
    }
    m_readEnds.append(ends[0]);
    // The descriptor takes a copy; the window's copy must be the only one left once the reply went.
    QDBusUnixFileDescriptor handed(ends[1]);
    ::close(ends[1]);
    return handed;
}

QDBusObjectPath FakeSessionBus::GetSessionByPID(uint pid)
{
    m_askedPids.append(pid);
    return QDBusObjectPath(SessionPath);
}

QDBusObjectPath FakeSessionBus::GetSession(const QString&)
{
    return QDBusObjectPath(SessionPath);
}

} // namespace Velmarin::Tests
