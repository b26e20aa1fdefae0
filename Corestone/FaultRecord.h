// What a platform's fault record tells about a processor fault, read without walking the stack.
#pragma once

#include <cstdint>

namespace Kiv
{
struct FaultRegisters
{
    uint64_t ax, bx, cx, dx, sp, bp, si, di, ip, flags;
    uint32_t ds, fs, es, gs, ss, cs;
};

struct Fault
{
    uint32_t code;
    uint64_t address; // of the faulting instruction
    char module[260]; // file name of the module holding it, empty when unknown
    bool hasRegisters;
    FaultRegisters registers;
};

// Reads a Win32 EXCEPTION_POINTERS or a HardwareException::SignalRecord; null gives an empty fault.
Fault ReadFault(const void * record);
} // namespace Kiv
