#pragma once

#include "FakeSessionBus.h"
#include "PrivateBus.h"

#include <QDBusConnection>
#include <QString>

#include <memory>

namespace Velmarin::Tests {

// The private bus of the automatic-lock tests, with one connection for the window and one for the
// stand-in for logind and the screen savers.
class SessionBusFixture
{
public:
    SessionBusFixture() = default;
    ~SessionBusFixture();
    SessionBusFixture(const SessionBusFixture&) = delete;
    SessionBusFixture& operator=(const SessionBusFixture&) = delete;

    // False, with the reason in whyNot, when the bus cannot run here.
    bool start(QString* whyNot);
    void stop();

    QDBusConnection windowBus() const;
    // A connection that never reached any bus.
    QDBusConnection nowhere() const;

    // The stand-in takes logind's and the screen savers' names; the window must come after it, as
    // logind's names are there before anyone logs in.
    bool startLogind();
    void stopLogind() { m_logind.reset(); }
    FakeSessionBus& logind() { return *m_logind; }

    // True once the bus took every subscription the window sent before it: the bus handles one
    // connection's messages in order.
    bool syncWindowBus() const;
    // "sleep", "lock" or "<service> <path>" of a screen saver going active.
    bool announce(const QString& announcement);

private:
    PrivateBus m_bus;
    std::unique_ptr<FakeSessionBus> m_logind;
};

} // namespace Velmarin::Tests
