#pragma once

class QFileDevice;

namespace Velmarin::Core {

// Hands buffered bytes to the system and waits until the system has them on the device,
// so that "done" is only said once a pulled USB drive would still hold the data.
class FileSync
{
public:
    static bool flushToDevice(QFileDevice& file);
};

} // namespace Velmarin::Core
