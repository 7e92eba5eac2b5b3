// Locking on its own: the vault closes when the computer is about to sleep, when the session is
// locked and when its container is gone, and the window says why.
#include "ui/MainWindow.h"

#include <QAction>
#include <QCoreApplication>
#include <QFileInfo>
#include <QStatusBar>

namespace Velmarin::UI {

namespace {

QString tr(const char* text)
{
    return QCoreApplication::translate("Velmarin::UI::MainWindow", text);
}

QString autoLockMessage(AutoLock::Reason reason, bool editsKept)
{
    QString message;
    switch (reason) {
    case AutoLock::Reason::Sleep:
        message = tr("O cofre foi bloqueado porque o computador vai entrar em suspensão.");
        break;
    case AutoLock::Reason::SessionLocked:
        message = tr("O cofre foi bloqueado junto com a sessão do computador.");
        break;
    case AutoLock::Reason::ContainerGone:
        message = tr("O cofre foi bloqueado porque o container não está mais acessível (a unidade USB "
                     "pode ter sido retirada).");
        break;
    }
    if (editsKept) {
        message += QLatin1Char(' ') + tr("As alterações ainda não gravadas no cofre ficaram neste computador "
                                         "e serão oferecidas de volta no próximo desbloqueio.");
    }
    return message + QLatin1Char(' ') +
           tr("Arquivos ainda abertos em outros programas não serão mais salvos no cofre.");
}

} // namespace

void MainWindow::connectAutoLock()
{
    connect(m_autoLock.get(), &AutoLock::lockDue, this, &MainWindow::lockAutomatically);
    // The tooltip repeats only the message of an automatic lock, and goes with it.
    connect(statusBar(), &QStatusBar::messageChanged, this, [this](const QString& message) {
        if (message != statusBar()->toolTip()) {
            statusBar()->setToolTip(QString());
        }
    });
}

void MainWindow::connectOperation(QAction* action, void (MainWindow::*slot)())
{
    connect(action, &QAction::triggered, this,
            [this, slot] { m_autoLock->run([this, slot] { (this->*slot)(); }); });
}

void MainWindow::lockAutomatically(AutoLock::Reason reason)
{
    if (!m_vault.isUnlocked()) {
        return;
    }
    bool editsKept = false;
    if (reason == AutoLock::Reason::ContainerGone || !QFileInfo::exists(m_vault.containerPath())) {
        // Nothing can be written without the drive: the edits wait on this computer.
        reason = AutoLock::Reason::ContainerGone;
        m_vault.lockKeepingEdits();
        editsKept = true;
    } else if (!m_vault.lock() && m_vault.isUnlocked()) {
        // An edit could not come home; the keys must not stay in memory all the same.
        m_vault.lockKeepingEdits();
        editsKept = true;
    }
    resetToRoot();
    // Longer than the bar's room beside its fields, so the whole text is a tooltip too; it stays
    // until the next message, as the user may only see it on coming back.
    const QString message = autoLockMessage(reason, editsKept);
    statusBar()->showMessage(message);
    statusBar()->setToolTip(message);
}

} // namespace Velmarin::UI
