#include "ExceptionHandler.h"

#include "Alloc.h"
#include "BuildVersion.h"
#include "HandlerPlatform.h"
#include "Log.h"
#include "Options.h"
#include "SyncObject.h"
#include "Time.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <new>

namespace Kiv
{
namespace
{
struct Entry
{
    ExceptionHandler::Callback callback;
    void * data;
    Entry * next;
};

struct CriticalList
{
    const char * name; // "Shutdown" or "Startup", as the log texts name the list
    Entry * first;
    bool running;
};

// Where an assertion was, recorded by AssertInit for the Assert that follows on the same thread.
struct AssertPlace
{
    const char * expression;
    int line;
    const char * file;
};

CriticalList shutdownList = {"Shutdown", nullptr, false};
CriticalList startupList = {"Startup", nullptr, false};
thread_local AssertPlace assertPlace = {"", 0, nullptr};

std::atomic<bool> terminating{false};
std::atomic<bool> windowAllowed{true};
std::atomic<bool> assertions{true};
std::atomic<ExceptionHandler::Window> customWindow{nullptr};

// Fault handling is serialised by `section`, which lives while any Main runs; `guard` keeps the
// count of Main calls, the section's pointer, the callback lists and the settings.
CriticalSection * section = nullptr;
int mainCount = 0;

CriticalSection & Guard()
{
    static CriticalSection guard("ExceptionHandlerGuard");
    return guard;
}

struct Settings
{
    bool coreDumps = true;
    char corePrefix[11] = "core";
    int coreOptions = 0;
    // Dumps and report files are written beside the log: its folder, with a separator, or "".
    char folder[260] = "";
    int answer = -1; // the window's answer when it answers by itself, else -1
};
Settings settings;

// The report and its lines are built in static buffers: handling a fault allocates nothing, and
// the section serialises the users.
char reportText[Exception::DescriptionSize + 1024];
char lineText[Exception::DescriptionSize];
alignas(HardwareException) unsigned char faultStorage[sizeof(HardwareException)];

// Holds the fault-handling section, when there is one, for a scope.
class HoldSection
{
public:
    HoldSection()
    {
        Guard().Lock();
        held = section;
        Guard().Unlock();
        if (held)
            held->Lock();
    }
    ~HoldSection()
    {
        if (held)
            held->Unlock();
    }
    HoldSection(const HoldSection &) = delete;
    HoldSection & operator=(const HoldSection &) = delete;

private:
    CriticalSection * held;
};

LogClient * Client()
{
    static LogClient * client = Log::GetClient("ExceptionHandler");
    return client;
}

void LogError(const char * format, const char * text)
{
    LogClient * client = Client();
    if (client->IsOn(LogClient::LEVEL_ERR))
        client->Print(LogClient::LEVEL_ERR, format, text);
}

void * Add(CriticalList & list, ExceptionHandler::Callback callback, void * data)
{
    auto * entry = new (Alloc::New(sizeof(Entry))) Entry{callback, data, nullptr};
    SingleLock hold(&Guard(), true);
    Entry ** end = &list.first;
    while (*end)
        end = &(*end)->next;
    *end = entry;
    return entry;
}

void Remove(CriticalList & list, void * handle)
{
    SingleLock hold(&Guard(), true);
    for (Entry ** link = &list.first; *link; link = &(*link)->next)
    {
        if (*link == handle)
        {
            Entry * entry = *link;
            *link = entry->next;
            Alloc::Delete(entry);
            return;
        }
    }
}

void Run(CriticalList & list)
{
    SingleLock hold(&Guard(), true);
    if (list.running)
        return;
    list.running = true;
    try
    {
        if (!Log::IsDisabled())
            LogError("Critical %s ...", list.name);
    }
    catch (...)
    {
        Log::Shutdown(true);
    }
    for (Entry * entry = list.first; entry; entry = entry->next)
    {
        try
        {
            entry->callback(entry->data);
        }
        catch (...)
        {
            LogError("Critical %s failure!", list.name);
            break;
        }
    }
    list.running = false;
}

// The report of an exception: a hardware fault's description is the whole report; a library
// exception gets the build, its reason, class and source position before its description.
const char * Report(const Exception & exception)
{
    if (exception.IsHardwareException())
        return exception.Description();
    int written =
        std::snprintf(reportText, sizeof reportText,
                      "Version: Kiv v%s Build %s.%s\r\nReason: %s\r\nClass: %s\r\nLine: %d\r\nFile: %s\r\n",
                      BuildVersion::GetKivBuildString(), BuildVersion::GetKivBuildVersionString(),
                      BuildVersion::GetKivBuildChangeNumString(), exception.Reason(), exception.Class(),
                      exception.Line(), exception.File() ? exception.File() : "");
    if (written < 0 || size_t(written) >= sizeof reportText)
        return "Problem creating exception report";
    std::snprintf(reportText + written, sizeof reportText - written, "%s", exception.Description());
    return reportText;
}

// The name of the next dump or report file, without extension: the prefix, process and time.
void DumpName(char * name, size_t size)
{
    std::snprintf(name, size, "%s%s.%lu.%lld", settings.folder, settings.corePrefix,
                  HandlerPlatform::ProcessId(), static_cast<long long>(Time::TimeStamp()));
}

void WriteReportFile(const Exception & exception, void * faultRecord)
{
    char name[sizeof settings.folder + 64];
    DumpName(name, sizeof name);
    if (faultRecord && settings.coreDumps)
        HandlerPlatform::WriteDump(name, faultRecord, settings.coreOptions);
    std::strncat(name, ".txt", sizeof name - std::strlen(name) - 1);
    HandlerPlatform::WriteTextFile(name, Report(exception));
}

// The window's answer: 0 goes on, 1 ends the program. The report's lines reach the log on the way.
int AskUser(Exception & exception)
{
    const ExceptionHandler::Window window = customWindow.load();
    if (window || settings.answer >= 0)
    {
        ExceptionHandler::InitExceptionDialog(nullptr, exception);
        return window ? window(exception) : settings.answer;
    }
    int stage = 0;
    const int answer = HandlerPlatform::ShowWindow(exception, Report(exception), stage);
    if (answer >= 0)
        return answer;
    char text[80];
    std::snprintf(text, sizeof text, "An error occurred trying to display the fatal error window! (%d)",
                  stage);
    LogError("%s", text);
    return 1;
}

// The common end of a fault and of an uncaught library exception, under the section.
int Handle(Exception & exception, void * faultRecord)
{
    if (terminating)
        return ExceptionHandler::EXECUTE_HANDLER;
    ExceptionHandler::CriticalShutdown();
    WriteReportFile(exception, faultRecord);
    const int result = ExceptionHandler::ProcessException(exception);
    if (result == ExceptionHandler::CONTINUE_EXECUTION)
        ExceptionHandler::CriticalStartup();
    return result;
}

void Enter()
{
    SingleLock hold(&Guard(), true);
    if (mainCount++ == 0)
        section = new (Alloc::New(sizeof(CriticalSection))) CriticalSection("ExceptionHandler");
}

void Leave()
{
    SingleLock hold(&Guard(), true);
    if (--mainCount == 0)
    {
        section->~CriticalSection();
        Alloc::Delete(section);
        section = nullptr;
    }
}

void FolderOf(const char * path, char * folder, size_t size)
{
    const char * end = path;
    for (const char * p = path; *p; ++p)
        if (*p == '/' || *p == '\\')
            end = p + 1;
    std::snprintf(folder, size, "%.*s", int(end - path), path);
}
} // namespace

void ExceptionHandler::Init(const Options * options)
{
    Client();
    if (!options)
        return;
    SingleLock hold(&Guard(), true);
    options->Get("CoreDumps", settings.coreDumps, true);
    String text;
    options->Get("CorePrefix", text, String("core"));
    std::snprintf(settings.corePrefix, sizeof settings.corePrefix, "%s", static_cast<const char *>(text));
    options->Get("CoreOptions", settings.coreOptions, 0);
    options->Get("LogFile", text, String("KivLog.txt"));
    FolderOf(text, settings.folder, sizeof settings.folder);
    settings.answer = -1;
    if (options->Get("FatalErrorAnswer", text))
        settings.answer = text.EqualsIgnoreCase("Continue") ? 0 : 1;
    HandlerPlatform::SetSystemCoreDumps(settings.coreDumps);
}

int ExceptionHandler::Main(int (*function)(void *), void * data, Thread *)
{
    if (terminating)
        return 0;
    Enter();
    const int result = HandlerPlatform::RunGuarded(function, data);
    Leave();
    return result;
}

int ExceptionHandler::MainTryCatch(int (*function)(void *), void * data)
{
    try
    {
        return function(data);
    }
    catch (Exception & exception)
    {
        HoldSection hold;
        if (Handle(exception, nullptr) == CONTINUE_SEARCH)
            throw;
        return Failed;
    }
}

int ExceptionHandler::FilterException(void * exceptionPointers)
{
    HoldSection hold;
    if (terminating)
        return EXECUTE_HANDLER;
    auto * fault = new (faultStorage) HardwareException(exceptionPointers);
    fault->SetHardwareException(true);
    return Handle(*fault, exceptionPointers);
}

int ExceptionHandler::ProcessException(Exception & exception)
{
    bool allowed = true;
    if (!windowAllowed.compare_exchange_strong(allowed, false))
        return CONTINUE_SEARCH; // a fault inside the window itself
    HoldSection hold;
    if (!terminating && AskUser(exception) == 1)
        terminating = true;
    if (!terminating)
        windowAllowed = true;
    return terminating ? EXECUTE_HANDLER : CONTINUE_EXECUTION;
}

void * ExceptionHandler::AddCriticalShutdown(Callback callback, void * data)
{
    return Add(shutdownList, callback, data);
}

void * ExceptionHandler::AddCriticalStartup(Callback callback, void * data)
{
    return Add(startupList, callback, data);
}

void ExceptionHandler::RemoveCriticalShutdown(void * handle)
{
    Remove(shutdownList, handle);
}

void ExceptionHandler::RemoveCriticalStartup(void * handle)
{
    Remove(startupList, handle);
}

void ExceptionHandler::CriticalShutdown()
{
    Run(shutdownList);
}

void ExceptionHandler::CriticalStartup()
{
    Run(startupList);
}

void ExceptionHandler::AssertInit(const char * expression, int line, const char * file)
{
    assertPlace = {expression ? expression : "", line, file};
}

// Going on returns to the caller; ending the program throws the assertion, so that the Main
// around it returns (or, outside any Main, the runtime ends the process).
void ExceptionHandler::Assert(const char * message)
{
    if (!assertions)
        return;
    Exception assertion(assertPlace.file, assertPlace.line, assertPlace.expression);
    if (message && *message)
        assertion.AddReasonf("%s", message);
    assertion.SetDescriptionf("Assertion\r\n- %s(%d)\r\n", assertPlace.file ? assertPlace.file : "",
                              assertPlace.line);
    int result;
    {
        HoldSection hold;
        result = terminating ? EXECUTE_HANDLER : ProcessException(assertion);
    }
    if (result == EXECUTE_HANDLER)
        throw assertion;
}

void ExceptionHandler::SetAssertions(bool enabled)
{
    assertions = enabled;
}

void ExceptionHandler::InitExceptionDialog(void * dialog, Exception & exception)
{
    const char * report = Report(exception);
    void * list = nullptr;
    for (const char * line = report; *line;)
    {
        const char * end = std::strstr(line, "\r\n");
        const int length = end ? int(end - line) : int(std::strlen(line));
        LogLine(dialog, list, "%.*s", length, line);
        line += length + (end ? 2 : 0);
    }
}

void ExceptionHandler::LogLine(void * dialog, void * list, const char * format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(lineText, sizeof lineText, format, arguments);
    va_end(arguments);
    LogError("%s", lineText);
    if (dialog)
        HandlerPlatform::AddListLine(dialog, list, lineText);
}

void ExceptionHandler::SetWindow(Window window)
{
    customWindow = window;
}

bool ExceptionHandler::IsTerminating()
{
    return terminating;
}

bool ExceptionHandler::GetCoreDumps()
{
    SingleLock hold(&Guard(), true);
    return settings.coreDumps;
}

const char * ExceptionHandler::GetCorePrefix()
{
    return settings.corePrefix;
}

int ExceptionHandler::GetCoreOptions()
{
    return settings.coreOptions;
}
} // namespace Kiv
