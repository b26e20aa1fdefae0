#include "BuildVersion.h"

#include <gtest/gtest.h>

TEST(BuildVersion, UnreleasedBuildsCarryThePlaceholders)
{
    EXPECT_FLOAT_EQ(Kiv::BuildVersion::GetKivBuildVersion(), 1234.5f);
    EXPECT_STREQ(Kiv::BuildVersion::GetKivBuildVersionString(), "1234.5");
    EXPECT_STREQ(Kiv::BuildVersion::GetKivBuildString(), "RRRRR.RR");
    EXPECT_STREQ(Kiv::BuildVersion::GetKivBuildChangeNumString(), "QQQQQ");
}
