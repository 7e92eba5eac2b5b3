#pragma once

#include "core/index/VaultIndex.h"
#include "core/vault/VerificationReport.h"

#include <QHash>
#include <QList>
#include <QString>

namespace Velmarin::Core {

// Looks at what an index records, without reading a block: the things no change of this program
// writes, which only a faulty or hostile writer with the password could have put there. A path
// that normalisation would change, a file whose folder has no entry, two files whose paths differ
// only in letter case, blocks whose bytes in the payload overlap. Such entries are kept as loaded
// (they may be the user's data); verification reports them and open-for-edit refuses them, since a
// copy of one could not come back to that entry alone.
class IndexAudit
{
public:
    using Finding = VerificationReport::DamagedFile;

    explicit IndexAudit(const VaultIndex& index);

    // At most one finding per file, in the index's order: the path's form first, then a case
    // duplicate, a missing folder, and last an overlapping block.
    const QList<Finding>& findings() const { return m_findings; }
    // The finding for the file whose path is exactly vaultPath, or null.
    const Finding* findingFor(const QString& vaultPath) const;

    // The problem of a path's form, or false when normalisation leaves the path as it is.
    static bool pathProblem(const QString& vaultPath, Finding::Problem* problem);

private:
    void findOverlaps(const VaultIndex& index, QList<Finding>& found) const;

    QList<Finding> m_findings;
    QHash<QString, qsizetype> m_byPath;
};

} // namespace Velmarin::Core
