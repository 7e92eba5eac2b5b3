#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QString>

namespace Velmarin::UI {

// The single-line password prompts of unlocking and creating a vault. They have no parent window
// so they come up centred on the screen. Answers are the UTF-8 bytes typed; empty means cancelled.
// The caller wipes the bytes once the engine has them.
class PasswordPrompt
{
    Q_DECLARE_TR_FUNCTIONS(PasswordPrompt)

public:
    static QByteArray ask(const QString& title);
    // Asked twice; a mismatch is reported before a short password.
    static QByteArray askNew();
};

} // namespace Velmarin::UI
