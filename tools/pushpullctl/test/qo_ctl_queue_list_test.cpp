// The list of queues, the fullest first, and how full they are shown to be.
#include "qo_ctl_queue_list.h"

#include <gtest/gtest.h>

namespace {

TEST(FillBar, ShowsTheShareThatIsFull) {
    EXPECT_EQ(qo_ctl_fill_bar(0, 64, 10), "[..........]");
    EXPECT_EQ(qo_ctl_fill_bar(32, 64, 10), "[#####.....]");
    EXPECT_EQ(qo_ctl_fill_bar(64, 64, 10), "[##########]");
}

TEST(FillBar, OneMessageShowsAndOnlyAFullQueueLooksFull) {
    EXPECT_EQ(qo_ctl_fill_bar(1, 65536, 10), "[#.........]");
    EXPECT_EQ(qo_ctl_fill_bar(65535, 65536, 10), "[#########.]");
    EXPECT_EQ(qo_ctl_fill_bar(1, 1, 10), "[##########]");
    EXPECT_EQ(qo_ctl_fill_bar(1, 2, 10), "[#####.....]");
}

TEST(QueueDirectory, IsWhereTheFileSystemIsMounted) {
    EXPECT_EQ(qo_ctl_queue_directory("proc /proc proc rw 0 0\nnone /mnt/queues mqueue rw 0 0\n"), "/mnt/queues");
}

TEST(QueueDirectory, TheUsualPlaceComesBeforeAnyOther) {
    EXPECT_EQ(qo_ctl_queue_directory("a /a mqueue rw 0 0\nmqueue /dev/mqueue mqueue rw 0 0\nb /b mqueue rw 0 0\n"),
              "/dev/mqueue");
}

TEST(QueueDirectory, IsNothingWhereItIsNotMounted) {
    EXPECT_EQ(qo_ctl_queue_directory("proc /proc proc rw 0 0\nx /dev/mqueue tmpfs rw 0 0\n"), std::nullopt);
    EXPECT_EQ(qo_ctl_queue_directory(""), std::nullopt);
}

TEST(QueueNames, OfADirectoryThatIsNotThereAreNothing) { EXPECT_EQ(qo_ctl_queue_names("/nonexistent"), std::nullopt); }

TEST(QueueFullTimes, CountFromTheFirstFullLookAndStartOverWithRoomOrANewQueue) {
    QoCtlFullTimes times;
    std::vector<QoCtlQueue> queues = {{"/a", 4, 4, 16}, {"/b", 3, 4, 16}};
    EXPECT_EQ(queues[0].full_for, -1);
    times.note(queues, 100);
    EXPECT_EQ(queues[0].full_for, 0);
    EXPECT_EQ(queues[1].full_for, 0);
    queues[1].messages = 4;
    times.note(queues, 107);
    EXPECT_EQ(queues[0].full_for, 7);
    EXPECT_EQ(queues[1].full_for, 0);
    queues[0].messages = 3;
    times.note(queues, 108);
    EXPECT_EQ(queues[0].full_for, 0);
    EXPECT_EQ(queues[1].full_for, 1);
    std::vector<QoCtlQueue> only_a = {{"/a", 4, 4, 16}};
    times.note(only_a, 109);
    EXPECT_EQ(only_a[0].full_for, 0);
    times.note(queues, 110);
    EXPECT_EQ(queues[1].full_for, 0) << "it was gone in between";
}

std::string names(const std::vector<QoCtlQueue>& queues) {
    std::string all;
    for (const QoCtlQueue& queue : queues) all += queue.name;
    return all;
}

TEST(FullestQueues, AreKeptInTheirOrderWithTheServices) {
    const std::vector<QoCtlQueue> all = {
        {"/a", 1, 4, 16}, {"/b", 4, 4, 16, 9}, {"/c", 9, 10, 16, 0}, {"/d", 4, 4, 16, 0}, {"/e", 1, 4, 16}};
    std::vector<QoCtlQueue> queues = all;
    EXPECT_EQ(qo_ctl_keep_fullest(queues, "/none", 5), 0U);
    EXPECT_EQ(names(queues), "/a/b/c/d/e");
    EXPECT_EQ(qo_ctl_keep_fullest(queues, "/none", 3), 2U);
    EXPECT_EQ(names(queues), "/b/c/d");
    EXPECT_EQ(qo_ctl_keep_fullest(queues, "/none", 1), 2U);
    EXPECT_EQ(names(queues), "/b");
    queues = all;
    EXPECT_EQ(qo_ctl_keep_fullest(queues, "/e", 2), 3U);
    EXPECT_EQ(names(queues), "/b/e");
    queues = {all[0], all[4]};
    EXPECT_EQ(qo_ctl_keep_fullest(queues, "/none", 1), 1U);
    EXPECT_EQ(names(queues), "/a") << "of equals the first";
    EXPECT_EQ(qo_ctl_keep_fullest(queues, "/none", 0), 1U);
    EXPECT_EQ(names(queues), "");
}

}  // namespace
