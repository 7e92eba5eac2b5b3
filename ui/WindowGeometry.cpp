#include "ui/WindowGeometry.h"

#include <QScreen>

#include <algorithm>

namespace Velmarin::UI {

QSize WindowGeometry::centralSize(const QRect& availableGeometry)
{
    int width = std::clamp(availableGeometry.width() * 3 / 5, 900, 1152);
    int height = width * 9 / 16;
    if (height > availableGeometry.height()) {
        height = availableGeometry.height();
        width = height * 16 / 9;
    }
    return {width, height};
}

QSize WindowGeometry::centralSize(const QScreen* screen)
{
    if (!screen) {
        return {960, 540};
    }
    return centralSize(screen->availableGeometry());
}

} // namespace Velmarin::UI
