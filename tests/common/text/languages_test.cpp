#include "common/text/languages.h"

#include <gtest/gtest.h>

TEST(Languages, AreKnownByEachOfTheirNames)
{
    EXPECT_EQ(language_code("German"), 7U);
    EXPECT_EQ(language_code("Deutsch"), 7U);
    EXPECT_EQ(language_code("English"), 9U);
    EXPECT_EQ(language_code("French"), 12U);
    EXPECT_EQ(language_code("Francais"), 12U);
}

TEST(Languages, AreKnownByTheirAbbreviation)
{
    EXPECT_EQ(language_code("de"), 7U);
    EXPECT_EQ(language_code("en"), 9U);
    EXPECT_EQ(language_code("fr"), 12U);
}

TEST(Languages, AnyOtherTextIsTheDefault)
{
    for (const char *name : {"", "german", "GERMAN", "DE", "De", "Germa", "Germans", "German ",
                             "German;Deutsch", ";", ",", "Espanol", "es", "deu", "d"})
        EXPECT_EQ(language_code(name), 255U) << name;
    EXPECT_EQ(language_code(nullptr), 255U);
}

TEST(Languages, AbbreviationsAreFoundByTheCode)
{
    EXPECT_STREQ(language_abbreviation(7), "de");
    EXPECT_STREQ(language_abbreviation(9), "en");
    EXPECT_STREQ(language_abbreviation(12), "fr");
    EXPECT_STREQ(language_abbreviation(255), "en");
    for (uint32_t other : {0U, 1U, 8U, 254U, 256U, 0xFFFFFFFFU})
        EXPECT_STREQ(language_abbreviation(other), "en") << other;
}
