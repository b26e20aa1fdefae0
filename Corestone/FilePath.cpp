// The path value: in-place edits of one fixed buffer, the wildcard matcher and the substitution
// prefix of a name. Both '\' and '/' are separators; edits insert '/'.
#include "File.h"

#include "CRuntime.h"
#include "FileSub.h"
#include "PString.h"

#include <cctype>
#include <cstring>

namespace Kiv
{
namespace
{
const size_t capacity = File::MAX_PATH_LENGTH - 1;

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}

bool EndsDirectory(char c)
{
    return IsSeparator(c) || c == ':';
}

// The last character of `text` before `end` that is one of `set`, or null.
const char * LastOf(const char * text, const char * end, const char * set)
{
    for (const char * at = end; at > text;)
        if (strchr(set, *--at))
            return at;
    return nullptr;
}

const char * FirstSeparator(const char * text)
{
    for (; *text; ++text)
        if (IsSeparator(*text))
            return text;
    return nullptr;
}

unsigned char Fold(unsigned char c)
{
    if (c >= 'A' && c <= 'Z')
        return c | 0x20;
    return c >= 128 ? static_cast<unsigned char>(tolower(c)) : c;
}

bool SameIgnoringCase(char a, char b)
{
    return Fold(static_cast<unsigned char>(a)) == Fold(static_cast<unsigned char>(b));
}

const char * SkipCurrentDirectory(const char * text)
{
    return text[0] == '.' && IsSeparator(text[1]) ? text + 2 : text;
}

// The state of one wildcard match; see File::Path::IsMatch.
class Matcher
{
public:
    Matcher(const char * name, const char * pattern, const char ** rest)
        : restart(name), name(SkipCurrentDirectory(name)), pattern(SkipCurrentDirectory(pattern)), rest(rest)
    {
        lastSeparator = LastOf(this->pattern, this->pattern + strlen(this->pattern), "/\\");
    }

    bool Run()
    {
        if (lastSeparator && !MatchDirectories())
            return false;
        return MatchFile();
    }

private:
    // The '*' swallows the name character unless it equals the pattern character after the '*';
    // a '?' there is compared as a character too, so "*?" anchors only on a '?' in the name.
    void Star()
    {
        if (IsSeparator(*name))
        {
            ++pattern;
            return;
        }
        if (SameIgnoringCase(*name, pattern[1]))
        {
            starPattern = pattern;
            starName = name;
            ++pattern;
            return;
        }
        ++name;
    }

    bool Backtrack()
    {
        if (!starPattern)
            return false;
        name = starName + 1;
        pattern = starPattern;
        starPattern = nullptr;
        return true;
    }

    // The name's separator just matched; a '*' before it can never cross it, so it is dropped.
    void Separator()
    {
        ++name;
        ++pattern;
        starPattern = nullptr;
    }

    // Matches up to and including the pattern's last separator.
    bool MatchDirectories()
    {
        for (;;)
        {
            const char wanted = *pattern;
            if (!*name)
            {
                if (!Backtrack())
                    return false;
            }
            else if (wanted == '*')
            {
                Star();
            }
            else if (IsSeparator(wanted))
            {
                if (!IsSeparator(*name))
                {
                    if (!Backtrack())
                        return false;
                    continue;
                }
                const bool last = pattern == lastSeparator;
                Separator();
                restart = name;
                if (last)
                {
                    if (!*pattern && rest)
                        *rest = name - 1;
                    return true;
                }
            }
            else if (wanted == '?')
            {
                if (!IsSeparator(*name))
                    ++name;
                ++pattern;
            }
            else if (wanted && SameIgnoringCase(*name, wanted))
            {
                ++name;
                ++pattern;
            }
            else if (!Backtrack())
            {
                return false;
            }
        }
    }

    static bool EndsAlternative(const char * at) { return !*at || *at == ';'; }

    bool EmptyRestMatches() const
    {
        return EndsAlternative(pattern) ||
               (*pattern == '*' &&
                (EndsAlternative(pattern + 1) || (pattern[1] == '.' && EndsAlternative(pattern + 2))));
    }

