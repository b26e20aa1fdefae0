// The synchronisation objects under real threads. Waits that must end use long time-outs; only
// "has not happened yet" is checked after a short pause.
#include "SyncObject.h"

#include <gtest/gtest.h>

#if defined(__linux__)
#include <dlfcn.h>
#include <link.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
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
        Pause(5);
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

// Runs body(t) on count threads at once and waits for them all.
void OnThreads(int count, const std::function<void(int)> & body)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t)
        threads.emplace_back(body, t);
    for (std::thread & thread : threads)
        thread.join();
}

// A section held levels times over by this thread keeps another thread out until the last
// Unlock, whoever took it.
void ExpectHeldUntilLastUnlock(Kiv::CriticalSection & section, int levels)
{
    Kiv::WEvent entered(true, false);
    std::thread other(
        [&]
        {
            section.Lock(0); // blocks although the time-out is 0
            entered.Set();
            section.Unlock();
        });
    for (int level = levels; level > 0; --level)
    {
        EXPECT_FALSE(entered.Lock(200)) << "entered with " << level << " levels still held";
        EXPECT_TRUE(section.Unlock());
    }
    EXPECT_TRUE(entered.Lock(mustHappen));
    other.join();
}

// Threads that each wait once on an object and count themselves out.
class Waiters
{
public:
    Waiters(const Kiv::SyncObject & object, int count)
    {
        for (int i = 0; i < count; ++i)
            threads.emplace_back(
                [this, &object]
                {
                    ++ready;
                    released += object.Lock(mustHappen) ? 1 : 0;
                });
        EXPECT_TRUE(Eventually([this, count] { return ready == count; }));
        Pause(300); // let every thread get into its wait
    }
    ~Waiters()
    {
        for (std::thread & thread : threads)
            thread.join();
    }
    std::atomic<int> ready{0}, released{0};

private:
    std::vector<std::thread> threads;
};
} // namespace

