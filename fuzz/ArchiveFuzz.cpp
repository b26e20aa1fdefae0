// Arbitrary bytes as an archive: substituted read-only, listed folder by folder with File::Find,
// every stored file opened and read to its end, and the substitution removed again.
#include "File.h"
#include "FuzzScratch.h"
#include "PString.h"

#include <cstdint>
#include <cstdlib>
#include <string>

using Kiv::File;
using Kiv::PString;

namespace
{
void ReadStored(const char * name)
{
    static unsigned char piece[5000];
    // A name cut at the path's bound behind the prefix may not open; a file that opens must stay
    // inside its size.
    File file;
    if (file.Open(name, File::MODE_READ) != File::RES_OK)
        return;
    const unsigned long size = file.Size();
    unsigned long total = 0;
    while (unsigned long got = file.Read(piece, sizeof(piece), 1))
        total += got;
    if (total > size)
        abort();
    file.Close();
}

// Lists a folder and reads what it holds; folders nest no deeper than a name is long.
void Walk(const std::string & folder, unsigned depth)
{
    if (depth > File::MAX_PATH_LENGTH)
        abort();
    File::Find find;
    for (bool found = find.Open((folder + "*").c_str()); found; found = find.Next())
    {
        const std::string name = find.GetNameAndPath().Text();
        if (find.Current().IsDir())
            Walk(name + "/", depth + 1);
        else
            ReadStored(name.c_str());
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t * data, size_t size)
{
    const char * scratch = FuzzScratch::Write("archive", data, size);
    if (!scratch)
        return 0;
    const PString name("fuzzArchive");
    File::Subst(name, scratch);
    Walk("fuzzArchive:", 0);
    File file;
    file.Open("fuzzArchive:a.txt", File::MODE_READ);
    file.Close();
    File::Subst(name, nullptr);
    if (File::OpenCount() != 0)
        abort();
    return 0;
}
