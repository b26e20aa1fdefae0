// A module that uses the library's per-thread state (lock owners, mutex owners) on two threads,
// its pooled names, a configuration tree, an option set and the log; LateLoader loads it, and with it the
// library, through dlopen, and unloads it again.
#include "Alloc.h"
#include "ConfigParser.h"
#include "Log.h"
#include "Options.h"
#include "PString.h"
#include "SyncObject.h"

#include <string>
#include <thread>

namespace
{
int ExerciseLocks()
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
} // namespace

// Opens the log into the given file and leaves it open: unloading the library closes it.
#if defined(_WIN32)
#define MODULE_EXPORT __declspec(dllexport)
#else
#define MODULE_EXPORT __attribute__((visibility("default")))
#endif

extern "C" MODULE_EXPORT int ExerciseCorestone(const char * logFile)
{
    // On a thread of its own: a thread that has owned a mutex keeps the library loaded until it ends.
    int failures = 0;
    std::thread([&failures] { failures = ExerciseLocks(); }).join();
    Kiv::Options options;
    options.ProcessRaw(("-LogFile='" + std::string(logFile) + "' +Log=Late:Diag:mono=off").c_str());
    Kiv::Log::Init(&options);
    Kiv::LogClient * client = Kiv::Log::GetClient("late");
    failures += client->IsOn(Kiv::LogClient::LEVEL_DIAG) ? 0 : 1;
    client->Print(Kiv::LogClient::LEVEL_DIAG, "pooled %s", static_cast<const char *>(Kiv::PString("Entry")));
    char text[] = "version 1.00\r\nblock { value = 1, 2; }\r\n";
    Kiv::ConfigParser parser;
    failures += parser.Parse("late", text, sizeof text - 1) == Kiv::ConfigParser::RES_OK ? 0 : 1;
    const Kiv::ConfigParser & reader = parser;
    failures += reader.GetConfig()->GetChildCount() == 1 ? 0 : 1;
    // A name released after unload must not touch the freed cache: this one stays to the end.
    static Kiv::PString kept("kept until unload");
    return failures;
}
