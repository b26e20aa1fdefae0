// The synchronisation objects under real threads. Waits that must end use long time-outs; only
// "has not happened yet" is checked after a short pause.
#include "SyncObject.h"

#include <gtest/gtest.h>

#if defined(__linux__)
#include <dlfcn.h>
#include <link.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <atomic>
#include <chrono>
#include <climits>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace
{
using Kiv::MultiLock;

constexpr unsigned long mustHappen = 20000;

void Pause(int milliseconds = 100)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

bool Eventually(const std::function<bool()> & condition)
{
    for (int i = 0; i < 2000 && !condition(); ++i)
    {
        Pause(5);
    }
    return condition();
}

// Runs body on another thread and waits for it: the answer of an object to a stranger.
template <typename Body>
auto OnOtherThread(Body body) -> decltype(body())
{
    decltype(body()) result{};
    std::thread([&] { result = body(); }).join();
    return result;
}

// Threads that each wait once on an object and count themselves out.
class Waiters
{
public:
    Waiters(const Kiv::SyncObject & object, int count)
    {
        for (int i = 0; i < count; ++i)
        {
            threads.emplace_back(
                [this, &object]
                {
                    ++ready;
                    if (object.Lock(mustHappen))
                    {
                        ++released;
                    }
                });
        }
        EXPECT_TRUE(Eventually([this, count] { return ready == count; }));
        Pause(300); // let every thread get into its wait
    }
    ~Waiters()
    {
        for (std::thread & thread : threads)
        {
            thread.join();
        }
    }
    Waiters(const Waiters &) = delete;
    Waiters & operator=(const Waiters &) = delete;

    std::atomic<int> ready{0};
    std::atomic<int> released{0};

private:
    std::vector<std::thread> threads;
};

// Of three threads waiting on an auto-reset event exactly one got through and reset it; the
// other two are then let go so that the threads end.
void ExpectOnlyOneReleased(const Kiv::WEvent & event, Waiters & waiters)
{
    EXPECT_TRUE(Eventually([&] { return waiters.released == 1; }));
    Pause();
    EXPECT_EQ(waiters.released, 1);
    EXPECT_FALSE(event.Lock(0)) << "the released waiter reset it";
    event.Set();
    EXPECT_TRUE(Eventually([&] { return waiters.released == 2; }));
    event.Set();
}

std::string UniqueName(const char * base)
{
    return std::string(base) + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
}
} // namespace

TEST(SyncObject, CriticalSectionIsRecursiveAndIgnoresTheTimeOut)
{
    Kiv::CriticalSection section("TestLock");
    EXPECT_EQ(static_cast<void *>(section), nullptr);
    EXPECT_FALSE(section.Unlock(1));

    EXPECT_TRUE(section.Lock());
    EXPECT_TRUE(section.Lock(0));
    std::atomic<bool> entered{false};
    std::thread other(
        [&]
        {
            section.Lock(0); // blocks although the time-out is 0
            entered = true;
            section.Unlock();
        });
    Pause();
    EXPECT_FALSE(entered);
    EXPECT_TRUE(section.Unlock());
    Pause();
    EXPECT_FALSE(entered) << "still held once";
    EXPECT_TRUE(section.Unlock());
    other.join();
    EXPECT_TRUE(entered);
}

