// The library's own statics, built at load in one fixed order and destroyed in the reverse one:
//   101  the allocator (Alloc.cpp)
//   102  the pooled-string cache and the counter frequency (here)
//   103  the empty configuration node (ConfigData.cpp)
//   104  the configuration node pool (ConfigData.cpp)
//   105  the exception handler's log client, the library's pooled names and its locks (here)
// then every other static. C++ orders statics only within one translation unit; across units gcc's
// init_priority does, for ELF shared objects and MinGW DLLs alike, and a dlopen or LoadLibrary
// runs the same sequence. Unloading destroys them in reverse: the pooled-string cache goes, then
// the log is closed, and the allocator is last.
#include "Startup.h"
#include "Log.h"
#include "PString.h"
#include "SyncObject.h"
#include "Time.h"

namespace Kiv
{
namespace
{
class LogCloser
{
public:
    LogCloser() = default;
    ~LogCloser() { ReleaseLog(); }
    LogCloser(const LogCloser &) = delete;
    LogCloser & operator=(const LogCloser &) = delete;
};

struct EarlyStatics
{
    // Destroyed last of all: the log closes after the pooled-string cache has gone.
    LogCloser log;
    // The first of the library's CorestoneInit objects, so the last to go: it frees the cache.
    CorestoneInit pooledStrings;
    const uint64_t counterFrequency = Time::GetCounterFrequency();
};

struct LateStatics
{
    // Made now so that it exists before any fault is reported through it.
    LogClient * const exceptionHandlerLog = Log::GetClient("ExceptionHandler");
    // The tokens of the string-table format.
    const PString table{"Table"};
    const PString id{"Id"};
    const PString entry{"Entry"};
    const PString value{"Value"};
    CriticalSection globalLock;
    CriticalSection sharedScratchPadLock{"SharedScratchPadLock"};
};

__attribute__((init_priority(102))) EarlyStatics early;
__attribute__((init_priority(105))) LateStatics late;
} // namespace

CriticalSection & GlobalLock()
{
    return late.globalLock;
}

CriticalSection & SharedScratchPadLock()
{
    return late.sharedScratchPadLock;
}
} // namespace Kiv
