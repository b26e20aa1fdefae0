// What the exception handler asks of the system: running a main function under the fault
// handler, dumps and report files, and the fatal-error window.
#pragma once

#include "Exception.h"

namespace Kiv
{
namespace HandlerPlatform
{
// Runs ExceptionHandler::MainTryCatch(function, data) with this thread's way back set: a fault
// that the filter does not leave to the system comes back here, and then the answer is Failed.
int RunGuarded(int (*function)(void *), void * data);
// Lets the system dump core on faults left to it, or not.
void SetSystemCoreDumps(bool enabled);
// Writes a dump of the process at the fault (fault record of the filter) to the file name,
// without its extension, which the dump's kind adds.
void WriteDump(const char * name, void * record, int options);
// Writes text to a new file, without allocating.
void WriteTextFile(const char * name, const char * text);
// Shows the built-in fatal-error window: 0 goes on, 1 ends the program, -1 (with `stage`, the
// step that failed) when the window could not be shown.
int ShowWindow(Exception & exception, const char * report, int & stage);
// Adds a line to a list control of the window.
void AddListLine(void * dialog, void * list, const char * line);
unsigned long ProcessId();
} // namespace HandlerPlatform
} // namespace Kiv
