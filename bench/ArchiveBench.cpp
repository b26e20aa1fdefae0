// Opening and reading 10,000 small stored files by name from one archive, against PhysicsFS
// mounting a stored (uncompressed) ZIP of the same files.
#include "File.h"
#include "PString.h"

#include <benchmark/benchmark.h>
#include <physfs.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

using Kiv::File;

namespace
{
namespace fs = std::filesystem;

const unsigned fileCount = 10000;

// The files in 100 folders, the archive made through the library, and the ZIP made by `zip`;
// removed at exit.
struct Fixture
{
    std::string folder;
    std::vector<std::string> names;
    size_t bytes = 0;

    Fixture()
    {
        folder =
            (fs::temp_directory_path() / ("corestone-archivebench-" + std::to_string(getpid()))).string();
        const std::string tree = folder + "/tree";
        fs::create_directories(tree);
        const Kiv::PString archive("benchArchive");
        File::Subst(archive, (folder + "/files.ark").c_str(), true);
        std::string data;
        for (unsigned n = 0; n < fileCount; ++n)
        {
            const std::string name = "dir" + std::to_string(n % 100) + "/file" + std::to_string(n) + ".dat";
            names.push_back(name);
            data.assign(100 + (n * 7919) % 1900, static_cast<char>('a' + n % 26));
            bytes += data.size();
            fs::create_directories(tree + "/dir" + std::to_string(n % 100));
            std::ofstream(tree + "/" + name, std::ios::binary) << data;
            File file;
            if (file.Open(archive, name.c_str(), File::MODE_WRITE | File::MODE_CREATE) != File::RES_OK)
                abort();
            file.Write(data.data(), static_cast<unsigned long>(data.size()), 1);
            file.Close();
        }
        File::Subst(archive, nullptr);
        const std::string zip = "cd '" + tree + "' && zip -0 -q -r ../files.zip .";
        if (system(zip.c_str()) != 0)
            abort();
        File::Subst(archive, (folder + "/files.ark").c_str());
        if (!PHYSFS_init(nullptr) || !PHYSFS_mount((folder + "/files.zip").c_str(), nullptr, 1))
            abort();
    }

    ~Fixture()
    {
        PHYSFS_deinit();
        File::Subst(Kiv::PString("benchArchive"), nullptr);
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
};

Fixture & Files()
{
    static Fixture fixture;
    return fixture;
}

void OpenKiv(benchmark::State & state)
{
    Fixture & files = Files();
    std::vector<std::string> prefixed;
    for (const std::string & name : files.names)
        prefixed.push_back("benchArchive:" + name);
    static char data[4096];
    for (auto _ : state)
    {
        for (const std::string & name : prefixed)
        {
            File file;
            if (file.Open(name.c_str(), File::MODE_READ) != File::RES_OK)
                abort();
            benchmark::DoNotOptimize(file.Read(data, sizeof(data), 1));
            file.Close();
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * fileCount);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * files.bytes));
}

void OpenPhysicsFS(benchmark::State & state)
{
    Fixture & files = Files();
    static char data[4096];
    for (auto _ : state)
    {
        for (const std::string & name : files.names)
        {
            PHYSFS_File * file = PHYSFS_openRead(name.c_str());
            if (!file)
                abort();
            benchmark::DoNotOptimize(PHYSFS_readBytes(file, data, sizeof(data)));
            PHYSFS_close(file);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * fileCount);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * files.bytes));
}
} // namespace

BENCHMARK(OpenKiv)->Name("Archive/open-10k:Kiv")->Unit(benchmark::kMillisecond);
BENCHMARK(OpenPhysicsFS)->Name("Archive/open-10k:PhysicsFS")->Unit(benchmark::kMillisecond);
