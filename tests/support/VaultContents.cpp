#include "VaultContents.h"

#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/vault/VaultManager.h"
#include "core/vault/VerificationReport.h"

#include <QFile>

namespace Velmarin::Tests {

bool VaultContents::opens(const QString& containerPath, const QByteArray& password, Core::Failure* failure)
{
    Core::VaultManager vault;
    const bool opened = vault.unlock(containerPath, password, Core::VaultManager::Access::ReadOnly);
    if (failure != nullptr) {
        *failure = vault.lastFailure();
    }
    vault.lock();
    return opened;
}

QString VaultContents::mismatch(const QString& containerPath, const QByteArray& password,
                                const QMap<QString, QString>& sources, const QStringList& folders,
                                const QString& scratch)
{
    Core::VaultManager vault;
    if (!vault.unlock(containerPath, password, Core::VaultManager::Access::ReadOnly)) {
        return QStringLiteral("o cofre não abre");
    }
    QStringList paths = VaultFixture::filePaths(vault.index());
    paths.sort();
    QString problem;
    if (paths != sources.keys()) {
        problem = QStringLiteral("arquivos: %1").arg(paths.join(QStringLiteral(", ")));
    }
    for (auto it = sources.cbegin(); it != sources.cend() && problem.isEmpty(); ++it) {
        QFile::remove(scratch);
        if (!vault.exportFile(it.key(), scratch) || !TestFiles::sameContents(scratch, it.value())) {
            problem = QStringLiteral("%1 não exporta os mesmos bytes").arg(it.key());
        }
    }
    for (const QString& folder : folders) {
        if (problem.isEmpty() && !vault.directoryExists(folder)) {
            problem = QStringLiteral("falta a pasta %1").arg(folder);
        }
    }
    Core::VerificationReport report;
    if (problem.isEmpty() && (!vault.verifyContents(report) || !report.isSound())) {
        problem = QStringLiteral("a verificação encontrou danos");
    }
    vault.lock();
    return problem;
}

} // namespace Velmarin::Tests
