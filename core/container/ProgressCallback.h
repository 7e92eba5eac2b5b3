#pragma once

#include <QString>
#include <QtGlobal>

#include <functional>

namespace Velmarin::Core {

// (bytes done, bytes in total, label). The label is the vault path of the file being worked on, or
// empty for the one phase that is about no file: compaction's rebuilt container replacing the old
// one on the drive (see isContainerSwap). The engine never words anything for the user; the front
// ends say what an empty label stands for. An empty callback reports nothing.
using ProgressCallback = std::function<void(qint64, qint64, const QString&)>;

// No file's vault path is empty, so an empty label can only be the container swap.
inline bool isContainerSwap(const QString& label)
{
    return label.isEmpty();
}

} // namespace Velmarin::Core
