#include "VaultFixture.h"

#include "TestFiles.h"

#include <QDir>
#include <QFileInfo>

namespace Velmarin::Tests {

bool VaultFixture::setUp(const QString& containerName, const QString& workspaceFolder)
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_container = path(containerName);
    if (!m_dir->isValid() || !QDir().mkpath(QFileInfo(m_container).absolutePath()) ||
        !TestFiles::copyEmptyVault(m_container)) {
        return false;
    }
    m_vault =
        std::make_unique<Core::VaultManager>(workspaceFolder.isEmpty() ? QString() : path(workspaceFolder));
    return m_vault->unlock(m_container, TestFiles::password());
}

void VaultFixture::tearDown()
{
    // A session left open would leave its workspace folder behind in the temporary folder.
    if (m_vault) {
        m_vault->lock();
    }
    m_vault.reset();
    m_dir.reset();
}

bool VaultFixture::importText(const QString& vaultPath, const QByteArray& text)
{
    const QString source = path(QStringLiteral("fonte.tmp"));
    return TestFiles::write(source, text) && m_vault->importFile(source, vaultPath);
}

QByteArray VaultFixture::exported(const QString& vaultPath)
{
    const QString destination = path(QStringLiteral("exportado.tmp"));
    return m_vault->exportFile(vaultPath, destination) ? TestFiles::read(destination)
                                                       : QByteArray("<falhou>");
}

QStringList VaultFixture::filePaths(const Core::VaultIndex& index)
{
    QStringList paths;
    for (const Core::FileEntry& entry : index.files()) {
        paths << entry.vaultPath;
    }
    return paths;
}

QStringList VaultFixture::directoryPaths(const Core::VaultIndex& index)
{
    QStringList paths;
    for (const Core::DirectoryEntry& entry : index.directories()) {
        paths << entry.path;
    }
    return paths;
}

} // namespace Velmarin::Tests
