// Exceptions thrown for misuse and faults, and the result codes of operations that fail in an
// expected way. Exceptions carry fixed buffers so they are built, copied and reported without
// allocating; formatting into them is cut at the buffer's end.
#pragma once

#include "KivApi.h"

#include <cstdarg>
#include <cstdint>

#if !defined(_WIN32)
#include <signal.h>
#endif

namespace Kiv
{
class KIV_API Exception
{
public:
    enum
    {
        DescriptionSize = 4096,
        ReasonSize = 256
    };

    Exception();
    Exception(const char * file, int line);
    Exception(const char * file, int line, const char * reason);
    Exception(const Exception & other);
    Exception & operator=(const Exception & other);

    virtual const char * Class() const;
    virtual bool IsHardwareException() const;
    virtual const char * Description() const;
    virtual const char * Reason() const;

    void InitMembers();
    void SetReasonf(const char * format, ...);
    void VSetReasonf(const char * format, va_list arguments);
    // Appends "  -  " and the formatted text to the reason.
    void AddReasonf(const char * format, ...);
    void SetDescriptionf(const char * format, ...);
    void VSetDescriptionf(const char * format, va_list arguments);

    const char * File() const;
    int Line() const;
    void SetHardwareException(bool hardware);
    bool HardwareException() const;
    // Kept as an entry point; deliberately does nothing.
    void Log(int level);

protected:
    char description[DescriptionSize];
    char reason[ReasonSize];
    bool hardware;
    int line;
    const char * file; // a literal, never copied
};

class KIV_API HardwareException : public Exception
{
public:
#if !defined(_WIN32)
    // The POSIX fault record handed to the constructor in place of Win32's EXCEPTION_POINTERS: the
    // signal mapped onto the Win32 exception code of the same fault, with the handler's arguments.
    // A signal without a Win32 counterpart maps to 0xE0000000 plus the signal number.
    struct KIV_API SignalRecord
    {
        uint32_t code;
        const siginfo_t * info;
        const void * context; // the ucontext_t of the handler

        static SignalRecord FromSignal(int signal, const siginfo_t * info, const void * context);
    };
#endif

    struct TypeName
    {
        uint32_t code;
        const char * name;
    };
    enum
    {
        TypeCount = 21
    };
    static const TypeName exceptionTypes[TypeCount];

    // exceptionPointers is an EXCEPTION_POINTERS * on Windows and a SignalRecord * elsewhere.
    explicit HardwareException(void * exceptionPointers);
    HardwareException(const HardwareException & other);
    HardwareException & operator=(const HardwareException & other);

    const char * Class() const override;
    void * ExceptionPointers() const;

    // The name of an exception code, or null when the table has none.
    static const char * TypeNameOf(uint32_t code);

private:
    // Writes the fault's address, module, registers and call stack into the description.
    void GetCallStack(void * exceptionPointers);

    void * exceptionPointers;
};

// One row of a class's result table; the table ends with a row of two nulls.
struct ResultTable
{
    const char * identifier;
    const char * message;
};

// A result value of class Owner, which declares `enum Results` and `static const ResultTable
// results[]`. Value 0 is success and has no row; value n is described by row n - 1.
template <class Owner>
class ResultClass
{
public:
    using Results = typename Owner::Results;

    ResultClass(Results value = Results(0)) : value(value) {}

    Results Value() const { return value; }
    bool Succeeded() const { return value == Results(0); }
    bool operator==(Results other) const { return value == other; }
    bool operator!=(Results other) const { return value != other; }

    // The row of this value, or null for success and for values past the end of the table.
    const ResultTable * Row() const
    {
        int wanted = static_cast<int>(value);
        if (wanted < 1)
            return nullptr;
        const ResultTable * row = Owner::results;
        for (int index = 1; row->identifier; ++row, ++index)
        {
            if (index == wanted)
                return row;
        }
        return nullptr;
    }
    const char * Identifier() const
    {
        const ResultTable * row = Row();
        return row ? row->identifier : nullptr;
    }
    const char * Message() const
    {
        const ResultTable * row = Row();
        return row ? row->message : nullptr;
    }

private:
    Results value;
};
} // namespace Kiv
