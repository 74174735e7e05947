#include "selftests/stDocumentation.h"
#include "tests/selftests/installation.h"

namespace {

class DocumentationTest : public InstallationTest {};

const Failure NO_README = {"documentation test", "failed README check",
                           "Could not find and README documentation"};
const Failure NO_GUIDE = {"documentation test", "failed user guide check",
                          "Could not find and user guide documentation"};

TEST_F(DocumentationTest, RowsHaveTheirCase)
{
    EXPECT_EQ(names(stDocsReadme_tests()), Strings{"[docs] check if readme file exists"});
    EXPECT_EQ(names(stDocsUG_tests()), Strings{"[docs] check if user guide exists"});
}

TEST_F(DocumentationTest, ADirectoryWithoutThemFailsBothChecks)
{
    EXPECT_EQ(runOnly(stDocsReadme_tests()), NO_README);
    EXPECT_EQ(runOnly(stDocsUG_tests()), NO_GUIDE);
}

TEST_F(DocumentationTest, AReadmeIsFoundInAnyCase)
{
    write("docs/ReadMe.txt", "");
    EXPECT_EQ(runOnly(stDocsReadme_tests()), PASSED);
    EXPECT_EQ(runOnly(stDocsUG_tests()), NO_GUIDE);
}

TEST_F(DocumentationTest, AReadmeIsFoundAnywhereInTheName)
{
    write("docs/xyREADMEz", "");
    EXPECT_EQ(runOnly(stDocsReadme_tests()), PASSED);
}

TEST_F(DocumentationTest, AReadmeElsewhereIsNone)
{
    write("README", "");
    write("docs/more/README", "");
    EXPECT_EQ(runOnly(stDocsReadme_tests()), NO_README);
}

TEST_F(DocumentationTest, AUserGuideHasAnUnderscore)
{
    write("docs/UserGuide.pdf", "");
    EXPECT_EQ(runOnly(stDocsUG_tests()), NO_GUIDE);
    write("docs/QZM_User_Guide.pdf", "");
    EXPECT_EQ(runOnly(stDocsUG_tests()), PASSED);
}

TEST_F(DocumentationTest, NoDirectoryForDocumentsFailsBothChecks)
{
    fs::remove(root + "/docs");
    EXPECT_EQ(runOnly(stDocsReadme_tests()), NO_README);
    write("docs", "a file in its place");
    EXPECT_EQ(runOnly(stDocsUG_tests()), NO_GUIDE);
}

TEST_F(DocumentationTest, APatternIsFoldedToo)
{
    write("docs/abc", "");
    EXPECT_EQ(findFileLike("ABC", (root + "/docs").c_str()), 1);
    EXPECT_EQ(findFileLike("abcd", (root + "/docs").c_str()), 0);
    EXPECT_EQ(findFileLike("", (root + "/docs").c_str()), 1);
}

TEST_F(DocumentationTest, AnEmptyMissingOrUnnamedDirectoryHoldsNothing)
{
    EXPECT_EQ(findFileLike("", (root + "/docs").c_str()), 0);
    EXPECT_EQ(findFileLike("", (root + "/nowhere").c_str()), 0);
    EXPECT_EQ(findFileLike("", nullptr), 0);
}

TEST_F(DocumentationTest, NamesThatAreNoTextAreLookedAtToo)
{
    write("docs/\xff\xfeReadme\x80", "");
    EXPECT_EQ(runOnly(stDocsReadme_tests()), PASSED);
}

} // namespace
