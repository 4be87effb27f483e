// The memory that messages are received into.
#include "qo_pushpull_receive_buffer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace {

constexpr size_t kSize = 262145;

class ReceiveBuffer : public testing::Test {
protected:
    void fill(size_t length) { std::fill_n(buffer_.data(), length, 'x'); }
    bool is_zero() {
        return std::all_of(
            buffer_.data(), buffer_.data() + kSize, [](char byte) { return byte == 0; });
    }
    /// Pages that the kernel has given for it.
    long pages() {
        std::vector<unsigned char> present(kSize / static_cast<size_t>(getpagesize()) + 1);
        EXPECT_EQ(mincore(buffer_.data(), kSize, present.data()), 0);
        return std::count_if(present.begin(), present.end(), [](unsigned char page) { return (page & 1U) != 0; });
    }

    QoReceiveBuffer buffer_{kSize};
};

}  // namespace

TEST_F(ReceiveBuffer, TakesNoMemoryBeforeItIsUsed) { EXPECT_EQ(pages(), 0); }

TEST_F(ReceiveBuffer, KeepsTheMemoryOfShortMessages) {
    fill(200);
    buffer_.clear(200);
    EXPECT_TRUE(is_zero());
    fill(200);
    buffer_.clear(200);
    EXPECT_GE(pages(), 1);
}

TEST_F(ReceiveBuffer, GivesBackTheMemoryOfALargeMessage) {
    fill(kSize);
    EXPECT_EQ(pages(), static_cast<long>(kSize) / getpagesize() + 1);
    buffer_.clear(kSize);
    EXPECT_EQ(pages(), 0);
    EXPECT_TRUE(is_zero());
}

TEST_F(ReceiveBuffer, IsZeroAfterAMessageOfAnyLength) {
    for (const size_t length : {size_t{0}, size_t{1}, size_t{65535}, size_t{65536}, size_t{65537}, kSize}) {
        fill(length);
        buffer_.clear(length);
        EXPECT_TRUE(is_zero()) << length;
    }
}
