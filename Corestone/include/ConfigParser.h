// Kiv::ConfigParser reads configuration text into a Kiv::ConfigData tree and writes a tree back as
// text behind its "version" line. A text is the header ("version" and a float), then nodes: named
// values (a = 1;), typed lists (a = 1, 2;), hex byte arrays (a = : 0A0B;) and named blocks
// (b { c = 1; }). The first syntax error ends a parse with RES_FILE_FORMAT_ERROR and the message
// "file(line): Syntax error at token.".
#pragma once

#include "ConfigData.h"
#include "Exception.h"
#include "File.h"
#include "KivApi.h"
#include "PString.h"
#include "String.h"

namespace Kiv
{
class MemoryFile;

class KIV_API ConfigParser
{
public:
    enum Results
    {
        RES_OK = 0,
        RES_UNKNOWN,
        RES_FILE_OPEN_ERROR,
        RES_FILE_FORMAT_ERROR,
        RES_FILE_VERSION_ERROR,
        RES_INVALID_PARAMETER
    };
    static const ResultTable results[];
    using Result = ResultClass<ConfigParser>;

    ConfigParser();
    // Takes the tree as the root to write; the caller keeps it.
    explicit ConfigParser(ConfigData * root);
    // Copies share the root; only the parser that built it deletes it.
    ConfigParser(const ConfigParser & other);
    ConfigParser & operator=(const ConfigParser & other);
    ~ConfigParser();

    // Each parse replaces the root by a new one named after the file, holding the nodes read. On
    // an error the nodes read before it stay in the tree.
    Result Parse(MemoryFile & file);
    Result Parse(const char * name);
    Result Parse(const PString & directory, const char * name);
    // name is used in messages only; null keeps the file name set last.
    Result Parse(const char * name, void * data, unsigned int size);

    // Hands the root to the caller, who deletes it; the parser forgets it is the owner.
    ConfigData * GetConfig();
    const ConfigData * GetConfig() const { return root; }
    // The parser writes this tree from now on; the caller keeps it.
    void SetConfig(ConfigData * newRoot);

    float GetVersion() const { return version; }
    void SetVersion(float newVersion) { version = newVersion; }
    const PString & GetFileName() const { return fileName; }
    void SetFileName(const char * name) { fileName = name; }
    // The message of the last failed parse ("file(line): text"), null after a parse that succeeded.
    const AnsiString & GetLastError() const { return lastError; }

    // The version line, then the tree; compressed is passed to the file's open. RES_FILE_OPEN_ERROR
    // when the file cannot be made, RES_UNKNOWN when a write fails.
    Result Save(const char * name, bool compressed = false, int encoding = File::ENCODING_DEFAULT);
    Result Save(const char * directory, const char * name, bool compressed = false,
                int encoding = File::ENCODING_DEFAULT);
    // Appends the same text to a string; false when a write failed.
    bool SaveString(PString & text, int encoding = File::ENCODING_DEFAULT);

protected:
    Result Parse(const char * directory, const char * name, MemoryFile & file);
    ConfigData * GetConfigRoot() { return root; }
    bool WriteData(File & file, int encoding);

private:
    void DropRoot();
    // Every message of the parser comes through here.
    void Report(int line, const char * message);
    Result ParseOpened(File & file, File::Result opened, const char * directory, const char * name);
    Result SaveOpened(File & file, File::Result opened, int encoding);
    bool WriteTo(ConfigData::Writer & writer, int encoding);

    PString fileName;
    ConfigData * root = nullptr;
    float version = 1.0f;
    bool ownsRoot = false;
    AnsiString lastError;
};
} // namespace Kiv
