#pragma once

#include <QString>

namespace Velmarin::Core {

// Vault paths: segments joined by "/", no leading or trailing slash, letter case kept; "" is the root.

// Returns the normalised form of a path as typed, or "" when the path is invalid (or the root).
QString normalizeVaultPath(const QString& text);

// Existence tests ignore letter case: "Fotos" and "fotos" name the same entry.
bool isSameVaultPath(const QString& a, const QString& b);

// True when path lies inside folder (at any depth), ignoring letter case.
bool liesBelow(const QString& path, const QString& folder);

// The last segment of a normalised path.
QString vaultFileName(const QString& path);

// The folder that holds a normalised path; "" for an entry of the root.
QString parentVaultPath(const QString& path);

// folder + "/" + name, or name alone when folder is the root.
QString joinVaultPath(const QString& folder, const QString& name);

// A name typed for a file or folder: after trimming, not empty, no "/" or "\\", and neither "."
// nor "..", so it can never climb out of its folder.
bool isValidEntryName(const QString& name);

// folder + "/" + name (name alone at the root), normalised the way the vault stores paths.
QString joinEntryPath(const QString& folder, const QString& name);

} // namespace Velmarin::Core
