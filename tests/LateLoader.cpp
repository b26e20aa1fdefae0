// Loads a module that uses the library at run time (dlopen, LoadLibrary), long after start-up, as
// a host loads a plug-in, runs it and unloads it, round after round. Each round builds the
// library's statics and tears them down again: the log the module leaves open must end with the
// line unloading writes, and the heap must not grow from round to round. Exits with 0 when every
// round worked.
#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#include <malloc.h>
#include <stdlib.h>
#include <unistd.h>
#endif

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace
{
#if defined(_WIN32)
void * Load(const char * name)
{
    return LoadLibraryA(name);
}
void * Symbol(void * module, const char * name)
{
    return reinterpret_cast<void *>(GetProcAddress(static_cast<HMODULE>(module), name));
}
void Unload(void * module)
{
    FreeLibrary(static_cast<HMODULE>(module));
}
bool LibraryLoaded()
{
    return GetModuleHandleA("Corestone.dll") != nullptr;
}
std::string ScratchFile()
{
    char folder[MAX_PATH];
    char name[MAX_PATH];
    GetTempPathA(MAX_PATH, folder);
    GetTempFileNameA(folder, "kiv", 0, name);
    return name;
}
size_t HeapInUse()
{
    return 0;
}
#else
void * Load(const char * name)
{
    return dlopen(name, RTLD_NOW | RTLD_LOCAL);
}
void * Symbol(void * module, const char * name)
{
    return dlsym(module, name);
}
void Unload(void * module)
{
    dlclose(module);
}
bool LibraryLoaded()
{
    return dlopen("libCorestone.so", RTLD_NOW | RTLD_NOLOAD) != nullptr;
}
std::string ScratchFile()
{
    char name[] = "/tmp/corestone-late-XXXXXX";
    const int descriptor = mkstemp(name);
    if (descriptor >= 0)
        close(descriptor);
    return name;
}
size_t HeapInUse()
{
#if defined(__GLIBC__) && (__GLIBC__ > 2 || __GLIBC_MINOR__ >= 33)
    return mallinfo2().uordblks;
#else
    return 0;
#endif
}
#endif

int Fail(int code, const char * what, int round)
{
    std::fprintf(stderr, "round %d: %s\n", round, what);
    return code;
}

// The log is UTF-16: its last line "End.\r\n" is these twelve bytes.
bool EndsTheLog(const std::string & fileName)
{
    std::ifstream in(fileName, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const std::string end("E\0n\0d\0.\0\r\0\n\0", 12);
    return bytes.size() > end.size() && bytes.compare(bytes.size() - end.size(), end.size(), end) == 0;
}

int Round(const char * moduleName, const std::string & logFile, int round)
{
    void * module = Load(moduleName);
    if (module == nullptr)
        return Fail(3, "the module does not load", round);
    auto exercise = reinterpret_cast<int (*)(const char *)>(Symbol(module, "ExerciseCorestone"));
    const bool worked = exercise != nullptr && exercise(logFile.c_str()) == 0;
    Unload(module);
    if (!worked)
        return Fail(4, "the module failed", round);
    if (LibraryLoaded())
        return Fail(6, "the library stayed loaded", round);
    if (!EndsTheLog(logFile))
        return Fail(7, "unloading did not close the log", round);
    return 0;
}
} // namespace

int main(int argc, char ** argv)
{
    if (argc < 2)
    {
        std::fprintf(stderr, "usage: LateLoader module\n");
        return 2;
    }
    const std::string logFile = ScratchFile();
    constexpr int rounds = 16;
    size_t heapAfterWarmUp = 0;
    int status = 0;
    for (int round = 0; round < rounds && status == 0; ++round)
    {
        status = Round(argv[1], logFile, round);
        // The first rounds fill the loader's and the runtime's own caches; a leak grows on after.
        if (round == rounds / 2)
            heapAfterWarmUp = HeapInUse();
    }
    if (status == 0 && HeapInUse() > heapAfterWarmUp + 256)
        status = Fail(8, "the heap grows with every load", rounds);
    std::remove(logFile.c_str());
    return status;
}
