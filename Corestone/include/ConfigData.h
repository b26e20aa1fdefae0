// Kiv::ConfigData, the one node type of the configuration tree: a pooled name, at most one data
// item (a scalar or a typed array) and an ordered list of owned children. Lookups that find nothing
// answer the shared null node, so they chain without tests. The tree is written as text or in a
// little-endian binary form through Kiv::ConfigData::Writer.
#pragma once

#include "Color.h"
#include "DynamicArray.h"
#include "KivApi.h"
#include "PString.h"
#include "Quaternion.h"
#include "Range.h"
#include "Rect.h"
#include "String.h"
#include "UnicodeString.h"
#include "Vector2.h"
#include "Vector3.h"
#include "Vector4.h"

#include <cstddef>
#include <cstdint>

namespace Kiv
{
class File;

class KIV_API ConfigData
{
public:
    // Data-type codes, stored and written as these numbers. A type below TYPE_BYTEARRAY is a
    // scalar, the others are arrays.
    enum DataType : int32_t
    {
        TYPE_NONE = 0,
        TYPE_INT = 1,
        TYPE_FLOAT = 2,
        TYPE_STRING = 3,
        TYPE_BYTEARRAY = 4,
        TYPE_INTARRAY = 5,
        TYPE_FLOATARRAY = 6,
        TYPE_STRINGARRAY = 7
    };

    // An array block: the element count, then the elements, in one Kiv::Alloc block.
    struct ByteArray
    {
        int32_t count;
        unsigned char elements[1];
    };
    struct IntArray
    {
        int32_t count;
        int32_t elements[1];
    };
    struct FloatArray
    {
        int32_t count;
        float elements[1];
    };
    struct PStringArray
    {
        int32_t count;
        PString elements[1];
    };

    using NodeList = FastDynamicArray<ConfigData *, 13, Less<ConfigData *, ConfigData *>>;
    using PStringList = DynamicArray<PString, 13, Less<PString, PString>>;

    // The sink both writers go through.
    class KIV_API Writer
    {
    public:
        virtual ~Writer() = default;
        // Appends size * count bytes; false when they could not all be stored.
        virtual bool Write(const void * data, unsigned int size, unsigned int count) = 0;
        // The encoding used when a writer is given encoding 0 (File::ENCODING_...).
        virtual int GetEncoding() = 0;
    };

    // Writes into an open file; its encoding is the file's.
    class KIV_API FileWriter : public Writer
    {
    public:
        explicit FileWriter(File & file) : file(file) {}
        bool Write(const void * data, unsigned int size, unsigned int count) override;
        int GetEncoding() override;

    private:
        File & file;
    };

    // Appends raw bytes to a pooled string. The bytes gather in a buffer and reach the string at
    // Flush or when the sink is destroyed, so a long text is pooled once instead of at every
    // piece; 8-bit, the default encoding.
    class KIV_API PStringWriter : public Writer
    {
    public:
        explicit PStringWriter(PString & text) : text(text) {}
        ~PStringWriter() override;
        PStringWriter(const PStringWriter &) = delete;
        PStringWriter & operator=(const PStringWriter &) = delete;
        bool Write(const void * data, unsigned int size, unsigned int count) override;
        int GetEncoding() override;
        // False when the string could not take the gathered bytes (they are then dropped).
        bool Flush();

    private:
        PString & text;
        unsigned char * buffer = nullptr;
        unsigned int used = 0;
        unsigned int capacity = 0;
        bool failed = false;
    };

    // Nodes made with new come from the library-wide pool of configuration nodes.
    static void * operator new(std::size_t size);
    static void operator delete(void * p);
    static void * operator new(std::size_t, void * place) { return place; }
    static void operator delete(void *, void *) {}

    // The shared empty node every failed lookup answers. Setters, appends and reads into it do
    // nothing, so that a chain of lookups that failed cannot change what every later failed lookup
    // answers. Programs reach it through the library, never by its address in their own image.
    static ConfigData & Null();

    ConfigData() = default;
    explicit ConfigData(const PString & name);
    // An empty value leaves the node without data.
    ConfigData(const PString & name, const PString & value);
    ConfigData(const ConfigData & other);
    ConfigData & operator=(const ConfigData & other);
    ~ConfigData();

