// Real faults in child processes (CrashChild): each child's log must hold the report with the
// fault's name and a call stack through the faulting function, the callbacks in order, and what
// Main answered afterwards. The window's own rules are checked in this process.
#include "ExceptionHandler.h"
#include "Options.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#if defined(_WIN32)
#include <thread>
#include <windows.h>
#endif

using TestSupport::TempDir;
namespace fs = std::filesystem;

namespace
{
struct Child
{
    int code;
    std::string log;
    std::string folder;
};

// Runs CrashChild on a case with the options, its log (8-bit) kept in dir.
Child RunChild(const TempDir & dir, const std::string & what, const std::string & options)
{
#if !defined(_WIN32)
    // The sanitizers' own fault handlers would report the faults before the library's.
    setenv("ASAN_OPTIONS", "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:use_sigaltstack=0",
           1);
#endif
    const std::string log = dir / "log.txt";
    const int code = TestSupport::RunProgram({TestSupport::ProgramBeside("CrashChild"), what,
                                              "-LogAnsi -CoreDumps=off -LogFile=" + log + " " + options},
                                             dir / "out.txt", dir / "err.txt");
    const auto bytes = fs::exists(log) ? TestSupport::ReadBytes(log) : std::vector<unsigned char>();
    return {code, std::string(bytes.begin(), bytes.end()), dir.Path()};
}

// True when the texts occur in the log in this order.
bool InOrder(const std::string & log, std::initializer_list<const char *> texts)
{
    size_t at = 0;
    for (const char * text : texts)
        if ((at = log.find(text, at)) == std::string::npos)
            return false;
    return true;
}

bool Has(const std::string & log, const std::string & text)
{
    return log.find(text) != std::string::npos;
}

// The starts of the report's frames in the child program, as their hexadecimal texts.
std::vector<std::string> ChildFrameStarts(const std::string & log)
{
    std::vector<std::string> starts;
    for (size_t at = log.find(" - "); at != std::string::npos; at = log.find(" - ", at + 1))
    {
        unsigned offset = 0, start = 0, into = 0;
        const size_t lineEnd = log.find('\n', at);
        if (at >= 8 && std::sscanf(log.c_str() + at - 8, "%8X - %8X(+%X) ", &offset, &start, &into) == 3 &&
            log.substr(at, lineEnd - at).find("CrashChild") != std::string::npos)
            starts.push_back(log.substr(at + 3, 8));
    }
    return starts;
}

std::string FaultFunctionStart(const std::string & log)
{
    const size_t at = log.find("fault function at ");
    return at == std::string::npos ? "" : log.substr(at + 18, 8);
}
} // namespace

TEST(ExceptionHandler, FaultsAreReportedAndMainGoesOn)
{
    const struct
    {
        const char * what;
        const char * name;
        const char * function;
    } faults[] = {{"null", "Access Violation", "CrashNullWrite"},
                  {"divide", "Integer Divide By Zero", "CrashDivide"},
                  {"illegal", "Illegal Instruction", "CrashIllegal"},
                  {"overflow", "Stack Overflow", "CrashRecurse"}};
    for (const auto & fault : faults)
    {
        SCOPED_TRACE(fault.what);
        TempDir dir;
        const Child child = RunChild(dir, fault.what, "-FatalErrorAnswer=Continue -CorePrefix=crash");
        EXPECT_EQ(child.code, 0);
        EXPECT_TRUE(InOrder(child.log, {"Critical Shutdown ...", "shutdown callback one",
                                        "shutdown callback two", "Recoverable exception: ", fault.name,
                                        "Call Stack:", "Critical Startup ...", "startup callback",
                                        "Main answered -1", "second Main ran", "second Main answered 7"}))
            << child.log;
        const auto starts = ChildFrameStarts(child.log);
        ASSERT_FALSE(starts.empty()) << child.log;
#if !defined(_WIN32) || defined(_WIN64)
        EXPECT_NE(std::find(starts.begin(), starts.end(), FaultFunctionStart(child.log)), starts.end())
            << child.log;
#endif
        if (std::string(fault.what) == "overflow")
        {
            EXPECT_GT(starts.size(), 30u) << "the runaway recursion fills the listing";
        }
        EXPECT_EQ(Has(child.log, "Unable to gather full diagnostics"), std::string(fault.what) == "overflow");
        std::vector<std::string> reports;
        for (const auto & item : fs::directory_iterator(child.folder))
            if (item.path().filename().string().rfind("crash.", 0) == 0)
                reports.push_back(item.path().string());
        ASSERT_EQ(reports.size(), 1u) << "one report file beside the log";
#if !defined(_WIN32)
        // The report's first frame, read back through the module's debugging information.
        TestSupport::RunProgram({TestSupport::ProgramBeside("kiv"), "crash", reports[0]}, dir / "frames.txt",
                                dir / "frames.err");
        const auto frames = TestSupport::ReadBytes(dir / "frames.txt");
        EXPECT_TRUE(InOrder(std::string(frames.begin(), frames.end()),
                            {"CrashChild\n    ", fault.function, " at ", "CrashChild.cpp:"}));
#endif
    }
}

