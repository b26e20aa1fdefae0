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

// One frame of a call stack. Positions are offsets into the frame's module, so a report reads the
// same wherever the system loaded the module and maps straight onto the module's symbols.
struct StackFrame
{
    uint32_t offset;        // of the code address
    uint32_t functionStart; // offset of the enclosing function's first byte; 0 when unknown
    char module[260];       // the module's file name
};

// Takes the frames of a walk, innermost first; answers false when it can take no more.
using FrameSink = bool (*)(void * listing, const StackFrame & frame);

// Describes a code address; false when it lies in no loaded module.
bool FrameAt(uintptr_t address, StackFrame & frame);
// Walks the call stack of a fault from its saved context without ever faulting: every read of the
// stack is checked first. Answers false when the walk stopped before the stack's end (a frame that
// cannot be read or does not lead up the stack, or a sink that is full).
bool WalkStack(const void * record, FrameSink sink, void * listing);
// The walk along the chain of saved frame pointers, from a fault's instruction, frame and stack
// pointers, for code built with frame pointers.
bool WalkFramePointers(uintptr_t ip, uintptr_t fp, uintptr_t sp, FrameSink sink, void * listing);
} // namespace Kiv
