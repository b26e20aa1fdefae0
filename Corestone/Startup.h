// The library's load-time objects that other parts of it reach.
#pragma once

namespace Kiv
{
class CriticalSection;

// The process-wide lock of the library's small global state, and the one of the shared scratch
// pad; both exist from load to unload.
CriticalSection & GlobalLock();
CriticalSection & SharedScratchPadLock();
// Closes the log and frees its clients: the last step of unloading.
void ReleaseLog();
} // namespace Kiv
