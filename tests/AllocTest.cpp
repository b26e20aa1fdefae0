#include "Alloc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

TEST(Alloc, BlocksAreUsableAndReused)
{
    auto * p = static_cast<char *>(Kiv::Alloc::New(100));
    ASSERT_NE(p, nullptr);
    std::memset(p, 0xAB, 100);
    Kiv::Alloc::Delete(p);
    void * q = Kiv::Alloc::New(100);
    EXPECT_EQ(q, p);
    Kiv::Alloc::Delete(q);
}
