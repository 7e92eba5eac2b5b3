#pragma once

#include "platform/SessionEvents.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

class QWidget;

namespace Velmarin::UI {

// Decides when an open vault must lock on its own (the computer going to sleep, the session being
// locked, the container gone from its drive) and when that may happen: never in the middle of one
// of the window's operations, whose dialogs run event loops that would let it in half-way, but
// right after it.
class AutoLock : public QObject
{
    Q_OBJECT

public:
    enum class Reason
    {
        Sleep,
        SessionLocked,
        ContainerGone
    };
    Q_ENUM(Reason)

    // events may be null: then only the container is watched.
    explicit AutoLock(std::unique_ptr<Platform::SessionEvents> events, QObject* parent = nullptr);
    ~AutoLock() override;

    // The container of the open vault, or empty while none is open.
    void watch(const QString& containerPath);
    // Hands the window's native handle to the session events once it has one, and again if it changes.
    void watchWindow(QWidget* window);

    // Runs one operation of the window; a lock that fell due meanwhile is announced when it ends.
    void run(const std::function<void()>& operation);

Q_SIGNALS:
    // The open vault must lock now.
    void lockDue(Velmarin::UI::AutoLock::Reason reason);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void request(Reason reason);
    void checkContainer();

    std::unique_ptr<Platform::SessionEvents> m_events;
    QTimer m_containerCheck;
    QString m_containerPath;
    int m_runningOperations = 0;
    std::optional<Reason> m_pending;
};

} // namespace Velmarin::UI
