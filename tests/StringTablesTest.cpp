#include "Kiv.h"

#include <gtest/gtest.h>

#include <cstring>

using Kiv::StringTablesBase;

TEST(StringTablesBase, EveryResultHasItsRow)
{
    struct Row
    {
        StringTablesBase::Results value;
        const char * identifier;
        const char * message;
    };
    const Row rows[] = {
        {StringTablesBase::RES_UNKNOWN, "RES_UNKNOWN", "Unknown error"},
        {StringTablesBase::RES_NAMESRESOLVING_NOTDEFINED, "RES_NAMESRESOLVING_NOTDEFINED",
         "Not supported if namesResolving equal to false"},
        {StringTablesBase::RES_FILE_OPEN_ERROR, "RES_FILE_OPEN_ERROR", "Unable to open file"},
        {StringTablesBase::RES_FILE_WRITE_ERROR, "RES_FILE_WRITE_ERROR", "Can not write to the file"},
        {StringTablesBase::RES_FILE_FORMAT_ERROR, "RES_FILE_FORMAT_ERROR", "Unexpected file format"},
        {StringTablesBase::RES_FILE_SUBSTNOTFOUND, "RES_FILE_SUBSTNOTFOUND", "Subst not found"},
        {StringTablesBase::RES_FILE_READONLY, "RES_FILE_READONLY", "File is read-only"},
        {StringTablesBase::RES_TABLE_EXISTS, "RES_TABLE_EXISTS", "Table already exists"},
        {StringTablesBase::RES_TABLE_NOTFOUND, "RES_TABLE_NOTFOUND", "Table not found"},
        {StringTablesBase::RES_CONVERT_ERROR, "RES_CONVERT_ERROR",
         "Can not convert string to current character set"},
    };
    int value = 1;
    for (const Row & row : rows)
    {
        EXPECT_EQ(static_cast<int>(row.value), value) << row.identifier;
        StringTablesBase::Result result = row.value;
        EXPECT_FALSE(result.Succeeded());
        EXPECT_STREQ(result.Identifier(), row.identifier);
        EXPECT_STREQ(result.Message(), row.message);
        EXPECT_EQ(result.Row(), &StringTablesBase::results[value - 1]);
        ++value;
    }
    EXPECT_EQ(StringTablesBase::results[10].identifier, nullptr);
    EXPECT_EQ(StringTablesBase::results[10].message, nullptr);

    StringTablesBase::Result ok;
    EXPECT_TRUE(ok.Succeeded());
    EXPECT_EQ(ok, StringTablesBase::RES_OK);
    EXPECT_EQ(ok.Row(), nullptr);
    EXPECT_EQ(ok.Message(), nullptr);
    EXPECT_EQ(StringTablesBase::Result(StringTablesBase::Results(11)).Row(), nullptr);
}
