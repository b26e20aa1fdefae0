// A module that uses the library's per-thread state (lock owners, mutex owners) on two threads;
// LateLoader loads it, and with it the library, through dlopen.
#include "Alloc.h"
#include "SyncObject.h"

#include <thread>

extern "C" __attribute__((visibility("default"))) int ExerciseCorestone()
{
    int failures = 0;
    Kiv::CriticalSection section;
    Kiv::Mutex mutex(true);
    section.Lock();
    section.Lock();
    std::thread other(
        [&]
        {
            failures += mutex.IsLocked() ? 0 : 1;
            failures += mutex.Unlock() ? 1 : 0;
            void * block = Kiv::Alloc::New(100);
            Kiv::Alloc::Delete(block);
            section.Lock();
            section.Unlock();
        });
    section.Unlock();
    section.Unlock();
    other.join();
    failures += mutex.Unlock() ? 0 : 1;
    failures += mutex.IsLocked() ? 1 : 0;
    return failures;
}
