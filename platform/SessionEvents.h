#pragma once

#include <QObject>

#include <memory>

namespace Velmarin::Platform {

// What the system announces that must close an open vault: the computer going to sleep and the
// user's session being locked. Where the system offers nothing, no signal ever comes.
class SessionEvents : public QObject
{
    Q_OBJECT

public:
    explicit SessionEvents(QObject* parent = nullptr);
    ~SessionEvents() override;

    // Told by the window whenever a vault opens or closes, so a system that lets programs delay
    // sleep is asked for the delay only while there are keys to wipe, and freed of it at once after.
    virtual void setVaultOpen(bool open) = 0;
    // Systems that report session changes to a window (Windows) need its native handle.
    virtual void watchWindow(quintptr nativeWindow);

    // The implementation for the system the program runs on, or null where there is none.
    static std::unique_ptr<SessionEvents> createForSystem();

Q_SIGNALS:
    // The computer is about to sleep or hibernate.
    void sleepImminent();
    // The session was locked or the screen saver started.
    void sessionLocked();
};

} // namespace Velmarin::Platform
