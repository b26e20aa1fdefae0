#include "Exception.h"
#include "FaultRecord.h"
#include "Time.h"

#include <cstdio>
#include <cstring>
#include <windows.h>

namespace Kiv
{
namespace
{
void ReadRegisters(const CONTEXT & c, Fault & fault)
{
#if defined(_M_X64) || defined(__x86_64__)
    fault.registers = {c.Rax, c.Rbx,    c.Rcx,   c.Rdx,   c.Rsp,   c.Rbp,   c.Rsi,   c.Rdi,
                       c.Rip, c.EFlags, c.SegDs, c.SegFs, c.SegEs, c.SegGs, c.SegSs, c.SegCs};
#else
    fault.registers = {c.Eax, c.Ebx,    c.Ecx,   c.Edx,   c.Esp,   c.Ebp,   c.Esi,   c.Edi,
                       c.Eip, c.EFlags, c.SegDs, c.SegFs, c.SegEs, c.SegGs, c.SegSs, c.SegCs};
#endif
    fault.hasRegisters = true;
}
} // namespace

Fault ReadFault(const void * record)
{
    Fault fault{};
    const auto * pointers = static_cast<const EXCEPTION_POINTERS *>(record);
    if (!pointers || !pointers->ExceptionRecord)
        return fault;
    fault.code = pointers->ExceptionRecord->ExceptionCode;
    fault.address = reinterpret_cast<uintptr_t>(pointers->ExceptionRecord->ExceptionAddress);
    if (pointers->ContextRecord)
        ReadRegisters(*pointers->ContextRecord, fault);
    HMODULE module = nullptr;
    if (GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                               GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           static_cast<LPCSTR>(pointers->ExceptionRecord->ExceptionAddress), &module))
        GetModuleFileNameA(module, fault.module, sizeof fault.module);
    return fault;
}

// On 64-bit Windows every function but a leaf has an entry in its module's function table, which
// gives its start; 32-bit modules have no such table, so there the start is left unknown (0).
bool FrameAt(uintptr_t address, StackFrame & frame)
{
    HMODULE module = nullptr;
    if (address == 0 || !GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                                GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                            reinterpret_cast<LPCSTR>(address), &module))
        return false;
    const uintptr_t base = reinterpret_cast<uintptr_t>(module);
    frame.offset = uint32_t(address - base);
    frame.functionStart = 0;
#if defined(_M_X64) || defined(__x86_64__)
    DWORD64 imageBase = 0;
    if (const RUNTIME_FUNCTION * function = RtlLookupFunctionEntry(address, &imageBase, nullptr))
        frame.functionStart = function->BeginAddress;
#endif
    if (!GetModuleFileNameA(module, frame.module, sizeof frame.module))
        frame.module[0] = '\0';
    return true;
}

#if defined(_M_X64) || defined(__x86_64__)
namespace
{
// A routine without a table entry keeps its return address near the top of the stack: a leaf
// function right on top, the stack probe of large frames after the two registers it saves.
bool UnwindLeaf(CONTEXT & context)
{
    constexpr int reach = 4;
    DWORD64 words[reach];
    if (!Debugger::IsReadValid(reinterpret_cast<void *>(context.Rsp), sizeof words))
        return false;
    std::memcpy(words, reinterpret_cast<void *>(context.Rsp), sizeof words);
    StackFrame frame;
    for (int i = 0; i < reach; ++i)
    {
        if (FrameAt(words[i], frame))
        {
            context.Rip = words[i];
            context.Rsp += 8 * (i + 1);
            return true;
        }
    }
    return false;
}

// One step of the unwind from the function's table entry. False when the frame cannot be read.
bool Unwind(CONTEXT & context)
{
    DWORD64 imageBase = 0;
    const DWORD64 pc = context.Rip;
    RUNTIME_FUNCTION * function = RtlLookupFunctionEntry(pc, &imageBase, nullptr);
    if (!function)
        return UnwindLeaf(context);
    // An unwind reads the saved registers and the return address a little above the stack pointer.
    if (!Debugger::IsReadValid(reinterpret_cast<void *>(context.Rsp), 64))
        return false;
    void * handlerData = nullptr;
    DWORD64 establisher = 0;
    RtlVirtualUnwind(UNW_FLAG_NHANDLER, imageBase, pc, function, &context, &handlerData, &establisher,
                     nullptr);
    return true;
}
} // namespace

bool WalkStack(const void * record, FrameSink sink, void * listing)
{
    const auto * pointers = static_cast<const EXCEPTION_POINTERS *>(record);
    CONTEXT context = *pointers->ContextRecord;
    StackFrame frame;
    // A call to nowhere (a null function pointer) lost its frame: the walk goes on from its caller.
    const bool whole = FrameAt(context.Rip, frame);
    if (!whole && (!Unwind(context) || !FrameAt(context.Rip, frame)))
        return false;
    while (sink(listing, frame))
    {
        const DWORD64 sp = context.Rsp;
        if (!Unwind(context) || context.Rsp <= sp)
            return false;
        if (context.Rip == 0)
            return whole;
        if (!FrameAt(context.Rip, frame))
            return false;
    }
    return false;
}
#else
bool WalkStack(const void * record, FrameSink sink, void * listing)
{
    const CONTEXT & c = *static_cast<const EXCEPTION_POINTERS *>(record)->ContextRecord;
    return WalkFramePointers(c.Eip, c.Ebp, c.Esp, sink, listing);
}
#endif
} // namespace Kiv
