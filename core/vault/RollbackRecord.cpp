#include "core/vault/RollbackRecord.h"

#include "core/workspace/PrivateFolder.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

namespace Velmarin::Core {

namespace {

// Written for a container identity a re-key retired: newer than any digest it ever had.
const QByteArray Superseded = QByteArrayLiteral("superseded");
// A record file is a few kilobytes; anything larger was not written here.
constexpr qint64 MaxRecordSize = 64 * 1024;

bool isSafeId(const QString& id)
{
    if (id.isEmpty() || id.size() > 64) {
        return false;
    }
    for (const QChar c : id) {
        if (!c.isDigit() && (c < QLatin1Char('a') || c > QLatin1Char('f'))) {
            return false;
        }
    }
    return true;
}

} // namespace

RollbackRecord::RollbackRecord(const QString& root)
    : m_root(root)
{}

QString RollbackRecord::defaultRoot()
{
    // One folder for the window and velmarin-cli, so a change made by either is known to both.
    return QDir(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation))
        .filePath(QStringLiteral("Velmarin/states"));
}

RollbackRecord::Verdict RollbackRecord::check(const QString& id, const QByteArray& digest) const
{
    const QList<QByteArray> known = states(id);
    if (known.isEmpty()) {
        return Verdict::New;
    }
    if (known.constLast() == digest) {
        return Verdict::Latest;
    }
    return known.contains(digest) || known.contains(Superseded) ? Verdict::Earlier : Verdict::New;
}

bool RollbackRecord::remember(const QString& id, const QByteArray& digest) const
{
    if (!isEnabled() || !isSafeId(id)) {
        return false;
    }
    QList<QByteArray> known = states(id);
    if (!known.isEmpty() && known.constLast() == digest) {
        return true;
    }
    // A state seen before becomes the newest again only when the user accepted it.
    known.removeAll(digest);
    known.append(digest);
    while (known.size() > MaxStates) {
        known.removeFirst();
    }
    return write(id, known);
}

bool RollbackRecord::carryOver(const QString& oldId, const QString& newId) const
{
    if (!isEnabled() || !isSafeId(oldId) || !isSafeId(newId)) {
        return false;
    }
    QList<QByteArray> moved = states(oldId);
    moved.removeAll(Superseded);
    return write(newId, moved) && write(oldId, {Superseded});
}

QList<QByteArray> RollbackRecord::states(const QString& id) const
{
    if (!isEnabled() || !isSafeId(id)) {
        return {};
    }
    PrivateFolder::Problem problem = PrivateFolder::Problem::None;
    const PrivateFolder folder = PrivateFolder::open(m_root, &problem);
    QFile file;
    if (!folder.isOpen() || !folder.openFile(id, file) || file.size() > MaxRecordSize) {
        return {};
    }
    QList<QByteArray> known;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray& line : lines) {
        if (!line.isEmpty()) {
            known.append(line);
        }
    }
    return known;
}

bool RollbackRecord::write(const QString& id, const QList<QByteArray>& states) const
{
    PrivateFolder::Problem problem = PrivateFolder::Problem::None;
    const PrivateFolder folder = PrivateFolder::open(m_root, &problem);
    QByteArray contents;
    for (const QByteArray& state : states) {
        contents += state + '\n';
    }
    return folder.isOpen() && folder.writeFile(id, contents);
}

} // namespace Velmarin::Core
