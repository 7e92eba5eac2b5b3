// The index reader on hostile JSON: whatever it accepts must write back and read again to the same
// index, or the next change would silently alter the vault.
#include "core/index/VaultIndex.h"

#include <cstdlib>

using namespace Velmarin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray json =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QByteArray written = Core::VaultIndex::fromJson(json).toJson();
    if (Core::VaultIndex::fromJson(written).toJson() != written) {
        std::abort();
    }
    return 0;
}
