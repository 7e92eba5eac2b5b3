#pragma once

#include "core/vault/VaultManager.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

namespace Velmarin::Tests {

// A fresh folder with a copy of the empty test vault and a manager unlocked on it, per test function.
class VaultFixture
{
public:
    // containerName may name a subfolder ("usb/velmarin.vltx"); workspaceFolder, a folder inside the
    // fixture's own, is the workspace root; an empty one gives a session without a workspace.
    bool setUp(const QString& containerName = QStringLiteral("velmarin.vltx"),
               const QString& workspaceFolder = QString());
    void tearDown();

    QString path(const QString& name) const { return m_dir->filePath(name); }
    QString container() const { return m_container; }
    Core::VaultManager& vault() { return *m_vault; }

    // Imports text under vaultPath through a scratch file.
    bool importText(const QString& vaultPath, const QByteArray& text);
    // Exports vaultPath and returns its bytes, or "<falhou>" when the export failed.
    QByteArray exported(const QString& vaultPath);

    static QStringList filePaths(const Core::VaultIndex& index);
    static QStringList directoryPaths(const Core::VaultIndex& index);

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_container;
    std::unique_ptr<Core::VaultManager> m_vault;
};

} // namespace Velmarin::Tests
