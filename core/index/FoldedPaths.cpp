#include "core/index/FoldedPaths.h"

namespace Velmarin::Core {

QString FoldedPaths::fold(const QString& path)
{
    // Code point by code point, with the simple folding QString's case-blind comparison applies.
    QString folded;
    folded.reserve(path.size());
    for (qsizetype i = 0; i < path.size(); ++i) {
        const QChar unit = path.at(i);
        if (unit.isHighSurrogate() && i + 1 < path.size() && path.at(i + 1).isLowSurrogate()) {
            const char32_t point = QChar::surrogateToUcs4(unit, path.at(i + 1));
            const char32_t lowered = QChar::toCaseFolded(point);
            folded += QChar(QChar::highSurrogate(lowered));
            folded += QChar(QChar::lowSurrogate(lowered));
            ++i;
        } else {
            folded += unit.toCaseFolded();
        }
    }
    return folded;
}

} // namespace Velmarin::Core
