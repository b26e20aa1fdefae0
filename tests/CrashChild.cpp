// A program that faults on purpose, run by ExceptionHandlerTest once per case:
//   CrashChild CASE "OPTIONS"
// It logs where its faulting function lies (offset into this program), runs the case under
// ExceptionHandler::Main, logs what Main answered, then tries a second Main.
#include "ExceptionHandler.h"
#include "Log.h"
#include "OS.h"
#include "Options.h"

#include <cstdint>
#include <cstring>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

// Exported, so that the frames of the call stack know their starts; the sanitizers are kept out of
// the faults they would otherwise report first.
#if defined(_WIN32)
#define CRASH_EXPORT
#else
#define CRASH_EXPORT __attribute__((visibility("default"), no_sanitize("undefined")))
#endif

namespace
{
Kiv::LogClient * out = nullptr;

void Say(const char * format, const char * text = "", int value = 0)
{
    out->Print(Kiv::LogClient::LEVEL_ERR, format, text, value);
}

// Offset of a function of this program into the program's image, as the call stack lists it.
unsigned OffsetOf(const void * function)
{
#if defined(_WIN32)
    return unsigned(uintptr_t(function) - uintptr_t(GetModuleHandleA(nullptr)));
#else
    Dl_info where{};
    dladdr(function, &where);
    return unsigned(uintptr_t(function) - uintptr_t(where.dli_fbase));
#endif
}

int Shutdown(void * data)
{
    Say("shutdown callback %s", static_cast<const char *>(data));
    return 0;
}

int Startup(void *)
{
    Say("startup callback");
    return 0;
}

int Throwing(void *)
{
    throw Kiv::Exception("CrashChild", __LINE__, "callback failed");
}

int SecondMain(void *)
{
    Say("second Main ran");
    return 7;
}
} // namespace

extern "C"
{
    CRASH_EXPORT int CrashNullWrite(void *)
    {
        volatile int * volatile nowhere = nullptr;
        *nowhere = 1;
        return 0;
    }

    CRASH_EXPORT int CrashDivide(void *)
    {
        volatile int zero = 0;
        return 100 / zero;
    }

    CRASH_EXPORT int CrashIllegal(void *)
    {
        __builtin_trap();
    }

    CRASH_EXPORT int CrashRecurse(void * depth)
    {
        volatile char pad[512];
        pad[0] = char(uintptr_t(depth));
        // Never true: the compiler cannot see that the recursion has no end.
        if (pad[0] == 1 && depth == nullptr)
            return 0;
        return CrashRecurse(static_cast<char *>(depth) + 1) + pad[0];
    }

    CRASH_EXPORT int CrashThrow(void *)
    {
        throw Kiv::Exception("CrashChild", 77, "thrown on purpose");
    }

    CRASH_EXPORT int CrashAssert(void *)
    {
        KIV_ASSERT(1 + 1 == 3, "arithmetic");
        Say("went on after the assertion");
        return 5;
    }
}

int main(int argc, char ** argv)
{
    if (argc < 3)
        return 2;
    Kiv::Options & options = Kiv::OS::InitOptions("CrashChild", argv[2]);
    Kiv::Log::Init(&options);
    Kiv::ExceptionHandler::Init(&options);
    out = Kiv::Log::GetClient("CrashChild");
    out->SetLevel(Kiv::LogClient::LEVEL_ERR);

    const struct
    {
        const char * name;
        int (*function)(void *);
    } cases[] = {{"null", CrashNullWrite},   {"divide", CrashDivide}, {"illegal", CrashIllegal},
                 {"overflow", CrashRecurse}, {"throw", CrashThrow},   {"assert", CrashAssert}};
    int (*function)(void *) = nullptr;
    for (const auto & each : cases)
        if (std::strcmp(each.name, argv[1]) == 0)
            function = each.function;
    if (!function)
        return 2;

    Kiv::ExceptionHandler::AddCriticalShutdown(Shutdown, const_cast<char *>("one"));
    if (options.Get("ThrowingCallback"))
        Kiv::ExceptionHandler::AddCriticalShutdown(Throwing, nullptr);
    Kiv::ExceptionHandler::AddCriticalShutdown(Shutdown, const_cast<char *>("two"));
    Kiv::ExceptionHandler::AddCriticalStartup(Startup, nullptr);

    out->Print(Kiv::LogClient::LEVEL_ERR, "fault function at %08X",
               OffsetOf(reinterpret_cast<void *>(function)));
    Say("Main answered %s%d", "", Kiv::ExceptionHandler::Main(function, nullptr));
    Say("second Main answered %s%d", "", Kiv::ExceptionHandler::Main(SecondMain, nullptr));
    Kiv::Log::Done();
    return 0;
}
