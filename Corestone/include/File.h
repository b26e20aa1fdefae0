// The file layer's handle on a disk file or a file inside a substitution, with its path value,
// directory search, result codes and exception type.
#pragma once

#include "BinReader.h"
#include "Exception.h"
#include "KivApi.h"

#include <cstdint>

namespace Kiv
{
class AnsiString;
class String;
class UnicodeString;
class PString;
class FileSub;
class FileSubstitute;

// The exception the file layer throws for misuse and short transfers.
class KIV_API FileEx : public Exception
{
public:
    FileEx(const char * module, int line, const char * format, ...);

    const char * Class() const override;
};

class KIV_API File : public BinReader, public BinWriter
{
public:
    enum Results
    {
        RES_OK = 0,
        RES_UNKNOWN,
        RES_FILENOTFOUND,
        RES_ALREADYOPEN,
        RES_MODENOTSUPPORTED,
        RES_CANTWRITECOMPRESSED,
        RES_NOTCOMPRESSED,
        RES_SUBSTNOTFOUND,
        RES_FILEALREADYEXISTS,
        RES_READONLY
    };
    static const ResultTable results[];
    using Result = ResultClass<File>;

    // Open modes: four nibbles, writing, reading, creation and unsupported extras.
    enum : unsigned long
    {
        MODE_WRITE_MASK = 0x000F,
        MODE_WRITE = 0x0001,
        MODE_WRITE_COMPRESSED = 0x0002,
        MODE_READ_MASK = 0x00F0,
        MODE_READ = 0x0010,
        MODE_READ_PLAIN = 0x0020,
        MODE_READ_COMPRESSED = 0x0030,
        MODE_CREATE_MASK = 0x0F00,
        MODE_CREATE = 0x0100,
        MODE_APPEND = 0x0200,
        MODE_CREATE_NEW = 0x0300,
        MODE_EXTRA_MASK = 0xF000,
        MODE_UNSUPPORTED = 0x1000
    };

    enum Encoding
    {
        ENCODING_DEFAULT = 0,
        ENCODING_ANSI = 1,
        ENCODING_UTF16 = 2
    };

    enum FileSeek
    {
        FROM_START = 0,
        FROM_CURRENT = 1,
        FROM_END = 2
    };

    enum : unsigned
    {
        BUFFER_SIZE = 16384,
        MAX_PATH_LENGTH = 260
    };

    // A file stamp: 100-nanosecond intervals since 1601-01-01 UTC, the same on every target.
    struct KIV_API Time
    {
        uint64_t ticks = 0;

        static Time FromUnixSeconds(int64_t seconds);
        int64_t UnixSeconds() const;
        bool operator==(const Time & other) const { return ticks == other.ticks; }
        bool operator!=(const Time & other) const { return ticks != other.ticks; }
    };

    // The library's path value: one NUL-terminated 8-bit path in a fixed buffer. Every edit
    // stops at the buffer's bound, cutting what does not fit.
    class KIV_API Path
    {
    public:
        Path(const char * text = nullptr) { *this = text; }
        Path & operator=(const char * text);

        operator const char *() const { return text; }
        const char * Text() const { return text; }
        char * Buffer() { return text; }
        unsigned Length() const;
        bool IsEmpty() const { return text[0] == 0; }

        static const char * GetExt(const char * name);
        static bool IsEqual(const char * a, const char * b);
        static bool IsMatch(const char * name, const char * pattern, const char ** rest = nullptr);
        static FileSubstitute * GetSubst(const char * name);
        FileSubstitute * GetSubst() const { return GetSubst(text); }

