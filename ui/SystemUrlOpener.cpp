#include "ui/SystemUrlOpener.h"

#include <QDesktopServices>
#include <QUrl>

namespace Velmarin::UI {

bool SystemUrlOpener::openUrl(const QUrl& url)
{
    return QDesktopServices::openUrl(url);
}

} // namespace Velmarin::UI
