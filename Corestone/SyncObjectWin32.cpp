// The synchronisation seam on Windows: the kernel's own objects.
#include "SyncObject.h"
#include "SyncPlatform.h"

#include <windows.h>

namespace Kiv
{
static_assert(sizeof(LONG) == sizeof(int32_t), "interlocked operations work on 32-bit values");

namespace SyncPlatform
{
static_assert(waitAbandoned0 == WAIT_ABANDONED_0 && waitTimeout == WAIT_TIMEOUT && waitFailed == WAIT_FAILED,
              "the seam reports the system's wait results");

void * CreateMutexObject(bool initiallyOwned, const char * name)
{
    return CreateMutexA(nullptr, initiallyOwned ? TRUE : FALSE, name);
}

void * CreateSemaphoreObject(int32_t initialCount, int32_t maximumCount, const char * name)
{
    return CreateSemaphoreA(nullptr, initialCount, maximumCount, name);
}

void * CreateEventObject(bool manualReset, bool initiallySignalled, const char * name)
{
    return CreateEventA(nullptr, manualReset ? TRUE : FALSE, initiallySignalled ? TRUE : FALSE, name);
}

bool CloseObject(void * handle)
{
    return CloseHandle(handle) != 0;
}

uint32_t WaitMultiple(uint32_t count, void * const * handles, bool waitAll, uint32_t milliseconds)
{
    return WaitForMultipleObjects(count, handles, waitAll ? TRUE : FALSE, milliseconds);
}

bool ReleaseMutexObject(void * handle)
{
    return ReleaseMutex(handle) != 0;
}

bool ReleaseSemaphoreObject(void * handle, int32_t count)
{
    return ReleaseSemaphore(handle, count, nullptr) != 0;
}

bool SetEventObject(void * handle)
{
    return SetEvent(handle) != 0;
}

bool PulseEventObject(void * handle)
{
    return PulseEvent(handle) != 0;
}

bool ResetEventObject(void * handle)
{
    return ResetEvent(handle) != 0;
}
} // namespace SyncPlatform

int32_t ProtectedLong::Increment()
{
    return InterlockedIncrement(reinterpret_cast<volatile LONG *>(&value));
}

int32_t ProtectedLong::Decrement()
{
    return InterlockedDecrement(reinterpret_cast<volatile LONG *>(&value));
}
} // namespace Kiv