// Threads that keep entering, some of them twice over, with the section passing between them
// all the time: a lost wake-up would hang here, a broken exclusion would lose counts.
TEST(SyncObject, CriticalSectionExcludesUnderContention)
{
    Kiv::CriticalSection section;
    long total = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                for (int i = 0; i < 50000; ++i)
                {
                    Kiv::SingleLock hold(&section, true);
                    const long seen = total;
                    if ((i + t) % 3 == 0)
                    {
                        Kiv::SingleLock again(&section, true);
                        std::this_thread::yield();
                    }
                    total = seen + 1;
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(total, 200000);
    EXPECT_FALSE(OnOtherThread([&] { return section.IsLocked(); })) << "free once everyone has left";
}

// A thread that ends inside a section leaves it held, as on Win32. Threads started later (which
// often get the dead thread's stack and thread block back) must wait like any other; a release by
// another thread, as LeaveCriticalSection allows, lets them in.
TEST(SyncObject, CriticalSectionLeftByAnEndedThreadStaysHeld)
{
    Kiv::CriticalSection section;
    for (int round = 0; round < 3; ++round)
    {
        std::thread([&] { section.Lock(); }).join();
        Kiv::WEvent entered(true, false);
        std::thread late(
            [&]
            {
                section.Lock();
                entered.Set();
                section.Unlock();
            });
        EXPECT_FALSE(entered.Lock(200)) << "round " << round << ": entered a section held by an ended thread";
        EXPECT_TRUE(section.Unlock());
        EXPECT_TRUE(entered.Lock(mustHappen));
        late.join();
    }
    EXPECT_FALSE(OnOtherThread([&] { return section.IsLocked(); }));
}

TEST(SyncObject, MutexOwnershipRecursionAndRelease)
{
    Kiv::Mutex mutex;
    EXPECT_NE(static_cast<void *>(mutex), nullptr);
    EXPECT_FALSE(mutex.IsLocked());
    EXPECT_TRUE(OnOtherThread([&] { return mutex.Lock(0) && mutex.Unlock(); })) << "IsLocked left it unowned";
    EXPECT_FALSE(mutex.Unlock()) << "nobody owns it";

    EXPECT_TRUE(mutex.Lock());
    EXPECT_TRUE(mutex.Wait(0));
    EXPECT_FALSE(mutex.IsLocked()) << "the owner may always take it again";
    EXPECT_TRUE(OnOtherThread([&] { return mutex.IsLocked(); }));
    EXPECT_FALSE(OnOtherThread([&] { return mutex.Unlock(); })) << "a stranger cannot release it";
    EXPECT_TRUE(mutex.Unlock(7)) << "the counted form releases one level";
    EXPECT_FALSE(OnOtherThread([&] { return mutex.Lock(0); }));
    EXPECT_TRUE(mutex.Signal());
    EXPECT_TRUE(OnOtherThread([&] { return mutex.Lock(0) && mutex.Unlock(); }));
    EXPECT_FALSE(mutex.Unlock());

    Kiv::Mutex owned(true);
    EXPECT_TRUE(OnOtherThread([&] { return owned.IsLocked(); }));
    EXPECT_TRUE(owned.Unlock());
}

// A mutex taken both alone, some of it recursively, and in a wait-all with an event, by threads
// that keep handing it over: the quick path of a lone wait and the queued path must never both
// let a thread in, and no release may go unnoticed by a sleeper.
TEST(SyncObject, MutexExcludesAloneAndInWaitAll)
{
    Kiv::Mutex mutex;
    Kiv::WEvent open(true, true);
    Kiv::SyncObject * pair[] = {&mutex, &open};
    long total = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                MultiLock both(pair, 2, false);
                for (int i = 0; i < 5000; ++i)
                {
                    const bool alone = t % 2 == 0;
                    ASSERT_TRUE(alone ? mutex.Lock(mustHappen) && mutex.Lock(0)
                                      : both.Lock(mustHappen, true) == MultiLock::Signalled);
                    const long seen = total;
                    std::this_thread::yield();
                    total = seen + 1;
                    ASSERT_TRUE(alone ? mutex.Unlock() && mutex.Unlock() : both.Unlock());
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(total, 20000);
    EXPECT_FALSE(OnOtherThread([&] { return mutex.IsLocked(); }));
}

TEST(SyncObject, NamedMutexesShareOneObject)
{
    const std::string name = UniqueName("CorestoneTestMutex");
    Kiv::Mutex first(false, name.c_str());
    Kiv::Mutex second(true, name.c_str()); // already exists: not taken
    EXPECT_TRUE(first.Lock(0));
    EXPECT_TRUE(OnOtherThread([&] { return second.IsLocked(); }));
    EXPECT_TRUE(second.Unlock()) << "the same object, owned by this thread";
    EXPECT_FALSE(OnOtherThread([&] { return first.IsLocked(); }));
}

TEST(SyncObject, AbandonedMutexGoesToTheNextWaiter)
{
    Kiv::Mutex mutex;
    Kiv::WEvent never(true, false);
    std::thread([&] { EXPECT_TRUE(mutex.Lock()); }).join();

    Kiv::SyncObject * objects[] = {&never, &mutex};
    MultiLock lock(objects, 2, false);
    EXPECT_EQ(lock.Lock(mustHappen, false), 0x20000001u);
    EXPECT_FALSE(lock.IsLocked(1)) << "an abandoned acquisition is not flagged";
    EXPECT_FALSE(OnOtherThread([&] { return mutex.Lock(0); })) << "but this thread owns it now";
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_TRUE(mutex.Lock(0)) << "abandonment is reported once";
    EXPECT_TRUE(mutex.Unlock());
}

TEST(SyncObject, SemaphoreCountsUpToItsMaximum)
{
    Kiv::Semaphore semaphore(0, 5);
    EXPECT_TRUE(semaphore.IsLocked());
    EXPECT_TRUE(semaphore.Unlock(3));
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_TRUE(semaphore.Lock(0)) << i;
    }
    EXPECT_FALSE(semaphore.Lock(0));

    EXPECT_FALSE(semaphore.Unlock(6)) << "past the maximum";
    EXPECT_FALSE(semaphore.Unlock(0ul));
    EXPECT_TRUE(semaphore.Unlock(5));
    EXPECT_FALSE(semaphore.Unlock()) << "full";
    EXPECT_FALSE(semaphore.IsLocked()) << "IsLocked gives back what it took";
    EXPECT_FALSE(semaphore.Unlock());

    Kiv::Semaphore invalid(3, 2);
    EXPECT_EQ(static_cast<void *>(invalid), nullptr);
    EXPECT_FALSE(invalid.Lock(0));
    EXPECT_FALSE(invalid.Unlock());

    Kiv::Semaphore empty(0, 10);
    Waiters waiters(empty, 3);
    EXPECT_EQ(waiters.released, 0);
    EXPECT_TRUE(empty.Unlock(2));
    EXPECT_TRUE(Eventually([&] { return waiters.released == 2; }));
    Pause();
    EXPECT_EQ(waiters.released, 2);
    EXPECT_TRUE(empty.Unlock());
}

TEST(SyncObject, AutoAndManualResetEvents)
{
    Kiv::WEvent automatic(false, false);
    EXPECT_TRUE(automatic.Unlock());
    EXPECT_FALSE(automatic.Lock(0)) << "Unlock does not set an event";
    EXPECT_FALSE(automatic.Unlock(2));
    EXPECT_TRUE(automatic.Set());
    EXPECT_TRUE(automatic.Lock(0));
    EXPECT_FALSE(automatic.Lock(0)) << "one waiter resets it";

    Kiv::WEvent manual(true, true);
    EXPECT_TRUE(manual.Lock(0));
    EXPECT_TRUE(manual.Lock(0));
    EXPECT_TRUE(manual.Reset());
    EXPECT_FALSE(manual.Lock(20));

    {
        Waiters waiters(automatic, 3);
        EXPECT_TRUE(automatic.Set());
        ExpectOnlyOneReleased(automatic, waiters);
    }
    Waiters waiters(manual, 3);
    EXPECT_TRUE(manual.Set());
    EXPECT_TRUE(Eventually([&] { return waiters.released == 3; }));
    EXPECT_TRUE(manual.Lock(0));
}

TEST(SyncObject, PulseReleasesOnlyTheCurrentWaiters)
{
    Kiv::WEvent automatic(false, false);
    Kiv::WEvent manual(true, false);
    EXPECT_TRUE(manual.Pulse());
    EXPECT_FALSE(manual.Lock(0)) << "nobody waited: nothing remains";

    {
        Waiters waiters(manual, 3);
        EXPECT_TRUE(manual.Pulse());
        EXPECT_TRUE(Eventually([&] { return waiters.released == 3; }));
        EXPECT_FALSE(manual.Lock(0));
    }
    Waiters waiters(automatic, 3);
    EXPECT_TRUE(automatic.Pulse());
    ExpectOnlyOneReleased(automatic, waiters);
}

TEST(SyncObject, MultiLockWaitsForAnyOrAll)
{
    Kiv::WEvent first(false, false);
    Kiv::WEvent second(false, false);
    Kiv::SyncObject * events[] = {&first, &second};
    MultiLock lock(events, 2, false);

    second.Set();
    EXPECT_EQ(lock.Lock(mustHappen, false), 0x10000001u);
    EXPECT_FALSE(lock.IsLocked(0));
    EXPECT_TRUE(lock.IsLocked(1));
    EXPECT_FALSE(lock.IsLocked(2));
    EXPECT_EQ(lock.Lock(0, false), MultiLock::TimedOut);
    EXPECT_EQ(lock.Lock(30, true), MultiLock::TimedOut);

    first.Set();
    EXPECT_EQ(lock.Lock(30, true), MultiLock::TimedOut);
    EXPECT_TRUE(first.Lock(0)) << "a wait-all that failed took nothing";
    first.Set();
    second.Set();
    EXPECT_EQ(lock.Lock(0, true), MultiLock::Signalled);
    EXPECT_TRUE(lock.IsLocked(0) && lock.IsLocked(1));
    EXPECT_FALSE(first.Lock(0) || second.Lock(0)) << "both were taken";
    EXPECT_TRUE(lock.Unlock());
    EXPECT_FALSE(lock.IsLocked(0) || lock.IsLocked(1));
    EXPECT_FALSE(lock.Unlock(1));

    Kiv::SyncObject * none[] = {&first, nullptr};
    EXPECT_EQ(MultiLock(none, 2, false).Lock(0, false), MultiLock::Failed);
    EXPECT_EQ(MultiLock(events, 0, false).Lock(0, false), MultiLock::Failed);
}

TEST(SyncObject, WaitAllTakesEverythingAtOnce)
{
    Kiv::WEvent event(false, false);
    Kiv::Semaphore semaphore(0, 1);
    Kiv::Mutex mutex;
    Kiv::SyncObject * objects[] = {&event, &semaphore, &mutex};
    std::atomic<unsigned> result{0};
    std::thread waiter(
        [&]
        {
            MultiLock lock(objects, 3, false);
            result = lock.Lock(mustHappen, true);
            EXPECT_TRUE(lock.IsLocked(2));
            EXPECT_TRUE(lock.Unlock()) << "gives back the semaphore and the mutex; an event needs nothing";
        });
    Pause();
    event.Set();
    Pause();
    EXPECT_EQ(result, 0u);
    EXPECT_TRUE(event.Lock(0)) << "the waiter left the event alone";
    event.Set();
    EXPECT_TRUE(mutex.Lock(0));
    EXPECT_TRUE(semaphore.Unlock());
    Pause();
    EXPECT_EQ(result, 0u) << "the mutex is still held";
    EXPECT_TRUE(mutex.Unlock());
    waiter.join();
    EXPECT_EQ(result, 0x10000000u);
    EXPECT_FALSE(event.Lock(0));
    EXPECT_TRUE(mutex.Lock(0) && mutex.Unlock());
    EXPECT_TRUE(semaphore.Lock(0));
}

TEST(SyncObject, LockersReleaseWhatTheyHold)
{
    Kiv::Mutex mutex;
    Kiv::Semaphore semaphore(1, 3);
    {
        Kiv::SingleLock hold(&mutex, true);
        EXPECT_TRUE(hold.IsLocked());
        EXPECT_TRUE(OnOtherThread([&] { return mutex.IsLocked(); }));
    }
    EXPECT_FALSE(OnOtherThread([&] { return mutex.IsLocked(); }));
    {
        Kiv::SingleLock hold(&semaphore, false);
        EXPECT_FALSE(hold.IsLocked());
        EXPECT_TRUE(hold.Unlock()) << "nothing to release";
        EXPECT_TRUE(hold.Lock(0));
        EXPECT_FALSE(Kiv::SingleLock(&semaphore, false).Lock(0));
        EXPECT_TRUE(hold.Unlock(2));
        EXPECT_FALSE(hold.IsLocked());
    }
    EXPECT_TRUE(semaphore.Lock(0) && semaphore.Lock(0));
    EXPECT_FALSE(semaphore.Lock(0));
    EXPECT_FALSE(Kiv::SingleLock(nullptr, true).IsLocked());

    semaphore.Unlock();
    Kiv::SyncObject * objects[] = {&mutex, &semaphore};
    {
        MultiLock hold(objects, 2, true);
        EXPECT_TRUE(hold.IsLocked(0));
        EXPECT_FALSE(hold.IsLocked(1)) << "lockNow waits for any one";
        EXPECT_TRUE(OnOtherThread([&] { return mutex.IsLocked(); }));
    }
    EXPECT_FALSE(OnOtherThread([&] { return mutex.IsLocked(); }));
}

TEST(SyncObject, ReadersShareAndWritersWaitForThem)
{
    Kiv::SWMRGuard guard;
    EXPECT_TRUE(guard.WaitToRead(0));
    EXPECT_TRUE(guard.WaitToRead(0));
    EXPECT_FALSE(guard.WaitToWrite(0));
    guard.DoneReading();
    EXPECT_FALSE(OnOtherThread([&] { return guard.WaitToWrite(20); }));
    guard.DoneReading();
    guard.DoneReading(); // one too many is ignored
    EXPECT_TRUE(guard.WaitToWrite(0));
    EXPECT_FALSE(OnOtherThread([&] { return guard.WaitToRead(20); }));
    EXPECT_FALSE(OnOtherThread([&] { return guard.WaitToWrite(0); }));
    guard.DoneWriting();
    EXPECT_TRUE(OnOtherThread(
        [&]
        {
            const bool read = guard.WaitToRead(0);
            guard.DoneReading();
            return read;
        }));
}

TEST(SyncObject, WriterNeverOverlapsReaders)
{
    Kiv::SWMRGuard guard;
    std::atomic<int> readers{0};
    std::atomic<int> writers{0};
    std::atomic<int> overlaps{0};
    std::atomic<int> writes{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
    {
        threads.emplace_back(
            [&]
            {
                for (int i = 0; i < 600; ++i)
                {
                    ASSERT_TRUE(guard.WaitToRead(mustHappen));
                    ++readers;
                    overlaps += writers != 0 ? 1 : 0;
                    std::this_thread::yield();
                    --readers;
                    guard.DoneReading();
                }
            });
    }
    for (int t = 0; t < 2; ++t)
    {
        threads.emplace_back(
            [&]
            {
                for (int i = 0; i < 200; ++i)
                {
                    ASSERT_TRUE(guard.WaitToWrite(mustHappen));
                    overlaps += ++writers != 1 || readers != 0 ? 1 : 0;
                    std::this_thread::yield();
                    --writers;
                    ++writes;
                    guard.DoneWriting();
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(overlaps, 0);
    EXPECT_EQ(writes, 400);
}

TEST(SyncObject, ProtectedLongIsAtomicAndThirtyTwoBits)
{
    Kiv::ProtectedLong value;
    EXPECT_EQ(value.GetData(), 0);
    EXPECT_EQ(value.Increment(), 1);
    EXPECT_EQ(value.Decrement(), 0);
    EXPECT_EQ(value.Decrement(), -1);
    Kiv::ProtectedLong top(INT32_MAX);
    EXPECT_EQ(top.Increment(), INT32_MIN);

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&value, t]
            {
                for (int i = 0; i < 50000; ++i)
                {
                    (t % 2 == 0) ? value.Increment()
                                 : (value.Increment(), value.Increment(), value.Decrement());
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(value.GetData(), 199999);
}

namespace
{
class Counted : public Kiv::ReferenceCount
{
public:
    explicit Counted(int * deaths) : deaths(deaths) {}
    Counted(const Counted &) = default;
    Counted & operator=(const Counted &) = delete;
    ~Counted() override { ++*deaths; }

private:
    int * deaths;
};

class Pooled : public Kiv::ReferenceCount
{
public:
    mutable int recycled = 0;

protected:
    void DeleteThis() const override { ++recycled; }
};
} // namespace

TEST(SyncObject, ReferenceCountDeletesOnTheLastRelease)
{
    int deaths = 0;
    const Counted * counted = new Counted(&deaths);
    counted->AddReference();
    EXPECT_TRUE(counted->ReleaseReference());
    EXPECT_EQ(deaths, 1);

    Counted original(&deaths);
    original.AddReference();
    original.AddReference();
    const Counted * copy = new Counted(original);
    EXPECT_EQ(copy->GetReferenceCount(), 0) << "a copy starts unreferenced";
    copy->AddReference();
    EXPECT_TRUE(copy->ReleaseReference());
    EXPECT_EQ(deaths, 2);
    EXPECT_FALSE(original.ReleaseReference());
    EXPECT_EQ(original.GetReferenceCount(), 1);

    Pooled pooled;
    pooled.AddReference();
    pooled.AddReference();
    EXPECT_FALSE(pooled.ReleaseReference());
    EXPECT_EQ(pooled.recycled, 0);
    EXPECT_TRUE(pooled.ReleaseReference());
    EXPECT_EQ(pooled.recycled, 1) << "DeleteThis is virtual";
}

#if defined(__linux__)
namespace
{
// Runs a program (through the emulator of a cross build when there is one) and answers its exit
// code, -1 when it could not run or did not exit.
int RunProgram(std::vector<std::string> words)
{
    const char * emulator = getenv("CORESTONE_EMULATOR");
    if (emulator != nullptr && *emulator != '\0')
    {
        words.insert(words.begin(), emulator);
    }
    std::vector<char *> arguments;
    for (std::string & word : words)
    {
        arguments.push_back(&word[0]);
    }
    arguments.push_back(nullptr);
    pid_t child = 0;
    int status = 0;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
        waitpid(child, &status, 0) != child)
    {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
} // namespace

constexpr char firstThreadChild[] = "CORESTONE_FIRST_THREAD_CHILD";

// In a fresh process the first thread enters a section while it is alone and again once other
// threads have started: it is the same owner both times, and another thread still has to wait.
TEST(SyncObject, FirstThreadStaysTheOwnerWhenThreadsStart)
{
    if (getenv(firstThreadChild) == nullptr)
    {
        char self[4096];
        const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
        ASSERT_GT(length, 0);
        self[length] = '\0';
        setenv(firstThreadChild, "1", 1);
        const int code =
            RunProgram({self, "--gtest_filter=SyncObject.FirstThreadStaysTheOwnerWhenThreadsStart"});
        unsetenv(firstThreadChild);
        EXPECT_EQ(code, 0);
        return;
    }
    alarm(60); // a section that mistakes its own owner deadlocks: the child ends instead
    Kiv::CriticalSection section;
    section.Lock();
    std::thread([] {}).join();
    section.Lock();
    Kiv::WEvent entered(true, false);
    std::thread other(
        [&]
        {
            section.Lock();
            entered.Set();
            section.Unlock();
        });
    EXPECT_FALSE(entered.Lock(200));
    section.Unlock();
    EXPECT_FALSE(entered.Lock(200)) << "still held once";
    section.Unlock();
    EXPECT_TRUE(entered.Lock(mustHappen));
    other.join();
}

// A host may load the library late, through dlopen, when the static TLS reserved at start-up is
// used up: the library must not ask for any, and must work when loaded that way.
TEST(SyncObject, LibraryLoadsLateThroughDlopen)
{
    void * library = dlopen("libCorestone.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr) << dlerror();
    link_map * map = nullptr;
    ASSERT_EQ(dlinfo(library, RTLD_DI_LINKMAP, &map), 0);
    for (const ElfW(Dyn) * entry = map->l_ld; entry->d_tag != DT_NULL; ++entry)
    {
        if (entry->d_tag == DT_FLAGS)
        {
            EXPECT_EQ(entry->d_un.d_val & DF_STATIC_TLS, 0u) << "the library needs static TLS";
        }
    }
    dlclose(library);
    EXPECT_EQ(RunProgram({CORESTONE_LATE_LOADER, CORESTONE_LATE_MODULE}), 0);
}
#endif
