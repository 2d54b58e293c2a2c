#include <string>

#include <gtest/gtest.h>

#include "platform/utils.h"

namespace {

const std::string kEmptyDigest = "da39a3ee5e6b4b0d3255bfef95601890afd80709";
const std::string kAbcDigest = "a9993e364706816aba3e25717850c26c9cd0d89d";

}  // namespace

TEST(Sha1Test, GivesTheStandardDigests) {
    const struct {
        const char* name;
        std::string message;
        std::string digest;
    } cases[] = {
        {"empty", "", kEmptyDigest},
        {"abc", "abc", kAbcDigest},
        {"55 bytes: length fits after the padding byte", std::string(55, 'a'),
         "c1c8bbdc22796e28c0e15163d20899b65621d65a"},
        {"56 bytes: length needs an extra block",
         "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {"63 bytes", std::string(63, 'a'), "03f09f5b158a7a8cdad920bddc29b81c18a551f5"},
        {"64 bytes: one whole block", std::string(64, 'a'),
         "0098ba824b5c16427bd7a1122a5a442a25ec644d"},
        {"65 bytes", std::string(65, 'a'), "11655326c708d70319be2610e8a57d9a5b959d3b"},
        {"a million bytes", std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
        {"zero and high bytes are taken as they are",
         std::string("/Users/zo\xc3\xab/\0\xff\x80", 15),
         "28f4885b0b14d12234e98103059187e3a83c6916"},
    };
    for (const auto& known : cases) {
        SCOPED_TRACE(known.name);
        EXPECT_EQ(sha1Hash(known.message), known.digest);
    }
}

TEST(Sha1Test, MessageFedInTwoPartsGivesTheDigestOfTheWhole) {
    std::string message;
    for (int i = 0; i < 200; ++i) {
        message += static_cast<char>(i * 7);
    }
    const std::string whole = sha1Hash(message);
    for (std::size_t split = 0; split <= message.size(); ++split) {
        SHA1 sha1;
        sha1.update(message.substr(0, split));
        sha1.update(message.substr(split));
        EXPECT_EQ(sha1.final(), whole) << "split at " << split;
    }
}

TEST(Sha1Test, FinalStartsANewMessage) {
    SHA1 sha1;
    sha1.update("some message");
    sha1.final();
    EXPECT_EQ(sha1.final(), kEmptyDigest);
    sha1.update("abc");
    EXPECT_EQ(sha1.final(), kAbcDigest);
}
