// A real debugger breakpoint at the caller's position: under a debugger it stops there, without
// one the process ends with the breakpoint fault (SIGTRAP on POSIX).
#pragma once

#if defined(_WIN32)
#include <windows.h>
#else
#include <csignal>
#endif

namespace Kiv
{
inline void DebugTrap()
{
#if defined(_WIN32)
    DebugBreak();
#elif defined(__i386__) || defined(__x86_64__)
    __asm__ volatile("int3");
#else
    std::raise(SIGTRAP);
#endif
}
} // namespace Kiv
