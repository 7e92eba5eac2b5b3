#pragma once

#include <QDateTime>
#include <QString>

namespace Velmarin::Core {

// A vault file whose plaintext copy sits in the workspace for the user's own program to edit.
struct EditedFile
{
    QString vaultPath;
    QString localPath;
    // The copy's modification time right after it was written: anything later is an edit.
    QDateTime openedModifiedUtc;
};

} // namespace Velmarin::Core
