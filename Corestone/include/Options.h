// Kiv::Options: the named start-up switches of a process, merged from option strings. One syntax
// serves the built-in defaults, environment variables, option files and the command line; later
// sources override earlier ones, and "+" options add to a list instead.
//
//   -Name=value   +List=a,b   /Switch   -Flag-   -Text='quoted -value'
//
// Names are compared without regard to case. A set is filled on one thread at start-up and read
// afterwards; it is not locked.
#pragma once

#include "Color.h"
#include "DynamicArray.h"
#include "KivApi.h"
#include "PString.h"
#include "Quaternion.h"
#include "Range.h"
#include "String.h"
#include "Vector2.h"
#include "Vector3.h"
#include "Vector4.h"

namespace Kiv
{
class KIV_API Options
{
public:
    Options();
    ~Options();
    Options(const Options &) = delete;
    Options & operator=(const Options &) = delete;

    // Merges one option string.
    void ProcessRaw(const char * text);
    // Every argument, the program's too, each followed by a blank, merged as one string.
    void ProcessCmdLine(int argc, char ** const argv);
    // A file of option strings, 8-bit or UTF-16 with its mark; a missing file is skipped.
    void ProcessFile(const char * name);
    // The value of the environment variable, when it is set.
    void ProcessEnv(const char * variable);
    // The standard sources of the program at argv[0] (environment, then option files in the
    // current and the program's directories), then the command line.
    void Init(const char * appName, int argc, char ** const argv);
    // The standard sources of the running process, then the extra string (none when null).
    void Init(const char * appName, const char * extra);

    // True when the option is present.
    bool Get(const char * name) const;
    bool Get(const char * name, PString & value) const;
    bool Get(const char * name, String & value) const;
    // These keep or give the fallback when the option is absent and answer whether it is present.
    bool Get(const char * name, PString & value, const PString & fallback) const;
    bool Get(const char * name, String & value, const String & fallback) const;
    // A bare switch gives the opposite of the fallback; "-", "false" and "off" are false and "+",
    // "true" and "on" true; any other value also gives the opposite of the fallback.
    bool Get(const char * name, bool & value, bool fallback) const;
    // The number the value begins with (0 for none), as the C runtime's atoi reads it.
    bool Get(const char * name, int & value, int fallback) const;
    bool Get(const char * name, unsigned int & value, unsigned int fallback) const;
    bool Get(const char * name, long & value, long fallback) const;
    bool Get(const char * name, unsigned long & value, unsigned long fallback) const;
    bool Get(const char * name, float & value, float fallback) const;
    // Components separated by ","; missing ones keep the fallback's.
    bool Get(const char * name, Vector2 & value, const Vector2 & fallback) const;
    bool Get(const char * name, Vector3 & value, const Vector3 & fallback) const;
    bool Get(const char * name, Vector4 & value, const Vector4 & fallback) const;
    bool Get(const char * name, Quaternion & value, const Quaternion & fallback) const;
    bool Get(const char * name, Color & value, const Color & fallback) const;
    // "low,high"; a missing bound keeps what the range held.
    bool Get(const char * name, Range<int> & value) const;
    bool Get(const char * name, Range<float> & value) const;
    // The value's elements, split as GetNext splits them, in place of what the array held.
    bool Get(const char * name, DynamicArray<String, 41> & values, const char * separators) const;

    // Starts walking the option's value as elements split at any of the separator characters.
    void SetSeparators(const char * name, const char * separators);
    // The next element, trailing blanks cut; false when the option is absent, was never given
    // separators, or has no element left. Typed forms read the element as Get reads a value.
    bool GetNext(const char * name, String & value);
    bool GetNext(const char * name, PString & value);
    bool GetNext(const char * name, bool & value);
    bool GetNext(const char * name, int & value);
    bool GetNext(const char * name, long & value);
    bool GetNext(const char * name, unsigned int & value);
    bool GetNext(const char * name, unsigned long & value);
    bool GetNext(const char * name, float & value);
    bool GetNext(const char * name, Vector2 & value);
    bool GetNext(const char * name, Vector3 & value);
    bool GetNext(const char * name, Vector4 & value);
    bool GetNext(const char * name, Quaternion & value);
    bool GetNext(const char * name, Color & value);

    // Every option as "[name] = [value]" on standard output.
    void Dump() const;
    unsigned int GetCount() const { return count; }

    struct Option;

private:
    Option * Find(const char * name) const;
    Option * Find(const char * name, unsigned int length) const;
    Option * Add(const char * name, unsigned int length);
    void Set(char prefix, const char * name, unsigned int nameLength, const char * value,
             unsigned int valueLength);
    bool Grow();
    const char * Value(const char * name) const;
    bool NextElement(const char * name, String & element);

    Option * first;
    Option * last;
    unsigned int count;
    // An open-addressed table of the records by name, so a lookup costs the same among thousands.
    Option ** index;
    unsigned int indexSize;
};
} // namespace Kiv
