#pragma once

#include "core/index/VaultPath.h"

#include <QHash>
#include <QList>
#include <QString>

namespace Velmarin::Core {

// Finds an entry by path ignoring letter case without walking the whole list, folding letters the
// way isSameVaultPath compares them, so that a batch of thousands of files does not compare every
// name with every other. Positions are rebuilt on the first lookup after a removal shifted them.
class FoldedPaths
{
public:
    static QString fold(const QString& path);

    void invalidate()
    {
        m_current = false;
        m_positions.clear();
    }
    // An entry appended at position; the first of several paths that fold alike keeps its place.
    void added(const QString& path, qsizetype position)
    {
        if (!m_current) {
            return;
        }
        const QString key = fold(path);
        if (!m_positions.contains(key)) {
            m_positions.insert(key, position);
        }
    }

    template <typename Entry, typename PathOf>
    const Entry* find(const QList<Entry>& list, const QString& path, PathOf pathOf) const
    {
        if (!m_current) {
            for (qsizetype i = list.size() - 1; i >= 0; --i) {
                m_positions.insert(fold(pathOf(list.at(i))), i);
            }
            m_current = true;
        }
        const auto found = m_positions.constFind(fold(path));
        if (found == m_positions.cend()) {
            return nullptr;
        }
        const Entry& entry = list.at(found.value());
        if (isSameVaultPath(pathOf(entry), path)) {
            return &entry;
        }
        // Folded alike but compared unlike (unpaired surrogates): the plain walk decides.
        for (const Entry& candidate : list) {
            if (isSameVaultPath(pathOf(candidate), path)) {
                return &candidate;
            }
        }
        return nullptr;
    }

private:
    mutable QHash<QString, qsizetype> m_positions;
    mutable bool m_current = false;
};

} // namespace Velmarin::Core
