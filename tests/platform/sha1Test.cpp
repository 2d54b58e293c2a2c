#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "platform/utils.h"

TEST(Sha1Test, GivesTheStandardDigestsAroundTheBlockBoundariesHoweverTheMessageIsFed) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {std::string(55, 'a'), "c1c8bbdc22796e28c0e15163d20899b65621d65a"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {std::string(63, 'a'), "03f09f5b158a7a8cdad920bddc29b81c18a551f5"},
        {std::string(64, 'a'), "0098ba824b5c16427bd7a1122a5a442a25ec644d"},
        {std::string(65, 'a'), "11655326c708d70319be2610e8a57d9a5b959d3b"},
        {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
        // Zero and high bytes are taken as they are, never as signed characters.
        {std::string("/Users/zo\xc3\xab/\0\xff\x80", 15),
         "28f4885b0b14d12234e98103059187e3a83c6916"},
    };
    SHA1 sha1;
    for (const auto& [message, digest] : cases) {
        EXPECT_EQ(sha1Hash(message), digest) << message.size() << " bytes";
        // In two parts, split in the middle; final starts anew.
        sha1.update(message.substr(0, message.size() / 2));
        sha1.update(message.substr(message.size() / 2));
        EXPECT_EQ(sha1.final(), digest) << message.size() << " bytes in two parts";
    }
}
