#include "StringTables.h"

namespace Kiv
{
const ResultTable StringTablesBase::results[] = {
    {"RES_UNKNOWN", "Unknown error"},
    {"RES_NAMESRESOLVING_NOTDEFINED", "Not supported if namesResolving equal to false"},
    {"RES_FILE_OPEN_ERROR", "Unable to open file"},
    {"RES_FILE_WRITE_ERROR", "Can not write to the file"},
    {"RES_FILE_FORMAT_ERROR", "Unexpected file format"},
    {"RES_FILE_SUBSTNOTFOUND", "Subst not found"},
    {"RES_FILE_READONLY", "File is read-only"},
    {"RES_TABLE_EXISTS", "Table already exists"},
    {"RES_TABLE_NOTFOUND", "Table not found"},
    {"RES_CONVERT_ERROR", "Can not convert string to current character set"},
    {nullptr, nullptr},
};
} // namespace Kiv
