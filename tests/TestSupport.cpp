#include "TestSupport.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#if defined(_WIN32)
#include <windows.h>
#else
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
extern char ** environ;
#endif

namespace TestSupport
{
namespace fs = std::filesystem;

TempDir::TempDir()
{
    static std::atomic<unsigned> serial{0};
    const auto stamp = std::to_string(fs::file_time_type::clock::now().time_since_epoch().count());
    fs::path dir = fs::temp_directory_path() / ("corestone-" + stamp + "-" + std::to_string(serial++));
    fs::create_directories(dir);
    path = dir.generic_string();
}

TempDir::~TempDir()
{
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

std::vector<unsigned char> ReadBytes(const std::string & fileName)
{
    std::ifstream in(fileName, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + fileName);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteBytes(const std::string & fileName, const std::vector<unsigned char> & bytes)
{
    std::ofstream out(fileName, std::ios::binary);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void WriteText(const std::string & fileName, const std::string & text)
{
    WriteBytes(fileName, {text.begin(), text.end()});
}

std::multiset<std::string> Listing(const std::string & pattern, bool withPath)
{
    std::multiset<std::string> names;
    Kiv::File::Find find;
    for (bool more = find.Open(pattern.c_str()); more; more = find.Next())
        names.insert(withPath ? find.GetNameAndPath().Text()
                              : std::string(find.Name()) + (find.Current().IsDir() ? "/" : ""));
    return names;
}

std::vector<unsigned char> DoublingBlock(unsigned char code)
{
    std::vector<unsigned char> block = {127 + 50, 127};
    for (int c = 49; c < 177; ++c)
        block.insert(block.end(), {static_cast<unsigned char>(c), static_cast<unsigned char>(c)});
    block.insert(block.end(), {127 + 78, 0, 1, code});
    return block;
}

std::string DataFile(const std::string & name)
{
    return std::string(CORESTONE_TEST_DATA) + "/" + name;
}

std::string ProgramBeside(const std::string & name)
{
#if defined(_WIN32)
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, sizeof(path));
    return (fs::path(path).parent_path() / (name + ".exe")).string();
#else
    return (fs::read_symlink("/proc/self/exe").parent_path() / name).string();
#endif
}

int RunProgram(std::vector<std::string> words, const std::string & outFile, const std::string & errFile)
{
#if defined(_WIN32)
    // cmd passes the line on as it stands; the program's runtime splits it into words, and there
    // a backslash keeps a double quote inside a word.
    std::string command = "\"";
    for (std::string word : words)
    {
        for (size_t quote = 0; (quote = word.find('"', quote)) != std::string::npos; quote += 2)
            word.insert(quote, "\\");
        command += "\"" + word + "\" ";
    }
    command += "> \"" + outFile + "\" 2> \"" + errFile + "\"\"";
    return std::system(command.c_str());
#else
    const char * emulator = getenv("CORESTONE_EMULATOR");
    if (emulator && *emulator)
        words.insert(words.begin(), emulator);
    std::vector<char *> arguments;
    for (std::string & word : words)
        arguments.push_back(&word[0]);
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t child = 0;
    int status = 0;
    const int started = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return started == 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status)
                                                                                    : -1;
#endif
}
} // namespace TestSupport
