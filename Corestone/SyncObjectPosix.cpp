// The synchronisation seam without Win32: mutexes, semaphores and events are records inside the
// process, with the kernel's waiting rules.
//
// One process-wide gate guards every record and the queue of waiting threads. A thread that
// cannot acquire what it waits for joins the queue with its own condition variable; whoever
// changes an object's state then hands the object to queued waiters directly, oldest first, and
// wakes them. Handing over under the gate is what makes wait-all atomic and lets a pulse release
// exactly the threads that are waiting at that moment.
//
// Most calls need none of that: a reader entering a guard takes a free mutex, resets an event
// nobody waits on and releases the mutex. Each record therefore has a guard word of its own. A
// call through the gate pins every record it looks at (and a blocked wait keeps its records
// pinned while it sleeps); a call on one record that nobody has pinned may instead latch the
// record, act and unlatch it, without the gate. Pins wait for a latch to go, a latch is refused
// while pins remain, so a record's state changes under exactly one of them at a time, and what
// the gate does to pinned records stays atomic.
#include "AllocObject.h"
#include "PlatformLock.h"
#include "SyncObject.h"
#include "SyncPlatform.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>

namespace Kiv
{
namespace SyncPlatform
{
namespace
{
constexpr uint32_t liveMagic = 0x4B4F424A; // "KOBJ": tells a live record from a stale handle

struct ThreadState;

struct KernelObject
{
    enum Kind
    {
        mutexKind,
        semaphoreKind,
        eventKind
    };

    uint32_t magic = liveMagic;
    Kind kind;
    uint32_t guard = 0;      // latched bit plus pins (see pinUnit)
    uint32_t references = 1; // handles plus waits in progress
    char * name = nullptr;
    KernelObject * nextNamed = nullptr;

    // Mutex: the owning thread, its recursion depth, and the links of the list of all mutexes.
    ThreadState * owner = nullptr;
    uint32_t recursion = 0;
    bool abandoned = false;
    KernelObject * nextMutex = nullptr;
    KernelObject * previousMutex = nullptr;

    // Semaphore.
    int32_t count = 0;
    int32_t maximum = 0;

    // Event.
    bool manualReset = false;
    bool signalled = false;

    explicit KernelObject(Kind kind) : kind(kind) {}
};

// Immediate tries a caller that may wait makes before it sleeps through the gate.
constexpr uint32_t spinAttempts = 200;
constexpr uint32_t latched = 1;
constexpr uint32_t pinUnit = 2;

// What one wait asks for: every object, or any one of them, for this thread.
struct Request
{
    ThreadState * thread;
    KernelObject * const * objects;
    uint32_t count;
    bool waitAll;
};

// A request that could not be met at once and sits in the queue. Only waits that block pay for
// its condition variable.
struct Waiter : Request
{
    bool done = false;
    uint32_t result = waitFailed;
    std::condition_variable wake;
    Waiter * next = nullptr;
    Waiter * previous = nullptr;

