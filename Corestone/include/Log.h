// The log: diagnostic lines of the library and the host, sent through named clients into one text
// file ("KivLog.txt" unless the options name another), and optionally into the debugger's output
// and a standard stream. Each client has its own level threshold and switches, set from the
// option "Log" (for example "+Log=File:Diag:newlines=off,Render:Warn").
//
// A caller tests the level before formatting anything, so a message nobody wants costs one
// inline comparison:
//
//   if (client->IsOn(LogClient::LEVEL_DIAG))
//       client->Print(LogClient::LEVEL_DIAG, "loaded %s", name);
#pragma once

#include "KivApi.h"
#include "String.h"

#include <cstdarg>
#include <cstdio>

namespace Kiv
{
class LogClient;
class Options;

class KIV_API Log
{
public:
    // Opens the log as the options say; later calls do nothing until Done.
    static void Init(Options * options);
    // Writes "End.", closes the file and returns every client to its defaults.
    static void Done();
    // The crash path: under the log's lock writes "Shutdown." unless quiet, closes the file.
    static void Shutdown(bool quiet);
    // The client of that name, compared without regard to case; made with defaults when absent.
    // A client lives as long as the library: the pointer may be kept.
    static LogClient * GetClient(const char * name);
    // An extra standard stream every line is printed to (null for none).
    static void SetLogToFile(FILE * stream);
    static FILE * GetLogToFile();

    static bool IsInitialised();
    // Set by the option "NoLog": then no client writes anything.
    static bool IsDisabled() { return disabled; }
    // Headers show the time since this moment (seconds of Time::GetSeconds), taken by Init.
    static double GetStartTime();
    static void SetStartTime(double seconds);

    static bool disabled;

private:
    static void OpenFile(const char * name, int encoding, const char * banner);
};

class KIV_API LogClient
{
public:
    enum Level
    {
        LEVEL_NONE = 0,
        LEVEL_ERR = 1,
        LEVEL_WARN = 2,
        LEVEL_DIAG = 3,
        LEVEL_PROG = 4
    };
    // Output switches: "file", "mono" (the debugger's output) and "window" (kept for the host).
    enum : unsigned int
    {
        OUTPUT_FILE = 1,
        OUTPUT_MONO = 2,
        OUTPUT_WINDOW = 8
    };
    // Format switches: "newlines" ends each message with CR LF, "displaymodulename" writes the
    // line header.
    enum : unsigned int
    {
        FORMAT_NEWLINES = 1,
        FORMAT_HEADER = 2
    };

    // True when a message of the level would be written anywhere.
    bool IsOn(int messageLevel) const { return messageLevel <= level && outputs != 0 && !Log::disabled; }

    // Formats and writes one message at the current message level; the caller has tested it.
    void OutputString(const char * format, ...);
    void OutputStringV(const char * format, va_list args);
    // Tests the level and writes one message at it, leaving the current message level alone, so
    // threads can share a client.
    void Print(int messageLevel, const char * format, ...);
    void PrintV(int messageLevel, const char * format, va_list args);

    const char * GetName() const { return name; }
    int GetLevel() const { return level; }
    void SetLevel(int threshold) { level = threshold; }
    int GetMessageLevel() const;
    void SetMessageLevel(int messageLevel);
    unsigned int GetOutputs() const { return outputs; }
    void SetOutputs(unsigned int switches) { outputs = switches; }
    unsigned int GetFormat() const { return format; }
    void SetFormat(unsigned int switches) { format = switches; }
    // Applies ":"-separated settings: a level name, or a switch with an optional "=on" or "=off".
    void Configure(const char * settings);

private:
    friend class Log;
    friend struct LogState;

    explicit LogClient(const char * clientName);
    ~LogClient() = default;
    LogClient(const LogClient &) = delete;
    LogClient & operator=(const LogClient &) = delete;
    void Reset();
    void Write(int messageLevel, const char * format, va_list args);

    LogClient * next;
    LogClient * previous;
    String name;
    // The name as the header shows it: cut or padded to 15 characters.
    char headerName[16];
    int level;
    int messageLevel;
    // Set while the client writes into the file, so a message it causes meanwhile is not written.
    int writing;
    unsigned int outputs;
    unsigned int format;
};
} // namespace Kiv
