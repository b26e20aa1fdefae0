// One fault, two call stacks: the crash report's frame-pointer walk from the signal's context and
// backward-cpp's unwind (libgcc's, from the handler through the signal frame), printed one after
// the other. Run by hand: bin/CrashCompare
#include "Exception.h"

#include <backward.hpp>
#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace
{
void OnFault(int signal, siginfo_t * info, void * context)
{
    auto record = Kiv::HardwareException::SignalRecord::FromSignal(signal, info, context);
    Kiv::HardwareException report(&record);
    std::printf("Corestone:\n%s\n", std::strstr(report.Description(), "Call Stack:"));

    const auto * registers = static_cast<ucontext_t *>(context)->uc_mcontext.gregs;
    backward::StackTrace trace;
    trace.load_from(reinterpret_cast<void *>(registers[REG_RIP]), 64, context, info->si_addr);
    backward::TraceResolver resolver;
    resolver.load_stacktrace(trace);
    std::printf("backward-cpp:\n");
    for (size_t i = 0; i < trace.size(); ++i)
    {
        const backward::ResolvedTrace frame = resolver.resolve(trace[i]);
        std::printf("%p %s %s\n", frame.addr, frame.object_filename.c_str(), frame.object_function.c_str());
    }
    std::fflush(stdout);
    _exit(0);
}
} // namespace

extern "C" __attribute__((noinline, noclone, visibility("default"))) void
CompareInner(volatile int * volatile where)
{
    *where = 1;
}

extern "C" __attribute__((noinline, visibility("default"))) void CompareOuter()
{
    CompareInner(nullptr);
    std::puts("not reached");
}

int main()
{
    struct sigaction action = {};
    action.sa_sigaction = OnFault;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, nullptr);
    CompareOuter();
    return 1;
}
