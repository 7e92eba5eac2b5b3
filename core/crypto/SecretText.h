#pragma once

#include <QByteArray>
#include <QString>

namespace Velmarin::Core {

// Wiping of password text held in Qt's strings. A string shared with another copy is detached by
// writing to it, so each copy a front end makes must be wiped where it is made.
class SecretText
{
public:
    static void wipe(QByteArray& bytes);
    static void wipe(QString& text);
    // The UTF-8 bytes of text; text itself is wiped.
    static QByteArray takeUtf8(QString& text);
};

} // namespace Velmarin::Core
