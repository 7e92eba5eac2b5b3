#include "SampleVault.h"

#include "LockedVaultEditor.h"
#include "core/vault/VaultManager.h"

#include <QDateTime>

namespace Velmarin::Bench {

bool SampleVault::create(const QString& container, const QByteArray& password, int files)
{
    if (!Core::VaultManager().createVault(container, password)) {
        return false;
    }
    Tests::LockedVaultEditor editor;
    if (!editor.open(container, password)) {
        return false;
    }
    const QDateTime taken(QDate(2026, 8, 15), QTime(14, 30), Qt::UTC);
    for (int number = 0; number < files; ++number) {
        if (!editor.appendFile(fileName(number), contents(number), taken.addSecs(number))) {
            return false;
        }
    }
    return editor.save();
}

QString SampleVault::fileName(int number)
{
    return QStringLiteral("IMG_20260815_%1.jpg").arg(number, 5, 10, QLatin1Char('0'));
}

QByteArray SampleVault::contents(int number)
{
    return QByteArrayLiteral("foto ") + QByteArray::number(number).rightJustified(5, '0');
}

} // namespace Velmarin::Bench
