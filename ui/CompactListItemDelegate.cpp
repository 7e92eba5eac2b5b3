#include "ui/CompactListItemDelegate.h"

#include <QFontMetrics>

namespace Velmarin::UI {

QSize CompactListItemDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const QSize base = QStyledItemDelegate::sizeHint(option, index);
    return {base.width(), QFontMetrics(option.font).height() + 3};
}

} // namespace Velmarin::UI
