// Existing files that are not packages, damaged packages, packages with false figures, and merely
// unusual packages.
#include <fcntl.h>
#include <sys/stat.h>

#include "package_zip_fixture.h"

using namespace package_zip;

namespace {

const Strings NONE = {};
const Strings NOT_OPENED = {"open"};

} // namespace

// ---- No packages ------------------------------------------------------------------------------

TEST_F(PackageZip, RefusesWhatIsNoArchive)
{
    for (const std::string &bytes :
         {std::string(), std::string("text\n"), std::string("PK\5\6"), std::string(21, '\0'),
          std::string(100000, 'x'), std::string(200000, '\0')})
        expect_refused(bytes, NOT_OPENED);
}

TEST_F(PackageZip, RefusesAnArchiveCutShortAnywhere)
{
    Archive archive = two_members();
    archive.comment = "comment";
    const std::string whole = bytes_of(archive);
    for (size_t size = 1; size < whole.size(); ++size)
        expect_refused(whole.substr(0, size), NOT_OPENED);
}

TEST_F(PackageZip, RefusesAnArchiveWithSomethingBehindIt)
{
    expect_refused(bytes_of(two_members()) + "x", NOT_OPENED);
}

TEST_F(PackageZip, RefusesDirectoriesPipesAndDevices)
{
    fs::create_directory(root / "d");
    ASSERT_EQ(mkfifo((root / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(append(root / "d", "m", file), NOT_OPENED);
    EXPECT_EQ(append(root / "pipe", "m", file), NOT_OPENED);
    EXPECT_EQ(append("/dev/null", "m", file), NOT_OPENED);
    EXPECT_EQ(names(), (std::set<std::string>{"d", "pipe", "trace.out"}));
}

TEST_F(PackageZip, RefusesFourGigabytesOfNothingWithoutReadingThem)
{
    put(path, "");
    fs::resize_file(path, uint64_t{4} << 30);
    EXPECT_EQ(append(path, "m", file), NOT_OPENED);
    struct stat info = {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_size, int64_t{4} << 30);
    EXPECT_LT(info.st_blocks, 100);
}

// ---- Lies -------------------------------------------------------------------------------------

TEST_F(PackageZip, RefusesAnEndRecordThatLies)
{
    for (const bool zip64 : {false, true})
        for (auto field : {&Archive::countLie, &Archive::sizeLie, &Archive::offsetLie,
                           &Archive::commentLie, &Archive::locatorLie})
            for (const int64_t lie : {-0xffff, -3, -1, 1, 2, 50, 0x7000, 0x7fffffff}) {
                // An offset that is too low means that something comes before the archive.
                if ((lie < 0 && field == &Archive::offsetLie && !zip64) ||
                    (field == &Archive::locatorLie && !zip64))
                    continue;
                Archive archive = two_members();
                archive.zip64 = zip64;
                archive.*field = lie;
                expect_refused(bytes_of(archive), NOT_OPENED);
            }
}

TEST_F(PackageZip, RefusesOffsetsAndSizesThatOverflow)
{
    for (const int64_t lie : {-INT64_MAX, INT64_MAX, int64_t{-100}, int64_t{-1000}}) {
        for (auto field : {&Archive::countLie, &Archive::sizeLie, &Archive::locatorLie}) {
            Archive archive = two_members();
            archive.zip64 = true;
            archive.*field = lie;
            expect_refused(bytes_of(archive), NOT_OPENED);
        }
        Archive archive = two_members();
        archive.zip64 = true;
        archive.sizeLie = lie;
        archive.offsetLie = -lie;
        expect_refused(bytes_of(archive), NOT_OPENED);
    }
}

TEST_F(PackageZip, RefusesAnArchiveOfSeveralDisks)
{
    Archive archive = two_members();
    archive.disk = 1;
    expect_refused(bytes_of(archive), NOT_OPENED);
    archive.zip64 = true;
    expect_refused(bytes_of(archive), NOT_OPENED);
}

TEST_F(PackageZip, RefusesMembersThatCannotBeWhereTheySay)
{
    for (auto field :
         {&Archive::Member::offsetLie, &Archive::Member::sizeLie, &Archive::Member::commentLie}) {
        Archive archive = two_members();
        archive.members[1].*field = 1000;
        expect_refused(bytes_of(archive), NOT_OPENED);
    }
}

// Everything about it is correct; names, extra fields and comments are holes in the file.
TEST_F(PackageZip, RefusesADirectoryBeyondAllBounds)
{
    const uint64_t count = 350;
    const uint64_t rest = 3 * 0xffff;
    const std::string head = "PK\1\2" + little(20, 2) + fields_of({}).substr(0, 22) +
                             little(0xffff, 2) + little(0xffff, 2) + little(0xffff, 2) +
                             little(0, 8) + little(0, 4);
    std::ofstream out(path, std::ios::binary);
    out << "PK\3\4" + fields_of({});
    for (uint64_t i = 0; i < count; ++i)
        out.write(head.data(), 46).seekp(static_cast<std::streamoff>(rest), std::ios::cur);
    Archive ends;
    ends.countLie = count;
    out << ends_of(ends, 30, count * (46 + rest));
    out.close();
    const uint64_t size = fs::file_size(path);
    EXPECT_EQ(append(path, "m", file), NOT_OPENED);
    EXPECT_EQ(fs::file_size(path), size);
}

// ---- Unusual ones -----------------------------------------------------------------------------

TEST_F(PackageZip, KeepsEveryByteOfTheArchiveComment)
{
    Archive archive = two_members();
    archive.comment = std::string("a\0b", 3) + "PK\6\7" + std::string(60000, 'c');
    put(path, bytes_of(archive));
    EXPECT_EQ(append(path, "m", file), NONE);
    EXPECT_EQ(append(path, "n", file), NONE);
    const std::string now = bytes_of(path);
    EXPECT_TRUE(now.ends_with(little(archive.comment.size(), 2) + archive.comment));
    EXPECT_EQ(listing(path).substr(0, 16), "a:3\nb:0\nm:4\nn:4\n");
}

TEST_F(PackageZip, IsNotMisledByAnEndRecordInTheComment)
{
    Archive archive = two_members();
    archive.comment = bytes_of(Archive()) + "not the end";
    put(path, bytes_of(archive));
    EXPECT_EQ(append(path, "m", file), NONE);
    std::string now = bytes_of(path);
    ASSERT_TRUE(now.ends_with(little(archive.comment.size(), 2) + archive.comment));
    now.resize(now.size() - archive.comment.size() - 2); // other readers are misled
    put(path, now + little(0, 2));
    EXPECT_EQ(listing(path), "a:3\nb:0\nm:4\n");
}

TEST_F(PackageZip, KeepsWhatStandsInFront)
{
    for (const bool zip64 : {false, true}) {
        Archive archive = two_members();
        archive.zip64 = zip64;
        archive.front = "#!/bin/sh\n" + std::string(5000, '#');
        put(path, bytes_of(archive));
        EXPECT_EQ(append(path, "m", file), NONE);
        EXPECT_EQ(append(path, "n", file), NONE);
        EXPECT_TRUE(bytes_of(path).starts_with(archive.front));
        EXPECT_EQ(listing(path), "a:3\nb:0\nm:4\nn:4\n");
    }
}

TEST_F(PackageZip, ContinuesAZip64Archive)
{
    Archive archive = two_members();
    archive.zip64 = true;
    archive.comment = "comment";
    put(path, bytes_of(archive));
    EXPECT_EQ(append(path, "m", file), NONE);
    EXPECT_EQ(append(path, "n", file), NONE);
    EXPECT_EQ(listing(path), "a:3\nb:0\nm:4\nn:4\nb'comment'\n");
}

TEST_F(PackageZip, ContinuesAnEmptyArchive)
{
    put(path, bytes_of(Archive()));
    EXPECT_EQ(append(path, "m", file), NONE);
    EXPECT_EQ(listing(path), "m:4\n");
}

TEST_F(PackageZip, KeepsEncryptedMembersAsTheyAre)
{
    Archive archive = two_members();
    archive.members[0].flags = 1;
    const std::string before = bytes_of(archive);
    put(path, before);
    EXPECT_EQ(append(path, "m", file), NONE);
    EXPECT_EQ(output_of("unzip -Z1 " + path.string()), "a\nb\nm\n");
    EXPECT_EQ(output_of("unzip -p " + path.string() + " m"), "one\n");
    EXPECT_EQ(bytes_of(path).substr(0, 34), before.substr(0, 34));
}

TEST_F(PackageZip, LosesNoneOfMoreMembersThanASmallCountHolds)
{
    Archive archive;
    archive.members.resize(65534);
    for (auto &member : archive.members)
        member.name = "n";
    const std::string before = bytes_of(archive);
    put(path, before);
    const Strings failed = append(path, "m", file);
    if (!failed.empty()) { // not every implementation counts further
        EXPECT_EQ(failed, (Strings{"convert", "add", "finalise", "end"}));
        EXPECT_TRUE(bytes_of(path) == before);
        return;
    }
    EXPECT_EQ(append(path, "m", file).size() % 4, 0U);
    EXPECT_EQ(output_of("python3 -c 'import zipfile;n=zipfile.ZipFile(\"" + path.string() +
                        "\").namelist();print(len(n)>65534,n[65534])'"),
              "True m\n");
}
