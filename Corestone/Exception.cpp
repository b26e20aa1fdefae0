#include "Exception.h"

#include "FaultRecord.h"
#include "Time.h"

#include <cstdio>
#include <cstring>

namespace Kiv
{
namespace
{
const char noCallStack[] = "No call stack available\r\n";
const char incomplete[] = "\r\nUnable to gather full diagnostics\r\n";
// Frames beyond this are not listed: a runaway recursion fills the report with one line otherwise.
constexpr int maxFrames = 64;
// The lowest 64 KB of the address space are never mapped.
constexpr uintptr_t chainEnd = 0x10000;

// Formats at offset `used` of buffer, cut at the buffer's end and always terminated.
void FormatInto(char * buffer, size_t size, size_t used, const char * format, va_list arguments)
{
    if (used >= size)
        return;
    std::vsnprintf(buffer + used, size - used, format, arguments);
    buffer[size - 1] = '\0';
}

void CopyInto(char * buffer, size_t size, const char * text)
{
    std::snprintf(buffer, size, "%s", text);
}

void AppendTo(char * buffer, size_t size, const char * format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    FormatInto(buffer, size, std::strlen(buffer), format, arguments);
    va_end(arguments);
}

// The register block of the report; on 64-bit targets the same lines carry the R registers.
void AppendRegisters(char * text, size_t size, const FaultRegisters & r)
{
    const char * x = sizeof(void *) == 8 ? "R" : "E";
    int w = sizeof(void *) * 2;
    using U = unsigned long long;
    AppendTo(text, size,
             "  %sAX: %0*llX     %sBX: %0*llX     %sCX: %0*llX     %sDX: %0*llX\r\n"
             "  %sSP: %0*llX     %sBP: %0*llX     %sSI: %0*llX     %sDI: %0*llX\r\n \r\n",
             x, w, U(r.ax), x, w, U(r.bx), x, w, U(r.cx), x, w, U(r.dx), x, w, U(r.sp), x, w, U(r.bp), x, w,
             U(r.si), x, w, U(r.di));
    AppendTo(text, size,
             "   DS: %08X      FS: %08X\r\n   ES: %08X      GS: %08X\r\n   SS: %08X  CS:%sIP: "
             "%04X:%0*llX\r\n \r\n",
             r.ds, r.fs, r.es, r.gs, r.ss, x, r.cs, w, U(r.ip));
    AppendTo(text, size, "Flags: %08X (CF:%d ZF:%d SF:%d)\r\n \r\n", unsigned(r.flags), int(r.flags & 1),
             int(r.flags >> 6 & 1), int(r.flags >> 7 & 1));
}
// Where the frames of a walk are listed: the description, with room kept for the closing line.
struct Listing
{
    char * text;
    size_t size;
    int frames;
};

bool ListFrame(void * context, const StackFrame & frame)
{
    auto & listing = *static_cast<Listing *>(context);
    const size_t used = std::strlen(listing.text);
    const size_t room = listing.size - used;
    const int written = std::snprintf(listing.text + used, room, "%08X - %08X(+%X) %s\r\n", frame.offset,
                                      frame.functionStart, frame.offset - frame.functionStart, frame.module);
    if (listing.frames == maxFrames || written < 0 || size_t(written) + sizeof incomplete >= room)
    {
        listing.text[used] = '\0';
        return false;
    }
    ++listing.frames;
    return true;
}
} // namespace

bool WalkFramePointers(uintptr_t ip, uintptr_t fp, uintptr_t sp, FrameSink sink, void * listing)
{
    StackFrame frame;
    bool whole = true;
    if (!FrameAt(ip, frame))
    {
        // A call to nowhere (a null function pointer) lost its frame; the call's return address is
        // the top word of the stack.
        whole = false;
        if (!Debugger::IsReadValid(reinterpret_cast<void *>(sp), sizeof ip))
            return false;
        std::memcpy(&ip, reinterpret_cast<void *>(sp), sizeof ip);
        if (!FrameAt(ip, frame))
            return false;
    }
    if (!sink(listing, frame))
        return false;
    // The chain ends at a null frame pointer, or at a small number that no stack address can be:
    // code built without frame pointers (the C runtime's start-up among it) leaves one there.
    while (fp >= chainEnd)
    {
        uintptr_t link[2]; // the caller's frame pointer, then the return address
        if (fp % sizeof(uintptr_t) != 0 || fp < sp ||
            !Debugger::IsReadValid(reinterpret_cast<void *>(fp), sizeof link))
            return false;
        std::memcpy(link, reinterpret_cast<void *>(fp), sizeof link);
        if (link[1] == 0)
            break;
        if (!FrameAt(link[1], frame) || !sink(listing, frame) || (link[0] >= chainEnd && link[0] <= fp))
            return false;
        sp = fp + sizeof link;
        fp = link[0];
    }
    return whole;
}

Exception::Exception()
{
    InitMembers();
}

Exception::Exception(const char * file, int line) : Exception(file, line, "") {}

Exception::Exception(const char * file, int line, const char * reason)
    : hardware(false), line(line), file(file)
{
    CopyInto(description, sizeof description, noCallStack);
    CopyInto(this->reason, sizeof this->reason, reason ? reason : "");
}

Exception::Exception(const Exception & other)
{
    *this = other;
}

Exception & Exception::operator=(const Exception & other)
{
    if (this == &other)
        return *this;
    std::memcpy(description, other.description, sizeof description);
    std::memcpy(reason, other.reason, sizeof reason);
    hardware = other.hardware;
    line = other.line;
    file = other.file;
    return *this;
}

const char * Exception::Class() const
{
    return "Unknown";
}

bool Exception::IsHardwareException() const
{
    return hardware;
}

const char * Exception::Description() const
{
    return description;
}

const char * Exception::Reason() const
{
    return reason;
}

void Exception::InitMembers()
{
    description[0] = '\0';
    reason[0] = '\0';
    hardware = false;
    line = 0;
    file = nullptr;
}

void Exception::SetReasonf(const char * format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    VSetReasonf(format, arguments);
    va_end(arguments);
}

void Exception::VSetReasonf(const char * format, va_list arguments)
{
    FormatInto(reason, sizeof reason, 0, format, arguments);
}

void Exception::AddReasonf(const char * format, ...)
{
    AppendTo(reason, sizeof reason, "  -  ");
    va_list arguments;
    va_start(arguments, format);
    FormatInto(reason, sizeof reason, std::strlen(reason), format, arguments);
    va_end(arguments);
}

void Exception::SetDescriptionf(const char * format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    VSetDescriptionf(format, arguments);
    va_end(arguments);
}

void Exception::VSetDescriptionf(const char * format, va_list arguments)
{
    FormatInto(description, sizeof description, 0, format, arguments);
}

const char * Exception::File() const
{
    return file;
}

int Exception::Line() const
{
    return line;
}

void Exception::SetHardwareException(bool hardware)
{
    this->hardware = hardware;
}

bool Exception::HardwareException() const
{
    return hardware;
}

void Exception::Log(int) {}

const HardwareException::TypeName HardwareException::exceptionTypes[TypeCount] = {
    {0xC0000005, "Access Violation"},
    {0xC000008C, "Array Bounds Exceeded"},
    {0x80000003, "Breakpoint"},
    {0x80000002, "Data Type Misalignment"},
    {0xC000008D, "Floating Point Denormal Operation"},
    {0xC000008E, "Floating Point Divide By Zero"},
    {0xC000008F, "Floating Point Inexact Result"},
    {0xC0000090, "Floating Point Invalid Operaton"},
    {0xC0000091, "Floating Point Overflow"},
    {0xC0000092, "Floating Point Stack Check"},
    {0xC0000093, "Floating Point Underflow"},
    {0xC000001D, "Illegal Instruction"},
    {0xC0000006, "In Page Error"},
    {0xC0000094, "Integer Divide By Zero"},
    {0xC0000095, "Integer Overflow"},
    {0xC0000026, "Invalid Disposition"},
    {0xC0000025, "Non-continuable Exception"},
    {0xC0000096, "Privileged Instruction"},
    {0x80000004, "Single Step"},
    {0xC00000FD, "Stack Overflow"},
    {0xE06D7363, "C++ Exception"},
};

HardwareException::HardwareException(void * exceptionPointers) : exceptionPointers(exceptionPointers)
{
    uint32_t code = ReadFault(exceptionPointers).code;
    const char * name = TypeNameOf(code);
    if (name)
        CopyInto(reason, sizeof reason, name);
    else
        SetReasonf("Unknown Exception - %08xh", static_cast<unsigned int>(code));
    GetCallStack(exceptionPointers);
}

HardwareException::HardwareException(const HardwareException & other)
    : Exception(other), exceptionPointers(other.exceptionPointers)
{
}

HardwareException & HardwareException::operator=(const HardwareException & other)
{
    if (this == &other)
        return *this;
    Exception::operator=(other);
    exceptionPointers = other.exceptionPointers;
    return *this;
}

const char * HardwareException::Class() const
{
    return "Hardware";
}

void * HardwareException::ExceptionPointers() const
{
    return exceptionPointers;
}

void HardwareException::GetCallStack(void * exceptionPointers)
{
    Fault fault = ReadFault(exceptionPointers);
    SetDescriptionf(" \r\nException @ %0*llX in %s\r\n \r\nRecoverable exception: %s\r\n \r\n",
                    int(sizeof(void *) * 2), static_cast<unsigned long long>(fault.address), fault.module,
                    reason);
    if (fault.hasRegisters)
        AppendRegisters(description, sizeof description, fault.registers);
    AppendTo(description, sizeof description, "Call Stack:\r\n \r\n");
    Listing listing{description, sizeof description, 0};
    const bool whole = fault.hasRegisters && WalkStack(exceptionPointers, ListFrame, &listing);
    if (listing.frames == 0)
        AppendTo(description, sizeof description, "%s", noCallStack);
    if (!whole && fault.hasRegisters)
        AppendTo(description, sizeof description, "%s", incomplete);
}

const char * HardwareException::TypeNameOf(uint32_t code)
{
    for (const TypeName & type : exceptionTypes)
    {
        if (type.code == code)
            return type.name;
    }
    return nullptr;
}
} // namespace Kiv
