#pragma once

#include <QString>

namespace Velmarin::UI {

// A name the user typed for a file or folder: after trimming, not empty, no "/" or "\", and
// neither "." nor "..", so it can never climb out of its folder.
bool isValidEntryName(const QString& name);

// folder + "/" + name (name alone at the root), normalised the way the vault stores paths.
QString joinEntryPath(const QString& folder, const QString& name);

} // namespace Velmarin::UI
