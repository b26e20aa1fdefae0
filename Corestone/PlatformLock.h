// The raw lock under the allocator and Kiv::CriticalSection. It is plain storage with no
// constructor, so the allocator can keep its locks in static arrays and never allocates for them.
#pragma once

#if defined(_WIN32)
#include <windows.h>
#else
#include <pthread.h>
#include <sched.h>
#endif
#if defined(__linux__)
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
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
#elif defined(__linux__)
    // Win32 critical sections are recursive; so is this one, on every target. Here it is a futex
    // word (0 free, 1 taken, 2 taken with sleepers) with the owner and its depth beside it, so an
    // uncontended pass costs one atomic instruction each way and no call into the C library.
    int state;
    uintptr_t owner;
    unsigned int depth;

    void Init()
    {
        __atomic_store_n(&state, 0, __ATOMIC_RELAXED);
        __atomic_store_n(&owner, 0, __ATOMIC_RELAXED);
        depth = 0;
    }
    void Done() {}
    void Enter()
    {
        const uintptr_t self = CurrentThread();
        if (!EnterAgain(self))
        {
            if (!TakeFree())
            {
                TakeAfterSleeping();
            }
            Own(self);
        }
    }
    bool TryEnter()
    {
        const uintptr_t self = CurrentThread();
        if (EnterAgain(self))
        {
            return true;
        }
        if (!TakeFree())
        {
            return false;
        }
        Own(self);
        return true;
    }
    void Leave()
    {
        if (--depth != 0)
        {
            return;
        }
        __atomic_store_n(&owner, 0, __ATOMIC_RELAXED);
        // Alone in the process nobody can be asleep on the word, so a plain store frees it.
        if (IsSingleThreadedProcess() && __atomic_load_n(&state, __ATOMIC_RELAXED) == 1)
        {
            __atomic_store_n(&state, 0, __ATOMIC_RELAXED);
        }
        else if (__atomic_exchange_n(&state, 0, __ATOMIC_RELEASE) == 2)
        {
            WakeOne();
        }
    }

private:
    // The owner is a number given to each thread on its first lock and never given again, as a
    // Win32 thread id is not reused while a section still names it: a thread that ends holding
    // the section leaves it held, and a later thread that happens to reuse the dead one's stack
    // and thread block blocks instead of entering as the owner. It is an ordinary dynamic
    // thread-local, so the library can also be loaded late, through dlopen.
    static uintptr_t CurrentThread()
    {
        // While the process is alone, the caller is its first thread. Once another thread has
        // started the flag stays off, so no other thread ever takes this shortcut.
        if (IsSingleThreadedProcess())
        {
            return firstThreadNumber;
        }
        const uintptr_t number = threadNumber;
        return number != 0 ? number : NumberThisThread();
    }
    // The first thread (whose id is the process id) keeps the number it used while it was alone.
    __attribute__((noinline)) static uintptr_t NumberThisThread()
    {
        threadNumber = syscall(SYS_gettid) == getpid()
                           ? firstThreadNumber
                           : __atomic_add_fetch(&lastThreadNumber, 1, __ATOMIC_RELAXED);
        return threadNumber;
    }
    static constexpr uintptr_t firstThreadNumber = 1;
    static inline thread_local uintptr_t threadNumber = 0;
    static inline uintptr_t lastThreadNumber = firstThreadNumber;
    // Only this thread ever writes its own identity into owner, so seeing it there means it
    // holds the lock, whatever other threads are storing meanwhile.
    bool EnterAgain(uintptr_t self)
    {
        if (__atomic_load_n(&owner, __ATOMIC_RELAXED) != self)
        {
            return false;
        }
        ++depth;
        return true;
    }
    // Takes a free lock; alone in the process there is nobody to race, so a plain store will do,
    // as glibc does for its own mutexes.
    bool TakeFree()
    {
        if (IsSingleThreadedProcess() && __atomic_load_n(&state, __ATOMIC_RELAXED) == 0)
        {
            __atomic_store_n(&state, 1, __ATOMIC_RELAXED);
            return true;
        }
        int expected = 0;
        return __atomic_compare_exchange_n(&state, &expected, 1, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED);
    }
    void Own(uintptr_t self)
    {
        __atomic_store_n(&owner, self, __ATOMIC_RELAXED);
        depth = 1;
    }
    // The lock was taken: mark it as having sleepers and sleep until it is handed back free.
    // Whoever leaves while the mark is set wakes one sleeper, so no wake-up is lost.
    __attribute__((noinline)) void TakeAfterSleeping()
    {
        while (__atomic_exchange_n(&state, 2, __ATOMIC_ACQUIRE) != 0)
        {
            syscall(SYS_futex, &state, FUTEX_WAIT_PRIVATE, 2, nullptr, nullptr, 0);
        }
    }
    __attribute__((noinline)) void WakeOne()
    {
        syscall(SYS_futex, &state, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
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
// Tells the processor this is a spin-wait loop, which eases the pressure on the other hyperthread.
inline void CpuPause()
{
#if defined(__i386__) || defined(__x86_64__)
    __builtin_ia32_pause();
#endif
}

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
    // Out of line: the waiting loop and its calls stay off the inlined uncontended path.
    __attribute__((noinline)) void WaitUntilFree()
    {
        for (int spins = 0; __atomic_load_n(&taken, __ATOMIC_RELAXED); ++spins)
        {
            if (spins < 100)
                CpuPause();
            else
                sched_yield();
        }
    }
};
#endif
} // namespace Kiv