        // False when the added part was cut at the path's bound.
        bool AddPath(const char * add, int length);
        bool AddPath(const char * add);
        void AddSlash();
        void DelSlash();
        void DelName(bool removeSlash = false);
        void PrevDir();
        void RootDir();
        void SetExt(const char * ext);
        bool IsExt(const char * ext) const;
        void Make(const char * directory, const char * name);
        void Normalize();
        void ReplaceBackSlashes();
        void ReplaceForwardSlashes();
        void ToLower();
        void ToUpper();
        bool GetCwd();
        void Del(unsigned int position, unsigned int count);
        void DelDrive();
        void DelFileName();
        void DelPath();
        void GetPath(const char * name);
        void GetFileName(const char * name);
        void ExtractFirstPath();
        bool MakeRelativeTo(const char * base);
        // Each buffer given (any may be null) must hold MAX_PATH_LENGTH bytes.
        void SplitPath(char * drive, char * directory, char * name, char * ext) const;

    private:
        bool Append(const char * add, size_t length);
        void Cut(size_t length);
        char * LastSeparator(bool colonToo);

        char text[MAX_PATH_LENGTH];
    };

    // The 288-byte directory entry record, also a record of the archive format.
    struct KIV_API Entry
    {
        enum : unsigned char
        {
            ATTRIBUTE_HIDDEN = 0x02,
            ATTRIBUTE_DIRECTORY = 0x10,
            ATTRIBUTE_COMPRESSED = 0x80
        };

        char name[MAX_PATH_LENGTH];
        uint32_t size;
        // Modification stamp (8 bytes), creation stamp (8 bytes), 4 reserved bytes.
        unsigned char times[20];
        unsigned char attributes;
        unsigned char spare;
        uint16_t reserved;

        Entry();
        bool IsHidden() const { return (attributes & ATTRIBUTE_HIDDEN) != 0; }
        bool IsDir() const { return (attributes & ATTRIBUTE_DIRECTORY) != 0; }
        bool IsCompressed() const { return (attributes & ATTRIBUTE_COMPRESSED) != 0; }
        Time GetStamp() const;
        void SetStamp(const Time & modified, const Time & created);
        // Puts the numbers in little-endian order; nothing to do on a little-endian machine.
        void LittleEndian() {}
    };

    // A search for names matching a wildcard pattern in a directory or through a substitution.
    class KIV_API Find
    {
    public:
        Find();
        ~Find();
        Find(const Find &) = delete;
        Find & operator=(const Find &) = delete;

        // Each answers true when a first result is ready.
        bool Open(const char * pattern);
        bool Open(const char * pattern, const PString & subst);
        bool Next();
        void Close();
        void Dump();

        const Entry & Current() const { return entry; }
        const char * Name() const { return entry.name; }
        Path GetNameAndPath() const;

    private:
        bool FirstDirect();
        bool NextDirect();
        bool NextFile();
        bool NextSearch();
        bool CheckFiles();
        void ReduceWildcard(const char * pattern);
        bool StartMember();

        void * walk;
        // The places of the substitution searched, held until the search closes.
        FileSub ** places;
        unsigned placeCount;
        unsigned placeIndex;
        Path directory; // the folder being listed
        Path wildcard;  // the name pattern within it
        Path prefix;    // what a result's name is joined to
        Path folder;    // the pattern's folder inside each place of a substitution
        Entry entry;
        int results;
    };

    File();
    ~File() override;
    File(const File &) = delete;
    File & operator=(const File &) = delete;

    Result Open(const PString & subst, const char * name, unsigned long mode,
                int encoding = ENCODING_DEFAULT);
    Result Open(const char * name, unsigned long mode, int encoding = ENCODING_DEFAULT);
    // RES_UNKNOWN when written bytes could not be stored (a full disk, a size limit); else 0.
    unsigned long Close();
    bool IsOpen() const { return handle != -1; }
    void Commit();

    unsigned long Read(void * data, unsigned long count, unsigned long itemSize);
    unsigned long Write(const void * data, unsigned long count, unsigned long itemSize);
    void SafeRead(void * data, unsigned long count, unsigned long itemSize);
    void SafeWrite(const void * data, unsigned long count, unsigned long itemSize);

