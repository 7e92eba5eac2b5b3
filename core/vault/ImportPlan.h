#pragma once

#include "core/vault/ImportItem.h"

#include <QList>
#include <QString>

namespace Velmarin::Core {

// Turns local files and folders into the items of one import batch, as cp -r would copy them: a
// folder comes in under its own name with its whole tree, empty folders included. Inside a tree,
// symbolic links (which could lead out of it or round in a circle) and anything that is neither a
// file nor a folder are left out, and so is a folder whose name the vault cannot take, with all it
// holds. Each one left out is kept, in the order met, for the front end to tell.
class ImportPlan
{
public:
    struct Skipped
    {
        enum class Reason
        {
            SymbolicLink,
            NotRegular,
            NameNotAllowed
        };
        QString localPath;
        Reason reason = Reason::NotRegular;
    };

    enum class Result
    {
        Added,
        // The source does not exist; nothing of it was planned.
        Missing,
        // The source's own name cannot be used in the vault; nothing of it was planned.
        NameNotAllowed
    };

    // Plans source, a file or a folder, into the vault folder target.
    Result add(const QString& source, const QString& target);

    // Every folder to make and file to import, paths in order so each folder comes before what it holds.
    QList<ImportItem> items() const;
    // What was left out since the last call, in the order met.
    QList<Skipped> takeSkipped();

    // Items that would land on the same vault path, their names differing at most in letter case
    // (Foto.jpg and foto.jpg, both possible on Linux), would overwrite one another: the files among
    // them are taken out of items and returned. Folders that meet are merged, so they stay.
    static QList<ImportItem> takeCaseTwins(QList<ImportItem>& items);

private:
    void walk(const QString& folder, const QString& base);

    QList<ImportItem> m_items;
    QList<Skipped> m_skipped;
};

} // namespace Velmarin::Core
