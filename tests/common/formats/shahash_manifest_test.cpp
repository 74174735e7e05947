// Installation manifests; their format is described in docs/xml-files.md.
#include <ctime>

#include "common/base/hash.h"
#include "common/text/osdep_path.h"
#include "common/text/uxml2.h"
#include "common/trace/container_report.h"
#include "tests/common/formats/shahash_fixture.h"
#include "tests/common/report_lines.h"

using namespace shahash_test;

namespace {

std::string file(const std::string &name, const std::string &digest)
{
    return "<file name=\"" + name + "\"><hash>" + digest + "</hash></file>";
}

std::string content(const std::string &datestamp, const std::string &inside)
{
    return "<content datestamp=\"" + datestamp + "\">" + inside + "</content>";
}

std::string document(const std::string &inside)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<package>" + inside + "</package>\n";
}

class Manifest : public ShaHash {
  protected:
    void SetUp() override
    {
        ShaHash::SetUp();
        fs::create_directory("manifests");
        put("tree/abc", "abc");
        put("tree/a", "a");
    }

    // Adds a manifest of this age.
    static void add(const std::string &name, const std::string &datestamp,
                    const std::string &inside)
    {
        put("manifests/" + name, document(content(datestamp, inside)));
    }

    static int check() { return shahash_checkManifests("tree", "manifests"); }

    // The result of the check with this as the only manifest.
    static int checkOnly(const std::string &text)
    {
        put("manifests/vxp1.xml", text);
        return check();
    }

    // The name of the only file in the directory of manifests.
    static std::string onlyName()
    {
        std::string name;
        for (const auto &entry : fs::directory_iterator("manifests"))
            name += entry.path().filename();
        return name;
    }
};

const std::string good = file("abc", digestAbc);
const std::string bad = file("abc", digestEmpty);

} // namespace

// ---- Writing ----------------------------------------------------------------------------------

TEST_F(Manifest, FormatIsAPackageWithAFileElementForEveryFile)
{
    put("one/sub/a", "a");
    const time_t before = time(nullptr);
    ASSERT_TRUE(shahash_writeManifest(OSFLAG_POSIX, "one", "manifests", nullptr));
    const time_t after = time(nullptr);
    long stamp = 0;
    char rest = 0;
    ASSERT_EQ(sscanf(onlyName().c_str(), "vxp%ld.xm%c", &stamp, &rest), 2) << onlyName();
    EXPECT_TRUE(before <= stamp && stamp <= after) << stamp;
    EXPECT_EQ(onlyName(), "vxp" + std::to_string(stamp) + ".xml");
    EXPECT_EQ(get("manifests/" + onlyName()), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                              "<package>\n  <content datestamp=\"" +
                                                  std::to_string(stamp) +
                                                  "\">\n"
                                                  "    <file name=\"one/sub/a\">\n"
                                                  "      <hash>" +
                                                  digestA +
                                                  "</hash>\n"
                                                  "    </file>\n"
                                                  "  </content>\n"
                                                  "</package>\n");
}

TEST_F(Manifest, FormatUsesTheStyleInNames)
{
    fs::current_path("tree");
    fs::remove("a");
    ASSERT_TRUE(shahash_writeManifest(OSFLAG_WINDOWS, ".", "../manifests", nullptr));
    fs::current_path("..");
    EXPECT_NE(get("manifests/" + onlyName()).find("<file name=\".\\abc\">"), std::string::npos);
}

TEST_F(Manifest, FurtherElementsComeFirst)
{
    fs::remove("tree/a");
    UxmlNode *version = uxml_node_new("version");
    uxml_set_text(version, "2.32");
    UxmlNode *second = uxml_node_new("second");
    Vector *extra = vec_new("test", 1);
    vec_add(extra, version);
    vec_add(extra, second);
    ASSERT_TRUE(shahash_writeManifestDefault("tree", "manifests", extra));
    vec_destroy(extra);
    const std::string text = get("manifests/" + onlyName());
    EXPECT_NE(
        text.find("\">\n    <version>2.32</version>\n    <second/>\n    <file name=\"tree/abc"),
        std::string::npos)
        << text;
}

TEST_F(Manifest, IsReadBackAndMatches)
{
    for (const char *name :
         {"two words", "\xff latin \xe4", "<&\">'", "line\nend\t\r\x01\x7f", "~"})
        put(std::string("tree/sub/") + name, "a");
    fs::current_path("tree");
    ASSERT_TRUE(shahash_writeManifestDefault(".", "../manifests", nullptr));
    fs::current_path("..");
    EXPECT_EQ(check(), 1);
    put("tree/sub/line\nend\t\r\x01\x7f", "changed");
    EXPECT_EQ(check(), 0);
}

TEST_F(Manifest, OfAnEmptyDirectoryMatches)
{
    fs::create_directory("empty");
    ASSERT_TRUE(shahash_writeManifestDefault("empty", "manifests", nullptr));
    EXPECT_EQ(check(), 1);
}

