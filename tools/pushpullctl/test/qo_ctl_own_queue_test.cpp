// The own receive queue beside others, and after a kill.
#include "qo_ctl_own_queue.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "isolation.h"
#include "qo_pushpull_message_queue.h"

namespace {

constexpr char kName[] = "/pushpullctl-test";

class OwnQueue : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = qo_missing_isolation(); !reason.empty()) GTEST_SKIP() << reason;
    }
    static bool exists() { return std::filesystem::exists("/dev/mqueue/pushpullctl-test"); }
    /// Opens a queue of that name, whoever made it, and keeps it open.
    static mqd_t make(const char* name, long messages, long message_size) {
        mq_attr attributes{};
        attributes.mq_maxmsg = messages;
        attributes.mq_msgsize = message_size;
        return mq_open(name, O_RDWR | O_CREAT, 0660, &attributes);
    }
};

TEST_F(OwnQueue, IsMadeAsLargeAsTheQuotaAllows) {
    const QoCtlDescriptor others(make("/others", 2, 262144));  // of 819200 bytes for all
    QoCtlOwnQueue queue;
    ASSERT_EQ(queue.open(kName, 0), QoCtlOwnQueueResult::opened);
    EXPECT_EQ(queue.attributes().mq_msgsize, 32768);
    EXPECT_EQ(queue.attributes().mq_maxmsg, 4);
    mq_unlink("/others");
}

TEST_F(OwnQueue, AGivenMessageSizeIsKeptAndTheDepthGivesWay) {
    QoCtlOwnQueue queue;
    ASSERT_EQ(queue.open(kName, 200000), QoCtlOwnQueueResult::opened);
    EXPECT_EQ(queue.attributes().mq_msgsize, 200000);
    EXPECT_GE(queue.attributes().mq_maxmsg, 1);
}

TEST_F(OwnQueue, IsGoneAfterwards) {
    {
        QoCtlOwnQueue queue;
        ASSERT_EQ(queue.open(kName, 512), QoCtlOwnQueueResult::opened);
        EXPECT_TRUE(exists());
    }
    EXPECT_FALSE(exists());
}

TEST_F(OwnQueue, IsSharedWithNobody) {
    QoCtlOwnQueue first;
    QoCtlOwnQueue second;
    ASSERT_EQ(first.open(kName, 512), QoCtlOwnQueueResult::opened);
    EXPECT_EQ(second.open(kName, 512), QoCtlOwnQueueResult::taken);
    second.remove();
    EXPECT_TRUE(exists());
    first.remove();
    EXPECT_EQ(second.open(kName, 512), QoCtlOwnQueueResult::opened);
}

TEST_F(OwnQueue, OneThatWasLeftBehindIsTakenOverWithItsAttributes) {
    QoCtlDescriptor left_behind(make(kName, 3, 1024));
    QoCtlOwnQueue queue;
    ASSERT_EQ(queue.open(kName, 512), QoCtlOwnQueueResult::opened);
    EXPECT_EQ(queue.attributes().mq_msgsize, 1024);
    EXPECT_EQ(queue.attributes().mq_maxmsg, 3);
    // It is the same queue: what the service sends to its descriptor arrives.
    ASSERT_EQ(mq_send(left_behind.get(), "x", 2, 1), 0);
    mq_attr now{};
    mq_getattr(queue.descriptor(), &now);
    EXPECT_EQ(now.mq_curmsgs, 1);
    queue.remove();
    EXPECT_FALSE(exists());
}

TEST_F(OwnQueue, OneThatCannotBeMadeIsToldByErrno) {
    QoCtlOwnQueue queue;
    EXPECT_EQ(queue.open("no slash", 512), QoCtlOwnQueueResult::failed);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
