#pragma once

#include <QRect>
#include <QSize>

class QScreen;

namespace Velmarin::UI {

// The fixed size of the window's central area: 3/5 of the screen's width, 900 to 1152 pixels,
// in 16:9, never taller than the screen.
class WindowGeometry
{
public:
    static QSize centralSize(const QRect& availableGeometry);
    // 960 x 540 without a screen.
    static QSize centralSize(const QScreen* screen);
};

} // namespace Velmarin::UI
