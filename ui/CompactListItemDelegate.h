#pragma once

#include <QStyledItemDelegate>

namespace Velmarin::UI {

// Dense list rows: one line of text and three pixels, nothing more.
class CompactListItemDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace Velmarin::UI