    void NoteRest()
    {
        if (rest && !*rest && IsSeparator(*name))
            *rest = name;
    }

    // Backtracks, else moves to the next alternative; false when there is none.
    bool NextChance()
    {
        if (Backtrack())
            return true;
        const char * semicolon = strchr(pattern, ';');
        if (!semicolon)
            return false;
        name = restart;
        pattern = semicolon + 1;
        return true;
    }

    bool MatchFile()
    {
        for (;;)
        {
            const char wanted = *pattern;
            bool fails = false;
            if (!*name)
            {
                if (EmptyRestMatches())
                    return true;
                fails = true;
            }
            else if (EndsAlternative(pattern))
            {
                NoteRest();
                fails = true;
            }
            else if (wanted == '*')
            {
                Star();
            }
            else if (wanted == '?')
            {
                if (!IsSeparator(*name))
                    ++name;
                ++pattern;
            }
            else if (IsSeparator(wanted) && IsSeparator(*name))
            {
                Separator();
            }
            else if (SameIgnoringCase(*name, wanted) && !IsSeparator(wanted))
            {
                ++name;
                ++pattern;
            }
            else
            {
                fails = true;
            }
            if (fails && !NextChance())
                return false;
        }
    }

    const char * restart;
    const char * name;
    const char * pattern;
    const char ** rest;
    const char * lastSeparator;
    const char * starPattern = nullptr;
    const char * starName = nullptr;
};
} // namespace

File::Path & File::Path::operator=(const char * source)
{
    if (source == text)
        return *this;
    text[0] = 0;
    if (source)
        Append(source, strlen(source));
    return *this;
}

unsigned File::Path::Length() const
{
    return static_cast<unsigned>(strlen(text));
}

bool File::Path::Append(const char * add, size_t length)
{
    const size_t used = strlen(text);
    const size_t room = capacity - used;
    const size_t taken = length < room ? length : room;
    memmove(text + used, add, taken);
    text[used + taken] = 0;
    return taken == length;
}

void File::Path::Cut(size_t length)
{
    if (length < MAX_PATH_LENGTH)
        text[length] = 0;
}

char * File::Path::LastSeparator(bool colonToo)
{
    return const_cast<char *>(LastOf(text, text + strlen(text), colonToo ? "/\\:" : "/\\"));
}

const char * File::Path::GetExt(const char * name)
{
    if (!name || !*name)
        return nullptr;
    const char * end = name + strlen(name);
    const char * dot = LastOf(name, end, ".");
    const char * separator = LastOf(name, end, "/\\:");
    return dot && (!separator || dot > separator) ? dot + 1 : nullptr;
}

bool File::Path::IsEqual(const char * a, const char * b)
{
    if (!a || !b)
        return !a && !b;
    for (; *a && *b; ++a, ++b)
        if (*a != *b && !(IsSeparator(*a) && IsSeparator(*b)))
            return false;
    return true;
}

bool File::Path::IsMatch(const char * name, const char * pattern, const char ** rest)
{
    if (rest)
        *rest = nullptr;
    if (!name || !pattern)
        return false;
    return Matcher(name, pattern, rest).Run();
}

FileSubstitute * File::Path::GetSubst(const char * name)
{
    const char * colon = name ? strchr(name, ':') : nullptr;
    if (!colon || (colon == name + 1 && IsSeparator(colon[1])))
        return nullptr;
    const size_t length = static_cast<size_t>(colon - name);
    if (length >= MAX_PATH_LENGTH)
        return nullptr;
    char prefix[MAX_PATH_LENGTH];
    memcpy(prefix, name, length);
    prefix[length] = 0;
    return FileSubstitute::Find(PString(prefix));
}

bool File::Path::AddPath(const char * add, int length)
{
    const size_t used = strlen(text);
    const bool slashed = !used || IsSeparator(text[used - 1]) || Append("/", 1);
    if (!add || length <= 0)
        return slashed;
    size_t wanted = strnlen(add, static_cast<size_t>(length));
    if (used)
        while (wanted && IsSeparator(*add))
        {
            ++add;
            --wanted;
        }
    return Append(add, wanted) && slashed;
}

