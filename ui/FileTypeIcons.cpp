#include "ui/FileTypeIcons.h"

#include <QFileIconProvider>
#include <QFileInfo>
#include <QFont>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QStyle>

namespace Velmarin::UI {

namespace {

struct BadgeRule
{
    QStringList suffixes;
    const char* label;
    QColor color;
};

const QList<BadgeRule>& badgeRules()
{
    static const QList<BadgeRule> rules = {
        {{QStringLiteral("pem"), QStringLiteral("key")}, "KEY", QColor(31, 115, 92)},
        {{QStringLiteral("sig"), QStringLiteral("asc")}, "SIG", QColor(112, 80, 160)},
        {{QStringLiteral("crt"), QStringLiteral("cer"), QStringLiteral("csr")}, "CRT", QColor(184, 113, 24)},
        {{QStringLiteral("encrypted")}, "ENC", QColor(69, 92, 122)},
        {{QStringLiteral("txt"), QStringLiteral("log")}, "TXT", QColor(90, 90, 90)},
        {{QStringLiteral("mp3"), QStringLiteral("wav"), QStringLiteral("flac"), QStringLiteral("ogg"),
          QStringLiteral("m4a")},
         "AUD",
         QColor(37, 99, 180)},
        {{QStringLiteral("jpg"), QStringLiteral("jpeg"), QStringLiteral("png"), QStringLiteral("gif"),
          QStringLiteral("bmp"), QStringLiteral("webp")},
         "IMG",
         QColor(31, 132, 141)},
    };
    return rules;
}

// A sheet of paper with a folded corner and the label on a coloured band, drawn at each size
// the table may ask for so it stays crisp on high-density screens.
QPixmap paintBadge(const FileTypeIcons::Badge& badge, int size)
{
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);

    const qreal unit = size / 18.0;
    const QRectF sheet(2.5 * unit, 0.5 * unit, 13 * unit, 17 * unit);
    const qreal fold = 4 * unit;
    QPainterPath outline;
    outline.moveTo(sheet.topLeft());
    outline.lineTo(sheet.right() - fold, sheet.top());
    outline.lineTo(sheet.right(), sheet.top() + fold);
    outline.lineTo(sheet.bottomRight());
    outline.lineTo(sheet.bottomLeft());
    outline.closeSubpath();
    painter.setPen(QPen(badge.color.darker(130), qMax<qreal>(1.0, unit * 0.8)));
    painter.setBrush(QColor(252, 252, 252));
    painter.drawPath(outline);

    const QRectF band(0.5 * unit, 8.5 * unit, 17 * unit, 7 * unit);
    painter.setPen(Qt::NoPen);
    painter.setBrush(badge.color);
    painter.drawRoundedRect(band, unit, unit);

    QFont font;
    font.setPixelSize(qMax(5, static_cast<int>(5.6 * unit)));
    font.setBold(true);
    font.setStretch(QFont::Condensed);
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(band, Qt::AlignCenter, badge.label);
    return pixmap;
}

} // namespace

FileTypeIcons::FileTypeIcons() = default;
FileTypeIcons::~FileTypeIcons() = default;

FileTypeIcons::Badge FileTypeIcons::badgeFor(const QString& suffix)
{
    const QString lowered = suffix.toLower();
    for (const BadgeRule& rule : badgeRules()) {
        if (rule.suffixes.contains(lowered)) {
            return {QString::fromLatin1(rule.label), rule.color};
        }
    }
    return {QString(), QColor(92, 92, 92)};
}

QIcon FileTypeIcons::badgeIcon(const Badge& badge)
{
    if (badge.label.isEmpty()) {
        return {};
    }
    QIcon icon;
    for (const int size : {18, 36, 54}) {
        icon.addPixmap(paintBadge(badge, size));
    }
    return icon;
}

QIcon FileTypeIcons::iconFor(int kind, const QString& path, const QStyle* style)
{
    if (kind == 2) {
        return style->standardIcon(QStyle::SP_ArrowUp);
    }
    if (kind == 1) {
        return provider().icon(QFileIconProvider::Folder);
    }
    return fileIcon(QFileInfo(path).suffix());
}

QIcon FileTypeIcons::fileIcon(const QString& suffix)
{
    const auto cached = m_fileIcons.constFind(suffix);
    if (cached != m_fileIcons.constEnd()) {
        return *cached;
    }
    QIcon icon = badgeIcon(badgeFor(suffix));
    if (icon.isNull()) {
        // The provider answers from the name alone, so the placeholder never needs to exist.
        icon = suffix.isEmpty()
                   ? provider().icon(QFileIconProvider::File)
                   : provider().icon(QFileInfo(QStringLiteral("velmarin-placeholder.%1").arg(suffix)));
    }
    if (icon.isNull()) {
        // A desktop without an icon for this type still gets a sheet of paper, not a blank cell.
        icon = provider().icon(QFileIconProvider::File);
    }
    m_fileIcons.insert(suffix, icon);
    return icon;
}

QFileIconProvider& FileTypeIcons::provider()
{
    if (!m_provider) {
        m_provider = std::make_unique<QFileIconProvider>();
    }
    return *m_provider;
}

} // namespace Velmarin::UI
