#pragma once

#include "core/vault/VaultManager.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <memory>
#include <sys/types.h>

namespace Velmarin::Tests {

// A fresh folder with a copy of the empty test vault and a workspace root to be made beside it,
// with the steps the workspace's tests share. POSIX only: it forks and reads file modes.
class WorkspaceFixture
{
public:
    bool setUp();
    void tearDown() { m_dir.reset(); }

    QString path(const QString& name) const { return m_dir->filePath(name); }
    QString root() const { return path(QStringLiteral("area")); }
    QString container() const { return path(QStringLiteral("velmarin.vltx")); }

    // Imports text under vaultPath through a scratch file.
    bool importText(Core::VaultManager& vault, const QString& vaultPath, const QByteArray& text) const;
    // The stored bytes of vaultPath, or "<falhou>".
    static QByteArray exported(Core::VaultManager& vault, const QString& vaultPath);
    // A save by the user's editor: new contents and a later modification time than the copy had.
    static bool editCopy(const QString& path, const QByteArray& text);
    static bool touchLater(const QString& path);
    static mode_t modeOf(const QString& path);
    // Unlocks in a child process, opens name for editing, changes the copy and dies by SIGKILL.
    bool editAndDie(const QString& name, const QByteArray& edit) const;

private:
    std::unique_ptr<QTemporaryDir> m_dir;
};

} // namespace Velmarin::Tests
