#pragma once

#include "core/vault/Failure.h"

#include <QCoreApplication>
#include <QString>

namespace Velmarin::UI {

// The window's words for why the engine refused: the second paragraph of a message box, below the
// box's own text. Every reason is put into words here and nowhere else in the window.
class FailureText
{
    Q_DECLARE_TR_FUNCTIONS(FailureText)

public:
    // One or two sentences, and the system's own words after them when it gave any; empty for None.
    static QString why(const Core::Failure& failure);
    // The one sentence for reason, for boxes whose whole text it is.
    static QString sentence(Core::Failure::Reason reason, const QString& path = QString());
    // Why a typed name was refused (NameNotAllowed or AlreadyExists), worded for a folder or a file.
    static QString nameRefusal(const Core::Failure& failure, bool folder);
    // A batch the index cannot hold: how many of the selected files, in order, it still takes.
    static QString indexCapacity(int fitting, int selected);
};

} // namespace Velmarin::UI
