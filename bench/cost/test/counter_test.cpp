// What is read from the files of callgrind and strace.
#include "counter.h"

#include <gtest/gtest.h>

#include "scratch_directory.h"

namespace {

constexpr char kPart[] =
    "fn=main\n"
    "4 100\n"
    "cfn=malloc\n"
    "calls=3 0 \n"
    "5 60\n"
    "cfn=mallopt\n"
    "calls=20 0 \n"
    "5 60\n"
    "fn=operator new(unsigned long)\n"
    "cfn=realloc\n"
    "calls=2 0 \n"
    "5 60\n"
    "totals: 280\n";

TEST(CostOfOne, LeavesTheMarksOutAndIsRounded) {
    const QoCost one = qo_cost_of_one({1000, 45, 64}, {100, 5, 4}, 10);
    EXPECT_EQ(one.instructions, 90);
    EXPECT_EQ(one.allocations, 4);
    EXPECT_EQ(one.system_calls, 6);
    EXPECT_EQ(qo_cost_of_one({104, 105, 0}, {0, 0, 0}, 10).instructions, 10);
    EXPECT_EQ(qo_cost_of_one({104, 105, 0}, {0, 0, 0}, 10).allocations, 11);
}

TEST(Callgrind, AddsUpTheInstructionsAndAllocationsOfTheMainThreadsParts) {
    const QoScratchDirectory scratch;
    const QoCallgrind counter(scratch.path());
    EXPECT_EQ(counter.position(), 0U);
    scratch.write("part.1-01", kPart);
    scratch.write("part.2-01", "totals: 7\n");
    scratch.write("part.2-02", "totals: 100\n");
    scratch.write("part.3-01", kPart);
    EXPECT_EQ(counter.position(), 3U);
    EXPECT_EQ(counter.between(0, 3).instructions, 567);
    EXPECT_EQ(counter.between(0, 3).allocations, 10);
    EXPECT_EQ(counter.between(1, 2).instructions, 7);
    EXPECT_EQ(counter.between(1, 2).allocations, 0);
}

TEST(Callgrind, RefusesAPartThatIsNotComplete) {
    const QoScratchDirectory scratch;
    scratch.write("part.1-01", "fn=main\n4 100\n");
    EXPECT_THROW(QoCallgrind(scratch.path()).between(0, 1), std::runtime_error);
}

TEST(Strace, CountsCallsThatHaveReturned) {
    const QoScratchDirectory scratch;
    const QoStrace counter(scratch.path());
    EXPECT_EQ(counter.position(), 0U);
    scratch.write("trace",
                  "sendmsg(3, ...) = 100\n"
                  "--- SIGTERM {si_signo=SIGTERM} ---\n"
                  "close(11) = 0\n"
                  "ppoll(");
    EXPECT_EQ(counter.position(), 3U);
    EXPECT_EQ(counter.between(0, 3).system_calls, 2);
    EXPECT_EQ(counter.between(1, 3).system_calls, 1);
}

}  // namespace
