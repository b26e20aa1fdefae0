// The library's own statics, built at load in one fixed order and destroyed in the reverse one.
//
// C++ orders statics only within one translation unit, so they are members of one object here,
// built in the order of its members. Its init_priority of 102, right after the allocator's 101
// (Alloc.cpp), builds it before every other static of the library, whose constructors may then
// use pooled names, the clock, the log and these locks. gcc honours init_priority for ELF shared
// objects and for MinGW DLLs alike, and a dlopen or LoadLibrary runs the same sequence.
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

struct LoadOrder
{
    // Destroyed last of all: the log closes after the pooled-string cache has gone.
    LogCloser log;
    // The first of the library's CorestoneInit objects, so the last to go: it frees the cache.
    CorestoneInit pooledStrings;
    const uint64_t counterFrequency = Time::GetCounterFrequency();
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

__attribute__((init_priority(102))) LoadOrder loadOrder;
} // namespace

CriticalSection & GlobalLock()
{
    return loadOrder.globalLock;
}

CriticalSection & SharedScratchPadLock()
{
    return loadOrder.sharedScratchPadLock;
}
} // namespace Kiv
