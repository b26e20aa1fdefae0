#include "PString.h"
#include "Time.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

// Loading the library already read the clock's frequency and pooled the names its own statics
// hold, before the first call into it.
TEST(Startup, LoadBuiltTheLibraryStatics)
{
    EXPECT_NE(Kiv::Time::freq, 0u);
    ASSERT_NE(Kiv::PString::cache, nullptr);
    std::set<std::string> held;
    while (Kiv::PStringCache::Node * node = Kiv::PString::cache->Next())
        if (node->references > 0)
            held.insert(node->Text());
    for (const char * name : {"Table", "Id", "Entry", "Value"})
        EXPECT_EQ(held.count(name), 1u) << name;
}