bool File::Path::AddPath(const char * add)
{
    return AddPath(add, add ? static_cast<int>(strnlen(add, MAX_PATH_LENGTH)) : 0);
}

void File::Path::AddSlash()
{
    const size_t used = strlen(text);
    if (!used || !EndsDirectory(text[used - 1]))
        Append("/", 1);
}

void File::Path::DelSlash()
{
    const size_t used = strlen(text);
    if (used && IsSeparator(text[used - 1]))
        text[used - 1] = 0;
}

void File::Path::DelName(bool removeSlash)
{
    const char * last = LastSeparator(true);
    if (!last)
        text[0] = 0;
    else if (*last == ':' || !removeSlash)
        Cut(static_cast<size_t>(last - text) + 1);
    else
        Cut(static_cast<size_t>(last - text));
}

void File::Path::PrevDir()
{
    char * last = LastSeparator(false);
    if (!last)
        return;
    const char * before = LastOf(text, last, "/\\");
    if (!before)
        before = LastOf(text, last, ":");
    char * start = before ? text + (before - text) + 1 : text;
    memmove(start, last + 1, strlen(last + 1) + 1);
}

void File::Path::RootDir()
{
    const char * colon = strchr(text, ':');
    const char * root;
    if (colon && IsSeparator(colon[1]))
        root = colon + 2;
    else if (colon)
    {
        root = FirstSeparator(text);
        if (!root)
            return;
        ++root;
    }
    else
        root = IsSeparator(text[0]) ? text + 1 : text;
    const char * last = LastSeparator(false);
    const char * finalName = last ? last + 1 : text;
    if (finalName > root)
        memmove(text + (root - text), finalName, strlen(finalName) + 1);
}

void File::Path::SetExt(const char * ext)
{
    const char * last = LastOf(text, text + strlen(text), "./\\");
    if (last && *last == '.')
        Cut(static_cast<size_t>(last - text));
    if (!ext)
        return;
    if (*ext != '.')
        Append(".", 1);
    Append(ext, strlen(ext));
}

bool File::Path::IsExt(const char * ext) const
{
    const char * last = LastOf(text, text + strlen(text), "./\\");
    if (!ext)
        return IsEmpty();
    if (*ext == '.')
        ++ext;
    return last && *last == '.' && CRuntime::Stricmp(last + 1, ext) == 0;
}

void File::Path::Make(const char * directory, const char * name)
{
    // Either argument may be this path's own text.
    const Path directoryCopy(directory);
    const Path nameCopy(name);
    if (directoryCopy.IsEmpty())
    {
        *this = nameCopy;
        return;
    }
    *this = directoryCopy;
    const char * last = LastSeparator(false);
    if (last)
        Cut(static_cast<size_t>(last - text) + 1);
    else
    {
        if (text[0] != '.' && !strchr(text, ':'))
            Append(":", 1);
        Append("/", 1);
    }
    const char * added = nameCopy;
    if (IsSeparator(*added))
        ++added;
    Append(added, strlen(added));
}

void File::Path::Normalize()
{
    char copy[MAX_PATH_LENGTH];
    strcpy(copy, text);
    text[0] = 0;
    if (IsSeparator(copy[0]))
        Append("/", 1);
    for (char * component = copy; *component;)
    {
        size_t length = 0;
        while (component[length] && !IsSeparator(component[length]))
            ++length;
        const bool more = component[length] != 0;
        component[length] = 0;
        const char * colon = strchr(text, ':');
        const char * inside = colon ? colon + 1 : text;
        if (IsSeparator(*inside))
            ++inside;
        const char * lastName = LastSeparator(true);
        const bool upFromUp = strcmp(lastName ? lastName + 1 : text, "..") == 0;
        if (!length || strcmp(component, ".") == 0)
        {
        }
        else if (strcmp(component, "..") == 0 && *inside && !upFromUp)
        {
            AddSlash();
            PrevDir();
        }
        else
            AddPath(component);
        component += length + (more ? 1 : 0);
    }
}

