#include "ConfigParser.h"

#include "ConfigGrammerNew.h"
#include "MemoryFile.h"

#include <cstdio>

namespace Kiv
{
const ResultTable ConfigParser::results[] = {
    {"RES_UNKNOWN", "Unknown error"},
    {"RES_FILE_OPEN_ERROR", "Unable to open file"},
    {"RES_FILE_FORMAT_ERROR", "Unexpected file format"},
    {"RES_FILE_VERSION_ERROR", "Incompatible file version"},
    {"RES_INVALID_PARAMETER", "Invalid parameter"},
    {nullptr, nullptr},
};

namespace
{
bool IsEmpty(const char * text)
{
    return text == nullptr || *text == 0;
}
} // namespace

ConfigParser::ConfigParser() = default;

ConfigParser::ConfigParser(ConfigData * root) : root(root) {}

ConfigParser::ConfigParser(const ConfigParser & other)
    : fileName(other.fileName), root(other.root), version(other.version)
{
}

ConfigParser & ConfigParser::operator=(const ConfigParser & other)
{
    if (this == &other)
        return *this;
    if (root != other.root)
    {
        DropRoot();
        root = other.root;
    }
    fileName = other.fileName;
    version = other.version;
    return *this;
}

ConfigParser::~ConfigParser()
{
    DropRoot();
}

void ConfigParser::DropRoot()
{
    if (ownsRoot)
        delete root;
    root = nullptr;
    ownsRoot = false;
}

ConfigData * ConfigParser::GetConfig()
{
    ownsRoot = false;
    return root;
}

void ConfigParser::SetConfig(ConfigData * newRoot)
{
    if (newRoot == root)
        return;
    DropRoot();
    root = newRoot;
}

ConfigParser::Result ConfigParser::Parse(MemoryFile & file)
{
    const char * name = file.Name();
    return Parse(nullptr, IsEmpty(name) ? nullptr : name, file);
}

ConfigParser::Result ConfigParser::Parse(const char * name)
{
    if (name == nullptr)
        return RES_INVALID_PARAMETER;
    File file;
    return ParseOpened(file, file.Open(name, File::MODE_READ), nullptr, name);
}

ConfigParser::Result ConfigParser::Parse(const PString & directory, const char * name)
{
    if (name == nullptr)
        return RES_INVALID_PARAMETER;
    File file;
    return ParseOpened(file, file.Open(directory, name, File::MODE_READ), directory, name);
}

ConfigParser::Result ConfigParser::ParseOpened(File & file, File::Result opened, const char * directory,
                                               const char * name)
{
    if (opened != File::RES_OK)
    {
        fileName = name;
        Report(0, results[RES_FILE_OPEN_ERROR - 1].message);
        return RES_FILE_OPEN_ERROR;
    }
    MemoryFile text(file, true);
    return Parse(directory, name, text);
}

ConfigParser::Result ConfigParser::Parse(const char * name, void * data, unsigned int size)
{
    if (data == nullptr && size != 0)
        return RES_INVALID_PARAMETER;
    MemoryFile text(data, size, true);
    return Parse(nullptr, name, text);
}

// Messages name the file as the file layer spells it: the substitution, a colon and the path.
ConfigParser::Result ConfigParser::Parse(const char * directory, const char * name, MemoryFile & file)
{
    if (name != nullptr && !IsEmpty(directory))
        fileName.Setf("%s:%s", directory, name);
    else if (name != nullptr)
        fileName = name;
    lastError = AnsiString();
    DropRoot();
    root = new ConfigData(fileName);
    ownsRoot = true;
    scfgFlexLexer scanner(reinterpret_cast<const char *>(file.Data()), file.Size());
    ConfigBuilder builder(*root, version);
    if (scfgparse(scanner, builder) == 0)
        return RES_OK;
    Report(builder.ErrorLine(), builder.ErrorMessage());
    return RES_FILE_FORMAT_ERROR;
}

void ConfigParser::Report(int line, const char * message)
{
    // One text of at most 1,024 characters.
    char text[1025];
    const char * name = IsEmpty(fileName) ? "" : static_cast<const char *>(fileName);
    if (line != 0)
        std::snprintf(text, sizeof(text), "%s(%d): %s", name, line, message);
    else
        std::snprintf(text, sizeof(text), "%s: %s", name, message);
    lastError = text;
}

ConfigParser::Result ConfigParser::Save(const char * name, bool compressed, int encoding)
{
    File file;
    const unsigned long mode =
        (compressed ? File::MODE_WRITE_COMPRESSED : File::MODE_WRITE) | File::MODE_CREATE;
    return SaveOpened(file, file.Open(name, mode, encoding), encoding);
}

ConfigParser::Result ConfigParser::Save(const char * directory, const char * name, bool compressed,
                                        int encoding)
{
    File file;
    const unsigned long mode =
        (compressed ? File::MODE_WRITE_COMPRESSED : File::MODE_WRITE) | File::MODE_CREATE;
    return SaveOpened(file, file.Open(PString(directory), name, mode, encoding), encoding);
}

ConfigParser::Result ConfigParser::SaveOpened(File & file, File::Result opened, int encoding)
{
    if (opened != File::RES_OK)
        return RES_FILE_OPEN_ERROR;
    const bool written = WriteData(file, encoding);
    const bool closed = file.Close() == 0;
    return written && closed ? RES_OK : RES_UNKNOWN;
}

bool ConfigParser::SaveString(PString & text, int encoding)
{
    ConfigData::PStringWriter sink(text);
    const bool written = WriteTo(sink, encoding);
    return sink.Flush() && written;
}

bool ConfigParser::WriteData(File & file, int encoding)
{
    ConfigData::FileWriter sink(file);
    return WriteTo(sink, encoding);
}

bool ConfigParser::WriteTo(ConfigData::Writer & writer, int encoding)
{
    if (encoding == File::ENCODING_DEFAULT)
        encoding = writer.GetEncoding();
    char line[64];
    int length = std::snprintf(line, sizeof(line), "version %1.2f\r\n", static_cast<double>(version));
    length = length < 0 ? 0 : length < int(sizeof(line)) ? length : int(sizeof(line)) - 1;
    bool written = false;
    if (encoding == File::ENCODING_UTF16)
    {
        // The line is plain ASCII: each character is one UTF-16 unit.
        unsigned char wide[2 + 2 * sizeof(line)] = {0xFF, 0xFE};
        for (int i = 0; i < length; ++i)
            wide[2 + 2 * i] = static_cast<unsigned char>(line[i]);
        written = writer.Write(wide, static_cast<unsigned int>(2 + 2 * length), 1);
    }
    else
    {
        written = writer.Write(line, static_cast<unsigned int>(length), 1);
    }
    return written && (root == nullptr || root->Write(writer, encoding));
}
} // namespace Kiv