TEST_F(Manifest, ThatCannotBeOpenedForWritingEndsTheRun)
{
    EXPECT_EXIT(shahash_writeManifestDefault("tree", "none", nullptr), testing::ExitedWithCode(1),
                "^!! Cannot open file \"none/vxp[0-9]+\\.xml\"\n$");
}

TEST_F(Manifest, ThatIsNotWrittenWholeIsToldOf)
{
    const time_t now = time(nullptr);
    for (time_t stamp = now; stamp < now + 30; ++stamp)
        fs::create_symlink("/dev/full", "manifests/vxp" + std::to_string(stamp) + ".xml");
    EXPECT_FALSE(shahash_writeManifestDefault("tree", "manifests", nullptr));
}

// ---- Which files are manifests ----------------------------------------------------------------

TEST_F(Manifest, NoneGivesZero)
{
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(shahash_checkManifests("tree", "none"), 0);
    EXPECT_EQ(shahash_checkManifests("tree", nullptr), 0);
}

TEST_F(Manifest, NamesBeginWithVxpAndEndWithXml)
{
    for (const char *name : {"vxp1.xml", "vxp.xml", "vxpxml", "vxp-any thing_xml"}) {
        add(name, "1", good);
        EXPECT_EQ(check(), 1) << name;
        fs::remove(std::string("manifests/") + name);
    }
    for (const char *name :
         {"Vxp1.xml", "vxq1.xml", "vxp1.XML", "xvxp1.xml", "vxp1.xml2", "vxml", "vxpml", "v"})
        add(name, "1", good);
    EXPECT_EQ(check(), 0);
}

TEST_F(Manifest, ThatCannotBeOpenedEndsTheRun)
{
    fs::create_symlink("nowhere", "manifests/vxp1.xml");
    EXPECT_EXIT(check(), testing::ExitedWithCode(1),
                "^!! Cannot open file \"manifests/vxp1.xml\"\n$");
    fs::remove("manifests/vxp1.xml");
    add("vxp1.xml", "1", good);
    ASSERT_EQ(chmod("manifests/vxp1.xml", 0), 0);
    EXPECT_EXIT(
        {
            becomeNobody();
            check();
        },
        testing::ExitedWithCode(1), "^!! Cannot open file \"manifests/vxp1.xml\"\n$");
}

TEST_F(Manifest, WhatIsNoFileIsNoManifest)
{
    fs::create_directory("manifests/vxp1.xml");
    ASSERT_EQ(mkfifo("manifests/vxp2.xml", 0600), 0);
    EXPECT_EQ(check(), 0);
    add("vxp3.xml", "1", good);
    EXPECT_EQ(check(), 1);
}

TEST_F(Manifest, WhatDoesNotParseIsNoManifest)
{
    for (const char *text : {"", "\n", "<package><content /></package>",
                             "<?xml version=\"1.0\"?>\n<package><content>", "\xff\xfe"})
        EXPECT_EQ(checkOnly(text), 0) << text;
    add("vxp2.xml", "1", good);
    EXPECT_EQ(check(), 1);
}

// ---- The shape --------------------------------------------------------------------------------

TEST_F(Manifest, OfAWrongShapeIsNone)
{
    const std::string wrong[] = {
        document(""),
        document(content("9", good) + "<other />"),
        document(content("9", good + "<other />")),
        document(content("9", good + "<file><hash>" + digestA + "</hash></file>")),
        document(content("9", good + "<file name=\"a\"><sha>" + digestA + "</sha></file>")),
        document(content("9", good + "<file name=\"a\"><hash>" + digestA + "</hash><b /></file>")),
    };
    for (const std::string &text : wrong)
        EXPECT_EQ(checkOnly(text), 0) << text;
}

TEST_F(Manifest, OfAWrongShapeContributesNotEvenItsGoodFiles)
{
    const std::string wrong[] = {
        document(content("9", bad) + "<other />"),
        document(content("9", bad + "<other />")),
        document(content("9", bad + "<file />")),
        document(content("9", bad + "<file name=\"a\"><sha /></file>")),
    };
    add("vxp2.xml", "2", good);
    for (const std::string &text : wrong)
        EXPECT_EQ(checkOnly(text), 1) << text;
    EXPECT_EQ(checkOnly(document(content("9", bad))), 0);
}

TEST_F(Manifest, MayHaveSeveralContentsAndIsAsOldAsTheFirst)
{
    EXPECT_EQ(checkOnly(document(content("1", good) + content("5", file("a", digestA)))), 1);
    EXPECT_EQ(checkOnly(document(content("1", good) + content("5", file("a", digestAbc)))), 0);
    add("vxp2.xml", "3", file("a", digestA));
    EXPECT_EQ(check(), 1);
}

