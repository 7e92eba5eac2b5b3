// The container header reader on hostile files: it must refuse or read, never crash, hang or
// allocate from a length it has not checked.
#include "FuzzContainer.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"

#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdlib>

using namespace Velmarin;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QTemporaryDir scratch;
    static const QString path = scratch.filePath(QStringLiteral("velmarin.vltx"));
    if (!Tests::FuzzContainer::write(path, data, size)) {
        std::abort();
    }
    const Core::ContainerFile file;
    Core::ContainerHeader header;
    if (file.readHeader(path, header)) {
        // The payload the header announces lies inside the file, and its JSON inside the region.
        if (header.payloadOffset > QFileInfo(path).size() || header.headerLength < 1 ||
            header.headerLength > Core::ContainerFile::HeaderRegionSize) {
            std::abort();
        }
        (void)file.serializeHeader(header);
    }
    return 0;
}
