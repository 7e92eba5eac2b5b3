#include "core/vault/IndexAudit.h"

#include "core/container/PayloadStore.h"
#include "core/index/FoldedPaths.h"
#include "core/index/VaultPath.h"

#include <QRegularExpression>

#include <algorithm>
#include <limits>
#include <utility>

namespace Velmarin::Core {

namespace {

using Problem = VerificationReport::DamagedFile::Problem;

struct PlacedBlock
{
    qint64 start = 0;
    qint64 end = 0;
    qsizetype file = 0;
    int number = 0;
};

} // namespace

bool IndexAudit::pathProblem(const QString& vaultPath, Finding::Problem* problem)
{
    const QString normal = normalizeVaultPath(vaultPath);
    if (normal == vaultPath) {
        return false;
    }
    static const QRegularExpression drive(QStringLiteral("^[A-Za-z]:"));
    const QString trimmed = vaultPath.trimmed();
    if (normal.isEmpty()) {
        *problem = Problem::DotSegment;
    } else if (trimmed.startsWith(QLatin1Char('/')) || trimmed.startsWith(QLatin1Char('\\')) ||
               drive.match(trimmed).hasMatch()) {
        *problem = Problem::AbsolutePath;
    } else if (vaultPath.contains(QLatin1Char('\\'))) {
        *problem = Problem::BackslashPath;
    } else {
        *problem = Problem::PathNotNormal;
    }
    return true;
}

IndexAudit::IndexAudit(const VaultIndex& index)
{
    const QList<FileEntry>& files = index.files();
    QList<Finding> found(files.size());
    QList<bool> flagged(files.size(), false);
    const auto flag = [&](qsizetype at, Problem problem, const QString& other = QString()) {
        if (flagged.at(at)) {
            return;
        }
        flagged[at] = true;
        found[at].problem = problem;
        found[at].otherPath = other;
    };

    QHash<QString, qsizetype> firstFolded;
    for (qsizetype at = 0; at < files.size(); ++at) {
        const FileEntry& file = files.at(at);
        found[at].vaultPath = file.vaultPath;
        found[at].blockCount = static_cast<int>(file.blocks.size());
        Problem problem = Problem::PathNotNormal;
        if (pathProblem(file.vaultPath, &problem)) {
            flag(at, problem);
        }
        const QString folded = FoldedPaths::fold(file.vaultPath);
        const auto first = firstFolded.constFind(folded);
        if (first == firstFolded.cend()) {
            firstFolded.insert(folded, at);
        } else {
            // Both are named, each with the other: neither is the "real" one.
            flag(first.value(), Problem::CaseDuplicate, file.vaultPath);
            flag(at, Problem::CaseDuplicate, files.at(first.value()).vaultPath);
        }
    }
    for (qsizetype at = 0; at < files.size(); ++at) {
        const QString folder = parentVaultPath(files.at(at).vaultPath);
        if (!folder.isEmpty() && index.findDirectory(folder) == nullptr) {
            flag(at, Problem::MissingFolder, folder);
        }
    }
    QList<Finding> overlaps(files.size());
    findOverlaps(index, overlaps);
    for (qsizetype at = 0; at < files.size(); ++at) {
        if (overlaps.at(at).blockNumber > 0 && !flagged.at(at)) {
            found[at].blockNumber = overlaps.at(at).blockNumber;
            flag(at, Problem::OverlappingBlocks, overlaps.at(at).otherPath);
        }
    }
    for (qsizetype at = 0; at < files.size(); ++at) {
        if (flagged.at(at)) {
            m_byPath.insert(found.at(at).vaultPath, m_findings.size());
            m_findings.append(found.at(at));
        }
    }
}

void IndexAudit::findOverlaps(const VaultIndex& index, QList<Finding>& found) const
{
    // Sorted by where they start, a block overlaps an earlier one exactly when it starts before the
    // furthest end seen so far. Impossible blocks are left to the read, which refuses them.
    QList<PlacedBlock> blocks;
    const QList<FileEntry>& files = index.files();
    for (qsizetype at = 0; at < files.size(); ++at) {
        int number = 0;
        for (const BlockEntry& block : files.at(at).blocks) {
            ++number;
            if (PayloadStore::isPlausible(block) &&
                block.offset <= std::numeric_limits<qint64>::max() - block.encryptedSize) {
                blocks.append(PlacedBlock{block.offset, block.offset + block.encryptedSize, at, number});
            }
        }
    }
    std::sort(blocks.begin(), blocks.end(), [](const PlacedBlock& a, const PlacedBlock& b) {
        return a.start != b.start ? a.start < b.start : a.file < b.file;
    });
    const PlacedBlock* furthest = nullptr;
    for (const PlacedBlock& block : blocks) {
        if (furthest != nullptr && block.start < furthest->end) {
            // Both blocks are named: the one that came first is as suspect as the one inside it.
            for (const auto& [mine, other] : {std::pair{&block, furthest}, std::pair{furthest, &block}}) {
                Finding& finding = found[mine->file];
                if (finding.blockNumber == 0 || mine->number < finding.blockNumber) {
                    finding.blockNumber = mine->number;
                    finding.otherPath = files.at(other->file).vaultPath;
                }
            }
        }
        if (furthest == nullptr || block.end > furthest->end) {
            furthest = &block;
        }
    }
}

const IndexAudit::Finding* IndexAudit::findingFor(const QString& vaultPath) const
{
    const auto found = m_byPath.constFind(vaultPath);
    return found == m_byPath.cend() ? nullptr : &m_findings.at(found.value());
}

} // namespace Velmarin::Core
