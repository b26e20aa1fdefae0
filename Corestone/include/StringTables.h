// Kiv::StringTablesBase: the base of the string-table store, which keeps named tables of texts in
// "TABL" files. Its operations report their outcome as a Result of this class.
#pragma once

#include "Exception.h"
#include "KivApi.h"

namespace Kiv
{
class KIV_API StringTablesBase
{
public:
    enum Results
    {
        RES_OK = 0,
        RES_UNKNOWN,
        RES_NAMESRESOLVING_NOTDEFINED,
        RES_FILE_OPEN_ERROR,
        RES_FILE_WRITE_ERROR,
        RES_FILE_FORMAT_ERROR,
        RES_FILE_SUBSTNOTFOUND,
        RES_FILE_READONLY,
        RES_TABLE_EXISTS,
        RES_TABLE_NOTFOUND,
        RES_CONVERT_ERROR
    };
    static const ResultTable results[];
    using Result = ResultClass<StringTablesBase>;
};
} // namespace Kiv
