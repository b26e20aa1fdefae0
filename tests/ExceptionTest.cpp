#include "Exception.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#if defined(_WIN32)
#include <windows.h>
#else
#include <csetjmp>
#include <csignal>
#include <sys/mman.h>
#include <ucontext.h>
#endif

namespace
{
// A class reporting results through the result-class mechanism, with a table of its own.
struct Parser
{
    enum Results
    {
        RES_OK,
        RES_UNKNOWN,
        RES_FILE_OPEN_ERROR,
        RES_PAST_THE_TABLE
    };
    static const Kiv::ResultTable results[];
};
const Kiv::ResultTable Parser::results[] = {
    {"RES_UNKNOWN", "Unknown error"},
    {"RES_FILE_OPEN_ERROR", "Unable to open file"},
    {nullptr, nullptr},
};

// What the handler of the fault RaiseFault causes saw, copied out before it returns or jumps away.
char caughtReason[256];
char caughtDescription[4096];

void Keep(const Kiv::HardwareException & e)
{
    snprintf(caughtReason, sizeof caughtReason, "%s", e.Reason());
    snprintf(caughtDescription, sizeof caughtDescription, "%s", e.Description());
}

#if defined(_WIN32)
// The exception from a record carrying only a code, as the structured-exception filter would see it.
Kiv::HardwareException FromCode(uint32_t code)
{
    EXCEPTION_RECORD record{};
    record.ExceptionCode = code;
    CONTEXT context{};
    EXCEPTION_POINTERS pointers{&record, &context};
    return Kiv::HardwareException(&pointers);
}

constexpr char faultReason[] = "Integer Overflow";

LONG CALLBACK Catch(EXCEPTION_POINTERS * pointers)
{
    if (pointers->ExceptionRecord->ExceptionCode != 0xC0000095)
        return EXCEPTION_CONTINUE_SEARCH;
    Keep(Kiv::HardwareException(pointers));
    return EXCEPTION_CONTINUE_EXECUTION;
}

void RaiseFault()
{
    void * handler = AddVectoredExceptionHandler(1, Catch);
    RaiseException(0xC0000095, 0, 0, nullptr);
    RemoveVectoredExceptionHandler(handler);
}
#else
Kiv::HardwareException FromCode(uint32_t code)
{
    Kiv::HardwareException::SignalRecord record{code, nullptr, nullptr};
    return Kiv::HardwareException(&record);
}

constexpr char faultReason[] = "Access Violation";
sigjmp_buf recovery;

void Catch(int signal, siginfo_t * info, void * context)
{
    auto record = Kiv::HardwareException::SignalRecord::FromSignal(signal, info, context);
    Keep(Kiv::HardwareException(&record));
    siglongjmp(recovery, 1);
}

void RaiseFault()
{
    struct sigaction action = {}, previous = {};
    action.sa_sigaction = Catch;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, &previous);
    if (sigsetjmp(recovery, 1) == 0)
    {
        volatile uintptr_t nowhere = 16;
        *reinterpret_cast<volatile int *>(nowhere) = 1;
    }
    sigaction(SIGSEGV, &previous, nullptr);
}
#endif
} // namespace

TEST(Exception, SourcePositionAndReason)
{
    Kiv::Exception thrown("Corestone/File", 42, "Bad");
    EXPECT_STREQ(thrown.Class(), "Unknown");
    EXPECT_STREQ(thrown.Description(), "No call stack available\r\n");
    EXPECT_STREQ(thrown.File(), "Corestone/File");
    EXPECT_EQ(thrown.Line(), 42);

    thrown.AddReasonf("%d", 5);
    EXPECT_STREQ(thrown.Reason(), "Bad  -  5");
    thrown.SetReasonf("%s #%u", "fault", 7u);
    EXPECT_STREQ(thrown.Reason(), "fault #7");
}

