#include "Options.h"

#include "AllocObject.h"
#include "CRuntime.h"
#include "File.h"
#include "MemoryFile.h"
#include "OS.h"
#include "TextOps.h"

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
// White space as the C locale has it, whatever the current one says.
bool IsBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsPrefix(char c)
{
    return c == '/' || c == '-' || c == '+';
}

// Stored names and queries are lowered alike: ASCII here, other bytes by the current locale.
char Lower(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80)
        return static_cast<unsigned int>(byte - 'A') < 26u ? static_cast<char>(byte + 32) : c;
    return static_cast<char>(std::tolower(byte));
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

float ReadFloat(const char * text)
{
    return static_cast<float>(std::atof(text));
}

// Components separated by ","; a missing or blank one keeps what it held.
template <typename T, typename C, size_t N>
void ReadFields(const char * text, T & value, C T::*const (&fields)[N], C (*read)(const char *))
{
    for (size_t i = 0; i < N && *text != 0; ++i)
    {
        const char * end = std::strchr(text, ',');
        const char first = *SkipBlanks(text);
        if (first != ',' && first != 0)
            value.*fields[i] = read(text);
        if (end == nullptr)
            break;
        text = end + 1;
    }
}

// The element at the cursor, up to the first separator, its trailing blanks cut; the cursor then
// passes the blanks and separators after it. False for an element of no characters.
bool SplitNext(const char * value, unsigned int length, const char * separators, int & cursor,
               String & element)
{
    const char * start = value + (static_cast<unsigned int>(cursor) < length ? cursor : length);
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
    cursor = static_cast<int>(rest - value);
    return true;
}

const char * TextOf(const String & text)
{
    return text != nullptr ? static_cast<const char *>(text) : "";
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
    value = ReadFloat(text);
}
void Convert(const char * text, Vector2 & value)
{
    static float Vector2::*const fields[] = {&Vector2::x, &Vector2::y};
    ReadFields(text, value, fields, ReadFloat);
}
void Convert(const char * text, Vector3 & value)
{
    static float Vector3::*const fields[] = {&Vector3::x, &Vector3::y, &Vector3::z};
    ReadFields(text, value, fields, ReadFloat);
}
void Convert(const char * text, Vector4 & value)
{
    static float Vector4::*const fields[] = {&Vector4::x, &Vector4::y, &Vector4::z, &Vector4::w};
    ReadFields(text, value, fields, ReadFloat);
}
void Convert(const char * text, Quaternion & value)
{
    static float Quaternion::*const fields[] = {&Quaternion::x, &Quaternion::y, &Quaternion::z,
                                                &Quaternion::w};
    ReadFields(text, value, fields, ReadFloat);
}
void Convert(const char * text, Color & value)
{
    static float Color::*const fields[] = {&Color::r, &Color::g, &Color::b, &Color::a};
    ReadFields(text, value, fields, ReadFloat);
}
void Convert(const char * text, Range<int> & value)
{
    static int Range<int>::*const fields[] = {&Range<int>::low, &Range<int>::high};
    ReadFields(text, value, fields, ReadInt);
}
void Convert(const char * text, Range<float> & value)
{
    static float Range<float>::*const fields[] = {&Range<float>::low, &Range<float>::high};
    ReadFields(text, value, fields, ReadFloat);
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
    String file(name);
    file += ".txt";
    path.AddPath(file);
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
    TextOps::Scratch<char, 256> lowered;
    char * text = lowered.Reserve(length);
    if (text == nullptr || ((count + 1) * 2 > indexSize && !Grow()))
        return nullptr;
    Option * option = NewObject<Option>();
    if (option == nullptr)
        return nullptr;
    for (unsigned int i = 0; i < length; ++i)
        text[i] = Lower(name[i]);
    option->name = String(text, length);
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
    return TextOf(option->value);
}

bool Options::Get(const char * name) const
{
    return Find(name) != nullptr;
}

bool Options::Get(const char * name, PString & value) const
{
    return GetValue(Value(name), value, value);
}

// The stored text is shared, not copied.
bool Options::Get(const char * name, String & value) const
{
    const Option * option = Find(name);
    if (option != nullptr)
        value = option->value;
    return option != nullptr;
}

bool Options::Get(const char * name, PString & value, const PString & fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, String & value, const String & fallback) const
{
    const Option * option = Find(name);
    value = option != nullptr ? option->value : fallback;
    return option != nullptr;
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

bool Options::Get(const char * name, Vector2 & value, const Vector2 & fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, Vector3 & value, const Vector3 & fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, Vector4 & value, const Vector4 & fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, Quaternion & value, const Quaternion & fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, Color & value, const Color & fallback) const
{
    return GetValue(Value(name), value, fallback);
}

bool Options::Get(const char * name, Range<int> & value) const
{
    return GetValue(Value(name), value, value);
}

bool Options::Get(const char * name, Range<float> & value) const
{
    return GetValue(Value(name), value, value);
}

bool Options::Get(const char * name, DynamicArray<String, 41> & values, const char * separators) const
{
    const Option * option = Find(name);
    if (option == nullptr)
        return false;
    values.RemoveAll();
    int cursor = 0;
    for (String element; SplitNext(TextOf(option->value), option->value.Length(),
                                   separators != nullptr ? separators : "", cursor, element);)
        values.Add(element);
    return true;
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
    return option != nullptr && option->cursor >= 0 &&
           SplitNext(TextOf(option->value), option->value.Length(), TextOf(option->separators),
                     option->cursor, element);
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

bool Options::GetNext(const char * name, Vector2 & value)
{
    return NextAs(*this, name, value);
}

bool Options::GetNext(const char * name, Vector3 & value)
{
    return NextAs(*this, name, value);
}

bool Options::GetNext(const char * name, Vector4 & value)
{
    return NextAs(*this, name, value);
}

bool Options::GetNext(const char * name, Quaternion & value)
{
    return NextAs(*this, name, value);
}

bool Options::GetNext(const char * name, Color & value)
{
    return NextAs(*this, name, value);
}

void Options::Dump() const
{
    for (const Option * option = first; option != nullptr; option = option->next)
        std::printf("[%s] = [%s]\n", TextOf(option->name), TextOf(option->value));
}
} // namespace Kiv
