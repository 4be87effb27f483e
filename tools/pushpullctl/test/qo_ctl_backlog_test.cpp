// Output to readers that are slow, stop or go away.
#include "qo_ctl_backlog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <future>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr size_t kPlenty = 1 << 20;  // bytes
constexpr seconds kPatience{30};

class Backlog : public testing::Test {
protected:
    void SetUp() override {
        signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(pipe(ends_), 0);
    }
    void TearDown() override {
        close_reader();
        close(ends_[1]);
    }
    void close_reader() {
        if (ends_[0] != -1) close(ends_[0]);
        ends_[0] = -1;
    }
    std::string read_bytes(size_t count) {
        std::string bytes(count, '\0');
        size_t length = 0;
        while (length < count) {
            const ssize_t piece = read(ends_[0], bytes.data() + length, count - length);
            if (piece <= 0) break;
            length += static_cast<size_t>(piece);
        }
        bytes.resize(length);
        return bytes;
    }
    int writer() const { return ends_[1]; }

private:
    int ends_[2] = {-1, -1};
};

TEST_F(Backlog, LinesComeOutInTheirOrder) {
    QoCtlBacklog output(writer(), kPlenty, [] {});
    for (int number = 0; number < 100; ++number) output.push(std::to_string(number % 10));
    output.finish(kPatience);
    std::string expected;
    for (int number = 0; number < 100; ++number) expected += std::to_string(number % 10);
    EXPECT_EQ(read_bytes(100), expected);
    EXPECT_EQ(output.dropped(), 0U);
}

TEST_F(Backlog, AReaderWhoDoesNotReadNeverHoldsUpTheProducer) {
    QoCtlBacklog output(writer(), 4 * kPlenty, [] {});
    const std::string line(kPlenty, 'x');  // more than a pipe holds
    for (int number = 0; number < 3; ++number) output.push(line);
    EXPECT_FALSE(output.broken());
    auto finished = std::async(std::launch::async, [&output] { output.finish(kPatience); });
    EXPECT_EQ(read_bytes(3 * kPlenty).size(), 3 * kPlenty);
    finished.get();
    EXPECT_EQ(output.dropped(), 0U);
}

TEST_F(Backlog, WhatGoesBeyondTheLimitIsDroppedAndCounted) {
    QoCtlBacklog output(writer(), 10, [] {});
    output.push(std::string(11, 'a'));
    output.push("fits");
    EXPECT_EQ(read_bytes(4), "fits");
    EXPECT_EQ(output.dropped(), 1U);
}

TEST_F(Backlog, WhatIsLeftAtTheEndOfThePatienceIsDroppedAndCounted) {
    QoCtlBacklog output(writer(), 8 * kPlenty, [] {});
    for (int number = 0; number < 3; ++number) output.push(std::string(kPlenty, 'x'));
    output.finish(milliseconds(1));
    EXPECT_GE(output.dropped(), 2U);
}

TEST_F(Backlog, AReaderWhoGoesAwayIsNoticedWithoutAnythingToWrite) {
    std::promise<void> told;
    QoCtlBacklog output(writer(), kPlenty, [&told] { told.set_value(); });
    close_reader();
    ASSERT_EQ(told.get_future().wait_for(kPatience), std::future_status::ready);
    EXPECT_TRUE(output.broken());
    EXPECT_EQ(output.error(), EPIPE);
}

TEST_F(Backlog, AnErrorOfTheDeviceIsTold) {
    const int full = open("/dev/full", O_WRONLY);
    std::promise<void> told;
    QoCtlBacklog output(full, kPlenty, [&told] { told.set_value(); });
    output.push("x");
    ASSERT_EQ(told.get_future().wait_for(kPatience), std::future_status::ready);
    output.finish(kPatience);
    EXPECT_EQ(output.error(), ENOSPC);
    close(full);
}

}  // namespace
