#include "PrivateBus.h"

#include <QFile>
#include <QStandardPaths>

#include <csignal>
#include <sys/prctl.h>

namespace Velmarin::Tests {

namespace {

const char* const Configuration = R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

} // namespace

PrivateBus::~PrivateBus()
{
    stop();
}

bool PrivateBus::start(QString* whyNot)
{
    const QString program = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
    if (program.isEmpty()) {
        *whyNot = QStringLiteral("dbus-daemon is not installed (Debian package dbus-daemon)");
        return false;
    }
    const QString configPath = m_directory.filePath(QStringLiteral("bus.conf"));
    QFile config(configPath);
    if (!m_directory.isValid() || !config.open(QIODevice::WriteOnly) ||
        config.write(
            QString::fromLatin1(Configuration).arg(m_directory.filePath(QStringLiteral("socket"))).toUtf8()) <
            0) {
        *whyNot = QStringLiteral("cannot write the private bus's configuration");
        return false;
    }
    config.close();
    m_daemon.setProgram(program);
    m_daemon.setArguments({QStringLiteral("--config-file=") + configPath, QStringLiteral("--nofork"),
                           QStringLiteral("--print-address")});
    // A test that crashes or is killed takes its bus along: a daemon left over would also keep an
    // output pipe of the test open, and CTest would wait for it until its time-out.
    m_daemon.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    m_daemon.setStandardErrorFile(QProcess::nullDevice());
    m_daemon.start();
    // The address comes once the daemon listens.
    while (m_daemon.waitForReadyRead(10000) || m_daemon.canReadLine()) {
        if (m_daemon.canReadLine()) {
            m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
            return true;
        }
    }
    *whyNot = QStringLiteral("dbus-daemon did not start: ") + m_daemon.errorString();
    stop();
    return false;
}

void PrivateBus::stop()
{
    if (m_daemon.state() != QProcess::NotRunning) {
        m_daemon.terminate();
        if (!m_daemon.waitForFinished(5000)) {
            m_daemon.kill();
            m_daemon.waitForFinished(5000);
        }
    }
    m_address.clear();
}

} // namespace Velmarin::Tests