    // Replaces only the data item by a copy of the other's.
    void CopyData(const ConfigData & other);
    // Appends deep copies of the other's children after the existing ones.
    void CopyChildren(const ConfigData & other);
    // A new block holding the same strings, each counted up; null when memory runs out.
    static PStringArray * CopyPStringArray(const PStringArray * array);

    const PString & GetName() const { return name; }
    void SetName(const PString & newName);

    // The data word as a pooled string (the null string unless the type is a string).
    operator const PString &() const;
    // The string item's characters, or null when there is no data.
    operator const char *() const;
    // True for every node but the null node.
    explicit operator bool() const;

    NodeList * GetDataList() const { return children; }
    // Installs a children list, deleting the nodes of the one it replaces.
    void AssignNodes(NodeList * list);

    // 0 without data, 1 for a scalar, the element count of an array.
    int GetArrayCount() const;
    int GetChildCount() const { return children != nullptr ? children->GetCount() : 0; }
    bool HasDataItemOnly() const { return type != TYPE_NONE && children == nullptr; }
    bool HasChildren() const { return children != nullptr; }

    // The raw data word, without type checks.
    int GetDataType() const { return type; }
    int GetIntData() const { return data.integer; }
    float GetFloatData() const { return data.real; }
    const PString & GetPStringData() const { return *this; }
    ByteArray * GetInnerByteArr() const { return static_cast<ByteArray *>(data.block); }
    IntArray * GetInnerIntArr() const { return static_cast<IntArray *>(data.block); }
    FloatArray * GetInnerFloatArr() const { return static_cast<FloatArray *>(data.block); }
    PStringArray * GetInnerPStringArr() const { return static_cast<PStringArray *>(data.block); }
    // The first element, or null when the node holds no array of that type.
    unsigned char * GetByteArray() const;
    int * GetIntArray() const;
    float * GetFloatArray() const;
    PString * GetPStringArray() const;

    void ClearData();
    // A long keeps its low 32 bits.
    void SetIntData(long value);
    void SetFloatData(float value);
    // An empty string clears the data.
    void SetPStringData(const PString & value);
    // Each setter copies count elements into a new block; a refused block leaves no data.
    void SetByteArray(const unsigned char * values, int count);
    void SetIntArray(const int * values, int count);
    void SetFloatArray(const float * values, int count);
    void SetPStringArray(const PString * values, int count);
    // Appends to an array of the same type, or sets one on a node without data; does nothing
    // when the node holds data of any other type.
    void AddByteArray(const unsigned char * values, int count);
    void AddIntArray(const int * values, int count);
    void AddFloatArray(const float * values, int count);
    void AddPStringArray(const PString * values, int count);
    void SetPStringList(const PStringList & list);
    // An empty text is stored as a string item with a null handle. False when the text could not
    // be pooled.
    bool SetAnsi(const AnsiString & text);
    bool SetUnicode(const UnicodeString & text);

    ConfigData & operator<<(bool value) { return SetInt(value ? 1 : 0); }
    ConfigData & operator<<(unsigned char value) { return SetInt(value); }
    ConfigData & operator<<(char value) { return SetInt(value); }
    ConfigData & operator<<(short value) { return SetInt(value); }
    ConfigData & operator<<(unsigned short value) { return SetInt(value); }
    ConfigData & operator<<(int value) { return SetInt(value); }
    ConfigData & operator<<(unsigned int value) { return SetInt(static_cast<long>(value)); }
    ConfigData & operator<<(long value) { return SetInt(value); }
    ConfigData & operator<<(unsigned long value) { return SetInt(static_cast<long>(value)); }
    ConfigData & operator<<(float value);
    ConfigData & operator<<(const PString & value);
    ConfigData & operator<<(const AnsiString & value);
    // Keeps a text literal from converting to bool.
    ConfigData & operator<<(const char * value);
    ConfigData & operator<<(const Range<int> & value);
    ConfigData & operator<<(const Point & value);
    ConfigData & operator<<(const Size & value);
    ConfigData & operator<<(const Rect & value);
    ConfigData & operator<<(const Range<float> & value);
    ConfigData & operator<<(const Vector2 & value);
    ConfigData & operator<<(const Vector3 & value);
    ConfigData & operator<<(const Vector4 & value);
    ConfigData & operator<<(const Color & value);
    ConfigData & operator<<(const Quaternion & value);
    // Appends the node as the last child; the tree owns it from here.
    ConfigData & operator<<(ConfigData * child);

