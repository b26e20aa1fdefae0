// The synchronisation objects above the platform seam: everything here is the same on every target.
#include "SyncObject.h"
#include "AllocObject.h"
#include "PlatformLock.h"
#include "SyncPlatform.h"

#include <cstdint>
#include <new>

namespace Kiv
{
namespace
{
// The interface takes unsigned long, which is 64 bits on LP64 targets; the system's time-out is
// a 32-bit word, so anything from INFINITE up waits without limit.
uint32_t Milliseconds(unsigned long timeout)
{
    return timeout >= SyncPlatform::infinite ? SyncPlatform::infinite : static_cast<uint32_t>(timeout);
}
} // namespace

// --- SyncObject ---

SyncObject::SyncObject(void * handle) : handle(handle) {}

SyncObject::~SyncObject()
{
    if (handle != nullptr)
    {
        SyncPlatform::CloseObject(handle);
    }
}

SyncObject::operator void *() const
{
    return handle;
}

bool SyncObject::Lock(unsigned long timeout) const
{
    return SyncPlatform::WaitMultiple(1, &handle, false, Milliseconds(timeout)) == SyncPlatform::waitObject0;
}

bool SyncObject::Unlock(unsigned long /*count*/) const
{
    return false;
}

bool SyncObject::Unlock() const
{
    return false;
}

bool SyncObject::IsLocked() const
{
    if (Lock(0))
    {
        Unlock();
        return false;
    }
    return true;
}

// --- CriticalSection ---

CriticalSection::CriticalSection(const char * /*name*/) : section(NewObject<PlatformLock>())
{
    if (section != nullptr)
    {
        section->Init();
    }
}

CriticalSection::~CriticalSection()
{
    if (section != nullptr)
    {
        section->Done();
        DeleteObject(section);
    }
}

bool CriticalSection::Lock(unsigned long /*timeout*/) const
{
    if (section != nullptr)
    {
        section->Enter();
    }
    return true;
}

bool CriticalSection::Unlock() const
{
    if (section != nullptr)
    {
        section->Leave();
    }
    return true;
}

// --- Mutex, Semaphore, WEvent ---

Mutex::Mutex(bool initiallyOwned, const char * name)
    : SyncObject(SyncPlatform::CreateMutexObject(initiallyOwned, name))
{
}

bool Mutex::Unlock(unsigned long /*count*/) const
{
    return SyncPlatform::ReleaseMutexObject(handle);
}

bool Mutex::Unlock() const
{
    return SyncPlatform::ReleaseMutexObject(handle);
}

Semaphore::Semaphore(int initialCount, int maximumCount, const char * name)
    : SyncObject(SyncPlatform::CreateSemaphoreObject(initialCount, maximumCount, name))
{
}

bool Semaphore::Unlock(unsigned long count) const
{
    // The system requires a positive count (not every implementation checks it); one past the
    // 32-bit range could never fit under any maximum.
    return count >= 1 && count <= INT32_MAX &&
           SyncPlatform::ReleaseSemaphoreObject(handle, static_cast<int32_t>(count));
}

bool Semaphore::Unlock() const
{
    return SyncPlatform::ReleaseSemaphoreObject(handle, 1);
}

WEvent::WEvent(bool manualReset, bool initiallySignalled, const char * name)
    : SyncObject(SyncPlatform::CreateEventObject(manualReset, initiallySignalled, name))
{
}

bool WEvent::Set() const
{
    return SyncPlatform::SetEventObject(handle);
}

bool WEvent::Pulse() const
{
    return SyncPlatform::PulseEventObject(handle);
}

bool WEvent::Reset() const
{
    return SyncPlatform::ResetEventObject(handle);
}

bool WEvent::Unlock() const
{
    return true;
}

// --- SingleLock ---

SingleLock::SingleLock(const SyncObject * object, bool lockNow) : object(object), locked(false)
{
    if (lockNow)
    {
        Lock(INFINITE);
    }
}

SingleLock::~SingleLock()
{
    if (locked)
    {
        Unlock();
    }
}

bool SingleLock::Lock(unsigned long timeout)
{
    locked = object != nullptr && object->Lock(timeout);
    return locked;
}

bool SingleLock::Unlock()
{
    if (locked && object->Unlock())
    {
        locked = false;
    }
    return !locked;
}

bool SingleLock::Unlock(unsigned long count)
{
    if (locked && object->Unlock(count))
    {
        locked = false;
    }
    return !locked;
}

// --- MultiLock ---

MultiLock::MultiLock(SyncObject ** objects, unsigned long count, bool lockNow)
    : handles(nullptr), locked(nullptr), count(count), objects(objects)
{
    if (objects == nullptr || count == 0 || count > SyncPlatform::maximumWaitObjects)
    {
        return;
    }
    handles = static_cast<void **>(Alloc::New(static_cast<unsigned int>(count * sizeof(void *))));
    locked = static_cast<unsigned char *>(Alloc::New(static_cast<unsigned int>(count)));
    if (handles == nullptr || locked == nullptr)
    {
        return;
    }
    for (unsigned long i = 0; i < count; ++i)
    {
        handles[i] = objects[i] != nullptr ? static_cast<void *>(*objects[i]) : nullptr;
        locked[i] = 0;
    }
    if (lockNow)
    {
        Lock(INFINITE, false);
    }
}

MultiLock::~MultiLock()
{
    if (handles != nullptr && locked != nullptr)
    {
        Unlock();
    }
    if (handles != nullptr)
    {
        Alloc::Delete(handles);
    }
    if (locked != nullptr)
    {
        Alloc::Delete(locked);
    }
}

MultiLock::Result MultiLock::Lock(unsigned long timeout, bool waitAll)
{
    if (handles == nullptr || locked == nullptr)
    {
        return Failed;
    }
    const uint32_t outcome =
        SyncPlatform::WaitMultiple(static_cast<uint32_t>(count), handles, waitAll, Milliseconds(timeout));
    if (outcome == SyncPlatform::waitTimeout)
    {
        return TimedOut;
    }
    if (outcome - SyncPlatform::waitObject0 < count)
    {
        const uint32_t index = outcome - SyncPlatform::waitObject0;
        for (unsigned long i = 0; i < count; ++i)
        {
            locked[i] = waitAll || i == index ? 1 : locked[i];
        }
        return static_cast<Result>(Signalled + index);
    }
    if (outcome - SyncPlatform::waitAbandoned0 < count)
    {
        return static_cast<Result>(Abandoned + (outcome - SyncPlatform::waitAbandoned0));
    }
    return Failed;
}

bool MultiLock::Unlock()
{
    bool all = true;
    for (unsigned long i = 0; locked != nullptr && i < count; ++i)
    {
        if (locked[i] != 0 && objects[i]->Unlock())
        {
            locked[i] = 0;
        }
        all = all && locked[i] == 0;
    }
    return all;
}

bool MultiLock::Unlock(unsigned long /*count*/)
{
    return false;
}

bool MultiLock::IsLocked(unsigned long index) const
{
    return locked != nullptr && index < count && locked[index] != 0;
}

// --- SWMRGuard ---

SWMRGuard::SWMRGuard()
    : WEvent(true, true, nullptr), mutex(false, nullptr), pair{&mutex, this},
      writerLock(NewObject<MultiLock>(pair, 2ul, false)), readers(0)
{
}

SWMRGuard::~SWMRGuard()
{
    DeleteObject(writerLock);
}

bool SWMRGuard::WaitToWrite(unsigned long timeout)
{
    return writerLock != nullptr && writerLock->Lock(timeout, true) == MultiLock::Signalled;
}

void SWMRGuard::DoneWriting()
{
    mutex.Unlock();
}

bool SWMRGuard::WaitToRead(unsigned long timeout)
{
    if (!mutex.Lock(timeout))
    {
        return false;
    }
    if (readers == 0)
    {
        Reset();
    }
    ++readers;
    mutex.Unlock();
    return true;
}

void SWMRGuard::DoneReading()
{
    mutex.Lock(INFINITE);
    if (readers > 0)
    {
        --readers;
    }
    if (readers == 0)
    {
        Set();
    }
    mutex.Unlock();
}

// --- ReferenceCount ---

ReferenceCount::~ReferenceCount() = default;

void ReferenceCount::AddReference() const
{
    count.Increment();
}

bool ReferenceCount::ReleaseReference() const
{
    if (count.Decrement() != 0)
    {
        return false;
    }
    DeleteThis();
    return true;
}

void ReferenceCount::DeleteThis() const
{
    delete this;
}
} // namespace Kiv
