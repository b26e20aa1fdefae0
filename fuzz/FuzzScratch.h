// The scratch file a fuzz target writes each input to, named after the target and the process
// and removed when the process ends.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace FuzzScratch
{
inline std::string & Name()
{
    static std::string name;
    return name;
}

inline void Remove()
{
    remove(Name().c_str());
}

// The scratch file's name once the input is in it; null when it could not be written.
inline const char * Write(const char * target, const uint8_t * data, size_t size)
{
    if (Name().empty())
    {
        Name() = "/tmp/corestone-" + std::string(target) + "-fuzz-" + std::to_string(getpid());
        atexit(Remove);
    }
    FILE * out = fopen(Name().c_str(), "wb");
    if (!out)
        return nullptr;
    const bool written = fwrite(data, 1, size, out) == size;
    return fclose(out) == 0 && written ? Name().c_str() : nullptr;
}
} // namespace FuzzScratch
