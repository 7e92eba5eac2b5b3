#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace Velmarin::Tests {

// A dbus-daemon of the test's own. Its configuration lists no services, so nothing of the machine is
// ever started on it, and anyone may own any name, so a test can stand in for logind.
class PrivateBus
{
public:
    PrivateBus() = default;
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    // False, with the reason in whyNot, when dbus-daemon is missing or does not come up.
    bool start(QString* whyNot);
    void stop();
    QString address() const { return m_address; }

private:
    QTemporaryDir m_directory;
    QProcess m_daemon;
    QString m_address;
};

} // namespace Velmarin::Tests
