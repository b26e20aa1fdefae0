// Shows the small-block allocator at work: a burst of allocations of a few sizes, their release
// into the per-class caches, and a second burst served from those caches. The statistics go through
// Kiv::Debugger::Output (the debugger on Windows, standard error elsewhere).
#include "Kiv.h"

#include <cstdio>
#include <cstring>
#include <vector>

namespace
{
std::vector<void *> Burst(unsigned int size, int count)
{
    std::vector<void *> blocks;
    for (int i = 0; i < count; ++i)
    {
        void * p = Kiv::Alloc::New(size);
        std::memset(p, i & 0xFF, size);
        blocks.push_back(p);
    }
    return blocks;
}

void Release(const std::vector<void *> & blocks)
{
    for (void * p : blocks)
        Kiv::Alloc::Delete(p);
}

void Report(const char * stage)
{
    std::printf("%-28s hits %6u  misses %6u  large %4u  cached 16-byte blocks %5u\n", stage,
                uint32_t(Kiv::Alloc::hits), uint32_t(Kiv::Alloc::misses), uint32_t(Kiv::Alloc::large),
                Kiv::Alloc::count[2]);
}
} // namespace

int main()
{
    std::printf("Corestone %s\n", Kiv::BuildVersion::GetKivBuildVersionString());
    const unsigned int sizes[] = {12, 24, 100, 2000};
    std::vector<std::vector<void *>> bursts;
    for (unsigned int size : sizes)
        bursts.push_back(Burst(size, 1000));
    Report("first burst (heap):");
    for (const auto & blocks : bursts)
        Release(blocks);
    Report("released into the caches:");

    // Sizes 5 to 12 share one class: these come from the blocks the first burst gave back.
    std::vector<void *> reused = Burst(8, 1000);
    Report("second burst (cached):");
    Release(reused);

    double start = Kiv::Time::GetSeconds();
    for (int i = 0; i < 1000000; ++i)
        Kiv::Alloc::Delete(Kiv::Alloc::New(32));
    std::printf("1,000,000 pairs of 32 bytes in %.1f ms\n", (Kiv::Time::GetSeconds() - start) * 1000.0);
    std::fflush(stdout);
    Kiv::Alloc::Dump();
    return 0;
}
