// Following a service that is silent because it is not there any more.
#include <signal.h>

#include "component.h"
#include "pushpullctl_run.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class PushpullctlQuiet : public RunningService {};

TEST_F(PushpullctlQuiet, AServiceThatWasKilledIsNoticedAndEndsItWith4) {
    PushpullctlRun run({"subscribe", "/logs", "--timeout", "0.2"});
    ASSERT_TRUE(run.wait_for_messages("as TESTPUBLISHER\n"));
    service().send_signal(SIGKILL);
    ASSERT_TRUE(service().wait_for_end());
    EXPECT_EQ(run.wait(), 4);
    EXPECT_THAT(run.messages(), HasSubstr("the subscription is lost"));
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

TEST_F(PushpullctlQuiet, AServiceThatWasResetIsNoticedToo) {
    PushpullctlRun run({"subscribe", "/logs", "--timeout", "0.2", "--message-size", "4096"});
    ASSERT_TRUE(run.wait_for_messages("as TESTPUBLISHER\n"));
    ASSERT_EQ(run_pushpullctl({"init", "--yes"}).status, 0);
    EXPECT_EQ(run.wait(), 4);
    EXPECT_THAT(run.messages(), HasSubstr("the subscription is lost"));
}

TEST_F(PushpullctlQuiet, ASilentServiceIsFollowedOn) {
    PushpullctlRun run({"subscribe", "/logs", "--count", "1", "--message-size", "4096"});
    ASSERT_TRUE(run.wait_for_messages("as TESTPUBLISHER\n"));
    ASSERT_TRUE(service().wait_until_idle());
    events().clear_log();
    // What it asks after a quiet time.
    ASSERT_TRUE(events().wait_for_log(LOG_DEBUG, "pushpull : normal GET"));
    EXPECT_EQ(run_pushpullctl({"publish", R"({"logs":{"mapper":"x"}})"}).status, 0);
    EXPECT_EQ(run.wait(), 0);
    EXPECT_THAT(run.output(), HasSubstr("mapper"));
}

}  // namespace
