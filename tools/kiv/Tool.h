// The kiv tool: its commands and what they share. A command is one Command record, defined in
// the command's own source and listed once in the table of main.cpp.
#pragma once

#include "File.h"
#include "PString.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Tool
{
// The operands and options given to one command.
struct Arguments
{
    std::vector<std::string> operands;
    std::vector<std::string> options;

    bool Has(const char * option) const;
};

struct Command
{
    const char * name;
    const char * usage;   // the operands and options after the name
    const char * summary; // one line for the tool's help
    const char * details; // the rest of the command's help
    unsigned minOperands;
    unsigned maxOperands; // Unlimited for any number
    const char * options; // the options it takes, separated by blanks
    int (*run)(const Arguments & arguments);
};

constexpr unsigned Unlimited = ~0u;

extern const Command packCommand, listCommand, extractCommand, addCommand, removeCommand, compressCommand,
    decompressCommand, crcCommand, imgCommand, crashCommand, cfgCommand;

// What ends a command: the file it concerns and why. main prints it and exits with 1.
struct Failure
{
    std::string file;
    std::string reason;
};

[[noreturn]] void Fail(const std::string & file, const std::string & reason);
// Prints a failure as "kiv COMMAND: FILE: REASON" on standard error.
void Report(const Command & command, const Failure & failure);

// A progress bar on standard error, drawn only when that is a terminal and the work has gone on
// for a while.
class Progress
{
public:
    Progress(const char * label, uint64_t total);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress & operator=(const Progress &) = delete;

    void Advance(uint64_t amount);

private:
    void Draw();

    const char * label;
    uint64_t total;
    uint64_t done = 0;
    uint32_t started;
    uint32_t drawn = 0;
    bool shown = false;
};

bool StandardErrorIsTerminal();

// A stored or disk file found by a walk, its name relative to where the walk began.
struct Item
{
    std::string name;
    uint64_t size;
    bool compressed;
};

// An archive mounted as a substitution for the life of the object; closing it writes the index.
class Archive
{
public:
    enum Access
    {
        READ,   // must exist
        UPDATE, // must exist, is changed
        CREATE  // made when missing
    };
    // One that cannot be read as an archive fails.
    Archive(const std::string & path, Access access);
    ~Archive();
    Archive(const Archive &) = delete;
    Archive & operator=(const Archive &) = delete;

    const Kiv::PString & Subst() const { return subst; }
    const std::string & Path() const { return path; }
    // Every stored file, with '/' between folders, in name order.
    std::vector<Item> Files() const;
    // Stores a disk file under name, compressed or not, with its time stamp.
    void Store(const std::string & diskName, const std::string & name, bool compressed, Progress & progress);

private:
    std::string path;
    Kiv::PString subst;
};

// The files below a disk folder, relative to it, with '/' between folders, in name order.
std::vector<Item> FilesBelow(const std::string & directory);
bool IsDirectory(const std::string & name);
uint64_t TotalSize(const std::vector<Item> & items);
// A name to store: '/' separators, no leading "./" or '/'; a ".." part fails.
std::string StoredName(const std::string & name);

// Opens or fails with a message naming the file and the reason.
void Open(Kiv::File & file, const Kiv::PString & subst, const std::string & name, unsigned long mode,
          const std::string & shown);
void Open(Kiv::File & file, const std::string & name, unsigned long mode);
// Closes a written file; a file whose bytes did not all reach the disk fails, naming it.
void Finish(Kiv::File & file, const std::string & shown);
// Copies what remains of from into to; a short write fails, naming toName.
void Copy(Kiv::File & from, Kiv::File & to, const std::string & toName, Progress & progress);
// Opens the file out with mode, has write fill it and closes it; an output left unfinished by a
// failure is removed.
void Produce(const std::string & out, unsigned long mode, const std::function<void(Kiv::File &)> & write);
// Copies the file in, opened with inMode, into a new file out opened with outMode; an output
// left unfinished by a failure is removed.
void Transcode(const std::string & in, unsigned long inMode, const std::string & out, unsigned long outMode,
               const char * label);
} // namespace Tool