TEST_F(Manifest, TheRootMayHaveAnyName)
{
    EXPECT_EQ(checkOnly("<?xml version=\"1.0\"?>\n<any>" + content("1", good) + "</any>"), 1);
}

TEST_F(Manifest, AFileWithoutADigestNeverMatches)
{
    EXPECT_EQ(checkOnly(document(content("1", "<file name=\"abc\"></file>"))), 0);
    EXPECT_EQ(checkOnly(document(content("1", file("abc", "")))), 0);
}

TEST_F(Manifest, OfSeveralDigestsTheFirstCounts)
{
    const std::string second = "</hash><hash>" + digestEmpty;
    EXPECT_EQ(checkOnly(document(content("1", file("abc", digestAbc + second)))), 1);
    EXPECT_EQ(checkOnly(document(content("1", bad + good))), 0);
    EXPECT_EQ(checkOnly(document(content("1", good + bad))), 1);
}

TEST_F(Manifest, AnEmptyNameNeverMatches)
{
    EXPECT_EQ(checkOnly(document(content("1", good + file("", digestAbc)))), 0);
}

// ---- The merge --------------------------------------------------------------------------------

TEST_F(Manifest, TheLargerDatestampDecides)
{
    add("vxp1.xml", "9", bad);
    add("vxp2.xml", "10", good);
    EXPECT_EQ(check(), 1);
    add("vxp1.xml", "11", bad);
    EXPECT_EQ(check(), 0);
    add("vxp1.xml", "-1", bad);
    EXPECT_EQ(check(), 1);
    add("vxp1.xml", "99999999999999999999", bad);
    EXPECT_EQ(check(), 0);
}

TEST_F(Manifest, ADatestampIsADecimalNumber)
{
    add("vxp1.xml", "9a", bad);
    add("vxp2.xml", "10", good);
    EXPECT_EQ(check(), 1);
    add("vxp1.xml", "010", bad);
    add("vxp2.xml", "9", good);
    EXPECT_EQ(check(), 0);
    add("vxp1.xml", "0x10", bad);
    EXPECT_EQ(check(), 1);
}

TEST_F(Manifest, WithoutADatestampIsOfTheYear1970)
{
    put("manifests/vxp1.xml", document("<content>" + bad + "</content>"));
    EXPECT_EQ(check(), 0);
    add("vxp2.xml", "1", good);
    EXPECT_EQ(check(), 1);
    add("vxp2.xml", "-1", good);
    EXPECT_EQ(check(), 0);
    add("vxp1.xml", "no number", good);
    add("vxp2.xml", "1", bad);
    EXPECT_EQ(check(), 0);
}

TEST_F(Manifest, AmongThoseOfOneAgeTheFirstNameDecides)
{
    for (int i = 20; i < 40; ++i)
        add("vxp" + std::to_string(i) + ".xml", "5", bad);
    EXPECT_EQ(check(), 0);
    add("vxp1.xml", "5", good);
    EXPECT_EQ(check(), 1);
}

static void checkAndReport()
{
    hash_debugEnable(1);
    shahash_checkManifests("tree", "manifests");
    hash_debugEnable(0);
    hash_report();
}

TEST_F(Manifest, NamesAreMergedInATableOf7000Buckets)
{
    add("vxp1.xml", "1", good + file("a", digestA));
    std::string merged;
    for (const std::string &line : debugOutputOf(checkAndReport))
        if (line.find("    common/shahash:") != std::string::npos)
            merged += line.substr(line.find("    ", line.find("common/shahash:")));
    EXPECT_EQ(merged, "    2/7000    2/7000    0    n    n    n");
}

TEST_F(Manifest, EveryFileOfEveryManifestIsChecked)
{
    add("vxp1.xml", "1", good);
    add("vxp2.xml", "2", file("a", digestA));
    EXPECT_EQ(check(), 1);
    put("tree/abc", "changed");
    EXPECT_EQ(check(), 0);
    put("tree/abc", "abc");
    fs::remove("tree/a");
    EXPECT_EQ(check(), 0);
}

TEST_F(Manifest, FilesBehindAMismatchAreStillDigested)
{
    add("vxp1.xml", "1", file("none", digestA) + file(unreadable, digestA));
    EXPECT_EXIT(check(), testing::ExitedWithCode(1), unreadableMessage);
}

TEST_F(Manifest, TheCurrentDirectoryStaysWhatItIs)
{
    add("vxp1.xml", "1", good);
    EXPECT_EQ(check(), 1);
    EXPECT_EQ(fs::current_path(), root);
    EXPECT_EQ(shahash_checkManifests("none", "manifests"), 0);
    EXPECT_EQ(fs::current_path(), root);
    EXPECT_EQ(shahash_checkManifests(nullptr, "manifests"), 0);
    fs::current_path("tree");
    EXPECT_EQ(shahash_checkManifests(nullptr, "../manifests"), 1);
}
