#include "FileSub.h"
#include "Time.h"
#include "Tool.h"

#include <algorithm>
#include <cstdio>
#include <functional>

namespace Tool
{
using Kiv::File;

namespace
{
const unsigned long copyPiece = 1 << 16;

// Each archive gets a substitution name of its own, so that two may be open at once.
Kiv::PString NewSubstName()
{
    static unsigned serial = 0;
    Kiv::PString name;
    name.Setf("kiv-archive-%u", serial++);
    return name;
}

std::string WithoutTrailingSeparators(std::string name)
{
    while (name.size() > 1 && (name.back() == '/' || name.back() == '\\'))
        name.pop_back();
    return name;
}

// The files below folder through a search: folders are entered, files collected.
template <typename Search>
void Collect(const std::string & folder, Search search, std::vector<Item> & items)
{
    File::Find find;
    std::vector<std::string> folders;
    for (bool found = search(find, folder.empty() ? std::string("*") : folder + "/*"); found;
         found = find.Next())
    {
        const File::Entry & entry = find.Current();
        const std::string name = folder.empty() ? std::string(entry.name) : folder + "/" + entry.name;
        if (entry.IsDir())
            folders.push_back(name);
        else
            items.push_back({name, entry.size, entry.IsCompressed()});
    }
    find.Close();
    for (const std::string & inner : folders)
        Collect(inner, search, items);
}

void SortByName(std::vector<Item> & items)
{
    std::sort(items.begin(), items.end(), [](const Item & a, const Item & b) { return a.name < b.name; });
}
} // namespace

bool Arguments::Has(const char * option) const
{
    return std::find(options.begin(), options.end(), option) != options.end();
}

void Fail(const std::string & file, const std::string & reason)
{
    throw Failure{file, reason};
}

void Report(const Command & command, const Failure & failure)
{
    fprintf(stderr, "kiv %s: %s: %s\n", command.name, failure.file.c_str(), failure.reason.c_str());
}

void Open(File & file, const Kiv::PString & subst, const std::string & name, unsigned long mode,
          const std::string & shown)
{
    const File::Result result = file.Open(subst, name.c_str(), mode);
    if (!result.Succeeded())
        Fail(shown, result.Message() != nullptr ? result.Message() : "cannot open");
}

void Open(File & file, const std::string & name, unsigned long mode)
{
    Open(file, Kiv::PString(), name, mode, name);
}

void Copy(File & from, File & to, const std::string & toName, Progress & progress)
{
    std::vector<unsigned char> piece(copyPiece);
    for (;;)
    {
        const unsigned long got = from.Read(piece.data(), copyPiece, 1);
        if (got == 0)
            break;
        if (to.Write(piece.data(), got, 1) != got)
            Fail(toName, "write failed (disk full?)");
        progress.Advance(got);
    }
}

void Finish(File & file, const std::string & shown)
{
    if (file.Close() != 0)
        Fail(shown, "not all of it could be written (disk full?)");
}

void Produce(const std::string & out, unsigned long mode, const std::function<void(File &)> & write)
{
    // Only an output this command made is removed when it fails: never a device or an old file.
    const bool existed = File::Exists(out.c_str()) == File::RES_OK;
    File to;
    Open(to, out, mode);
    try
    {
        write(to);
        Finish(to, out);
    }
    catch (...)
    {
        to.Close();
        if (!existed)
            File::Remove(out.c_str());
        throw;
    }
}

void Transcode(const std::string & in, unsigned long inMode, const std::string & out, unsigned long outMode,
               const char * label)
{
    File from;
    Open(from, in, inMode);
    if ((inMode & File::MODE_READ_MASK) == File::MODE_READ_COMPRESSED && !from.IsCompressed())
        Fail(in, "not a compressed file");
    Produce(out, outMode,
            [&](File & to)
            {
                Progress progress(label, from.Size());
                Copy(from, to, out, progress);
            });
}

bool IsDirectory(const std::string & name)
{
    const std::string folder = WithoutTrailingSeparators(name);
    const size_t slash = folder.find_last_of("/\\");
    const std::string last = folder.substr(slash == std::string::npos ? 0 : slash + 1);
    if (last.empty() || last == "." || last == "..")
        return true;
    // The folder's own entry in its parent says what it is.
    File::Find find;
    return find.Open(folder.c_str()) && find.Current().IsDir();
}

uint64_t TotalSize(const std::vector<Item> & items)
{
    uint64_t total = 0;
    for (const Item & item : items)
        total += item.size;
    return total;
}

std::vector<Item> FilesBelow(const std::string & directory)
{
    const std::string top = WithoutTrailingSeparators(directory);
    std::vector<Item> items;
    Collect(
        top, [](File::Find & find, const std::string & pattern) { return find.Open(pattern.c_str()); },
        items);
    for (Item & item : items)
        item.name.erase(0, top.size() + 1);
    SortByName(items);
    return items;
}

std::string StoredName(const std::string & name)
{
    std::string stored = name;
    std::replace(stored.begin(), stored.end(), '\\', '/');
    while (stored.compare(0, 2, "./") == 0 || stored.compare(0, 1, "/") == 0)
        stored.erase(0, stored[0] == '/' ? 1 : 2);
    const std::string padded = "/" + stored + "/";
    if (stored.empty() || padded.find("/../") != std::string::npos || stored.find(':') != std::string::npos)
        Fail(name, "cannot be stored or extracted under this name (empty, or leads out of its folder)");
    return stored;
}

Archive::Archive(const std::string & archivePath, Access access) : path(archivePath), subst(NewSubstName())
{
    const bool exists = File::Exists(path.c_str()) == File::RES_OK;
    if (access != CREATE && !exists)
        Fail(path, "no such archive");
    if (exists)
    {
        // A file that is not an archive would open as an empty one; it is refused instead.
        auto * probe = new Kiv::FileSubArchive(path.c_str(), false);
        const bool valid = probe->IsValid();
        probe->Release();
        if (!valid)
            Fail(path, "not an archive, or damaged beyond reading");
    }
    File::Subst(subst, path.c_str(), access != READ);
}

Archive::~Archive()
{
    File::Subst(subst, nullptr);
}

std::vector<Item> Archive::Files() const
{
    std::vector<Item> items;
    const Kiv::PString & name = subst;
    Collect(
        std::string(),
        [&name](File::Find & find, const std::string & pattern) { return find.Open(pattern.c_str(), name); },
        items);
    SortByName(items);
    return items;
}

void Archive::Store(const std::string & diskName, const std::string & name, bool compressed,
                    Progress & progress)
{
    File from;
    Open(from, diskName, File::MODE_READ_PLAIN);
    File to;
    const unsigned long mode =
        (compressed ? File::MODE_WRITE_COMPRESSED : File::MODE_WRITE) | File::MODE_CREATE;
    const std::string shown = path + ":" + name;
    Open(to, subst, name, mode, shown);
    Copy(from, to, shown, progress);
    File::Time stamp;
    if (from.GetStamp(stamp))
        to.SetStamp(stamp);
    Finish(to, shown);
}

Progress::Progress(const char * what, uint64_t amount) : label(what), total(amount), started(Kiv::Time::Ms())
{
}

Progress::~Progress()
{
    if (shown)
        fprintf(stderr, "\r%*s\r", 60, "");
}

void Progress::Advance(uint64_t amount)
{
    done += amount;
    const uint32_t now = Kiv::Time::Ms();
    // Short work draws nothing; long work redraws a few times a second.
    if (now - started < 500 || now - drawn < 100 || !StandardErrorIsTerminal())
        return;
    drawn = now;
    Draw();
}

void Progress::Draw()
{
    const int width = 30;
    const uint64_t shownDone = std::min(done, total);
    const int filled = total ? static_cast<int>(shownDone * width / total) : width;
    const int percent = total ? static_cast<int>(shownDone * 100 / total) : 100;
    fprintf(stderr, "\r%-12.12s [%.*s%*s] %3d%%", label, filled, "##############################",
            width - filled, "", percent);
    fflush(stderr);
    shown = true;
}
} // namespace Tool
