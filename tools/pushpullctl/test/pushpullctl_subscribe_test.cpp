// Following the real service, and every way out of it.
#include <signal.h>

#include "component.h"
#include "pushpullctl_run.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr Component::Queue kSmall{8, 4096};
constexpr char kFollowing[] = "as TESTPUBLISHER\n";

class PushpullctlSubscribe : public RunningService {
protected:
    /// Publishes as another component, and returns when the service has handled it.
    void publish(const std::string& text) {
        if (!publisher_) publisher_.emplace(service(), QO_CMPID_HVAC_SYSCON_PUB, kSmall);
        ASSERT_EQ(publisher_->api().publish(publisher_->id(), text), 0);
        publisher_->fence();
    }
    void TearDown() override {
        publisher_.reset();
        RunningService::TearDown();
    }
    testing::AssertionResult left_nothing() {
        if (!queues_of_clients().empty()) return testing::AssertionFailure() << queues_of_clients().front();
        return is_not_registered(service(), QO_CMPID_TESTPUBLISHER);
    }

    std::optional<Component> publisher_;
};

TEST_F(PushpullctlSubscribe, PrintsWhatIsPublishedAsLinesInTheirOrder) {
    PushpullctlRun run({"subscribe", "/logs", "/usb", "--count", "3"});
    ASSERT_TRUE(run.wait_for_messages("following /logs /usb as TESTPUBLISHER\n"));
    publish(R"({"logs": {"mapper": "1"}})");
    publish(R"({"version":{"schemaVersion":"nobody follows this"}})");
    publish(R"({"usb":{"mode":"2"}})");
    publish(R"({"logs":{"mapper":"3"}})");
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.output(), R"({"logs":{"mapper":"1"}})"
                            "\n"
                            R"({"usb":{"mode":"2"}})"
                            "\n"
                            R"({"logs":{"mapper":"3"}})"
                            "\n");
    EXPECT_TRUE(left_nothing());
}

TEST_F(PushpullctlSubscribe, ADeletionIsPrintedAsAJsonString) {
    PushpullctlRun run({"subscribe", "/", "--count", "1"});
    ASSERT_TRUE(run.wait_for_messages(kFollowing));
    ASSERT_EQ(run_pushpullctl({"delete", "/usb"}).status, 0);
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.output(), "\"NODE DELETED: /usb\"\n");
}

TEST_F(PushpullctlSubscribe, WithChangesAPublishThatChangesNothingIsNotHeard) {
    PushpullctlRun run({"subscribe", "/logs", "--changes", "--count", "1"});
    ASSERT_TRUE(run.wait_for_messages(kFollowing));
    publish(R"({"logs":{"mapper":""}})");
    publish(R"({"logs":{"mapper":"changed"}})");
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.output(), R"({"logs":{"mapper":"changed"}})"
                            "\n");
}

TEST_F(PushpullctlSubscribe, APointerThatTheServiceWillNotTakeGetsAWarning) {
    PushpullctlRun run(
        {"subscribe", "/system/config/name", "/devices/0", "/nosuch", "/devices/device", "/system", "/"});
    ASSERT_TRUE(run.wait_for_messages(kFollowing));
    run.send_signal(SIGINT);
    EXPECT_EQ(run.wait(), 0);
    EXPECT_THAT(run.messages(), HasSubstr("warning: /system/config/name may never be notified: it is neither"));
    EXPECT_THAT(run.messages(),
                HasSubstr("warning: /devices/0 may never be notified: positions in arrays are refused"));
    EXPECT_THAT(run.messages(), HasSubstr("warning: /nosuch may never be notified: there is no such node"));
    EXPECT_THAT(run.messages(), testing::Not(HasSubstr("warning: /system may")));
    EXPECT_THAT(run.messages(), testing::Not(HasSubstr("/devices/device may"))) << "of every element";
}

TEST_F(PushpullctlSubscribe, OthersWorkBesideIt) {
    PushpullctlRun first({"subscribe", "/logs", "--message-size", "4096"});
    ASSERT_TRUE(first.wait_for_messages("as TESTPUBLISHER\n"));
    PushpullctlRun second({"subscribe", "/logs", "--message-size", "4096"});
    ASSERT_TRUE(second.wait_for_messages("as BASE_SIMULATOR\n"));
    EXPECT_EQ(run_pushpullctl({"publish", R"({"logs":{"mapper":"x"}})"}).status, 0);
    EXPECT_TRUE(first.wait_for_output("mapper"));
    EXPECT_TRUE(second.wait_for_output("mapper"));
    first.send_signal(SIGINT);
    second.send_signal(SIGINT);
    EXPECT_EQ(first.wait(), 0);
    EXPECT_EQ(second.wait(), 0);
    EXPECT_TRUE(left_nothing());
    EXPECT_TRUE(is_not_registered(service(), QO_CMPID_BASE_SIMULATOR));
}

// ---- ways out ----

class PushpullctlSignal : public PushpullctlSubscribe, public testing::WithParamInterface<int> {};

