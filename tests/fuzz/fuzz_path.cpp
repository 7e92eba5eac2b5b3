// Path normalisation on any text: a normalised path is stable, has no empty, "." or ".." segment,
// and splits into a folder and a name that join back to it.
#include "core/index/VaultPath.h"

#include <QStringList>

#include <cstdlib>

using namespace Velmarin::Core;

namespace {
void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QString path = normalizeVaultPath(text);
    require(normalizeVaultPath(path) == path);
    if (path.isEmpty()) {
        return 0;
    }
    require(!path.contains(QLatin1Char('\\')));
    for (const QString& segment : path.split(QLatin1Char('/'))) {
        require(isValidEntryName(segment) && segment == segment.trimmed());
    }
    const QString folder = parentVaultPath(path);
    const QString name = vaultFileName(path);
    require(isValidEntryName(name));
    require(joinVaultPath(folder, name) == path);
    require(joinEntryPath(folder, name) == path);
    require(liesBelow(path, folder));
    require(!liesBelow(folder, path));
    return 0;
}
