// Kiv::ExceptionHandler runs a program's (or a thread's) main function so that every processor
// fault and every uncaught library exception ends in the same place: the critical-shutdown
// callbacks run, the log records a crash report, a core dump is written and the fatal-error window
// lets the user end the program or go on.
//
//   int Run(void * data) { ... }
//   int main(int argc, char ** argv)
//   {
//       Kiv::ExceptionHandler::Init(&Kiv::OS::InitOptions("Game", nullptr));
//       return Kiv::ExceptionHandler::Main(Run, nullptr, nullptr);
//   }
//
// Going on after a fault means that the Main which ran the faulting code returns Failed: the
// faulting instruction itself cannot be retried. An assertion the user goes on from returns to
// its caller. After the user chose to end the program every Main returns at once, and further
// faults are left to the system.
#pragma once

#include "Exception.h"
#include "KivApi.h"

namespace Kiv
{
class Options;
class Thread;

class KIV_API ExceptionHandler
{
public:
    // Filter results, as the system's structured exception handling numbers them.
    enum Disposition
    {
        CONTINUE_EXECUTION = -1, // go on: the window's "Continue"
        CONTINUE_SEARCH = 0,     // leave the fault to the system
        EXECUTE_HANDLER = 1      // unwind to Main: the window's "Terminate"
    };
    // What a Main whose function faulted returns.
    enum
    {
        Failed = -1
    };
    // The answer of the fatal-error window: 0 goes on, 1 ends the program.
    using Window = int (*)(Exception & exception);
    using Callback = int (*)(void * data);

    // Reads "CoreDumps" (default on), "CorePrefix" (default "core", cut to 10 characters),
    // "CoreOptions" (the kind of dump, see README), "LogFile" (the report file is written beside
    // it) and "FatalErrorAnswer" ("Continue" or "Terminate": the window answers by itself).
    static void Init(const Options * options);

    // Runs function(data) under the handler and answers its result; 0 at once when the program is
    // ending. The thread, when given, is the library thread whose body this is.
    static int Main(int (*function)(void *), void * data, Thread * thread = nullptr);
    // The inner part of Main: a library exception thrown by the function is reported here.
    static int MainTryCatch(int (*function)(void *), void * data);
    // The filter of a processor fault: an EXCEPTION_POINTERS on Windows, a
    // HardwareException::SignalRecord elsewhere. Answers a Disposition.
    static int FilterException(void * exceptionPointers);
    // Logs the report and shows the fatal-error window, at most one at a time; answers a Disposition.
    static int ProcessException(Exception & exception);

    // Callbacks run in the order added: shutdown ones before the window, startup ones when the
    // program goes on after it. The handle removes the callback again.
    static void * AddCriticalShutdown(Callback callback, void * data);
    static void * AddCriticalStartup(Callback callback, void * data);
    static void RemoveCriticalShutdown(void * handle);
    static void RemoveCriticalStartup(void * handle);
    static void CriticalShutdown();
    static void CriticalStartup();

    // An assertion: AssertInit records where (expression text, line, file), Assert reports it with
    // a message through the fatal-error window. SetAssertions(false) silences them.
    static void Assert(const char * message);
    static void AssertInit(const char * expression, int line, const char * file);
    static void SetAssertions(bool enabled);

    // Fills the window's list (dialog is the window, null for the log alone) with the report.
    static void InitExceptionDialog(void * dialog, Exception & exception);
    // One line of the report: into the list (control `list` of dialog) and the log at level Err.
    static void LogLine(void * dialog, void * list, const char * format, ...);

    // Replaces the fatal-error window (null restores the built-in one); a host with a user
    // interface of its own shows its own.
    static void SetWindow(Window window);
    static bool IsTerminating();
    static bool GetCoreDumps();
    static const char * GetCorePrefix();
    static int GetCoreOptions();
};

// Reports the expression with its line and file when it is false.
#define KIV_ASSERT(expression, message)                                                                      \
    do                                                                                                       \
    {                                                                                                        \
        if (!(expression))                                                                                   \
        {                                                                                                    \
            ::Kiv::ExceptionHandler::AssertInit(#expression, __LINE__, __FILE__);                            \
            ::Kiv::ExceptionHandler::Assert(message);                                                        \
        }                                                                                                    \
    } while (0)
} // namespace Kiv