    bool Read(char & value) { return ReadItem(value); }
    bool Read(signed char & value) { return ReadItem(value); }
    bool Read(unsigned char & value) { return ReadItem(value); }
    bool Read(short & value) { return ReadItem(value); }
    bool Read(unsigned short & value) { return ReadItem(value); }
    bool Read(float & value) { return ReadItem(value); }
    // A long is stored in 32 bits on every target.
    bool Read(long & value);
    bool Read(unsigned long & value);
    bool Read32(int & value) { return ReadItem(value); }
    bool Read32(unsigned int & value) { return ReadItem(value); }
    bool Write(char value) { return WriteItem(value); }
    bool Write(signed char value) { return WriteItem(value); }
    bool Write(unsigned char value) { return WriteItem(value); }
    bool Write(short value) { return WriteItem(value); }
    bool Write(unsigned short value) { return WriteItem(value); }
    bool Write(float value) { return WriteItem(value); }
    bool Write(long value) { return Write32(static_cast<int>(value)); }
    bool Write(unsigned long value) { return Write32(static_cast<unsigned int>(value)); }
    bool Write32(int value) { return WriteItem(value); }
    bool Write32(unsigned int value) { return WriteItem(value); }

    bool Read(AnsiString & text);
    bool Read(String & text);
    bool Read(UnicodeString & text);
    bool Read(PString & text);
    bool Write(const AnsiString & text);
    bool Write(const String & text);
    bool Write(const UnicodeString & text);
    bool Write(const PString & text);
    // A block: four identifier characters, a 32-bit byte count, then the bytes.
    bool ReadBlock(const char * id, void * data, unsigned long length);
    bool WriteBlock(const char * id, const void * data, unsigned long length);

    unsigned long ReadLine(void * buffer, unsigned long length, int encoding = ENCODING_DEFAULT);
    unsigned long WriteLine(const char * text, int encoding = ENCODING_DEFAULT);

    unsigned long Seek(long offset, FileSeek origin);
    unsigned long SeekSet(long offset) { return Seek(offset, FROM_START); }
    unsigned long SeekCur(long offset) { return Seek(offset, FROM_CURRENT); }
    unsigned long SeekEnd(long offset) { return Seek(offset, FROM_END); }
    unsigned long Tell() const { return position; }
    unsigned long Size();
    bool Eof() { return Tell() >= Size(); }

    int DetectEncoding();
    int GetEncoding() const { return encoding; }
    void SetEncoding(int newEncoding) { encoding = newEncoding ? newEncoding : ENCODING_ANSI; }
    static int GetDefaultEncoding() { return ENCODING_ANSI; }

    void SetBuffer(void * newBuffer);
    bool IsCompressed() const { return (mode & MODE_READ_MASK) == MODE_READ_COMPRESSED; }
    unsigned long GetMode() const { return mode; }
    const char * Name() const { return path; }
    bool GetStamp(Time & stamp);
    bool SetStamp(const Time & stamp);

    // BinReader and BinWriter: raw transfers of a byte count.
    unsigned int ReadRaw(void * data, unsigned int length) override;
    unsigned int WriteRaw(const void * data, unsigned int length) override;