TEST_P(PushpullctlSignal, EndsFollowingWith0AndLeavesNothing) {
    PushpullctlRun run({"subscribe", "/logs"});
    ASSERT_TRUE(run.wait_for_messages(kFollowing));
    publish(R"({"logs":{"mapper":"x"}})");
    ASSERT_TRUE(run.wait_for_output("mapper"));
    run.send_signal(GetParam());
    EXPECT_EQ(run.wait(), 0);
    EXPECT_TRUE(left_nothing());
}

TEST_P(PushpullctlSignal, BeforeTheCountIsReachedIsTheExitStatus) {
    PushpullctlRun run({"subscribe", "/logs", "--count", "5"});
    ASSERT_TRUE(run.wait_for_messages(kFollowing));
    run.send_signal(GetParam());
    EXPECT_EQ(run.wait(), 128 + GetParam());
    EXPECT_TRUE(left_nothing());
}

INSTANTIATE_TEST_SUITE_P(CtrlCAndOthers, PushpullctlSignal, testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_F(PushpullctlSubscribe, CtrlZDoesNotStopIt) {
    PushpullctlRun run({"subscribe", "/logs", "--count", "1"});
    ASSERT_TRUE(run.wait_for_messages(kFollowing));
    run.send_signal(SIGTSTP);
    ASSERT_TRUE(run.wait_for_messages("not stopped"));
    publish(R"({"logs":{"mapper":"x"}})");
    EXPECT_EQ(run.wait(), 0);
}

TEST_F(PushpullctlSubscribe, AReaderWhoGoesAwayEndsItWith1) {
    PushpullctlRun run({"subscribe", "/logs"}, "", PushpullctlRun::Reader::stalls);
    ASSERT_TRUE(run.wait_for_messages(kFollowing));
    run.close_output();
    EXPECT_EQ(run.wait(), 1);
    EXPECT_TRUE(left_nothing());
}

TEST_F(PushpullctlSubscribe, TheQueueIsEmptiedAlthoughNobodyReadsTheOutput) {
    PushpullctlRun run({"subscribe", "/logs", "--message-size", "4096"}, "", PushpullctlRun::Reader::stalls);
    ASSERT_TRUE(run.wait_for_messages(kFollowing));
    const std::string long_text = std::string(3000, 'x');
    for (int number = 0; number < 50; ++number) publish(R"({"logs":{"mapper":")" + long_text + R"("}})");
    // More than a pipe holds, and the service lost none of them.
    for (const QoLogLine& line : events().log()) EXPECT_THAT(line.text, testing::Not(HasSubstr("mq_send: failed")));
    run.send_signal(SIGINT);
    EXPECT_EQ(run.wait(), 0);
    EXPECT_THAT(run.messages(), HasSubstr("notifications dropped: the output was not taken in time"));
    EXPECT_TRUE(left_nothing());
}

TEST_F(PushpullctlSubscribe, TheEndOfTheServiceEndsItWith3) {
    PushpullctlRun run({"subscribe", "/logs"});
    ASSERT_TRUE(run.wait_for_messages(kFollowing));
    publish("{}");
    ASSERT_EQ(publisher_->api().exit_request(publisher_->id(), "true"), 0);
    EXPECT_EQ(run.wait(), 3);
    EXPECT_THAT(run.messages(), HasSubstr("the service has ended"));
    EXPECT_TRUE(service().wait_for_end());
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

TEST_F(PushpullctlSubscribe, OneThatIsKilledIsTidiedUpByItsGuardian) {
    PushpullctlRun run({"subscribe", "/logs"});
    ASSERT_TRUE(run.wait_for_messages(kFollowing));
    EXPECT_THAT(queues_of_clients(), SizeIs(1));
    run.send_signal(SIGKILL);
    EXPECT_EQ(run.wait(), -SIGKILL);
    EXPECT_TRUE(events().wait_for_log(LOG_INFO, "QoPushPullQueueMonitor: Removing queue"));
    EXPECT_TRUE(is_not_registered(service(), QO_CMPID_TESTPUBLISHER));
}

TEST_F(PushpullctlSubscribe, WhatOneAndItsGuardianLeftBehindIsTakenOverByTheNext) {
    PushpullctlRun run({"subscribe", "/logs"});
    ASSERT_TRUE(run.wait_for_messages(kFollowing));
    ASSERT_GT(run.guardian(), 1);
    kill(run.guardian(), SIGKILL);
    run.send_signal(SIGKILL);
    EXPECT_EQ(run.wait(), -SIGKILL);
    EXPECT_THAT(queues_of_clients(), SizeIs(1));
    publish(R"({"logs":{"mapper":"waits in the queue"}})");

    const PushpullctlResult next = run_pushpullctl({"get", "/version"});
    EXPECT_EQ(next.status, 0) << next.messages;
    EXPECT_EQ(next.output, R"({"version":{"schemaVersion":"0.0"}})"
                           "\n");
    EXPECT_TRUE(left_nothing());
}

}  // namespace