TEST(ExceptionHandler, TerminateEndsEveryMain)
{
    TempDir dir;
    const Child child = RunChild(dir, "null", "-FatalErrorAnswer=Terminate");
    EXPECT_TRUE(InOrder(child.log, {"Access Violation", "Main answered -1", "second Main answered 0"}))
        << child.log;
    EXPECT_FALSE(Has(child.log, "second Main ran"));
    EXPECT_FALSE(Has(child.log, "startup callback"));
}

TEST(ExceptionHandler, LibraryExceptionsAndAssertions)
{
    TempDir dir;
    const Child thrown = RunChild(dir, "throw", "-FatalErrorAnswer=Continue");
    EXPECT_TRUE(
        InOrder(thrown.log, {"shutdown callback two", "Version: Kiv v", "Reason: thrown on purpose",
                             "Class: Unknown", "Line: 77", "File: CrashChild", "No call stack available",
                             "startup callback", "Main answered -1", "second Main answered 7"}))
        << thrown.log;

    TempDir again;
    const Child asserted = RunChild(again, "assert", "-FatalErrorAnswer=Continue");
    EXPECT_TRUE(InOrder(asserted.log, {"Reason: 1 + 1 == 3  -  arithmetic", "Assertion", "CrashChild.cpp(",
                                       "went on after the assertion", "Main answered 5"}))
        << asserted.log;
    EXPECT_FALSE(Has(asserted.log, "shutdown callback")) << "an assertion the user goes on from is no crash";

    TempDir last;
    const Child ended = RunChild(last, "assert", "-FatalErrorAnswer=Terminate");
    EXPECT_TRUE(InOrder(ended.log, {"Assertion", "Main answered -1", "second Main answered 0"})) << ended.log;
    EXPECT_FALSE(Has(ended.log, "went on after the assertion"));
}

TEST(ExceptionHandler, AThrowingCallbackStopsTheRest)
{
    TempDir dir;
    const Child child = RunChild(dir, "divide", "-FatalErrorAnswer=Continue -ThrowingCallback");
    EXPECT_TRUE(InOrder(child.log, {"shutdown callback one", "Critical Shutdown failure!",
                                    "Integer Divide By Zero", "Main answered -1"}))
        << child.log;
    EXPECT_FALSE(Has(child.log, "shutdown callback two"));
}

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// The core of the faulting process is dumped by a forked copy, and named after the report when
// the system writes cores under a plain name.
TEST(ExceptionHandler, CoreDumpsBesideTheLog)
{
    char pattern[64] = "";
    if (FILE * file = fopen("/proc/sys/kernel/core_pattern", "r"))
    {
        fgets(pattern, sizeof pattern, file);
        fclose(file);
    }
    if (getenv("CORESTONE_EMULATOR") || std::string(pattern).find_first_of("|%/") != std::string::npos)
        GTEST_SKIP() << "cores are not written as plain files here";
    TempDir dir;
    const Child child = RunChild(dir, "null", "-FatalErrorAnswer=Continue -CoreDumps=on -CorePrefix=dumped");
    std::vector<std::string> names;
    for (const auto & item : fs::directory_iterator(child.folder))
        names.push_back(item.path().filename().string());
    const auto core = std::find_if(names.begin(), names.end(),
                                   [](const std::string & name)
                                   {
                                       return name.rfind("dumped.", 0) == 0 && name.size() > 12 &&
                                              name.compare(name.size() - 5, 5, ".core") == 0;
                                   });
    EXPECT_NE(core, names.end()) << "files: " << ::testing::PrintToString(names);
    EXPECT_TRUE(Has(child.log, "second Main answered 7"));
}
#endif

