#include "Log.h"

#include "AllocObject.h"
#include "BuildVersion.h"
#include "CRuntime.h"
#include "File.h"
#include "OSPlatform.h"
#include "Options.h"
#include "Startup.h"
#include "SyncObject.h"
#include "TextOps.h"
#include "Time.h"

#include <cmath>
#include <cstring>
#include <new>

namespace Kiv
{
bool Log::disabled = false;

// The log's process-wide state. The lock lives as long as the library, not from Init to Done, so
// a crash path that takes it while the host closes the log still finds it.
struct LogState
{
    CriticalSection lock{"Log"};
    File * file = nullptr;
    FILE * stream = nullptr;
    // A ring of clients; the log owns them.
    LogClient * clients = nullptr;
    double startTime = 0.0;
    bool initialised = false;
    bool started = false;
    bool flush = true;
    bool displayModuleName = true;

    void CloseFile(const char * lastLine);
    void DeleteClients();
    void WriteLine(LogClient & client, const char * text, size_t length);
};

namespace
{
alignas(LogState) unsigned char stateStorage[sizeof(LogState)];
LogState * state = nullptr;

// Made by the first client asked for, which the library's own statics do at load while one thread
// runs, and dropped at unload after everything else.
LogState & State()
{
    if (state == nullptr)
        state = new (stateStorage) LogState;
    return *state;
}

struct LevelLook
{
    const char * name;
    char marker;
};
const LevelLook levels[] = {{"None", ' '}, {"Err ", '!'}, {"Warn", '?'}, {"Diag", '+'}, {"Prog", '-'}};

const LevelLook & LookOf(int level)
{
    return levels[level < 0 ? 0 : level > 4 ? 4 : level];
}

uint32_t ThreadId()
{
    thread_local uint32_t id = 0;
    if (id == 0)
        id = CurrentThreadId();
    return id;
}

double ReadStartTime(const LogState & s)
{
    double start = 0.0;
    __atomic_load(&s.startTime, &start, __ATOMIC_RELAXED);
    return start;
}

// Text beyond ASCII through the current locale, or byte by byte where the locale cannot read it.
void WriteWide(File & file, const char * text)
{
    if (file.WriteLine(text, File::ENCODING_UTF16) != 0)
        return;
    for (const char * c = text; *c != 0; ++c)
    {
        const unsigned char unit[2] = {static_cast<unsigned char>(*c), 0};
        file.Write(unit, 2, 1);
    }
}

// Text to a log file in its encoding. UTF-16 lines are widened here when they are plain ASCII, the
// common case.
void WriteText(File & file, const char * text, size_t length)
{
    if (file.GetEncoding() != File::ENCODING_UTF16)
    {
        file.Write(text, static_cast<unsigned long>(length), 1);
        return;
    }
    // Widened a piece at a time; a byte outside ASCII sends the whole line the slow way.
    const auto * bytes = reinterpret_cast<const unsigned char *>(text);
    unsigned char units[1024];
    for (size_t done = 0; done < length;)
    {
        const size_t piece = length - done < sizeof units / 2 ? length - done : sizeof units / 2;
        unsigned char seen = 0;
        for (size_t i = 0; i < piece; ++i)
        {
            seen |= bytes[done + i];
            units[2 * i] = bytes[done + i];
            units[2 * i + 1] = 0;
        }
        if (seen >= 0x80)
        {
            WriteWide(file, text + done);
            return;
        }
        file.Write(units, static_cast<unsigned long>(piece * 2), 1);
        done += piece;
    }
}

void WriteText(File & file, const char * text)
{
    WriteText(file, text, std::strlen(text));
}

char * PutHex(char * out, uint32_t value)
{
    for (int shift = 28; shift >= 0; shift -= 4)
        *out++ = "0123456789ABCDEF"[(value >> shift) & 15];
    return out;
}

// The header "%c %08X %s %3.0f:%04.1f %-15.15s : " written by hand: this runs for every line.
size_t PutHeader(char * out, int level, double elapsed, const char * name)
{
    char * p = out;
    const LevelLook & look = LookOf(level);
    *p++ = look.marker;
    *p++ = ' ';
    p = PutHex(p, ThreadId());
    *p++ = ' ';
    std::memcpy(p, look.name, 4);
    p += 4;
    *p++ = ' ';
    const double tenths = elapsed > 0.0 && elapsed < 4e17 ? std::floor(elapsed * 10.0 + 0.5) : 0.0;
    const auto allTenths = static_cast<uint64_t>(tenths);
    // The minutes right-aligned in three places, or as many as they need.
    char digits[20];
    int count = 0;
    for (uint64_t minutes = allTenths / 600; count == 0 || minutes != 0; minutes /= 10)
        digits[count++] = static_cast<char>('0' + minutes % 10);
    for (int pad = count; pad < 3; ++pad)
        *p++ = ' ';
    while (count > 0)
        *p++ = digits[--count];
    const auto secondTenths = static_cast<unsigned>(allTenths % 600);
    *p++ = ':';
    *p++ = static_cast<char>('0' + secondTenths / 100);
    *p++ = static_cast<char>('0' + secondTenths / 10 % 10);
    *p++ = '.';
    *p++ = static_cast<char>('0' + secondTenths % 10);
    *p++ = ' ';
    std::memcpy(p, name, 15);
    p += 15;
    std::memcpy(p, " : ", 3);
    return static_cast<size_t>(p + 3 - out);
}

bool IsWord(const char * word, size_t length, const char * expected)
{
    return std::strlen(expected) == length && CRuntime::Strnicmp(word, expected, length) == 0;
}
} // namespace

void LogState::CloseFile(const char * lastLine)
{
    if (file == nullptr)
        return;
    if (lastLine != nullptr)
    {
        WriteText(*file, lastLine);
        file->Close();
    }
    DeleteObject(file);
    file = nullptr;
}

void LogState::DeleteClients()
{
    for (LogClient * client = clients; client != nullptr;)
    {
        LogClient * next = client->next != clients ? client->next : nullptr;
        client->~LogClient();
        Alloc::Delete(client);
        client = next;
    }
    clients = nullptr;
}

void LogState::WriteLine(LogClient & client, const char * text, size_t length)
{
    SingleLock hold(&lock, true);
    if (file == nullptr || client.writing != 0)
        return;
    client.writing = 1;
    WriteText(*file, text, length);
    if (flush)
        file->Commit();
    client.writing = 0;
}

LogClient::LogClient(const char * clientName)
    : next(this), previous(this), name(clientName != nullptr ? clientName : ""), headerName()
{
    std::snprintf(headerName, sizeof headerName, "%-15.15s", static_cast<const char *>(name));
    Reset();
}

void LogClient::Reset()
{
    level = LEVEL_WARN;
    messageLevel = LEVEL_NONE;
    writing = 0;
    outputs = OUTPUT_FILE | OUTPUT_MONO;
    format = State().displayModuleName ? FORMAT_NEWLINES | FORMAT_HEADER : FORMAT_NEWLINES;
}

int LogClient::GetMessageLevel() const
{
    return __atomic_load_n(&messageLevel, __ATOMIC_RELAXED);
}

void LogClient::SetMessageLevel(int newLevel)
{
    __atomic_store_n(&messageLevel, newLevel, __ATOMIC_RELAXED);
}

void LogClient::OutputString(const char * text, ...)
{
    va_list args;
    va_start(args, text);
    Write(GetMessageLevel(), text, args);
    va_end(args);
}

void LogClient::OutputStringV(const char * text, va_list args)
{
    Write(GetMessageLevel(), text, args);
}

void LogClient::Print(int messageLevel, const char * text, ...)
{
    if (!IsOn(messageLevel))
        return;
    va_list args;
    va_start(args, text);
    Write(messageLevel, text, args);
    va_end(args);
}

void LogClient::PrintV(int messageLevel, const char * text, va_list args)
{
    if (IsOn(messageLevel))
        Write(messageLevel, text, args);
}

// The common line is formatted straight behind its header on the stack; a longer one is
// formatted on its own first and then joined to the header.
void LogClient::Write(int messageLevel, const char * text, va_list args)
{
    LogState & s = State();
    TextOps::Scratch<char, 1024> line;
    char * out = line.Data();
    size_t length = 0;
    if ((format & FORMAT_HEADER) != 0)
    {
        const double elapsed = s.started ? Time::GetSeconds() - ReadStartTime(s) : 0.0;
        length = PutHeader(out, messageLevel, elapsed, headerName);
    }
    // Room is left for the line end.
    const size_t room = 1024 - length - 3;
    va_list copy;
    va_copy(copy, args);
    const int written = text != nullptr ? CRuntime::Vsnprintf(out + length, room, text, copy) : 0;
    va_end(copy);
    if (written >= 0)
    {
        length += static_cast<size_t>(written);
    }
    else
    {
        TextOps::FormattedText<char> message(text, args);
        if ((out = line.Reserve(length + message.Length() + 3)) == nullptr)
            return;
        std::memcpy(out + length, message.Text(), message.Length());
        length += message.Length();
    }
    if ((format & FORMAT_NEWLINES) != 0)
    {
        out[length++] = '\r';
        out[length++] = '\n';
    }
    out[length] = 0;
    if ((outputs & OUTPUT_FILE) != 0)
        s.WriteLine(*this, out, length);
    if ((outputs & OUTPUT_MONO) != 0)
        Debugger::Output(out);
    if (FILE * stream = __atomic_load_n(&s.stream, __ATOMIC_RELAXED))
        std::fputs(out, stream);
}

// Words: a level name sets the threshold; anything else is a switch, "name", "name=on" or
// "name=off". Unknown switches are ignored.
void LogClient::Configure(const char * settings)
{
    static const char * const levelNames[] = {"None", "Err", "Warn", "Diag", "Prog"};
    struct Switch
    {
        const char * name;
        unsigned int LogClient::*field;
        unsigned int bit;
    };
    static const Switch switches[] = {{"file", &LogClient::outputs, OUTPUT_FILE},
                                      {"mono", &LogClient::outputs, OUTPUT_MONO},
                                      {"window", &LogClient::outputs, OUTPUT_WINDOW},
                                      {"newlines", &LogClient::format, FORMAT_NEWLINES},
                                      {"displaymodulename", &LogClient::format, FORMAT_HEADER}};
    for (const char * word = settings; word != nullptr && *word != 0;)
    {
        const char * end = std::strchr(word, ':');
        const size_t length = end != nullptr ? size_t(end - word) : std::strlen(word);
        const char * equals = static_cast<const char *>(std::memchr(word, '=', length));
        const size_t nameLength = equals != nullptr ? size_t(equals - word) : length;
        const bool on = equals == nullptr || !IsWord(equals + 1, length - nameLength - 1, "off");
        for (int i = 0; i < 5; ++i)
            if (IsWord(word, length, levelNames[i]))
                level = i;
        for (const Switch & candidate : switches)
            if (IsWord(word, nameLength, candidate.name))
                this->*candidate.field =
                    on ? this->*candidate.field | candidate.bit : this->*candidate.field & ~candidate.bit;
        word = end != nullptr ? end + 1 : nullptr;
    }
}

void Log::Init(Options * options)
{
    LogState & s = State();
    SingleLock hold(&s.lock, true);
    if (s.initialised)
        return;
    Options none;
    Options & settings = options != nullptr ? *options : none;
    __atomic_store_n(&s.initialised, true, __ATOMIC_RELAXED);
    SetStartTime(Time::GetSeconds());
    char banner[256];
    std::snprintf(banner, sizeof banner, "Kiv v%s Build %s.%s on %s at %s.\r\n\r\n",
                  BuildVersion::GetKivBuildString(), BuildVersion::GetKivBuildVersionString(),
                  BuildVersion::GetKivBuildChangeNumString(), __DATE__, __TIME__);
    settings.Get("LogFlush", s.flush, true);
    settings.Get("LogDisplayModuleName", s.displayModuleName, true);
    disabled = settings.Get("NoLog");
    String fileName;
    settings.Get("LogFile", fileName, String("KivLog.txt"));
    if (fileName.Length() != 0)
        OpenFile(fileName, settings.Get("LogAnsi") ? File::ENCODING_ANSI : File::ENCODING_UTF16, banner);
    if (settings.Get("LogStdOut"))
        SetLogToFile(stdout);
    if (settings.Get("LogStdErr"))
        SetLogToFile(stderr);
    for (LogClient * client = s.clients; client != nullptr;)
    {
        client->format = s.displayModuleName ? client->format | LogClient::FORMAT_HEADER
                                             : client->format & ~LogClient::FORMAT_HEADER;
        client = client->next != s.clients ? client->next : nullptr;
    }
    settings.SetSeparators("Log", ",");
    String element;
    while (settings.GetNext("Log", element))
    {
        const int colon = element.Find(':');
        String clientName(element, 0, colon);
        GetClient(clientName)->Configure(colon >= 0 ? static_cast<const char *>(element) + colon + 1 : "");
    }
}

// The banner heads the file; with "NoLog" it is all the file holds.
void Log::OpenFile(const char * name, int encoding, const char * banner)
{
    LogState & s = State();
    File * file = NewObject<File>();
    if (file == nullptr)
        return;
    if (!file->Open(name, File::MODE_WRITE | File::MODE_CREATE, encoding).Succeeded())
    {
        DeleteObject(file);
        return;
    }
    s.file = file;
    if (file->GetEncoding() == File::ENCODING_UTF16)
        file->Write("\xFF\xFE", 2, 1);
    WriteText(*file, banner);
    if (disabled)
    {
        s.CloseFile("Log Disabled.\r\n");
        return;
    }
    WriteText(*file, "Begin:\r\n");
    file->Commit();
}

void Log::Done()
{
    LogState & s = State();
    SingleLock hold(&s.lock, true);
    if (s.initialised)
        s.CloseFile("End.\r\n");
    __atomic_store_n(&s.initialised, false, __ATOMIC_RELAXED);
    s.started = false;
    s.flush = true;
    s.displayModuleName = true;
    disabled = false;
    SetLogToFile(nullptr);
    for (LogClient * client = s.clients; client != nullptr;)
    {
        client->Reset();
        client = client->next != s.clients ? client->next : nullptr;
    }
}

void Log::Shutdown(bool quiet)
{
    LogState & s = State();
    SingleLock hold(&s.lock, true);
    s.CloseFile(quiet ? nullptr : "Shutdown.\r\n");
}

LogClient * Log::GetClient(const char * name)
{
    LogState & s = State();
    SingleLock hold(&s.lock, true);
    const char * wanted = name != nullptr ? name : "";
    for (LogClient * client = s.clients; client != nullptr;)
    {
        if (CRuntime::Stricmp(client->name, wanted) == 0)
            return client;
        client = client->next != s.clients ? client->next : nullptr;
    }
    void * memory = Alloc::New(sizeof(LogClient));
    if (memory == nullptr)
        return nullptr;
    auto * client = new (memory) LogClient(wanted);
    if (s.clients != nullptr)
    {
        client->next = s.clients;
        client->previous = s.clients->previous;
        s.clients->previous->next = client;
        s.clients->previous = client;
    }
    else
    {
        s.clients = client;
    }
    return client;
}

void Log::SetLogToFile(FILE * stream)
{
    __atomic_store_n(&State().stream, stream, __ATOMIC_RELAXED);
}

FILE * Log::GetLogToFile()
{
    return __atomic_load_n(&State().stream, __ATOMIC_RELAXED);
}

bool Log::IsInitialised()
{
    return __atomic_load_n(&State().initialised, __ATOMIC_RELAXED);
}

double Log::GetStartTime()
{
    return ReadStartTime(State());
}

void Log::SetStartTime(double seconds)
{
    LogState & s = State();
    __atomic_store(&s.startTime, &seconds, __ATOMIC_RELAXED);
    s.started = true;
}

void ReleaseLog()
{
    if (state == nullptr)
        return;
    Log::Done();
    state->DeleteClients();
    state->~LogState();
    state = nullptr;
}
} // namespace Kiv
