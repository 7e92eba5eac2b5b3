#include "WorkspaceFixture.h"

#include "TestFiles.h"

#include <QBuffer>
#include <QDateTime>
#include <QFile>

#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Velmarin::Tests {

bool WorkspaceFixture::setUp()
{
    m_dir = std::make_unique<QTemporaryDir>();
    return m_dir->isValid() && TestFiles::copyEmptyVault(container());
}

bool WorkspaceFixture::importText(Core::VaultManager& vault, const QString& vaultPath,
                                  const QByteArray& text) const
{
    const QString source = path(QStringLiteral("fonte"));
    return TestFiles::write(source, text) && vault.importFile(source, vaultPath);
}

QByteArray WorkspaceFixture::exported(Core::VaultManager& vault, const QString& vaultPath)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    return vault.exportFile(vaultPath, &buffer) ? buffer.data() : QByteArray("<falhou>");
}

bool WorkspaceFixture::touchLater(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite) &&
           file.setFileTime(QDateTime::currentDateTimeUtc().addSecs(10), QFileDevice::FileModificationTime);
}

bool WorkspaceFixture::editCopy(const QString& path, const QByteArray& text)
{
    return TestFiles::write(path, text) && touchLater(path);
}

mode_t WorkspaceFixture::modeOf(const QString& path)
{
    struct stat info = {};
    return lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode : 0;
}

bool WorkspaceFixture::editAndDie(const QString& name, const QByteArray& edit) const
{
    const pid_t child = fork();
    if (child == 0) {
        Core::VaultManager vault(root());
        QString local;
        if (vault.unlock(container(), TestFiles::password()) && vault.openForEdit(name, &local) &&
            editCopy(local, edit)) {
            raise(SIGKILL);
        }
        _exit(1);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFSIGNALED(status) &&
           WTERMSIG(status) == SIGKILL;
}

} // namespace Velmarin::Tests
