#include "Exception.h"
#include "FaultRecord.h"

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
} // namespace Kiv
