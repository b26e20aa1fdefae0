// The raw lock under the allocator and Kiv::CriticalSection. It is plain storage with no
// constructor, so the allocator can keep its locks in static arrays and never allocates for them.
#pragma once

#if defined(_WIN32)
#include <windows.h>
#else
#include <pthread.h>
#include <sched.h>
#endif
#if defined(__GLIBC__)
#include <sys/single_threaded.h>
#endif

namespace Kiv
{
// True while the process has a single thread, so a short section cannot race and may skip its lock,
// as glibc's own allocator does. Only this very thread can turn it false, by starting another
// thread, so a section that sampled it at entry can trust the same answer at exit.
inline bool IsSingleThreadedProcess()
{
#if defined(__GLIBC__)
    return __libc_single_threaded;
#else
    return false;
#endif
}

struct PlatformLock
{
#if defined(_WIN32)
    CRITICAL_SECTION section;

    void Init()
    {
        InitializeCriticalSection(&section);
    }
    void Done()
    {
        DeleteCriticalSection(&section);
    }
    void Enter()
    {
        EnterCriticalSection(&section);
    }
    bool TryEnter()
    {
        return TryEnterCriticalSection(&section) != 0;
    }
    void Leave()
    {
        LeaveCriticalSection(&section);
    }
#else
    pthread_mutex_t mutex;

    // Win32 critical sections are recursive; so is this one, on every target.
    void Init()
    {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    void Done()
    {
        pthread_mutex_destroy(&mutex);
    }
    void Enter()
    {
        pthread_mutex_lock(&mutex);
    }
    bool TryEnter()
    {
        return pthread_mutex_trylock(&mutex) == 0;
    }
    void Leave()
    {
        pthread_mutex_unlock(&mutex);
    }
#endif
};

#if defined(_WIN32)
using PlatformAllocatorLock = PlatformLock;
#else
// The allocator's lock: its sections are a handful of instructions and never nest, so a spin lock
// that is released with a plain store costs one atomic instruction per section where a mutex costs
// two. A waiter that keeps finding it taken yields, in case the holder was preempted.
struct PlatformAllocatorLock
{
    int taken;

    void Init() { __atomic_store_n(&taken, 0, __ATOMIC_RELAXED); }
    void Done() {}
    void Enter()
    {
        while (__atomic_exchange_n(&taken, 1, __ATOMIC_ACQUIRE))
            WaitUntilFree();
    }
    void Leave() { __atomic_store_n(&taken, 0, __ATOMIC_RELEASE); }

private:
    void WaitUntilFree()
    {
        for (int spins = 0; __atomic_load_n(&taken, __ATOMIC_RELAXED); ++spins)
        {
            if (spins < 100)
                Pause();
            else
                sched_yield();
        }
    }
    static void Pause()
    {
#if defined(__i386__) || defined(__x86_64__)
        __builtin_ia32_pause();
#endif
    }
};
#endif
} // namespace Kiv
