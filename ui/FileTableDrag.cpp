#include "ui/FileTableDrag.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QDrag>
#include <QMimeData>
#include <QMouseEvent>

namespace Velmarin::UI {

FileTableDrag::FileTableDrag(QAbstractItemView* view, Draggable draggable, Prepare prepare)
    : QObject(view)
    , m_view(view)
    , m_viewport(view->viewport())
    , m_draggable(std::move(draggable))
    , m_prepare(std::move(prepare))
{
    m_viewport->installEventFilter(this);
}

bool FileTableDrag::eventFilter(QObject* watched, QEvent* event)
{
    // Compared, never called: the viewport's last events come while the view is being destroyed.
    if (watched != m_viewport) {
        return false;
    }
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        const auto* press = static_cast<QMouseEvent*>(event);
        const int row = m_view->indexAt(press->position().toPoint()).row();
        m_pressedRow = press->button() == Qt::LeftButton && row >= 0 && m_draggable(row) ? row : -1;
        m_pressedAt = press->position().toPoint();
        // The view selects the row as usual.
        return false;
    }
    case QEvent::MouseButtonRelease:
        m_pressedRow = -1;
        return false;
    case QEvent::MouseMove: {
        const auto* move = static_cast<QMouseEvent*>(event);
        if (m_pressedRow < 0 || !(move->buttons() & Qt::LeftButton)) {
            return false;
        }
        // Held on the row: the view would otherwise move its selection along with the mouse.
        if ((move->position().toPoint() - m_pressedAt).manhattanLength() <
            QApplication::startDragDistance()) {
            return true;
        }
        m_pressedRow = -1;
        QMimeData* mime = m_prepare();
        if (mime == nullptr) {
            return true;
        }
        auto* drag = new QDrag(m_view);
        drag->setMimeData(mime);
        Q_EMIT dragStarting(drag, Action);
        drag->exec(Action, Action);
        return true;
    }
    default:
        return false;
    }
}

} // namespace Velmarin::UI