    explicit Waiter(const Request & request) : Request(request) {}
};

std::mutex gate;
Waiter * firstWaiter = nullptr;
Waiter * lastWaiter = nullptr;
KernelObject * firstNamed = nullptr;
KernelObject * firstMutex = nullptr;

void Dispatch();

// --- Pins and latches ---

// Under the gate: holds the record still until Unpin. A pin is only added between latches, so
// that a latch, taken on a word of 0, finds the word unchanged when it lets go.
void Pin(KernelObject * object)
{
    uint32_t seen = __atomic_load_n(&object->guard, __ATOMIC_RELAXED);
    for (int spins = 0;
         (seen & latched) != 0 || !__atomic_compare_exchange_n(&object->guard, &seen, seen + pinUnit, false,
                                                               __ATOMIC_ACQUIRE, __ATOMIC_RELAXED);
         ++spins)
    {
        if (spins >= 100)
        {
            std::this_thread::yield();
        }
        seen = __atomic_load_n(&object->guard, __ATOMIC_RELAXED);
    }
}

void Unpin(KernelObject * object)
{
    __atomic_sub_fetch(&object->guard, pinUnit, __ATOMIC_RELEASE);
}

// The gate's hold on one record for the length of a scope.
class PinnedRecord
{
public:
    explicit PinnedRecord(KernelObject * object) : object(object) { Pin(object); }
    ~PinnedRecord() { Unpin(object); }
    PinnedRecord(const PinnedRecord &) = delete;
    PinnedRecord & operator=(const PinnedRecord &) = delete;

private:
    KernelObject * object;
};

// Without the gate: applies act to records that no call through the gate holds, latching all of
// them at once, and returns true; false, having done nothing, when one of them is pinned or
// latched by another call. Latches are only ever tried, never waited for, so they cannot deadlock.
template <typename Act>
bool Latched(KernelObject * const * objects, uint32_t count, Act act)
{
    uint32_t taken = 0;
    for (uint32_t free = 0;
         taken < count && __atomic_compare_exchange_n(&objects[taken]->guard, &free, latched, false,
                                                      __ATOMIC_ACQUIRE, __ATOMIC_RELAXED);
         free = 0)
    {
        ++taken;
    }
    const bool all = taken == count;
    if (all)
    {
        act();
    }
    while (taken > 0)
    {
        __atomic_store_n(&objects[--taken]->guard, 0, __ATOMIC_RELEASE);
    }
    return all;
}

// The thread's identity as a mutex owner. It has no destructor, so finding it is one
// thread-local read with no guard; the first time a thread asks, a second thread-local with a
// destructor is touched, which abandons every mutex the thread still holds when it ends.
struct ThreadState
{
    bool watched = false;
};

// The library may be loaded late (dlopen), when no static TLS is left to give, so these are
// ordinary dynamic thread-locals, each read a call into the loader's lookup.
thread_local ThreadState currentThread;

struct ThreadEnd
{
    ~ThreadEnd()
    {
        std::lock_guard<std::mutex> hold(gate);
        for (KernelObject * mutex = firstMutex; mutex != nullptr; mutex = mutex->nextMutex)
        {
            PinnedRecord pinned(mutex);
            if (mutex->owner == &currentThread)
            {
                mutex->owner = nullptr;
                mutex->recursion = 0;
                mutex->abandoned = true;
            }
        }
        Dispatch();
    }
};

thread_local ThreadEnd threadEnd;

__attribute__((noinline)) void WatchThreadEnd(ThreadState * thread)
{
    thread->watched = true;
    static_cast<void>(&threadEnd);
}

ThreadState * CurrentThreadState()
{
    ThreadState * thread = &currentThread;
    if (!thread->watched)
    {
        WatchThreadEnd(thread);
    }
    return thread;
}

// --- The list of all mutexes, which a thread that ends searches for what it still holds ---

void AddMutex(KernelObject * object)
{
    object->nextMutex = firstMutex;
    if (firstMutex != nullptr)
    {
        firstMutex->previousMutex = object;
    }
    firstMutex = object;
}

void RemoveMutex(KernelObject * object)
{
    (object->previousMutex != nullptr ? object->previousMutex->nextMutex : firstMutex) = object->nextMutex;
    if (object->nextMutex != nullptr)
    {
        object->nextMutex->previousMutex = object->previousMutex;
    }
}

// --- Acquiring ---

bool IsAvailable(const KernelObject * object, const ThreadState * thread)
{
    switch (object->kind)
    {
    case KernelObject::mutexKind:
        return object->owner == nullptr || object->owner == thread;
    case KernelObject::semaphoreKind:
        return object->count > 0;
    case KernelObject::eventKind:
        return object->signalled;
    }
    return false;
}

// Takes an available object; true when it was a mutex left abandoned by its previous owner.
bool Take(KernelObject * object, ThreadState * thread)
{
    switch (object->kind)
    {
    case KernelObject::mutexKind:
        object->owner = thread;
        ++object->recursion;
        if (object->abandoned)
        {
            object->abandoned = false;
            return true;
        }
        return false;
    case KernelObject::semaphoreKind:
        --object->count;
        return false;
    case KernelObject::eventKind:
        object->signalled = object->manualReset;
        return false;
    }
    return false;
}

// Acquires what the wait asks for if it can be had now; returns its result or waitTimeout.
uint32_t TryAcquire(const Request & wait)
{
    if (!wait.waitAll)
    {
        for (uint32_t i = 0; i < wait.count; ++i)
        {
            if (IsAvailable(wait.objects[i], wait.thread))
            {
                return (Take(wait.objects[i], wait.thread) ? waitAbandoned0 : waitObject0) + i;
            }
        }
        return waitTimeout;
    }
    for (uint32_t i = 0; i < wait.count; ++i)
    {
        if (!IsAvailable(wait.objects[i], wait.thread))
        {
            return waitTimeout;
        }
    }
    uint32_t result = waitObject0;
    for (uint32_t i = 0; i < wait.count; ++i)
    {
        if (Take(wait.objects[i], wait.thread) && result == waitObject0)
        {
            result = waitAbandoned0 + i;
        }
    }
    return result;
}

// --- The queue of waiting threads ---

void Enqueue(Waiter * wait)
{
    wait->previous = lastWaiter;
    (lastWaiter != nullptr ? lastWaiter->next : firstWaiter) = wait;
    lastWaiter = wait;
}

void Dequeue(Waiter * wait)
{
    (wait->previous != nullptr ? wait->previous->next : firstWaiter) = wait->next;
    (wait->next != nullptr ? wait->next->previous : lastWaiter) = wait->previous;
    wait->next = wait->previous = nullptr;
}

// Hands objects to queued waiters, oldest first; called under the gate after every change that
// can make an object available. Taking never makes anything available, so one pass is enough.
void Dispatch()
{
    for (Waiter * wait = firstWaiter; wait != nullptr;)
    {
        Waiter * next = wait->next;
        const uint32_t result = TryAcquire(*wait);
        if (result != waitTimeout)
        {
            wait->result = result;
            wait->done = true;
            Dequeue(wait);
            wait->wake.notify_one();
        }
        wait = next;
    }
}

// --- Records ---

bool IsLive(void * handle)
{
    return handle != nullptr && static_cast<KernelObject *>(handle)->magic == liveMagic;
}

KernelObject * Record(void * handle, KernelObject::Kind kind)
{
    return IsLive(handle) && static_cast<KernelObject *>(handle)->kind == kind
               ? static_cast<KernelObject *>(handle)
               : nullptr;
}

void Release(KernelObject * object)
{
    if (--object->references != 0)
    {
        return;
    }
    if (object->kind == KernelObject::mutexKind)
    {
        RemoveMutex(object);
    }
    for (KernelObject ** link = &firstNamed; *link != nullptr; link = &(*link)->nextNamed)
    {
        if (*link == object)
        {
            *link = object->nextNamed;
            break;
        }
    }
    if (object->name != nullptr)
    {
        Alloc::Delete(object->name);
    }
    object->magic = 0;
    DeleteObject(object);
}

KernelObject * FindNamed(const char * name)
{
    for (KernelObject * object = firstNamed; object != nullptr; object = object->nextNamed)
    {
        if (std::strcmp(object->name, name) == 0)
        {
            return object;
        }
    }
    return nullptr;
}

bool Register(KernelObject * object, const char * name)
{
    const size_t length = std::strlen(name) + 1;
    object->name = static_cast<char *>(Alloc::New(static_cast<unsigned int>(length)));
    if (object->name == nullptr)
    {
        return false;
    }
    std::memcpy(object->name, name, length);
    object->nextNamed = firstNamed;
    firstNamed = object;
    return true;
}

// A new record, or the existing one of that name (then the creation arguments do not apply and
// *existing is set). Null when the name belongs to another kind of object or memory is out.
KernelObject * Create(KernelObject::Kind kind, const char * name, bool * existing)
{
    *existing = false;
    if (name != nullptr)
    {
        KernelObject * named = FindNamed(name);
        if (named != nullptr)
        {
            *existing = true;
            named->references += named->kind == kind ? 1 : 0;
            return named->kind == kind ? named : nullptr;
        }
    }
    KernelObject * object = NewObject<KernelObject>(kind);
    if (object != nullptr && kind == KernelObject::mutexKind)
    {
        AddMutex(object);
    }
    if (object != nullptr && name != nullptr && !Register(object, name))
    {
        Release(object);
        return nullptr;
    }
    return object;
}

// Checks the handles of a wait; wait-all may not name an object twice.
bool ValidWait(uint32_t count, void * const * handles, bool waitAll)
{
    if (count == 0 || count > maximumWaitObjects || handles == nullptr)
    {
        return false;
    }
    for (uint32_t i = 0; i < count; ++i)
    {
        if (!IsLive(handles[i]))
        {
            return false;
        }
        for (uint32_t j = 0; waitAll && j < i; ++j)
        {
            if (handles[j] == handles[i])
            {
                return false;
            }
        }
    }
    return true;
}

uint32_t Block(std::unique_lock<std::mutex> & hold, const Request & request, uint32_t milliseconds)
{
    Waiter wait(request);
    Enqueue(&wait);
    if (milliseconds == infinite)
    {
        wait.wake.wait(hold, [&wait] { return wait.done; });
    }
    else
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        if (!wait.wake.wait_until(hold, deadline, [&wait] { return wait.done; }))
        {
            Dequeue(&wait);
            wait.result = waitTimeout;
        }
    }
    return wait.result;
}

// Waits through the gate. The records stay pinned, and alive, while the thread sleeps.
uint32_t WaitGated(const Request & request, uint32_t milliseconds)
{
    std::unique_lock<std::mutex> hold(gate);
    for (uint32_t i = 0; i < request.count; ++i)
    {
        ++request.objects[i]->references;
        Pin(request.objects[i]);
    }
    uint32_t result = TryAcquire(request);
    if (result == waitTimeout && milliseconds != 0)
    {
        result = Block(hold, request, milliseconds);
    }
    for (uint32_t i = 0; i < request.count; ++i)
    {
        Unpin(request.objects[i]);
        Release(request.objects[i]);
    }
    return result;
}

// Changes one record through the gate, then hands out whatever the change made available.
template <typename Change>
bool ChangeGated(KernelObject * object, Change change)
{
    std::lock_guard<std::mutex> hold(gate);
    PinnedRecord pinned(object);
    const bool changed = change(object);
    Dispatch();
    return changed;
}

// Changes the record of a handle of the given kind: latched when nobody waits on it (so there is
// nobody to hand anything to), else through the gate. False for a handle of another kind or
// when change refuses.
template <typename Change>
bool ChangeRecord(void * handle, KernelObject::Kind kind, Change change)
{
    KernelObject * object = Record(handle, kind);
    if (object == nullptr)
    {
        return false;
    }
    bool changed = false;
    return Latched(&object, 1, [&] { changed = change(object); }) ? changed : ChangeGated(object, change);
}

// A new object set up by init, or the existing object of that name as it stands.
template <typename Init>
void * CreateOrOpen(KernelObject::Kind kind, const char * name, Init init)
{
    std::lock_guard<std::mutex> hold(gate);
    bool existing = false;
    KernelObject * object = Create(kind, name, &existing);
    if (object != nullptr && !existing)
    {
        init(object);
    }
    return object;
}
} // namespace

void * CreateMutexObject(bool initiallyOwned, const char * name)
{
    ThreadState * thread = CurrentThreadState();
    return CreateOrOpen(KernelObject::mutexKind, name,
                        [=](KernelObject * mutex)
                        {
                            if (initiallyOwned)
                            {
                                Take(mutex, thread);
                            }
                        });
}

void * CreateSemaphoreObject(int32_t initialCount, int32_t maximumCount, const char * name)
{
    if (maximumCount <= 0 || initialCount < 0 || initialCount > maximumCount)
    {
        return nullptr;
    }
    return CreateOrOpen(KernelObject::semaphoreKind, name,
                        [=](KernelObject * semaphore)
                        {
                            semaphore->count = initialCount;
                            semaphore->maximum = maximumCount;
                        });
}

void * CreateEventObject(bool manualReset, bool initiallySignalled, const char * name)
{
    return CreateOrOpen(KernelObject::eventKind, name,
                        [=](KernelObject * event)
                        {
                            event->manualReset = manualReset;
                            event->signalled = initiallySignalled;
                        });
}

bool CloseObject(void * handle)
{
    std::lock_guard<std::mutex> hold(gate);
    if (!IsLive(handle))
    {
        return false;
    }
    Release(static_cast<KernelObject *>(handle));
    return true;
}

uint32_t WaitMultiple(uint32_t count, void * const * handles, bool waitAll, uint32_t milliseconds)
{
    ThreadState * thread = CurrentThreadState();
    if (!ValidWait(count, handles, waitAll))
    {
        return waitFailed;
    }
    KernelObject * objects[maximumWaitObjects];
    for (uint32_t i = 0; i < count; ++i)
    {
        objects[i] = static_cast<KernelObject *>(handles[i]);
    }
    const Request request{thread, objects, count, waitAll};
    // Records that nobody waits on are settled at once under their latches, unless the caller
    // must wait for them. Objects are mostly held for a few instructions (a reader entering the
    // single-writer guard holds its mutex for a counter update), so a caller that may wait first
    // retries for a moment: a sleep and a wake-up through the gate cost far more.
    const uint32_t attempts = milliseconds == 0 ? 1 : spinAttempts;
    for (uint32_t attempt = 0; attempt < attempts; ++attempt)
    {
        uint32_t result = waitTimeout;
        if (Latched(objects, count, [&] { result = TryAcquire(request); }) &&
            (result != waitTimeout || milliseconds == 0))
        {
            return result;
        }
        CpuPause();
    }
    return WaitGated(request, milliseconds);
}

bool ReleaseMutexObject(void * handle)
{
    ThreadState * thread = CurrentThreadState();
    return ChangeRecord(handle, KernelObject::mutexKind,
                        [thread](KernelObject * mutex)
                        {
                            if (mutex->owner != thread)
                            {
                                return false;
                            }
                            if (--mutex->recursion == 0)
                            {
                                mutex->owner = nullptr;
                            }
                            return true;
                        });
}

bool ReleaseSemaphoreObject(void * handle, int32_t count)
{
    return ChangeRecord(handle, KernelObject::semaphoreKind,
                        [count](KernelObject * semaphore)
                        {
                            if (count <= 0 || count > semaphore->maximum - semaphore->count)
                            {
                                return false;
                            }
                            semaphore->count += count;
                            return true;
                        });
}

bool SetEventObject(void * handle)
{
    return ChangeRecord(handle, KernelObject::eventKind,
                        [](KernelObject * event)
                        {
                            event->signalled = true;
                            return true;
                        });
}

bool PulseEventObject(void * handle)
{
    KernelObject * event = Record(handle, KernelObject::eventKind);
    if (event == nullptr)
    {
        return false;
    }
    // A latched event has no waiters, so the pulse releases nobody and only leaves it reset.
    if (Latched(&event, 1, [event] { event->signalled = false; }))
    {
        return true;
    }
    return ChangeGated(event,
                       [](KernelObject * pulsed)
                       {
                           pulsed->signalled = true;
                           Dispatch();
                           pulsed->signalled = false;
                           return true;
                       });
}

bool ResetEventObject(void * handle)
{
    return ChangeRecord(handle, KernelObject::eventKind,
                        [](KernelObject * event)
                        {
                            event->signalled = false;
                            return true;
                        });
}
} // namespace SyncPlatform

int32_t ProtectedLong::Increment()
{
    return __atomic_add_fetch(&value, 1, __ATOMIC_SEQ_CST);
}

int32_t ProtectedLong::Decrement()
{
    return __atomic_sub_fetch(&value, 1, __ATOMIC_SEQ_CST);
}
} // namespace Kiv
