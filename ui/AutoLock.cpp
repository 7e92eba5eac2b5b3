#include "ui/AutoLock.h"

#include <QEvent>
#include <QFileInfo>
#include <QWidget>

namespace Velmarin::UI {

namespace {

// A stat a second costs nothing and notices a pulled drive long before anyone could use the files.
constexpr int ContainerCheckMs = 1000;

} // namespace

AutoLock::AutoLock(std::unique_ptr<Platform::SessionEvents> events, QObject* parent)
    : QObject(parent)
    , m_events(std::move(events))
{
    m_containerCheck.setInterval(ContainerCheckMs);
    connect(&m_containerCheck, &QTimer::timeout, this, &AutoLock::checkContainer);
    if (m_events) {
        connect(m_events.get(), &Platform::SessionEvents::sleepImminent, this,
                [this] { request(Reason::Sleep); });
        connect(m_events.get(), &Platform::SessionEvents::sessionLocked, this,
                [this] { request(Reason::SessionLocked); });
    }
}

AutoLock::~AutoLock() = default;

void AutoLock::watch(const QString& containerPath)
{
    if (containerPath == m_containerPath) {
        return;
    }
    const bool wasOpen = !m_containerPath.isEmpty();
    m_containerPath = containerPath;
    const bool open = !m_containerPath.isEmpty();
    if (!open) {
        // Whatever was due is moot once the vault closed, by any way.
        m_pending.reset();
        m_containerCheck.stop();
    } else if (!m_containerCheck.isActive()) {
        m_containerCheck.start();
    }
    if (m_events && open != wasOpen) {
        m_events->setVaultOpen(open);
    }
}

void AutoLock::watchWindow(QWidget* window)
{
    // Asking for the handle before the window is shown would make its native window early.
    window->installEventFilter(this);
}

bool AutoLock::eventFilter(QObject* watched, QEvent* event)
{
    auto* window = qobject_cast<QWidget*>(watched);
    if (m_events && window && (event->type() == QEvent::Show || event->type() == QEvent::WinIdChange)) {
        m_events->watchWindow(static_cast<quintptr>(window->internalWinId()));
    }
    return QObject::eventFilter(watched, event);
}

void AutoLock::run(const std::function<void()>& operation)
{
    ++m_runningOperations;
    operation();
    --m_runningOperations;
    if (m_runningOperations == 0 && m_pending) {
        const Reason reason = *m_pending;
        m_pending.reset();
        Q_EMIT lockDue(reason);
    }
}

void AutoLock::request(Reason reason)
{
    if (m_containerPath.isEmpty()) {
        return;
    }
    if (m_runningOperations > 0) {
        // A missing container decides how the lock goes, so it wins over an earlier reason.
        if (!m_pending || reason == Reason::ContainerGone) {
            m_pending = reason;
        }
        return;
    }
    Q_EMIT lockDue(reason);
}

void AutoLock::checkContainer()
{
    if (!m_containerPath.isEmpty() && !QFileInfo::exists(m_containerPath)) {
        request(Reason::ContainerGone);
    }
}

} // namespace Velmarin::UI
