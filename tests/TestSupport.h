// Helpers shared by the test programs: scratch folders and golden byte files.
#pragma once

#include "File.h"

#include <set>
#include <string>
#include <vector>

namespace TestSupport
{
// A fresh, empty folder for one test, removed with everything in it when the object dies.
class TempDir
{
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir & operator=(const TempDir &) = delete;

    const std::string & Path() const { return path; }
    std::string operator/(const std::string & name) const { return path + "/" + name; }

private:
    std::string path;
};

std::vector<unsigned char> ReadBytes(const std::string & fileName);
void WriteBytes(const std::string & fileName, const std::vector<unsigned char> & bytes);
void WriteText(const std::string & fileName, const std::string & text);
// What a File::Find search lists: names with their paths, or names alone with a slash after folders.
std::multiset<std::string> Listing(const std::string & pattern, bool withPath = false);
// A pair-coded block whose codes 50 to 177 each stand for the code before twice, with the one
// data byte `code`: code c expands to 2^(c - 49) bytes.
std::vector<unsigned char> DoublingBlock(unsigned char code);
// A file of tests/data, the golden files every target checks against.
std::string DataFile(const std::string & name);
// A program built beside the test programs.
std::string ProgramBeside(const std::string & name);
// Runs a program with its arguments (through the emulator of a cross build when there is one),
// its standard output and error sent to the files; answers its exit code, -1 when it did not exit.
int RunProgram(std::vector<std::string> words, const std::string & outFile, const std::string & errFile);

// What the Kiv::FileEx thrown by `action` tells, as "source: reason", or "no exception".
template <typename Action>
std::string FileFailure(Action action)
{
    try
    {
        action();
    }
    catch (const Kiv::FileEx & failure)
    {
        return std::string(failure.File()) + ": " + failure.Reason() +
               (failure.Line() > 0 ? "" : " (no line)");
    }
    return "no exception";
}
} // namespace TestSupport
