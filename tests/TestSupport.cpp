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

std::string DataFile(const std::string & name)
{
    return std::string(CORESTONE_TEST_DATA) + "/" + name;
}
} // namespace TestSupport
