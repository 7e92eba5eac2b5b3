#include "SessionBusFixture.h"

#include <QDBusMessage>
#include <QStringList>

namespace Velmarin::Tests {

namespace {

const QString WindowBusName = QStringLiteral("velmarin-window");
const QString ServiceBusName = QStringLiteral("velmarin-logind");
const QString NowhereBusName = QStringLiteral("velmarin-nowhere");

} // namespace

SessionBusFixture::~SessionBusFixture()
{
    stop();
}

bool SessionBusFixture::start(QString* whyNot)
{
    if (!m_bus.start(whyNot)) {
        return false;
    }
    const QDBusConnection window = QDBusConnection::connectToBus(m_bus.address(), WindowBusName);
    const QDBusConnection service = QDBusConnection::connectToBus(m_bus.address(), ServiceBusName);
    // logind hands its inhibitors over as descriptors.
    if (!window.isConnected() || !service.isConnected() ||
        !window.connectionCapabilities().testFlag(QDBusConnection::UnixFileDescriptorPassing)) {
        *whyNot = QStringLiteral("the private bus does not pass descriptors");
        return false;
    }
    return true;
}

void SessionBusFixture::stop()
{
    m_logind.reset();
    for (const QString& name : {WindowBusName, ServiceBusName, NowhereBusName}) {
        QDBusConnection::disconnectFromBus(name);
    }
    m_bus.stop();
}

QDBusConnection SessionBusFixture::windowBus() const
{
    return QDBusConnection(WindowBusName);
}

QDBusConnection SessionBusFixture::nowhere() const
{
    return QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent/velmarin-bus"),
                                         NowhereBusName);
}

bool SessionBusFixture::startLogind()
{
    m_logind = std::make_unique<FakeSessionBus>(QDBusConnection(ServiceBusName));
    return m_logind->registerServices();
}

bool SessionBusFixture::syncWindowBus() const
{
    const QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId"));
    return windowBus().call(call).type() == QDBusMessage::ReplyMessage;
}

bool SessionBusFixture::announce(const QString& announcement)
{
    if (!syncWindowBus()) {
        return false;
    }
    if (announcement == QLatin1String("sleep")) {
        m_logind->sendPrepareForSleep(true);
    } else if (announcement == QLatin1String("lock")) {
        m_logind->sendSessionLock();
    } else {
        const QStringList saver = announcement.split(QLatin1Char(' '));
        if (saver.size() != 2) {
            return false;
        }
        m_logind->sendActiveChanged(saver.at(0), saver.at(1), true);
    }
    return true;
}

} // namespace Velmarin::Tests