    static Result Exists(const char * name);
    static Result Exists(const PString & subst, const char * name);
    static Result ExistsIgnoreCase(const char * name, Path & found);
    static Result ExistsIgnoreCase(const PString & subst, const char * name, Path & found);
    static Result SubstExists(const PString & subst);
    static bool Remove(const char * name);
    static bool Remove(const PString & subst, const char * name);
    static bool Unlink(const char * name) { return Remove(name); }
    static bool Unlink(const PString & subst, const char * name) { return Remove(subst, name); }
    static bool Rename(const char * from, const char * to);
    static bool Rename(const PString & subst, const char * from, const char * to);
    static bool Md(const char * name);
    static bool Md(const PString & subst, const char * name);
    static bool Rd(const char * name);
    static bool Rd(const PString & subst, const char * name);
    static bool Cd(const char * name);
    static bool Cd(const PString & subst, const char * name);
    static bool GetCwd(Path & directory);
    // Removes a directory with everything below it.
    static bool Prune(const char * directory);
    static bool Prune(const PString & subst, const char * directory);
    // Rewrites the name in place as its full absolute form; false, with the name unchanged, when
    // it cannot be resolved or the result would not fit. `name` must hold MAX_PATH_LENGTH bytes.
    static bool TrueName(char * name);
    static bool GetStamp(Time & stamp, const char * name);
    static bool GetStamp(Time & stamp, const PString & subst, const char * name);
    static void SetStamp(const Time & stamp, const char * name);
    static void SetStamp(const Time & stamp, const PString & subst, const char * name);
    static bool SetReadonly(const char * name, bool readOnly);
    static bool SetReadonly(const PString & subst, const char * name, bool readOnly);
    static Result CheckWriteMode(const char * name);
    static Result CheckWriteMode(const PString & subst, const char * name);
    // The callback hears of every transfer through the operating system: the bytes moved so far
    // in the request and the bytes asked for. Answering false ends the request early.
    static void SetCallBack(bool (*callBack)(unsigned long done, unsigned long requested));
    // With logging on, every open and its result go to the debugger output.
    static void SetLog(bool on);

    static void Subst(const PString & name, const char * path, bool writable = false);
    static void SubstLink(const PString & name, const PString & other);

    static unsigned int OpenCount();

private:
    friend class FileSub;
    friend class FileSubPath;

    enum : uint8_t
    {
        OWNS_BUFFER = 1,
        FOREIGN_HANDLE = 2,
        // Buffered bytes failed to reach the file since it was opened; Close reports it.
        WRITE_FAILED = 4
    };

    template <typename T>
    bool ReadItem(T & value)
    {
        return Read(&value, 1, sizeof(T)) == 1;
    }
    template <typename T>
    bool WriteItem(const T & value)
    {
        return Write(&value, 1, sizeof(T)) == 1;
    }

    void ResetState(unsigned long newMode);
    Result OpenThroughSubst(FileSubstitute * substitute, const char * name);
    Result OpenDisk(const char * name);
    Result DetectCompression();
    Result FinishOpen();
    Result Fail(Result result);
    bool CloseHandle();
    bool AttachDisk(const char * fullName);
    void CheckReadable(int line) const;
    void CheckWritable(int line) const;
    unsigned long Buffered() const { return buffered - static_cast<unsigned long>(cursor - buffer); }
    bool Refill();
    unsigned long ReadDirect(unsigned char * data, unsigned long length);
    unsigned long WriteDirect(const unsigned char * data, unsigned long length);
    bool Flush();
    bool PlaceHandle(uint32_t physical);
    int ReadAt(uint32_t physical, void * data, uint32_t count);
    void DropReadAhead();
    unsigned int ReadHandle(uint32_t physical, void * data, unsigned int length);
    bool ReadChunkWord(uint32_t physical, unsigned & word);
    bool LoadChunk(uint32_t physical);
    bool RefillChunk();
    unsigned long SeekChunk(uint32_t target);
    uint32_t ChunkedSize();
    bool FinishCompressedWrite();
    unsigned long ReadLineBytes(unsigned char * buffer, unsigned long limit, unsigned unitSize, bool & ended);
    void SkipLine(unsigned unitSize);
    unsigned long ReadLineUtf16(char * buffer, unsigned long length);
    unsigned long WriteLineUtf16(const char * text);

    int32_t handle;
    unsigned char * cursor;
    unsigned char * buffer;
    uint32_t buffered;
    uint32_t mode;
    uint32_t size;
    uint32_t dataStart;
    uint32_t position;
    uint32_t handlePosition;
    uint32_t dirty;
    uint8_t flags;
    FileSubstitute * substitute;
    FileSub * member;
    int32_t encoding;
    Path path;
};

// Lets a code be compared with a result from either side.
inline bool operator==(File::Results code, const File::Result & result)
{
    return result == code;
}
inline bool operator!=(File::Results code, const File::Result & result)
{
    return result != code;
}
} // namespace Kiv
