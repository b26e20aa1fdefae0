// Loads a module that uses the library through dlopen, long after start-up, as a host loads a
// plug-in, runs it and unloads it, twice. Exits with 0 when every round worked.
#include <dlfcn.h>

#include <cstdio>

int main(int argc, char ** argv)
{
    if (argc < 2)
    {
        std::fprintf(stderr, "usage: LateLoader module\n");
        return 2;
    }
    for (int round = 0; round < 2; ++round)
    {
        void * module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (module == nullptr)
        {
            std::fprintf(stderr, "%s\n", dlerror());
            return 3;
        }
        auto exercise = reinterpret_cast<int (*)()>(dlsym(module, "ExerciseCorestone"));
        const int failures = exercise != nullptr ? exercise() : -1;
        if (failures != 0)
        {
            std::fprintf(stderr, "round %d: %d failures\n", round, failures);
            return 4;
        }
        dlclose(module);
    }
    return 0;
}
