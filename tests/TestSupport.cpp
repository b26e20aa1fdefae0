#include "TestSupport.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

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
} // namespace TestSupport