// Threads that keep entering, some of them twice over, with the section passing between them
// all the time: a lost wake-up would hang here, a broken exclusion would lose counts. Outside it
// they count on a ProtectedLong, which must lose nothing either.
TEST(SyncObject, CriticalSectionAndProtectedLongUnderContention)
{
    Kiv::CriticalSection section;
    Kiv::ProtectedLong value;
    long total = 0;
    OnThreads(4,
              [&](int t)
              {
                  for (int i = 0; i < 50000; ++i)
                  {
                      (t % 2 == 0) ? value.Increment()
                                   : (value.Increment(), value.Increment(), value.Decrement());
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
    EXPECT_EQ(total, 200000);
    EXPECT_EQ(value.GetData(), 200000);
    EXPECT_FALSE(OnOtherThread([&] { return section.IsLocked(); })) << "free once everyone has left";

    // 32 bits on every target.
    Kiv::ProtectedLong top(INT32_MAX);
    EXPECT_EQ(top.Increment(), INT32_MIN);
    EXPECT_EQ(Kiv::ProtectedLong().Decrement(), -1);
}

// Lock(0) waits however long it takes. A thread that ends inside a section leaves it held, as on
// Win32: threads started later (which often get the dead thread's stack and thread block back)
// must wait like any other, and a release by another thread, as LeaveCriticalSection allows,
// lets them in.
TEST(SyncObject, CriticalSectionIsRecursiveAndOutlivesItsOwner)
{
    Kiv::CriticalSection section("TestLock");
    EXPECT_EQ(static_cast<void *>(section), nullptr);
    EXPECT_FALSE(section.Unlock(1));
    EXPECT_TRUE(section.Lock());
    EXPECT_TRUE(section.Lock(0));
    ExpectHeldUntilLastUnlock(section, 2);
    std::thread([&] { section.Lock(); }).join();
    ExpectHeldUntilLastUnlock(section, 1);
    EXPECT_FALSE(OnOtherThread([&] { return section.IsLocked(); }));
}

TEST(SyncObject, MutexOwnershipRecursionAndRelease)
{
    Kiv::Mutex mutex;
    EXPECT_FALSE(mutex.IsLocked());
    EXPECT_TRUE(OnOtherThread([&] { return mutex.Lock(0) && mutex.Unlock(); })) << "IsLocked left it unowned";
    EXPECT_FALSE(mutex.Unlock()) << "nobody owns it";

    EXPECT_TRUE(mutex.Lock() && mutex.Wait(0));
    EXPECT_FALSE(mutex.IsLocked()) << "the owner may always take it again";
    EXPECT_TRUE(OnOtherThread([&] { return mutex.IsLocked(); }));
    EXPECT_FALSE(OnOtherThread([&] { return mutex.Unlock(); })) << "a stranger cannot release it";
    EXPECT_TRUE(mutex.Unlock(7)) << "the counted form releases one level";
    EXPECT_FALSE(OnOtherThread([&] { return mutex.Lock(0); }));
    EXPECT_TRUE(mutex.Signal());
    EXPECT_TRUE(OnOtherThread([&] { return mutex.Lock(0) && mutex.Unlock(); }));

    // A second mutex of an existing name is the same object and is not taken again.
    const std::string name =
        "CorestoneTestMutex" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
    Kiv::Mutex first(false, name.c_str());
    Kiv::Mutex second(true, name.c_str());
    EXPECT_TRUE(first.Lock(0));
    EXPECT_TRUE(OnOtherThread([&] { return second.IsLocked(); }));
    EXPECT_TRUE(second.Unlock()) << "the same object, owned by this thread";
    EXPECT_FALSE(OnOtherThread([&] { return first.IsLocked(); }));
}

TEST(SyncObject, SemaphoreCountsUpToItsMaximum)
{
    Kiv::Semaphore semaphore(0, 5);
    EXPECT_TRUE(semaphore.Unlock(3));
    EXPECT_TRUE(semaphore.Lock(0) && semaphore.Lock(0) && semaphore.Lock(0));
    EXPECT_FALSE(semaphore.Lock(0));

    EXPECT_FALSE(semaphore.Unlock(6)) << "past the maximum";
    EXPECT_FALSE(semaphore.Unlock(0ul));
    EXPECT_TRUE(semaphore.Unlock(5));
    EXPECT_FALSE(semaphore.Unlock()) << "full";
    EXPECT_FALSE(semaphore.IsLocked()) << "IsLocked gives back what it took";

    Kiv::Semaphore invalid(3, 2);
    EXPECT_EQ(static_cast<void *>(invalid), nullptr);
    EXPECT_FALSE(invalid.Lock(0) || invalid.Unlock());
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
    EXPECT_TRUE(manual.Lock(0) && manual.Lock(0));
    EXPECT_TRUE(manual.Reset());
    EXPECT_TRUE(manual.Pulse());
    EXPECT_FALSE(manual.Lock(0)) << "nobody waited on the pulse: nothing remains";

    // Set and Pulse alike let one waiter of an automatic event through and every waiter of a
    // manual one; only Set leaves a manual event signalled.
    for (const bool pulse : {false, true})
    {
        SCOPED_TRACE(pulse ? "Pulse" : "Set");
        {
            Waiters waiters(automatic, 2);
            EXPECT_TRUE(pulse ? automatic.Pulse() : automatic.Set());
            EXPECT_TRUE(Eventually([&] { return waiters.released == 1; }));
            Pause();
            EXPECT_EQ(waiters.released, 1);
            EXPECT_FALSE(automatic.Lock(0)) << "the released waiter reset it";
            automatic.Set(); // let the other go
        }
        Waiters waiters(manual, 3);
        EXPECT_TRUE(pulse ? manual.Pulse() : manual.Set());
        EXPECT_TRUE(Eventually([&] { return waiters.released == 3; }));
        EXPECT_EQ(manual.Lock(0), !pulse);
        manual.Reset();
    }
}

TEST(SyncObject, MultiLockWaitsForAny)
{
    Kiv::WEvent first(false, false);
    Kiv::WEvent second(false, false);
    Kiv::SyncObject * events[] = {&first, &second};
    MultiLock lock(events, 2, false);

    // A mutex left by an ended thread goes to the next waiter, reported abandoned once.
    Kiv::Mutex mutex;
    std::thread([&] { EXPECT_TRUE(mutex.Lock()); }).join();
    Kiv::SyncObject * abandoned[] = {&first, &mutex};
    MultiLock taker(abandoned, 2, false);
    EXPECT_EQ(taker.Lock(mustHappen, false), 0x20000001u);
    EXPECT_FALSE(taker.IsLocked(1)) << "an abandoned acquisition is not flagged";
    EXPECT_FALSE(OnOtherThread([&] { return mutex.Lock(0); })) << "but this thread owns it now";
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_TRUE(mutex.Lock(0)) << "abandonment is reported once";
    EXPECT_TRUE(mutex.Unlock());

    second.Set();
    EXPECT_EQ(lock.Lock(mustHappen, false), 0x10000001u);
    EXPECT_TRUE(!lock.IsLocked(0) && lock.IsLocked(1) && !lock.IsLocked(2)) << "only the second is marked";
    EXPECT_TRUE(lock.Unlock());
    EXPECT_EQ(lock.Lock(0, false), MultiLock::TimedOut);

    Kiv::SyncObject * none[] = {&first, nullptr};
    EXPECT_EQ(MultiLock(none, 2, false).Lock(0, false), MultiLock::Failed);
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
        Kiv::SingleLock hold(&semaphore, true);
        EXPECT_TRUE(hold.Unlock(2));
    }
    EXPECT_TRUE(semaphore.Lock(0) && semaphore.Lock(0));
    EXPECT_FALSE(semaphore.Lock(0)) << "Unlock(2) gave back two";

    semaphore.Unlock(); // both free: lockNow takes only the first
    Kiv::SyncObject * objects[] = {&mutex, &semaphore};
    {
        MultiLock hold(objects, 2, true);
        EXPECT_TRUE(hold.IsLocked(0) && !hold.IsLocked(1));
        EXPECT_TRUE(OnOtherThread([&] { return mutex.IsLocked(); }));
    }
    EXPECT_FALSE(OnOtherThread([&] { return mutex.IsLocked(); }));
}

TEST(SyncObject, ReadersShareAndWritersWaitForThem)
{
    Kiv::SWMRGuard guard;
    EXPECT_TRUE(guard.WaitToRead(0));
    EXPECT_FALSE(OnOtherThread([&] { return guard.WaitToWrite(20); }));
    guard.DoneReading();
    guard.DoneReading(); // one too many is ignored
    EXPECT_TRUE(guard.WaitToWrite(0));
    EXPECT_FALSE(OnOtherThread([&] { return guard.WaitToRead(20); }));
    guard.DoneWriting();

    // Three readers and two writers at once: a writer is never inside with anyone else.
    std::atomic<int> readers{0}, writers{0}, overlaps{0};
    OnThreads(5,
              [&](int t)
              {
                  const bool writer = t >= 3;
                  for (int i = 0; i < (writer ? 200 : 600); ++i)
                  {
                      std::atomic<int> & inside = writer ? writers : readers;
                      ASSERT_TRUE(writer ? guard.WaitToWrite(mustHappen) : guard.WaitToRead(mustHappen));
                      ++inside;
                      overlaps += writers > (writer ? 1 : 0) || (writer && readers != 0);
                      std::this_thread::yield();
                      --inside;
                      writer ? guard.DoneWriting() : guard.DoneReading();
                  }
              });
    EXPECT_EQ(overlaps, 0);
}

namespace
{
// Counts its deaths; a pooled one is handed back to its pool, counted as recycled, instead.
class Counted : public Kiv::ReferenceCount
{
public:
    explicit Counted(int * deaths, int * recycled = nullptr) : deaths(deaths), recycled(recycled) {}
    Counted(const Counted &) = default;
    Counted & operator=(const Counted &) = delete;
    ~Counted() override { ++*deaths; }

protected:
    void DeleteThis() const override
    {
        recycled != nullptr ? void(++*recycled) : ReferenceCount::DeleteThis();
    }

private:
    int * deaths;
    int * recycled;
};
} // namespace

TEST(SyncObject, ReferenceCountDeletesOnTheLastRelease)
{
    int deaths = 0;
    Counted original(&deaths);
    original.AddReference();
    original.AddReference();
    const Counted * copy = new Counted(original);
    EXPECT_EQ(copy->GetReferenceCount(), 0) << "a copy starts unreferenced";
    copy->AddReference();
    EXPECT_TRUE(copy->ReleaseReference());
    EXPECT_EQ(deaths, 1);
    EXPECT_FALSE(original.ReleaseReference());

    int recycled = 0;
    Counted pooled(&deaths, &recycled);
    pooled.AddReference();
    EXPECT_TRUE(pooled.ReleaseReference());
    EXPECT_EQ(recycled, 1) << "DeleteThis is virtual";
    EXPECT_EQ(deaths, 1);
}

#if defined(__linux__)
namespace
{
// Runs a program (through the emulator of a cross build when there is one) and answers its exit
// code, -1 when it did not exit.
int RunProgram(const std::string & command)
{
    const char * emulator = getenv("CORESTONE_EMULATOR");
    const int status =
        std::system(((emulator != nullptr ? std::string(emulator) + " " : "") + command).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
} // namespace

// In a fresh process the first thread enters a section while it is alone and again once other
// threads have started: it is the same owner both times, and another thread still has to wait.
TEST(SyncObject, FirstThreadStaysTheOwnerWhenThreadsStart)
{
    constexpr char child[] = "CORESTONE_FIRST_THREAD_CHILD";
    if (getenv(child) == nullptr)
    {
        char self[4096];
        const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
        ASSERT_GT(length, 0);
        self[length] = '\0';
        setenv(child, "1", 1);
        EXPECT_EQ(RunProgram(std::string("'") + self +
                             "' --gtest_filter=SyncObject.FirstThreadStaysTheOwnerWhenThreadsStart"),
                  0);
        unsetenv(child);
        return;
    }
    alarm(60); // a section that mistakes its own owner deadlocks: the child ends instead
    Kiv::CriticalSection section;
    section.Lock();
    std::thread([] {}).join();
    section.Lock();
    ExpectHeldUntilLastUnlock(section, 2);
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
    EXPECT_EQ(RunProgram("'" CORESTONE_LATE_LOADER "' '" CORESTONE_LATE_MODULE "'"), 0);
}
#endif
