#include "File.h"
#include "OSPlatform.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace Kiv
{
bool ReadProcessPath(char * path)
{
    const ssize_t length = readlink("/proc/self/exe", path, File::MAX_PATH_LENGTH - 1);
    if (length <= 0 || length >= File::MAX_PATH_LENGTH - 1)
        return false;
    path[length] = 0;
    return true;
}

uint32_t CurrentThreadId()
{
    return static_cast<uint32_t>(syscall(SYS_gettid));
}
} // namespace Kiv