TEST(Exception, FormattingStopsAtTheBufferEnd)
{
    std::string longText(10000, 'x');
    Kiv::Exception e("Corestone/Test", 1, longText.c_str());
    EXPECT_EQ(std::string(e.Reason()), longText.substr(0, 255));

    Kiv::Exception shortOne("Corestone/Test", 1, "Bad");
    shortOne.AddReasonf("%s", longText.c_str());
    EXPECT_EQ(std::string(shortOne.Reason()), "Bad  -  " + longText.substr(0, 247));

    e.SetDescriptionf("%s%s", longText.c_str(), longText.c_str());
    EXPECT_EQ(std::string(e.Description()).size(), 4095u);
}

TEST(HardwareException, CodesAreNamedFromTheTable)
{
    Kiv::HardwareException divide = FromCode(0xC0000094);
    EXPECT_STREQ(FromCode(0x12345678).Reason(), "Unknown Exception - 12345678h");
    EXPECT_STREQ(FromCode(0xE06D7363).Reason(), "C++ Exception");
    EXPECT_STREQ(Kiv::HardwareException::TypeNameOf(0xC0000090), "Floating Point Invalid Operaton");

    const Kiv::Exception & base = divide;
    EXPECT_STREQ(base.Reason(), "Integer Divide By Zero");
    EXPECT_STREQ(base.Class(), "Hardware") << "the class is virtual";
}

TEST(HardwareException, BuiltFromARealFaultRecord)
{
    RaiseFault();
    EXPECT_STREQ(caughtReason, faultReason);
    const std::string description = caughtDescription;
    EXPECT_NE(description.find(std::string("Recoverable exception: ") + faultReason + "\r\n"),
              std::string::npos)
        << description;
    EXPECT_NE(description.find("Flags: "), std::string::npos);
    EXPECT_NE(description.find("Call Stack:\r\n"), std::string::npos);
    EXPECT_EQ(description.rfind(" \r\nException @ ", 0), 0u);
    // The walk reaches this program's own frames, each listed by its offset into the module.
    const size_t stack = description.find("Call Stack:\r\n \r\n");
    ASSERT_NE(stack, std::string::npos);
    EXPECT_NE(description.find("ExceptionTest", stack), std::string::npos) << description;
    EXPECT_EQ(description.find("Unable to gather full diagnostics"), std::string::npos) << description;
    unsigned offset = 0, start = 0, into = 0;
    EXPECT_EQ(sscanf(description.c_str() + stack + 17, "%8X - %8X(+%X) ", &offset, &start, &into), 3);
    EXPECT_EQ(offset - start, into);
}

#if !defined(_WIN32) && (defined(__x86_64__) || defined(__i386__))
// A saved frame pointer into memory that cannot be read ends the walk cleanly after the frame
// the instruction pointer gives, and the report says the stack is incomplete.
TEST(HardwareException, AnUnreadableFrameEndsTheWalk)
{
    void * guard = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(guard, MAP_FAILED);
    ucontext_t context;
    getcontext(&context);
#if defined(__x86_64__)
    context.uc_mcontext.gregs[REG_RBP] = greg_t(guard);
    context.uc_mcontext.gregs[REG_RSP] = greg_t(guard) - 64;
#else
    context.uc_mcontext.gregs[REG_EBP] = greg_t(guard);
    context.uc_mcontext.gregs[REG_ESP] = greg_t(guard) - 64;
#endif
    Kiv::HardwareException::SignalRecord record{0xC0000005, nullptr, &context};
    const std::string description = Kiv::HardwareException(&record).Description();
    munmap(guard, 4096);
    const size_t stack = description.find("Call Stack:\r\n \r\n");
    ASSERT_NE(stack, std::string::npos);
    EXPECT_NE(description.find("ExceptionTest\r\n\r\nUnable to gather full diagnostics\r\n", stack),
              std::string::npos)
        << description;
}
#endif

TEST(ResultClass, ValuesMapOntoTableRows)
{
    Kiv::ResultClass<Parser> failed = Parser::RES_FILE_OPEN_ERROR;
    EXPECT_STREQ(failed.Identifier(), "RES_FILE_OPEN_ERROR");
    EXPECT_STREQ(failed.Message(), "Unable to open file");
    // A value the table does not describe has no row, rather than one read past the table's end.
    EXPECT_EQ(Kiv::ResultClass<Parser>(Parser::RES_PAST_THE_TABLE).Row(), nullptr);
}
