#include "File.h"
#include "OSPlatform.h"

#include <windows.h>

namespace Kiv
{
bool ReadProcessPath(char * path)
{
    const DWORD length = GetModuleFileNameA(nullptr, path, File::MAX_PATH_LENGTH);
    if (length == 0 || length >= File::MAX_PATH_LENGTH - 1)
        return false;
    path[length] = 0;
    return true;
}

uint32_t CurrentThreadId()
{
    return GetCurrentThreadId();
}
} // namespace Kiv
