// Waitable objects over the system's kernel objects, scoped lockers over them, a
// single-writer/multiple-reader guard and interlocked counters.
//
// Every wait takes a time-out in milliseconds; INFINITE waits without limit and 0 only polls.
// The objects own their kernel object and close it when they die, so they cannot be copied.
// The operations are const: they act on the kernel object, never on the handle itself, which
// lets a const object be locked.
#pragma once

#include "KivApi.h"

#include <cstdint>

namespace Kiv
{
struct PlatformLock;

// Base of every waitable object: holds the kernel object's handle (null for a critical section).
class KIV_API SyncObject
{
public:
    SyncObject(const SyncObject &) = delete;
    SyncObject & operator=(const SyncObject &) = delete;
    virtual ~SyncObject();

    virtual operator void *() const;
    // True when the object was acquired (signalled) within the time-out.
    virtual bool Lock(unsigned long timeout = INFINITE) const;
    virtual bool Unlock(unsigned long count) const;
    virtual bool Unlock() const;

    bool Signal() const { return Unlock(); }
    bool Wait(unsigned long timeout = INFINITE) const { return Lock(timeout); }
    // True when the object cannot be acquired at once; an object that could is released again.
    bool IsLocked() const;

protected:
    explicit SyncObject(void * handle = nullptr);

    void * handle;
};

// A recursive in-process lock. The time-out of Lock is ignored: it always waits.
class KIV_API CriticalSection : public SyncObject
{
public:
    // The name only labels the object where it is declared; it is not kept.
    explicit CriticalSection(const char * name = nullptr);
    ~CriticalSection() override;

    bool Lock(unsigned long timeout = INFINITE) const override;
    using SyncObject::Unlock;
    bool Unlock() const override;

private:
    PlatformLock * section;
};

// A recursive lock owned by one thread. A mutex whose owner ended while holding it is abandoned:
// the next waiter acquires it and is told so.
class KIV_API Mutex : public SyncObject
{
public:
    explicit Mutex(bool initiallyOwned = false, const char * name = nullptr);

    // Both forms release one level of ownership; they fail when the caller does not own it.
    bool Unlock(unsigned long count) const override;
    bool Unlock() const override;
};

// A counter that waits take one from; it never rises past its maximum.
class KIV_API Semaphore : public SyncObject
{
public:
    explicit Semaphore(int initialCount = 1, int maximumCount = 1, const char * name = nullptr);

    // Fails, changing nothing, when the count would pass the maximum.
    bool Unlock(unsigned long count) const override;
    bool Unlock() const override;
};

// An event: auto-reset events let one waiter through and reset; manual-reset ones stay set.
class KIV_API WEvent : public SyncObject
{
public:
    explicit WEvent(bool manualReset = false, bool initiallySignalled = false, const char * name = nullptr);

    bool Set() const;
    // Releases the threads waiting now (one for auto-reset, all for manual reset), leaves it reset.
    bool Pulse() const;
    bool Reset() const;

    using SyncObject::Unlock;
    // Does nothing: an event has no owner to release.
    bool Unlock() const override;
};

// Locks one object for a scope and releases it, if held, when the scope ends.
class KIV_API SingleLock
{
public:
    SingleLock(const SyncObject * object, bool lockNow);
    ~SingleLock();
    SingleLock(const SingleLock &) = delete;
    SingleLock & operator=(const SingleLock &) = delete;

    bool Lock(unsigned long timeout = INFINITE);
    bool Unlock();
    bool Unlock(unsigned long count);
    bool IsLocked() const { return locked; }

private:
    const SyncObject * object;
    bool locked;
};

// Waits on several objects at once, for any one of them or for all together, and releases what
// it holds when it dies.
class KIV_API MultiLock
{
public:
    // Lock's outcome. Signalled and Abandoned are bases: object i reports Signalled + i or
    // Abandoned + i.
    enum Result : uint32_t
    {
        Failed = 0,
        TimedOut = 1,
        Signalled = 0x10000000,
        Abandoned = 0x20000000
    };

    // Without lockNow nothing is waited for; with it, waits for any one object without limit.
    MultiLock(SyncObject ** objects, unsigned long count, bool lockNow);
    ~MultiLock();
    MultiLock(const MultiLock &) = delete;
    MultiLock & operator=(const MultiLock &) = delete;

    Result Lock(unsigned long timeout = INFINITE, bool waitAll = true);
    // Releases every object held; true when all of them were released.
    bool Unlock();
    // Counted release is meaningless over several objects: always false.
    bool Unlock(unsigned long count);
    bool IsLocked(unsigned long index) const;

private:
    void ** handles;
    unsigned char * locked;
    unsigned long count;
    SyncObject ** objects;
};

// One writer or any number of readers. The guard itself is the manual-reset event "no reader
// inside"; a writer holds the mutex and waits for that event at the same time. A steady stream
// of readers can keep a writer waiting.
class KIV_API SWMRGuard : public WEvent
{
public:
    SWMRGuard();
    ~SWMRGuard() override;

    bool WaitToWrite(unsigned long timeout = INFINITE);
    void DoneWriting();
    bool WaitToRead(unsigned long timeout = INFINITE);
    void DoneReading();

private:
    Mutex mutex;
    SyncObject * pair[2];
    MultiLock * writerLock;
    unsigned int readers;
};

// A signed 32-bit value changed only by atomic increments and decrements.
class KIV_API ProtectedLong
{
public:
    ProtectedLong() : value(0) {}
    explicit ProtectedLong(int32_t initial) : value(initial) {}

    // Each returns the new value.
    int32_t Increment();
    int32_t Decrement();
    int32_t GetData() const { return value; }
    void Init() {}
    void Done() {}

private:
    volatile int32_t value;
};

// Intrusive reference count: the object deletes itself through DeleteThis when the last
// reference is released. Const, so that const handles can manage the lifetime.
class KIV_API ReferenceCount
{
public:
    ReferenceCount() = default;
    // A copy is a new object: nobody refers to it yet.
    ReferenceCount(const ReferenceCount &) {}
    ReferenceCount & operator=(const ReferenceCount &) { return *this; }
    virtual ~ReferenceCount();

    void AddReference() const;
    // True when this was the last reference and the object is gone.
    bool ReleaseReference() const;
    int32_t GetReferenceCount() const { return count.GetData(); }

protected:
    virtual void DeleteThis() const;

private:
    mutable ProtectedLong count;
};
} // namespace Kiv
