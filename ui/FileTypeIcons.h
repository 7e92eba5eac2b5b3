#pragma once

#include <QColor>
#include <QHash>
#include <QIcon>
#include <QString>

#include <memory>

class QFileIconProvider;
class QStyle;

namespace Velmarin::UI {

// Icons of the file table's rows: a painted badge for the types people keep in a vault, the
// system's own icon for everything else. No real file is ever touched to find an icon.
class FileTypeIcons
{
public:
    struct Badge
    {
        QString label;
        QColor color;
    };

    FileTypeIcons();
    ~FileTypeIcons();

    // kind as in the table's item data: 0 file, 1 folder, 2 parent link.
    QIcon iconFor(int kind, const QString& path, const QStyle* style);

    // Looked up by the lower-cased suffix; an unknown one gets an empty label.
    static Badge badgeFor(const QString& suffix);
    // Null for a badge without a label, so the system's icon is used instead.
    static QIcon badgeIcon(const Badge& badge);

private:
    QFileIconProvider& provider();
    QIcon fileIcon(const QString& suffix);

    std::unique_ptr<QFileIconProvider> m_provider;
    // By suffix: a folder of ten thousand photos paints one badge, not ten thousand.
    QHash<QString, QIcon> m_fileIcons;
};

} // namespace Velmarin::UI
