// The hash against its published values.
#include "json_hash.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

// The key and texts of the algorithm's published test vectors count up from 0.
constexpr qo_json::HashKey kKey{0x0706050403020100, 0x0f0e0d0c0b0a0908};

std::string counting_bytes(size_t length) {
    std::string bytes;
    for (size_t i = 0; i < length; ++i) bytes += static_cast<char>(i);
    return bytes;
}

}  // namespace

TEST(JsonHash, GivesThePublishedTestVectors) {
    EXPECT_EQ(qo_json::siphash(kKey, counting_bytes(0)), 0x726fdb47dd0e0e31U);
    EXPECT_EQ(qo_json::siphash(kKey, counting_bytes(1)), 0x74f839c593dc67fdU);
    EXPECT_EQ(qo_json::siphash(kKey, counting_bytes(7)), 0xab0200f58b01d137U);
    EXPECT_EQ(qo_json::siphash(kKey, counting_bytes(8)), 0x93f5f5799a932462U);
    EXPECT_EQ(qo_json::siphash(kKey, counting_bytes(15)), 0xa129ca6149be45e5U);
}

TEST(JsonHash, NamesOfEveryLengthHashDifferently) {
    std::set<size_t> hashes;
    for (size_t length = 0; length < 64; ++length) hashes.insert(qo_json::NameHash()(std::string(length, '\0')));
    EXPECT_EQ(hashes.size(), 64U);
}
