#pragma once

#include <QObject>
#include <QPoint>

#include <functional>

class QAbstractItemView;
class QDrag;
class QMimeData;
class QWidget;

namespace Velmarin::UI {

// Drags the row pressed on a view out to the file manager, as a copy only: once the mouse has moved
// far enough with the button held, prepare gives the data to hand over (nullptr: no drag), and the
// drag runs with it. The view keeps its own single selection; a press on a row selects it first.
class FileTableDrag : public QObject
{
    Q_OBJECT

public:
    // Whether row may be dragged; the data for the row the view selected on the press.
    using Draggable = std::function<bool(int row)>;
    using Prepare = std::function<QMimeData*()>;

    // The only action offered: what leaves the vault is always a copy.
    static constexpr Qt::DropAction Action = Qt::CopyAction;

    FileTableDrag(QAbstractItemView* view, Draggable draggable, Prepare prepare);

Q_SIGNALS:
    // Just before the drag runs, with the actions it offers.
    void dragStarting(QDrag* drag, Qt::DropActions actions);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QAbstractItemView* m_view;
    // The view's viewport as it was when watched; only compared against.
    QWidget* m_viewport;
    Draggable m_draggable;
    Prepare m_prepare;
    QPoint m_pressedAt;
    // The row a press with the left button fell on, while it may still become a drag; -1 otherwise.
    int m_pressedRow = -1;
};

} // namespace Velmarin::UI
