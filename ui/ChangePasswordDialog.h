#pragma once

#include <QByteArray>
#include <QDialog>

class QCheckBox;
class QLineEdit;

namespace Velmarin::UI {

// Collects the current and the new password of a locked vault. It checks only what it can see:
// whether the current password is right is known only once the vault tries it.
class ChangePasswordDialog : public QDialog
{
    Q_OBJECT

public:
    explicit ChangePasswordDialog(QWidget* parent = nullptr);
    ~ChangePasswordDialog() override;

    // UTF-8 bytes of what was typed; the caller wipes them.
    QByteArray currentPassword() const;
    QByteArray newPassword() const;
    void clearPasswords();
    // Whether the user asked for the whole vault to be sealed again under a new key.
    bool rekeyRequested() const;

private:
    void validateAndAccept();

    QLineEdit* m_currentPassword = nullptr;
    QLineEdit* m_newPassword = nullptr;
    QLineEdit* m_confirmation = nullptr;
    QCheckBox* m_rekey = nullptr;
};

} // namespace Velmarin::UI