    // Integer: the value; float: truncated; string: strtol base 10; otherwise 0.
    operator int() const;
    // As operator int, but text is read with strtoul base 0 ("0x10" is 16).
    operator unsigned int() const;
    // Float: the value; integer: converted; string: read as a decimal float; otherwise 0.
    operator float() const;
    operator Vector2() const;
    operator Vector3() const;
    operator Vector4() const;
    operator Color() const;
    operator Quaternion() const;
    operator Point() const;
    operator Size() const;
    operator Rect() const;

    // Each does nothing on the null node. bool: integer nonzero, no data false, text "1" or
    // "true" in any case; other types leave the target.
    const ConfigData & operator>>(bool & value) const;
    const ConfigData & operator>>(char & value) const;
    const ConfigData & operator>>(short & value) const;
    const ConfigData & operator>>(int & value) const;
    const ConfigData & operator>>(long & value) const;
    const ConfigData & operator>>(unsigned char & value) const;
    const ConfigData & operator>>(unsigned short & value) const;
    const ConfigData & operator>>(unsigned int & value) const;
    const ConfigData & operator>>(unsigned long & value) const;
    const ConfigData & operator>>(float & value) const;
    const ConfigData & operator>>(PString & value) const;
    const ConfigData & operator>>(String & value) const;
    const ConfigData & operator>>(Range<int> & value) const;
    const ConfigData & operator>>(Point & value) const;
    const ConfigData & operator>>(Size & value) const;
    const ConfigData & operator>>(Rect & value) const;
    const ConfigData & operator>>(Range<float> & value) const;
    const ConfigData & operator>>(Vector2 & value) const;
    const ConfigData & operator>>(Vector3 & value) const;
    const ConfigData & operator>>(Vector4 & value) const;
    const ConfigData & operator>>(Color & value) const;
    const ConfigData & operator>>(Quaternion & value) const;
    // Copies this node, children included, into the target.
    const ConfigData & operator>>(ConfigData & value) const;

    // The data as text: the string, the decimal integer, or the float text. False for the null
    // node and for a non-null empty string.
    bool GetAnsi(AnsiString & text) const;
    bool GetUnicode(UnicodeString & text) const;
    // String: the item; integer: decimal; float: the float text; otherwise the null string.
    PString DataToPString() const;

    // Lookups compare pooled names by identity and answer the null node when nothing matches.
    ConfigData & Find(const PString & name) const;
    ConfigData & Find(const PString & name, int index) const;
    // The first child of that name holding exactly that string.
    ConfigData & Find(const PString & name, const PString & value) const;
    ConfigData & Find(int index) const;
    ConfigData & operator[](int index) const { return Find(index); }
    ConfigData & operator()(const PString & name) const { return Find(name); }
    ConfigData & operator()(const PString & name, int index) const { return Find(name, index); }
    ConfigData & operator()(const PString & name, const PString & value) const { return Find(name, value); }
    int Count(const PString & name) const;

    // Each appends a child and answers it; the null node when memory runs out.
    ConfigData & New();
    ConfigData & New(const PString & name);
    ConfigData & New(const PString & name, const PString & value);
    // The index-th child of that name, appending children of that name until it exists.
    ConfigData & Replace(const PString & name, int index);
    ConfigData & Replace(const PString & name, const PString & value, int index);
    // Each deletes the index-th matching child; false when there is none.
    bool Remove(const PString & name, int index);
    bool Remove(const PString & name, const PString & value, int index);
    // Matches children of the same name, type and data word; false for the null node.
    bool Remove(const ConfigData & like, int index);
    void RemoveAll(const PString & name);
    // Unlinks the index-th child of that name and hands it to the caller; null when absent.
    ConfigData * Extract(const PString & name, int index);

    unsigned long Crc(const PString & excluded) const;
    unsigned long Crc() const;
    // Continues seed over the name, the data and the children but those named excluded (at this
    // level only).
    unsigned long CalcCRC(unsigned long seed, const PString & excluded) const;

    // True when the data items are equal; a node without data equals a null string.
    bool CompareData(const ConfigData & other) const;

    // Text form of the children; encoding 0 asks the sink. False when a write failed.
    bool Write(Writer & writer, int encoding = 0) const;
    bool Write(File & file, int encoding = 0) const;
    bool Write(PString & text, int encoding = 0) const;

