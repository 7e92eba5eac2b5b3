#pragma once

#include <QString>
#include <QtGlobal>

#include <functional>

namespace Velmarin::Core {

// (bytes done, bytes in total, label): the label is a vault path or a phase text. Empty reports nothing.
using ProgressCallback = std::function<void(qint64, qint64, const QString&)>;

} // namespace Velmarin::Core
