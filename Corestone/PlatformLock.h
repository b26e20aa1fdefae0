// The raw lock under the allocator and Kiv::CriticalSection. It is plain storage with no
// constructor, so the allocator can keep its locks in static arrays and never allocates for them.
#pragma once

#if defined(_WIN32)
#include <windows.h>
#else
#include <pthread.h>
#endif

namespace Kiv
{
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
} // namespace Kiv
