#include "driver/version.h"

#include <gtest/gtest.h>

TEST(Version, TheBannerHasTheseLines)
{
    char text[1024] = {};
    FILE *stream = fmemopen(text, sizeof text, "w");
    EXPECT_TRUE(version_printBanner(stream));
    fclose(stream);
    EXPECT_STREQ(text, "\nProduct:\tQZM\nComponent:\tqzm-cc\nVersion:\t2.32 \n"
                       "Build date:\tFeb  1 2021\nRelease:\t\nBuild number:\t20210201212658\n");
}

TEST(Version, ABannerThatCannotBeWrittenIsNoticed)
{
    FILE *stream = fopen("/dev/full", "w");
    ASSERT_NE(stream, nullptr);
    EXPECT_FALSE(version_printBanner(stream));
    fclose(stream);
}
