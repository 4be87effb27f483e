// latency against the real service.
#include <algorithm>

#include "pushpullctl_run.h"
#include "qo_pushpull_json.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class PushpullctlLatency : public RunningService {};

TEST_F(PushpullctlLatency, EachRoundTripIsCountedOnce) {
    const PushpullctlResult result = run_pushpullctl({"latency", "--count", "20", "--interval", "0.001"});
    EXPECT_EQ(result.status, 0);
    const QoJsonNode node = qo_json_parse(result.output);
    ASSERT_TRUE(node) << result.output;
    const auto number = [&](const char* name) { return json_as_int(qo_json_find(node.get(), name)); };
    EXPECT_EQ(number("count"), 20);
    EXPECT_GT(number("min_us"), 0);
    for (const auto& [less, more] :
         {std::pair{"min_us", "median_us"}, {"median_us", "p90_us"}, {"p90_us", "p99_us"}, {"p99_us", "max_us"}})
        EXPECT_LE(number(less), number(more));
    int64_t counted = 0;
    for (JSONNODE* range : QoJsonChildren(qo_json_find(node.get(), "histogram")))
        counted += json_as_int(qo_json_find(range, "count"));
    EXPECT_EQ(counted, 20);
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

TEST_F(PushpullctlLatency, IsASummaryAndBarsInColour) {
    const std::string output =
        run_pushpullctl({"latency", "--count", "5", "--interval", "0.001", "--color", "always"}).output;
    EXPECT_THAT(output, StartsWith("5 round trips: min "));
    EXPECT_THAT(output, ContainsRegex("  up to +[0-9]+ us  ####"));
}

TEST_F(PushpullctlLatency, CtrlCEndsItAtOnce) {
    PushpullctlRun run({"latency", "--interval", "3600"});
    while (queues_of_clients().empty()) std::this_thread::yield();
    run.send_signal(SIGINT);
    EXPECT_EQ(run.wait(), 130);
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

TEST_F(PushpullctlLatency, AServiceThatStandsStillEndsItWith4) {
    service().send_signal(SIGSTOP);
    const PushpullctlResult result = run_pushpullctl({"latency", "--timeout", "0.2"});
    service().send_signal(SIGCONT);
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.output, IsEmpty());
    EXPECT_THAT(result.messages, HasSubstr("no answer from the service in time"));
}

}  // namespace
