#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

class QAbstractItemView;
class QWidget;
class QDropEvent;
class QMimeData;

namespace Velmarin::UI {

// Takes files and folders dropped from the file manager onto a view. Only local files are taken,
// and only while accepting() says so; the paths and the row they fell on (-1 for none) go to
// dropped once the drop is over, so the drag source is never kept waiting by what follows.
class FileTableDrop : public QObject
{
    Q_OBJECT

public:
    using Accepting = std::function<bool()>;
    using Dropped = std::function<void(const QStringList& localPaths, int row)>;

    FileTableDrop(QAbstractItemView* view, Accepting accepting, Dropped dropped);

    // The local paths of mime's URLs; empty unless every one is a local file.
    static QStringList localPaths(const QMimeData* mime);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool takes(const QDropEvent* event) const;

    QAbstractItemView* m_view;
    // The view's viewport as it was when watched; only compared against.
    QWidget* m_viewport;
    Accepting m_accepting;
    Dropped m_dropped;
};

} // namespace Velmarin::UI
