#pragma once

#include "core/container/ProgressCallback.h"

#include <QString>

#include <functional>
#include <memory>

class QProgressDialog;
class QWidget;

namespace Velmarin::UI {

// The progress dialogs of long operations and the adapters that feed them from the engine's
// callbacks. The work runs on the GUI thread, so each update processes pending events to keep
// the window painted; the dialogs are application-modal without a cancel button, so nothing
// else can start meanwhile.
class ProgressDialogs
{
public:
    // Range 0..1000, shown at once.
    static std::unique_ptr<QProgressDialog> open(QWidget* parent, const QString& title, const QString& label);

    // A zero total shows a full bar for compaction and an empty one for import.
    static int compactionValue(qint64 done, qint64 total);
    static int importValue(qint64 done, qint64 total);

    // A label is the file being copied, or the container swap (Core::isContainerSwap), which the
    // dialog calls "Substituindo container no USB".
    static Core::ProgressCallback compactionAdapter(QProgressDialog* dialog);
    static Core::ProgressCallback importAdapter(QProgressDialog* dialog, const QString& speedNote);
    // Files written out of the vault; an export of empty files only fills the bar at once.
    static Core::ProgressCallback exportAdapter(QProgressDialog* dialog);
    // A backup's (done, total); an empty container fills the bar at once.
    static std::function<void(qint64, qint64)> backupAdapter(QProgressDialog* dialog);
};

} // namespace Velmarin::UI