namespace
{
int windows = 0;
int nestedAnswer = 99;

// A window that, while it is up, meets a second report: that one must not open another window.
int NestingWindow(Kiv::Exception &)
{
    ++windows;
    Kiv::Exception second("Corestone/Test", 2, "second");
    nestedAnswer = Kiv::ExceptionHandler::ProcessException(second);
    return 0;
}
} // namespace

TEST(ExceptionHandler, OneWindowAtATime)
{
    Kiv::ExceptionHandler::SetWindow(NestingWindow);
    Kiv::Exception first("Corestone/Test", 1, "first");
    EXPECT_EQ(Kiv::ExceptionHandler::ProcessException(first), Kiv::ExceptionHandler::CONTINUE_EXECUTION);
    EXPECT_EQ(windows, 1);
    EXPECT_EQ(nestedAnswer, Kiv::ExceptionHandler::CONTINUE_SEARCH);
    // The window is allowed again once the first is closed.
    EXPECT_EQ(Kiv::ExceptionHandler::ProcessException(first), Kiv::ExceptionHandler::CONTINUE_EXECUTION);
    EXPECT_EQ(windows, 2);
    Kiv::ExceptionHandler::SetWindow(nullptr);
    EXPECT_FALSE(Kiv::ExceptionHandler::IsTerminating());

    Kiv::Options options;
    options.ProcessRaw("-CorePrefix=abcdefghijklmnop -CoreOptions=2 -CoreDumps=off");
    Kiv::ExceptionHandler::Init(&options);
    EXPECT_STREQ(Kiv::ExceptionHandler::GetCorePrefix(), "abcdefghij");
    EXPECT_EQ(Kiv::ExceptionHandler::GetCoreOptions(), 2);
    EXPECT_FALSE(Kiv::ExceptionHandler::GetCoreDumps());
}

#if defined(_WIN32)
// The real dialog: a second thread reads its list and presses Continue.
TEST(ExceptionHandler, FatalErrorDialog)
{
    HWND probe = CreateWindowA("STATIC", "", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
    if (!probe)
        GTEST_SKIP() << "no display for windows (CTest runs this case again under a virtual display)";
    DestroyWindow(probe);
    std::string firstLine;
    int lines = 0;
    std::thread presser(
        [&]
        {
            HWND dialog = nullptr;
            for (int tries = 0; tries < 500 && !dialog; ++tries, Sleep(20))
                dialog = FindWindowA(nullptr, "Fatal Error");
            ASSERT_NE(dialog, nullptr);
            HWND list = GetDlgItem(dialog, 1002);
            lines = int(SendMessageA(list, LB_GETCOUNT, 0, 0));
            char text[512] = "";
            SendMessageA(list, LB_GETTEXT, 0, LPARAM(text));
            firstLine = text;
            SendMessageA(GetDlgItem(dialog, 1003), BM_CLICK, 0, 0);
        });
    Kiv::Exception shown("Corestone/Test", 9, "shown in the dialog");
    const int answer = Kiv::ExceptionHandler::ProcessException(shown);
    presser.join();
    EXPECT_EQ(answer, Kiv::ExceptionHandler::CONTINUE_EXECUTION);
    EXPECT_EQ(firstLine.rfind("Version: Kiv v", 0), 0u) << firstLine;
    EXPECT_GE(lines, 6);
}
#endif
