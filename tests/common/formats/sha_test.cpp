#include "common/formats/sha.h"

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tests/common/broken_contract.h"

namespace {

using Start = void (*)(ShaState *, const ShaAlgorithm *);

std::string hexadecimal(const uint8_t *bytes, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i)
        for (const int shift : {4, 0})
            text += "0123456789abcdef"[bytes[i] >> shift & 15];
    return text;
}

std::string finish(ShaState *state)
{
    const size_t size = 4 * state->algorithm->words;
    uint8_t digest[32];
    sha_finish(state, digest);
    return hexadecimal(digest, size);
}

std::string digest(Start start, const ShaAlgorithm &algorithm, const std::string &data)
{
    ShaState state;
    start(&state, &algorithm);
    sha_update(&state, data.data(), data.size());
    return finish(&state);
}

std::string randomBytes(std::mt19937 &random, size_t size)
{
    std::string bytes(size, '\0');
    for (char &byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

// Adds the data in pieces of random sizes, empty ones among them.
std::string digestInPieces(Start start, const ShaAlgorithm &algorithm, const std::string &data,
                           std::mt19937 &random)
{
    ShaState state;
    start(&state, &algorithm);
    for (size_t at = 0; at < data.size();) {
        const size_t size = std::min<size_t>(data.size() - at, random() % 200);
        sha_update(&state, data.data() + at, size);
        at += size;
    }
    return finish(&state);
}

// sha_start() takes the processor's instructions where it has them.
class Sha : public testing::TestWithParam<Start> {};

const std::string message448 = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
const std::string message896 = "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
                               "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu";

} // namespace

TEST_P(Sha, Gives256OfThePublishedMessages)
{
    const auto sha256 = [](const std::string &data) { return digest(GetParam(), SHA_256, data); };
    EXPECT_EQ(sha256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sha256(message448),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(sha256(message896),
              "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1");
    EXPECT_EQ(sha256(std::string(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST_P(Sha, Gives1OfThePublishedMessages)
{
    const auto sha1 = [](const std::string &data) { return digest(GetParam(), SHA_1, data); };
    EXPECT_EQ(sha1(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(sha1("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(sha1(message448), "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(sha1(message896), "a49b2446a02c645bf419f995b67091253a04a259");
    EXPECT_EQ(sha1(std::string(1000000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST_P(Sha, PiecesGiveTheDigestOfTheWhole)
{
    std::mt19937 random(1);
    for (const size_t size : {0U, 1U, 63U, 64U, 65U, 127U, 128U, 129U, 1000U, 5000U}) {
        const std::string data = randomBytes(random, size);
        for (const ShaAlgorithm *algorithm : {&SHA_1, &SHA_256})
            EXPECT_EQ(digestInPieces(GetParam(), *algorithm, data, random),
                      digest(GetParam(), *algorithm, data))
                << size;
    }
}

TEST_P(Sha, NoBytesMayBeANullPointer)
{
    ShaState state;
    GetParam()(&state, &SHA_1);
    sha_update(&state, nullptr, 0);
    EXPECT_EQ(finish(&state), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

using ShaDeathTest = Sha;

TEST_P(ShaDeathTest, ANullArgumentIsABrokenContract)
{
    ShaState state;
    EXPECT_BROKEN_IN("common/sha", GetParam()(nullptr, &SHA_1), "state != NULL", 10);
    EXPECT_BROKEN_IN("common/sha", GetParam()(&state, nullptr), "algorithm != NULL", 11);
    GetParam()(&state, &SHA_1);
    EXPECT_BROKEN_IN("common/sha", sha_update(nullptr, "a", 1), "state != NULL", 20);
    EXPECT_BROKEN_IN("common/sha", sha_update(&state, nullptr, 1), "data != NULL", 21);
    uint8_t digest[20];
    EXPECT_BROKEN_IN("common/sha", sha_finish(nullptr, digest), "state != NULL", 30);
    EXPECT_BROKEN_IN("common/sha", sha_finish(&state, nullptr), "digest != NULL", 31);
}

INSTANTIATE_TEST_SUITE_P(Fastest, ShaDeathTest, testing::Values(&sha_start));
INSTANTIATE_TEST_SUITE_P(Portable, ShaDeathTest, testing::Values(&sha_startPortable));
INSTANTIATE_TEST_SUITE_P(Fastest, Sha, testing::Values(&sha_start));
INSTANTIATE_TEST_SUITE_P(Portable, Sha, testing::Values(&sha_startPortable));

TEST(ShaExtensions, AgreeWithThePortableWay)
{
    if (!sha_hasExtensions())
        GTEST_SKIP() << "no SHA instructions here, or none wanted";
    std::mt19937 random(2);
    for (int round = 0; round < 500; ++round) {
        const std::string data = randomBytes(random, random() % 4096);
        for (const ShaAlgorithm *algorithm : {&SHA_1, &SHA_256})
            ASSERT_EQ(digestInPieces(sha_start, *algorithm, data, random),
                      digestInPieces(sha_startPortable, *algorithm, data, random))
                << data.size();
    }
}

TEST(ShaExtensions, AreTakenExactlyWhereTheyAreThere)
{
    for (const ShaAlgorithm *algorithm : {&SHA_1, &SHA_256}) {
        ShaState state;
        sha_start(&state, algorithm);
        EXPECT_EQ(state.take, sha_hasExtensions() ? algorithm->extensions : algorithm->portable);
        sha_startPortable(&state, algorithm);
        EXPECT_EQ(state.take, algorithm->portable);
    }
}

TEST(ShaExtensions, AreNotBuiltWhenThePortableWayIsForced)
{
#ifdef QZM_PORTABLE_SHA
    EXPECT_FALSE(sha_hasExtensions());
    EXPECT_EQ(SHA_256.extensions, nullptr);
    EXPECT_EQ(SHA_1.extensions, nullptr);
#elif defined(__x86_64__)
    EXPECT_NE(SHA_256.extensions, nullptr);
    EXPECT_NE(SHA_1.extensions, nullptr);
#endif
}

// Lengths at which the padding takes one block or two.
TEST(ShaPadding, FillsOneBlockOrTwo)
{
    EXPECT_EQ(digest(sha_startPortable, SHA_256, std::string(55, 'a')),
              "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318");
    EXPECT_EQ(digest(sha_startPortable, SHA_256, std::string(56, 'a')),
              "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a");
    EXPECT_EQ(digest(sha_startPortable, SHA_256, std::string(64, 'a')),
              "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb");
}