void File::Path::ReplaceBackSlashes()
{
    for (char * at = text; *at; ++at)
        if (*at == '\\')
            *at = '/';
}

void File::Path::ReplaceForwardSlashes()
{
    for (char * at = text; *at; ++at)
        if (*at == '/')
            *at = '\\';
}

void File::Path::ToLower()
{
    CRuntime::Strlwr(text);
}

void File::Path::ToUpper()
{
    CRuntime::Strupr(text);
}

bool File::Path::GetCwd()
{
    return File::GetCwd(*this);
}

void File::Path::Del(unsigned int start, unsigned int count)
{
    const size_t used = strlen(text);
    if (!count || start >= used)
        return;
    if (start + static_cast<size_t>(count) >= used)
        text[start] = 0;
    else
        memmove(text + start, text + start + count, used - start - count + 1);
}

void File::Path::DelDrive()
{
    const char * colon = strchr(text, ':');
    if (colon)
        Del(0, static_cast<unsigned>(colon - text) + 1);
}

void File::Path::DelFileName()
{
    DelName(false);
}

void File::Path::DelPath()
{
    const char * last = LastSeparator(true);
    if (last)
        Del(0, static_cast<unsigned>(last - text) + 1);
}

void File::Path::GetPath(const char * name)
{
    *this = name;
    DelFileName();
}

void File::Path::GetFileName(const char * name)
{
    *this = name;
    DelPath();
}

// Keeps the root ("/", "c:/", "data:/") and the first name after it.
void File::Path::ExtractFirstPath()
{
    const char * colon = strchr(text, ':');
    const char * start = colon ? colon + 1 : text;
    if (IsSeparator(*start))
        ++start;
    const char * end = FirstSeparator(start);
    if (end)
        Cut(static_cast<size_t>(end - text));
}

// Rewrites the path relative to the directory `base`, climbing with ".." where they part.
bool File::Path::MakeRelativeTo(const char * base)
{
    if (!base)
        return false;
    const char * mine = text;
    const char * theirs = base;
    const char * mineCommon = text;
    const char * theirsCommon = base;
    while (*mine && *theirs && (*mine == *theirs || (IsSeparator(*mine) && IsSeparator(*theirs))))
    {
        ++mine;
        ++theirs;
        if (IsSeparator(mine[-1]))
        {
            mineCommon = mine;
            theirsCommon = theirs;
        }
    }
    if ((!*theirs || IsSeparator(*theirs)) && (!*mine || IsSeparator(*mine)))
    {
        mineCommon = *mine ? mine + 1 : mine;
        theirsCommon = theirs;
    }
    if (mineCommon == text && (strchr(text, ':') || IsSeparator(text[0]) || IsSeparator(base[0])))
        return false;
    Path relative;
    for (const char * at = theirsCommon; *at;)
    {
        while (IsSeparator(*at))
            ++at;
        if (!*at)
            break;
        relative.AddPath("..");
        const char * next = FirstSeparator(at);
        at = next ? next : at + strlen(at);
    }
    relative.AddPath(mineCommon);
    *this = relative;
    return true;
}

void File::Path::SplitPath(char * drive, char * directory, char * name, char * ext) const
{
    const char * end = text + strnlen(text, MAX_PATH_LENGTH - 1);
    const char * colon = static_cast<const char *>(memchr(text, ':', static_cast<size_t>(end - text)));
    const char * afterDrive = colon ? colon + 1 : text;
    const char * last = LastOf(afterDrive, end, "/\\");
    const char * fileName = last ? last + 1 : afterDrive;
    const char * dot = LastOf(fileName, end, ".");
    const char * fileEnd = dot ? dot : end;
    // Each part is shorter than the path, so it fits a buffer of MAX_PATH_LENGTH bytes.
    const auto copy = [](char * out, const char * from, const char * to)
    {
        if (!out)
            return;
        memcpy(out, from, static_cast<size_t>(to - from));
        out[to - from] = 0;
    };
    copy(drive, text, afterDrive);
    copy(directory, afterDrive, fileName);
    copy(name, fileName, fileEnd);
    copy(ext, fileEnd, end);
}
} // namespace Kiv
