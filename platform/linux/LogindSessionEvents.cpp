#include "platform/linux/LogindSessionEvents.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace Velmarin::Platform::Linux {

namespace {

const QString Login1Service = QStringLiteral("org.freedesktop.login1");
const QString Login1Path = QStringLiteral("/org/freedesktop/login1");
const QString ManagerInterface = QStringLiteral("org.freedesktop.login1.Manager");
const QString SessionInterface = QStringLiteral("org.freedesktop.login1.Session");

struct ScreenSaver
{
    const char* service;
    const char* path;
    const char* interface;
};

// The freedesktop name (KDE answers on both paths, Xfce and others on the first) and GNOME's own.
constexpr ScreenSaver ScreenSavers[] = {
    {"org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver"},
    {"org.freedesktop.ScreenSaver", "/ScreenSaver", "org.freedesktop.ScreenSaver"},
    {"org.gnome.ScreenSaver", "/org/gnome/ScreenSaver", "org.gnome.ScreenSaver"},
};

QDBusMessage managerCall(const QString& method)
{
    return QDBusMessage::createMethodCall(Login1Service, Login1Path, ManagerInterface, method);
}

} // namespace

LogindSessionEvents::LogindSessionEvents(const QDBusConnection& systemBus, const QDBusConnection& sessionBus,
                                         QObject* parent)
    : SessionEvents(parent)
    , m_systemBus(systemBus)
    , m_sessionBus(sessionBus)
{
    m_systemBus.connect(Login1Service, Login1Path, ManagerInterface, QStringLiteral("PrepareForSleep"), this,
                        SLOT(onPrepareForSleep(bool)));
    for (const ScreenSaver& saver : ScreenSavers) {
        m_sessionBus.connect(QString::fromLatin1(saver.service), QString::fromLatin1(saver.path),
                             QString::fromLatin1(saver.interface), QStringLiteral("ActiveChanged"), this,
                             SLOT(onScreenSaverActiveChanged(bool)));
    }
    askForSession();
}

LogindSessionEvents::~LogindSessionEvents() = default;

void LogindSessionEvents::setVaultOpen(bool open)
{
    m_vaultOpen = open;
    updateSleepDelay();
}

void LogindSessionEvents::onPrepareForSleep(bool starting)
{
    if (starting) {
        Q_EMIT sleepImminent();
        return;
    }
    // Back from sleep: a vault that stayed open wants its delay again.
    updateSleepDelay();
}

void LogindSessionEvents::onSessionLock()
{
    Q_EMIT sessionLocked();
}

void LogindSessionEvents::onScreenSaverActiveChanged(bool active)
{
    if (active) {
        Q_EMIT sessionLocked();
    }
}

void LogindSessionEvents::askForSession()
{
    if (!m_systemBus.isConnected()) {
        return;
    }
    QDBusMessage call = managerCall(QStringLiteral("GetSessionByPID"));
    call << static_cast<uint>(QCoreApplication::applicationPid());
    auto* watcher = new QDBusPendingCallWatcher(m_systemBus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* finished) { onSessionFound(finished, false); });
}

void LogindSessionEvents::askForSessionById(const QString& sessionId)
{
    QDBusMessage call = managerCall(QStringLiteral("GetSession"));
    call << sessionId;
    auto* watcher = new QDBusPendingCallWatcher(m_systemBus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* finished) { onSessionFound(finished, true); });
}

void LogindSessionEvents::onSessionFound(QDBusPendingCallWatcher* watcher, bool lastTry)
{
    watcher->deleteLater();
    const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
    if (reply.isError() || reply.value().path().isEmpty()) {
        // A process that logind does not place in a session (started by a service manager, say)
        // may still have been told its session's name.
        const QString sessionId = qEnvironmentVariable("XDG_SESSION_ID");
        if (!lastTry && !sessionId.isEmpty()) {
            askForSessionById(sessionId);
        }
        return;
    }
    m_sessionPath = reply.value().path();
    m_systemBus.connect(Login1Service, m_sessionPath, SessionInterface, QStringLiteral("Lock"), this,
                        SLOT(onSessionLock()));
}

void LogindSessionEvents::updateSleepDelay()
{
    if (!m_vaultOpen) {
        // Closing the descriptor is what tells logind that sleep may go on.
        m_sleepDelay = QDBusUnixFileDescriptor();
        return;
    }
    if (m_sleepDelay.isValid() || m_sleepDelayAsked || !m_systemBus.isConnected()) {
        return;
    }
    QDBusMessage call = managerCall(QStringLiteral("Inhibit"));
    call << QStringLiteral("sleep") << QStringLiteral("Velmarin")
         << tr("Bloquear o cofre aberto antes da suspensão") << QStringLiteral("delay");
    m_sleepDelayAsked = true;
    auto* watcher = new QDBusPendingCallWatcher(m_systemBus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, &LogindSessionEvents::onSleepDelayReply);
}

void LogindSessionEvents::onSleepDelayReply(QDBusPendingCallWatcher* watcher)
{
    watcher->deleteLater();
    m_sleepDelayAsked = false;
    const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *watcher;
    // A vault that closed meanwhile needs no delay: the descriptor goes away with the reply.
    if (!reply.isError() && m_vaultOpen) {
        m_sleepDelay = reply.value();
    }
}

} // namespace Velmarin::Platform::Linux
