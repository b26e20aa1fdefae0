// Drives a memory file over the input with operations taken from the input itself: typed reads,
// block reads of any count, serialised strings, seeks from every origin, writes into a copy; and
// loads the input as text from a file, as the configuration reader does.
#include "File.h"
#include "FuzzScratch.h"
#include "MemoryFile.h"
#include "PString.h"
#include "String.h"
#include "UnicodeString.h"

#include <clocale>
#include <cstdint>
#include <vector>

namespace
{
void Step(Kiv::MemoryFile & memory, std::vector<unsigned char> & scratch)
{
    switch (memory.Readubyte() % 9)
    {
    case 0:
        memory.Readudword();
        memory.Readsword();
        memory.Readfloat();
        break;
    case 1:
    {
        const unsigned count = memory.Readudword();
        const unsigned itemSize = memory.Readubyte();
        memory.Read(scratch.data(), count, itemSize);
        break;
    }
    case 2:
    {
        Kiv::PString text;
        memory.Read(text, true);
        break;
    }
    case 3:
    {
        Kiv::String text;
        memory.Read(text);
        break;
    }
    case 4:
    {
        Kiv::UnicodeString text;
        memory.Read(text);
        break;
    }
    case 5:
    {
        const int offset = memory.Readsdword();
        memory.Seek(offset, static_cast<Kiv::File::FileSeek>(memory.Readubyte() % 4));
        break;
    }
    case 6:
        memory.Peek();
        memory.Eof();
        break;
    case 7:
    {
        Kiv::MemoryFile copy(memory);
        copy.Write(scratch.data(), memory.Readubyte());
        break;
    }
    default:
    {
        Kiv::DynamicBuffer buffer(0, memory.Readubyte());
        if (!memory.Eof())
            buffer.Write(memory.CurrentPosition(), memory.Size() - memory.Tell(), 1);
        buffer.Seek(memory.Readudword() % 64);
        Kiv::String text;
        buffer.Read(text);
        buffer.Write(text);
        break;
    }
    }
}

void LoadAsText(const uint8_t * data, size_t size, int encoding)
{
    const char * name = FuzzScratch::Write("memoryfile", data, size);
    Kiv::File file;
    if (name && file.Open(name, Kiv::File::MODE_READ).Succeeded())
        Kiv::MemoryFile text(file, true, encoding);
}
} // namespace

// Text conversions go through the locale; a UTF-8 one reaches every path.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    setlocale(LC_ALL, "C.UTF-8");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t * data, size_t size)
{
    if (size < 1)
        return 0;
    const bool text = (data[0] & 4) != 0;
    const int encoding = data[0] & 3;
    // Writes through a view change the viewed bytes, so the view is of a copy.
    std::vector<unsigned char> bytes(data + 1, data + size);
    Kiv::MemoryFile memory(static_cast<const void *>(bytes.data()), static_cast<unsigned>(bytes.size()), text,
                           encoding);
    // Converted text may be longer than the input; the scratch area holds any read or write.
    std::vector<unsigned char> scratch(memory.Size() + 256);
    for (int steps = 0; steps < 1024 && memory.IsOpen() && !memory.Eof(); ++steps)
        Step(memory, scratch);
    if (text)
        LoadAsText(data + 1, size - 1, encoding);
    return 0;
}
