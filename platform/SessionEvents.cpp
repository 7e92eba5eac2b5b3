#include "platform/SessionEvents.h"

#if defined(Q_OS_WIN)
#include "platform/windows/WindowsSessionEvents.h"
#elif defined(Q_OS_LINUX)
#include "platform/linux/LogindSessionEvents.h"

#include <QDBusConnection>
#endif

namespace Velmarin::Platform {

SessionEvents::SessionEvents(QObject* parent)
    : QObject(parent)
{}

SessionEvents::~SessionEvents() = default;

void SessionEvents::watchWindow(quintptr) {}

std::unique_ptr<SessionEvents> SessionEvents::createForSystem()
{
#if defined(Q_OS_WIN)
    return std::make_unique<Windows::WindowsSessionEvents>();
#elif defined(Q_OS_LINUX)
    // A bus that is not there leaves a connection that never delivers anything: no events, no error.
    return std::make_unique<Linux::LogindSessionEvents>(QDBusConnection::systemBus(),
                                                        QDBusConnection::sessionBus());
#else
    return nullptr;
#endif
}

} // namespace Velmarin::Platform
