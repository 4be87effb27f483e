// What /proc tells of processes and their descriptors.
#include "qo_ctl_process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "qo_ctl_queue_readers.h"

namespace {

constexpr char kBehindTheName[] =
    " T 1 2 3 0 -1 4194304 102 0 0 0 1 2 3 4 20 0 1 0 1754504 3133440 390 1844674407370955";

TEST(ProcessStat, TellsNameStateAndStart) {
    const std::optional<QoCtlProcess> process =
        qo_ctl_read_process_stat(std::string("27360 (display)") + kBehindTheName);
    ASSERT_TRUE(process);
    EXPECT_EQ(process->id, 27360);
    EXPECT_EQ(process->program, "display");
    EXPECT_EQ(process->state, 'T');
    EXPECT_EQ(process->ticks, 1754504U);
    EXPECT_FALSE(process->of_kernel);
}

TEST(ProcessStat, ANameMayHoldBlanksAndBrackets) {
    const std::optional<QoCtlProcess> process = qo_ctl_read_process_stat(std::string("7 (a) R 1 (b)") + kBehindTheName);
    ASSERT_TRUE(process);
    EXPECT_EQ(process->program, "a) R 1 (b");
    EXPECT_EQ(process->state, 'T');
}

TEST(ProcessStat, KnowsAThreadOfTheKernel) {
    const std::optional<QoCtlProcess> process =
        qo_ctl_read_process_stat("2 (kthreadd) S 0 0 0 0 -1 2129984 0 0 0 0 0 1 0 0 20 0 1 0 1 0 0 0");
    ASSERT_TRUE(process);
    EXPECT_TRUE(process->of_kernel);
}

TEST(ProcessStat, AnyOtherTextIsNone) {
    for (const char* text : {"", "7", "7 (a", "7 a) S 1", "x (a) S 1 2 3 0 -1 4194304 1 0 0 0 1 2 3 4 20 0 1 0 17 3 3",
                             "7 (a) S 1 2 3 0 -1 4194304 102 0 0 0 1 2 3 4 20 0 1 0", ") (", "(a) S"})
        EXPECT_EQ(qo_ctl_read_process_stat(text), std::nullopt) << text;
}

TEST(Process, StatesAreToldByWhatTheyMean) {
    EXPECT_EQ(qo_ctl_process_state('R'), "running");
    EXPECT_EQ(qo_ctl_process_state('S'), "running");
    EXPECT_EQ(qo_ctl_process_state('I'), "running");
    EXPECT_EQ(qo_ctl_process_state('T'), "stopped");
    EXPECT_EQ(qo_ctl_process_state('t'), "stopped");
    EXPECT_EQ(qo_ctl_process_state('D'), "uninterruptible");
    EXPECT_EQ(qo_ctl_process_state('Z'), "zombie");
}

TEST(Process, ThisOneRunsAndHasMemory) {
    const std::optional<QoCtlProcess> process = qo_ctl_look_at_process(getpid());
    ASSERT_TRUE(process);
    EXPECT_EQ(process->id, getpid());
    EXPECT_EQ(qo_ctl_process_state(process->state), "running");
    EXPECT_GT(process->started, 0);
    EXPECT_GT(qo_ctl_resident_kib(getpid()), 0U);
}

TEST(Process, OneThatIsNotThereIsNothing) {
    EXPECT_EQ(qo_ctl_look_at_process(-7), std::nullopt);
    EXPECT_EQ(qo_ctl_resident_kib(-7), std::nullopt);
}

TEST(DescriptorInfo, ReadsWhatIsOpenForReadingOrBoth) {
    EXPECT_TRUE(qo_ctl_read_descriptor_info("pos:\t0\nflags:\t0100000\nmnt_id:\t14\n").reads);
    EXPECT_TRUE(qo_ctl_read_descriptor_info("pos:\t0\nflags:\t0100002\n").reads);
    EXPECT_FALSE(qo_ctl_read_descriptor_info("pos:\t0\nflags:\t0100001\n").reads);
    EXPECT_FALSE(qo_ctl_read_descriptor_info("").reads);
    EXPECT_FALSE(qo_ctl_read_descriptor_info("flags:\n").reads);
}

TEST(DescriptorInfo, TellsOfALockOfTheWholeFile) {
    EXPECT_TRUE(
        qo_ctl_read_descriptor_info("flags:\t02\nlock:\t1: FLOCK  ADVISORY  WRITE 7 00:0e:3 0 EOF\nQSIZE:0\n").locks);
    EXPECT_FALSE(qo_ctl_read_descriptor_info("flags:\t02\nlock:\t1: POSIX  ADVISORY  WRITE 7 00:0e:3 0 EOF\n").locks);
    EXPECT_FALSE(qo_ctl_read_descriptor_info("flags:\t02\n").locks);
}

}  // namespace
