// The seam under the synchronisation objects: kernel objects behind opaque handles, with the
// waiting rules of the Win32 kernel. SyncObjectWin32.cpp maps these one to one onto the system;
// SyncObjectPosix.cpp emulates the same objects inside the process.
#pragma once

#include <cstdint>

namespace Kiv
{
namespace SyncPlatform
{
// Results of WaitMultiple, with the system's values.
constexpr uint32_t waitObject0 = 0x00000000;
constexpr uint32_t waitAbandoned0 = 0x00000080;
constexpr uint32_t waitTimeout = 0x00000102;
constexpr uint32_t waitFailed = 0xFFFFFFFF;
constexpr uint32_t maximumWaitObjects = 64;
constexpr uint32_t infinite = 0xFFFFFFFF;

// Each returns null on failure. A name shares the object with every other user of that name.
void * CreateMutexObject(bool initiallyOwned, const char * name);
void * CreateSemaphoreObject(int32_t initialCount, int32_t maximumCount, const char * name);
void * CreateEventObject(bool manualReset, bool initiallySignalled, const char * name);
bool CloseObject(void * handle);

// Waits until one object (or, with waitAll, every object at once) can be acquired and acquires
// it. Returns waitObject0 + i, waitAbandoned0 + i, waitTimeout or waitFailed.
uint32_t WaitMultiple(uint32_t count, void * const * handles, bool waitAll, uint32_t milliseconds);

bool ReleaseMutexObject(void * handle);
bool ReleaseSemaphoreObject(void * handle, int32_t count);
bool SetEventObject(void * handle);
bool PulseEventObject(void * handle);
bool ResetEventObject(void * handle);
} // namespace SyncPlatform
} // namespace Kiv
