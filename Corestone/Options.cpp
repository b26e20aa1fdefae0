#include "Options.h"

#include "AllocObject.h"
#include "CRuntime.h"
#include "File.h"
#include "MemoryFile.h"
#include "OS.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Kiv
{
struct Options::Option
{
    Option * next = nullptr;
    Option * previous = nullptr;
    String name;
    String value;
    String separators;
    // Where the next GetNext starts; -1 until SetSeparators.
    int cursor = -1;
    uint32_t hash = 0;
};

namespace
{
bool IsBlank(char c)
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

bool IsPrefix(char c)
{
    return c == '/' || c == '-' || c == '+';
}

char Lower(char c)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

const char * SkipBlanks(const char * text)
{
    while (IsBlank(*text))
        ++text;
    return text;
}

uint32_t NameHash(const char * name, unsigned int length)
{
    uint32_t hash = 2166136261u;
    for (unsigned int i = 0; i < length; ++i)
        hash = (hash ^ static_cast<unsigned char>(Lower(name[i]))) * 16777619u;
    return hash;
}

bool SameName(const String & stored, const char * name, unsigned int length)
{
    if (stored.Length() != length)
        return false;
    const char * text = stored;
    for (unsigned int i = 0; i < length; ++i)
        if (text[i] != Lower(name[i]))
            return false;
    return true;
}

// An unquoted value runs on through blanks, but ends before blanks that lead to the next option's
// prefix, so file names with blanks need no quotes. Trailing blanks are not part of it.
const char * ValueEnd(const char * text)
{
    const char * end = text;
    while (*text != 0)
    {
        if (!IsBlank(*text))
        {
            end = ++text;
            continue;
        }
        text = SkipBlanks(text);
        if (*text == 0 || IsPrefix(*text))
            break;
    }
    return end;
}

// atoi as the Windows runtime reads it: out-of-range numbers stop at the int's bounds.
int ReadInt(const char * text)
{
    const long long value = std::strtoll(text, nullptr, 10);
    return value > INT32_MAX ? INT32_MAX : value < INT32_MIN ? INT32_MIN : static_cast<int>(value);
}

bool ReadBool(const char * text, bool fallback)
{
    if (*text == '-' || CRuntime::Stricmp(text, "false") == 0 || CRuntime::Stricmp(text, "off") == 0)
        return false;
    if (*text == '+' || CRuntime::Stricmp(text, "true") == 0 || CRuntime::Stricmp(text, "on") == 0)
        return true;
    return !fallback;
}

// Components separated by ","; a missing or blank one keeps what it held.
void ReadComponents(const char * text, float * components, int count)
{
    for (int i = 0; i < count && *text != 0; ++i)
    {
        const char * end = std::strchr(text, ',');
        if (*SkipBlanks(text) != ',' && *SkipBlanks(text) != 0)
            components[i] = static_cast<float>(std::atof(text));
        if (end == nullptr)
            break;
        text = end + 1;
    }
}

void Convert(const char * text, String & value)
{
    value = text;
}
void Convert(const char * text, PString & value)
{
    value = text;
}
void Convert(const char * text, int & value)
{
    value = ReadInt(text);
}
void Convert(const char * text, long & value)
{
    value = ReadInt(text);
}
void Convert(const char * text, unsigned int & value)
{
    value = static_cast<unsigned int>(ReadInt(text));
}
void Convert(const char * text, unsigned long & value)
{
    value = static_cast<unsigned int>(ReadInt(text));
}
void Convert(const char * text, float & value)
{
    value = static_cast<float>(std::atof(text));
}
void Convert(const char * text, Vector3 & value)
{
    ReadComponents(text, &value.x, 3);
}

template <typename T>
bool GetValue(const char * text, T & value, const T & fallback)
{
    if (text == nullptr)
    {
        value = fallback;
        return false;
    }
    // A copy first: the value may be the fallback itself.
    T read = fallback;
    Convert(text, read);
    value = read;
    return true;
}

void MergeSource(Options & options, const char * directory, const String & name)
{
    File::Path path(directory);
    path.AddPath(name);
    path.SetExt("txt");
    options.ProcessFile(path);
}

// Two directories are the same when they differ only in the kind of separator or a final one.
bool SameDirectory(File::Path a, File::Path b)
{
    a.DelSlash();
    b.DelSlash();
    return a.Length() == b.Length() && File::Path::IsEqual(a, b);
}

// The environment variables and option files of an application name and a program path, in the
// order of precedence: later sources override earlier ones.
void LoadStandardSources(Options & options, const char * appName, const char * programPath)
{
    File::Path program;
    program.GetFileName(programPath);
    program.SetExt(nullptr);
    const unsigned int length = program.Length();
    if (length >= 3 && CRuntime::Stricmp(program.Text() + length - 3, "_7c") == 0)
        program.Buffer()[length - 3] = 0;
    String appOptions(appName != nullptr ? appName : "");
    appOptions += "Options";
    String programOptions(program.Text());
    programOptions += "Options";
    const bool same = appOptions.CompareIgnoreCase(programOptions) == 0;

    options.ProcessEnv("Options");
    options.ProcessEnv(appOptions);
    if (!same)
        options.ProcessEnv(programOptions);

    File::Path current;
    File::GetCwd(current);
    File::Path programDirectory;
    programDirectory.GetPath(programPath);
    const bool oneDirectory = SameDirectory(current, programDirectory);
    const File::Path * directories[] = {&current, &programDirectory};
    for (int i = 0; i < (oneDirectory ? 1 : 2); ++i)
    {
        MergeSource(options, *directories[i], appOptions);
        if (!same)
            MergeSource(options, *directories[i], programOptions);
    }
}
} // namespace

Options::Options() : first(nullptr), last(nullptr), count(0), index(nullptr), indexSize(0) {}

Options::~Options()
{
    for (Option * option = first; option != nullptr;)
    {
        Option * next = option->next;
        DeleteObject(option);
        option = next;
    }
    if (index != nullptr)
        Alloc::Delete(index);
}

Options::Option * Options::Find(const char * name, unsigned int length) const
{
    if (indexSize == 0)
        return nullptr;
    const uint32_t hash = NameHash(name, length);
    for (uint32_t slot = hash & (indexSize - 1);; slot = (slot + 1) & (indexSize - 1))
    {
        Option * option = index[slot];
        if (option == nullptr)
            return nullptr;
        if (option->hash == hash && SameName(option->name, name, length))
            return option;
    }
}

Options::Option * Options::Find(const char * name) const
{
    return name != nullptr ? Find(name, static_cast<unsigned int>(std::strlen(name))) : nullptr;
}

// The table stays at most half full, so a probe ends soon at an empty slot.
bool Options::Grow()
{
    const unsigned int size = indexSize != 0 ? indexSize * 2 : 16;
    auto ** table = static_cast<Option **>(Alloc::New(size * static_cast<unsigned int>(sizeof(Option *))));
    if (table == nullptr)
        return false;
    std::memset(table, 0, size * sizeof(Option *));
    for (Option * option = first; option != nullptr; option = option->next)
    {
        uint32_t slot = option->hash & (size - 1);
        while (table[slot] != nullptr)
            slot = (slot + 1) & (size - 1);
        table[slot] = option;
    }
    if (index != nullptr)
        Alloc::Delete(index);
    index = table;
    indexSize = size;
    return true;
}

Options::Option * Options::Add(const char * name, unsigned int length)
{
    if ((count + 1) * 2 > indexSize && !Grow())
        return nullptr;
    Option * option = NewObject<Option>();
    if (option == nullptr)
        return nullptr;
    option->name = String(name, length);
    option->name.ToLower();
    option->hash = NameHash(name, length);
    option->previous = last;
    (last != nullptr ? last->next : first) = option;
    last = option;
    ++count;
    uint32_t slot = option->hash & (indexSize - 1);
    while (index[slot] != nullptr)
        slot = (slot + 1) & (indexSize - 1);
    index[slot] = option;
    return option;
}

// "+" adds the value to a list the option already holds; every other prefix replaces it.
void Options::Set(char prefix, const char * name, unsigned int nameLength, const char * value,
                  unsigned int valueLength)
{
    Option * option = Find(name, nameLength);
    if (option == nullptr && (option = Add(name, nameLength)) == nullptr)
        return;
    if (prefix == '+' && option->value.Length() != 0)
    {
        option->value += ",";
        option->value += String(value, valueLength);
    }
    else
    {
        option->value = String(value, valueLength);
    }
}

void Options::ProcessRaw(const char * text)
{
    if (text == nullptr)
        return;
    while (*(text = SkipBlanks(text)) != 0)
    {
        const char prefix = IsPrefix(*text) ? *text++ : 0;
        const char * name = text;
        while (*text != 0 && !IsBlank(*text) && *text != '=' && *text != '-' && *text != '+')
            ++text;
        const auto nameLength = static_cast<unsigned int>(text - name);
        const char * value = text;
        const char * valueEnd = text;
        const char * next = SkipBlanks(text);
        if (*next == '=')
        {
            value = SkipBlanks(next + 1);
            if (*value == '\'' || *value == '"')
            {
                const char * quote = std::strpbrk(++value, "'\"");
                valueEnd = quote != nullptr ? quote : value + std::strlen(value);
                text = quote != nullptr ? quote + 1 : valueEnd;
            }
            else
            {
                text = valueEnd = ValueEnd(value);
            }
        }
        else if (*text == '-' || *text == '+')
        {
            valueEnd = ++text;
        }
        if (nameLength != 0)
            Set(prefix, name, nameLength, value, static_cast<unsigned int>(valueEnd - value));
    }
}

void Options::ProcessCmdLine(int argc, char ** const argv)
{
    String line("");
    for (int i = 0; i < argc && argv != nullptr; ++i)
    {
        if (argv[i] == nullptr)
            continue;
        line += argv[i];
        line += " ";
    }
    ProcessRaw(line);
}

void Options::ProcessFile(const char * name)
{
    File file;
    if (name == nullptr || !file.Open(name, File::MODE_READ).Succeeded() || file.Size() == 0)
        return;
    const int encoding = file.DetectEncoding();
    MemoryFile text;
    if (text.Open(file, true, encoding))
        ProcessRaw(String(reinterpret_cast<const char *>(text.Data()), text.Size()));
}

void Options::ProcessEnv(const char * variable)
{
    if (variable != nullptr)
        ProcessRaw(std::getenv(variable));
}

void Options::Init(const char * appName, int argc, char ** const argv)
{
    LoadStandardSources(*this, appName, argc > 0 && argv != nullptr ? argv[0] : "");
    ProcessCmdLine(argc, argv);
}

void Options::Init(const char * appName, const char * extra)
{
    LoadStandardSources(*this, appName, OS::GetProcessPath());
    ProcessRaw(extra != nullptr ? extra : "");
}

const char * Options::Value(const char * name) const
{
    const Option * option = Find(name);
    if (option == nullptr)
        return nullptr;
    const char * value = option->value;
    return value != nullptr ? value : "";
}

bool Options::Get(const char * name) const
{
    return Find(name) != nullptr;
}

bool Options::Get(const char * name, PString & value) const
{
    return GetValue(Value(name), value, value);
}

bool Options::Get(const char * name, String & value) const
{
    return GetValue(Value(name), value, value);
}

bool Options::Get(const char * name, PString & value, const PString & fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, String & value, const String & fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, bool & value, bool fallback) const
{
    const char * text = Value(name);
    value = text == nullptr ? fallback : *text == 0 ? !fallback : ReadBool(text, fallback);
    return text != nullptr;
}

bool Options::Get(const char * name, int & value, int fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, unsigned int & value, unsigned int fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, long & value, long fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, unsigned long & value, unsigned long fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, float & value, float fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, Vector3 & value, const Vector3 & fallback) const
{
    return GetValue(Value(name), value, fallback);
}

void Options::SetSeparators(const char * name, const char * separators)
{
    Option * option = Find(name);
    if (option == nullptr)
        return;
    option->separators = separators != nullptr ? separators : "";
    option->cursor = 0;
}

// The value may have changed since SetSeparators; the cursor never passes its end.
bool Options::NextElement(const char * name, String & element)
{
    Option * option = Find(name);
    if (option == nullptr || option->cursor < 0)
        return false;
    const char * value = option->value != nullptr ? static_cast<const char *>(option->value) : "";
    const char * separators =
        option->separators != nullptr ? static_cast<const char *>(option->separators) : "";
    const unsigned int length = option->value.Length();
    const char * start =
        value + (static_cast<unsigned int>(option->cursor) < length ? option->cursor : length);
    const size_t span = std::strcspn(start, separators);
    if (span == 0)
        return false;
    size_t kept = span;
    while (kept > 0 && IsBlank(start[kept - 1]))
        --kept;
    element = String(start, static_cast<unsigned int>(kept));
    const char * rest = start + span;
    while (*rest != 0 && (IsBlank(*rest) || std::strchr(separators, *rest) != nullptr))
        ++rest;
    option->cursor = static_cast<int>(rest - value);
    return true;
}

bool Options::GetNext(const char * name, String & value)
{
    return NextElement(name, value);
}

template <typename T>
bool NextAs(Options & options, const char * name, T & value)
{
    String element;
    if (!options.GetNext(name, element))
        return false;
    Convert(element, value);
    return true;
}

bool Options::GetNext(const char * name, PString & value)
{
    return NextAs(*this, name, value);
}

bool Options::GetNext(const char * name, bool & value)
{
    String element;
    if (!NextElement(name, element))
        return false;
    value = ReadBool(element, false);
    return true;
}

bool Options::GetNext(const char * name, int & value)
{
    return NextAs(*this, name, value);
}

bool Options::GetNext(const char * name, long & value)
{
    return NextAs(*this, name, value);
}

bool Options::GetNext(const char * name, unsigned int & value)
{
    return NextAs(*this, name, value);
}

bool Options::GetNext(const char * name, unsigned long & value)
{
    return NextAs(*this, name, value);
}

bool Options::GetNext(const char * name, float & value)
{
    return NextAs(*this, name, value);
}

bool Options::GetNext(const char * name, Vector3 & value)
{
    return NextAs(*this, name, value);
}

void Options::Dump() const
{
    for (const Option * option = first; option != nullptr; option = option->next)
        std::printf("[%s] = [%s]\n", static_cast<const char *>(option->name),
                    option->value != nullptr ? static_cast<const char *>(option->value) : "");
}
} // namespace Kiv