    // Binary form: "CD", version 0x0101, then this node's record.
    bool WriteBin(Writer & writer, int encoding = 0) const;
    bool WriteBin(File & file, int encoding = 0) const;
    bool WriteBin(PString & bytes, int encoding = 0) const;
    // Opens the file for writing (compressed when asked), writes and closes it.
    bool WriteBin(const char * fileName, bool compressed, int encoding = 0) const;
    bool WriteBin(const PString & directory, const char * fileName, bool compressed, int encoding = 0) const;
    // False, with the node untouched, for a wrong header; otherwise see ReadBinFile.
    bool ReadBin(File & file);
    bool ReadBin(const char * fileName);
    bool ReadBin(const PString & directory, const char * fileName);
    // Reads one node record into this node. On a short read or a bad type byte it answers false,
    // leaving the children read so far attached.
    bool ReadBinFile(File & file);

    // The float text: 8 significant digits as the Windows runtime's _gcvt writes them, with a
    // "0" after a trailing point ("2.0", "0.5", "1.2345679e+008", "12345678", "-1.#INF"). A quiet
    // NaN without payload is "1.#IND" or "-1.#IND", any other "1.#QNAN" or "-1.#QNAN", so that
    // the text reader gives back the bits of the common NaNs. buffer must hold FloatTextSize
    // bytes (no buffer is shared, so threads may format at once); answers the length.
    enum : unsigned
    {
        FloatTextSize = 32
    };
    static int FloatText(float value, char * buffer);
    // Quotes and escapes a name or string value as the text form needs it.
    static void FormatDataString(String & text);

protected:
    bool WriteChildList(Writer & writer, int level, int encoding) const;
    bool WriteBlock(Writer & writer, int level, int encoding) const;
    bool WriteDataBlock(Writer & writer, int level, int encoding) const;
    bool WriteDataItem(Writer & writer, int level, int encoding) const;
    static bool WriteTabs(Writer & writer, int level, int encoding);
    static bool WriteWrap(Writer & writer, const char * text, int length, int & column, int indent,
                          int encoding);
    static bool WriteChars(Writer & writer, const char * text, int length, int encoding);
    static bool WritePString(Writer & writer, const PString & text, int encoding);
    bool WriteBinFile(Writer & writer, int encoding) const;

private:
    union Data
    {
        constexpr Data() : block(nullptr) {}
        ~Data() {}
        int32_t integer;
        float real;
        PString text;
        void * block;
    };

    using Match = bool (*)(const ConfigData & node, const void * key);

    ConfigData & SetInt(long value);
    ConfigData & SetFloats(const float * values, int count);
    ConfigData & SetInts(const int * values, int count);
    int GetFloats(float * values, int count) const;
    int GetInts(int * values, int count) const;
    void SetArray(DataType arrayType, const void * values, int count);
    void AddArray(DataType arrayType, const void * values, int count);
    static void * NewBlock(DataType arrayType, int count);
    static void FreeBlock(DataType arrayType, void * block);
    static void * Elements(DataType arrayType, void * block);
    static void * ReadStrings(File & file, int count);
    bool AddChild(ConfigData * child);
    ConfigData * NthChild(int index, Match match, const void * key) const;
    int Matches(Match match, const void * key) const;
    ConfigData & Append(const PString & name, const PString & value, int count);
    bool DeleteNth(int index, Match match, const void * key);
    void Unlink(ConfigData * child);
    void DeleteChildren();
    static bool WriteText(Writer & writer, const String & text, int & column, int encoding);
    bool WriteLead(Writer & writer, int level, int & column, int encoding) const;
    bool WriteEnclosed(Writer & writer, int & column, int encoding) const;
    bool WriteValue(Writer & writer, int & column, int encoding) const;
    bool WriteScalar(Writer & writer, int & column, int encoding) const;
    bool WriteElements(Writer & writer, int & column, int encoding) const;
    bool WriteBytes(Writer & writer, int encoding) const;
    bool WriteBinNode(Writer & writer, int encoding, int depth) const;
    bool ReadBinNode(File & file, int depth);
    bool ReadBinData(File & file, int dataType);
    bool ReadBinChildren(File & file, int depth);

    static ConfigData nullNode;

    PString name;
    int32_t type = TYPE_NONE;
    Data data;
    NodeList * children = nullptr;
};
} // namespace Kiv
