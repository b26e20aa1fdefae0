// What Kiv::OS asks of the platform.
#pragma once

#include <cstdint>

namespace Kiv
{
// The program's full path into a buffer of File::MAX_PATH_LENGTH bytes; false when it cannot be
// read or does not fit.
bool ReadProcessPath(char * path);
// The operating system's identifier of the calling thread.
uint32_t CurrentThreadId();
} // namespace Kiv
