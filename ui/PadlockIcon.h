#pragma once

#include <QIcon>

namespace Velmarin::UI {

// The lock button's padlock, painted at run time: closed and blue while locked, open and green
// while unlocked, and a greyed version of each when the button cannot be used.
class PadlockIcon
{
public:
    static QIcon create(bool unlocked, bool enabled);
};

} // namespace Velmarin::UI
