#include "Exception.h"
#include "FaultRecord.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <ucontext.h>

namespace Kiv
{
namespace
{
uint32_t FloatingPointCode(int reason)
{
    switch (reason)
    {
    case FPE_INTDIV:
        return 0xC0000094;
    case FPE_INTOVF:
        return 0xC0000095;
    case FPE_FLTDIV:
        return 0xC000008E;
    case FPE_FLTOVF:
        return 0xC0000091;
    case FPE_FLTUND:
        return 0xC0000093;
    case FPE_FLTRES:
        return 0xC000008F;
    case FPE_FLTSUB:
        return 0xC000008C;
    default:
        return 0xC0000090;
    }
}

uint32_t CodeOfSignal(int signal, int reason)
{
    switch (signal)
    {
    case SIGSEGV:
        return 0xC0000005;
    case SIGBUS:
        return reason == BUS_ADRALN ? 0x80000002 : 0xC0000006;
    case SIGFPE:
        return FloatingPointCode(reason);
    case SIGILL:
        return reason == ILL_PRVOPC || reason == ILL_PRVREG ? 0xC0000096 : 0xC000001D;
    case SIGTRAP:
        return reason == TRAP_TRACE ? 0x80000004 : 0x80000003;
    default:
        return 0xE0000000u + static_cast<uint32_t>(signal);
    }
}

void ReadRegisters(const ucontext_t & context, Fault & fault)
{
    const greg_t * r = context.uc_mcontext.gregs;
    FaultRegisters & out = fault.registers;
#if defined(__x86_64__)
    out = {uint64_t(r[REG_RAX]),
           uint64_t(r[REG_RBX]),
           uint64_t(r[REG_RCX]),
           uint64_t(r[REG_RDX]),
           uint64_t(r[REG_RSP]),
           uint64_t(r[REG_RBP]),
           uint64_t(r[REG_RSI]),
           uint64_t(r[REG_RDI]),
           uint64_t(r[REG_RIP]),
           uint64_t(r[REG_EFL]),
           0,
           uint32_t(r[REG_CSGSFS] >> 32 & 0xFFFF),
           0,
           uint32_t(r[REG_CSGSFS] >> 16 & 0xFFFF),
           0,
           uint32_t(r[REG_CSGSFS] & 0xFFFF)};
#elif defined(__i386__)
    out = {uint32_t(r[REG_EAX]), uint32_t(r[REG_EBX]), uint32_t(r[REG_ECX]), uint32_t(r[REG_EDX]),
           uint32_t(r[REG_ESP]), uint32_t(r[REG_EBP]), uint32_t(r[REG_ESI]), uint32_t(r[REG_EDI]),
           uint32_t(r[REG_EIP]), uint32_t(r[REG_EFL]), uint32_t(r[REG_DS]),  uint32_t(r[REG_FS]),
           uint32_t(r[REG_ES]),  uint32_t(r[REG_GS]),  uint32_t(r[REG_SS]),  uint32_t(r[REG_CS])};
#else
    return;
#endif
    fault.hasRegisters = true;
    fault.address = out.ip;
}

// The stack pointer of a signal's context, 0 when unknown.
uintptr_t StackPointerOf(const void * context)
{
    if (!context)
        return 0;
    const greg_t * r = static_cast<const ucontext_t *>(context)->uc_mcontext.gregs;
#if defined(__x86_64__)
    return uintptr_t(r[REG_RSP]);
#elif defined(__i386__)
    return uintptr_t(r[REG_ESP]);
#else
    return 0;
#endif
}

// Memory near the stack pointer is the stack's own: a fault there is the stack running into the
// guard below its end.
bool IsStackOverflow(const siginfo_t * info, const void * context)
{
    constexpr uintptr_t reach = 64 * 1024;
    const uintptr_t sp = StackPointerOf(context);
    const uintptr_t address = reinterpret_cast<uintptr_t>(info->si_addr);
    return sp > reach && address + reach >= sp && address <= sp + reach;
}
} // namespace

HardwareException::SignalRecord
HardwareException::SignalRecord::FromSignal(int signal, const siginfo_t * info, const void * context)
{
    if (signal == SIGSEGV && info && IsStackOverflow(info, context))
        return {0xC00000FD, info, context};
    return {CodeOfSignal(signal, info ? info->si_code : 0), info, context};
}

Fault ReadFault(const void * record)
{
    Fault fault{};
    if (!record)
        return fault;
    const auto & signal = *static_cast<const HardwareException::SignalRecord *>(record);
    fault.code = signal.code;
    if (signal.info)
        fault.address = reinterpret_cast<uintptr_t>(signal.info->si_addr);
    if (signal.context)
        ReadRegisters(*static_cast<const ucontext_t *>(signal.context), fault);
    Dl_info where;
    if (fault.address && dladdr(reinterpret_cast<void *>(fault.address), &where) && where.dli_fname)
        std::snprintf(fault.module, sizeof fault.module, "%s", where.dli_fname);
    return fault;
}

// dladdr knows only the symbols a module exports: the start of a static function, or of any
// function of a program linked without exporting its symbols, is left unknown (0), so the frame's
// offset is then its offset into the module, which is what `kiv crash` resolves.
bool FrameAt(uintptr_t address, StackFrame & frame)
{
    Dl_info where;
    if (address == 0 || !dladdr(reinterpret_cast<void *>(address), &where) || !where.dli_fbase)
        return false;
    const uintptr_t base = reinterpret_cast<uintptr_t>(where.dli_fbase);
    frame.offset = uint32_t(address - base);
    frame.functionStart = where.dli_saddr ? uint32_t(reinterpret_cast<uintptr_t>(where.dli_saddr) - base) : 0;
    std::snprintf(frame.module, sizeof frame.module, "%s", where.dli_fname ? where.dli_fname : "");
    return true;
}

bool WalkStack(const void * record, FrameSink sink, void * listing)
{
    const auto & signal = *static_cast<const HardwareException::SignalRecord *>(record);
    if (!signal.context)
        return false;
    const greg_t * r = static_cast<const ucontext_t *>(signal.context)->uc_mcontext.gregs;
#if defined(__x86_64__)
    return WalkFramePointers(uintptr_t(r[REG_RIP]), uintptr_t(r[REG_RBP]), StackPointerOf(signal.context),
                             sink, listing);
#elif defined(__i386__)
    return WalkFramePointers(uintptr_t(r[REG_EIP]), uintptr_t(r[REG_EBP]), StackPointerOf(signal.context),
                             sink, listing);
#else
    return false;
#endif
}
} // namespace Kiv
