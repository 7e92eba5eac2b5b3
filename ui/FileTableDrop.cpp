#include "ui/FileTableDrop.h"

#include <QAbstractItemView>
#include <QDropEvent>
#include <QMimeData>
#include <QTimer>
#include <QUrl>

namespace Velmarin::UI {

FileTableDrop::FileTableDrop(QAbstractItemView* view, Accepting accepting, Dropped dropped)
    : QObject(view)
    , m_view(view)
    , m_viewport(view->viewport())
    , m_accepting(std::move(accepting))
    , m_dropped(std::move(dropped))
{
    m_view->setAcceptDrops(true);
    m_viewport->setAcceptDrops(true);
    m_viewport->installEventFilter(this);
}

QStringList FileTableDrop::localPaths(const QMimeData* mime)
{
    if (!mime || !mime->hasUrls()) {
        return {};
    }
    QStringList paths;
    for (const QUrl& url : mime->urls()) {
        if (!url.isLocalFile() || url.toLocalFile().isEmpty()) {
            return {};
        }
        paths << url.toLocalFile();
    }
    return paths;
}

bool FileTableDrop::takes(const QDropEvent* event) const
{
    return m_accepting() && !localPaths(event->mimeData()).isEmpty();
}

bool FileTableDrop::eventFilter(QObject* watched, QEvent* event)
{
    // Compared, never called: the viewport's last events come while the view is being destroyed.
    if (watched != m_viewport) {
        return false;
    }
    switch (event->type()) {
    case QEvent::DragEnter:
    case QEvent::DragMove: {
        auto* drag = static_cast<QDropEvent*>(event);
        if (takes(drag)) {
            drag->setDropAction(Qt::CopyAction);
            drag->accept();
        } else {
            drag->ignore();
        }
        return true;
    }
    case QEvent::Drop: {
        auto* drop = static_cast<QDropEvent*>(event);
        if (!takes(drop)) {
            drop->ignore();
            return true;
        }
        drop->setDropAction(Qt::CopyAction);
        drop->accept();
        const QStringList paths = localPaths(drop->mimeData());
        const int row = m_view->indexAt(drop->position().toPoint()).row();
        // The import opens dialogs of its own; run inside the drop, it would hold the file manager.
        QTimer::singleShot(0, this, [this, paths, row] { m_dropped(paths, row); });
        return true;
    }
    default:
        return false;
    }
}

} // namespace Velmarin::UI
