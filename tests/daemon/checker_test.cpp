// What clients may publish, through the real service: the check of published objects and the merge behind it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include "component.h"
#include "service_process.h"

namespace {

using testing::Contains;
using testing::Field;
using testing::HasSubstr;
using testing::Not;

constexpr int32_t kInternal = QO_CMPID_TESTPUBLISHER;
constexpr int32_t kLocalClient = QO_CMPID_WEBSERVER_GATEWAY_C0;
constexpr int32_t kRemoteClient = QO_CMPID_REMOTE_GATEWAY_DM;
constexpr int32_t kStrictClient = QO_CMPID_REMOTE_GATEWAY_RM;
constexpr char kRefused[] = "UpdateNode Failed: JSON object checker returned unacceptable.  Node was not published!";
constexpr char kModified[] = "UpdateNode Warning: JSON object checker returned modified.  New node = ";

std::string clock_with(const std::string& members) { return "{\"system\":{\"clock\":{" + members + "}}}"; }

class CheckedPublish : public RunningService {
protected:
    void SetUp() override {
        RunningService::SetUp();
        if (IsSkipped()) return;
        subscriber_.emplace(service(), QO_CMPID_DEMO);
        ASSERT_EQ(subscriber_->api().subscribe(subscriber_->id(), "/", false), 0);
        subscriber_->fence();
    }
    void TearDown() override {
        subscriber_.reset();
        RunningService::TearDown();
    }

    void publish(int32_t publisher, const std::string& json) {
        Component component(service(), publisher, {4, 1024});
        ASSERT_TRUE(service().wait_until_idle());
        events().clear_log();
        ASSERT_EQ(component.api().publish(component.id(), json), 0);
        ASSERT_TRUE(service().wait_until_idle());
    }
    void expect_taken(int32_t publisher, const std::string& json) {
        publish(publisher, json);
        EXPECT_EQ(subscriber_->next_message(), json);
        EXPECT_THAT(events().log(), Not(Contains(QoLogLine{LOG_ERR, kRefused})));
        EXPECT_THAT(events().log(), Not(Contains(Field(&QoLogLine::text, HasSubstr(kModified)))));
    }
    /// @param reason the check's own line; "" when it has none
    void expect_refused(int32_t publisher, const std::string& json, const std::string& reason) {
        const std::string before = subscriber_->active_tree();
        subscriber_->fence();
        publish(publisher, json);
        if (!reason.empty()) EXPECT_TRUE(events().wait_for_log(LOG_ERR, reason));
        EXPECT_TRUE(events().wait_for_log(LOG_ERR, kRefused));
        EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component data publish failed = -1"));
        EXPECT_TRUE(subscriber_->hears_nothing());
        EXPECT_EQ(subscriber_->active_tree(), before);
    }

    std::optional<Component> subscriber_;
};

TEST_F(CheckedPublish, ClockOffset86400IsAcceptable) {
    expect_taken(kLocalClient, clock_with("\"offset\":86400"));
    EXPECT_THAT(subscriber_->get("/system/clock/offset"), HasSubstr(": 86400"));
    expect_taken(kRemoteClient, clock_with("\"offset\":-86400"));
    EXPECT_THAT(subscriber_->get("/system/clock/offset"), HasSubstr(": -86400"));
}

TEST_F(CheckedPublish, ClockOffset86401AndItsNegativeAreRefused) {
    expect_refused(kLocalClient, clock_with("\"offset\":86401"), "Invalid time offset 86401");
    expect_refused(kRemoteClient, clock_with("\"offset\":-86401"), "Invalid time offset -86401");
}

TEST_F(CheckedPublish, DstOffset3600And0PassAnd1800IsRefused) {
    expect_taken(kRemoteClient, clock_with("\"dstOffset\":3600"));
    expect_taken(kLocalClient, clock_with("\"dstOffset\":0"));
    expect_refused(kLocalClient, clock_with("\"dstOffset\":1800"), "Invalid DST offset 1800");
}

TEST_F(CheckedPublish, StrictPublisherMergesTheCorrectedTextAndSubscribersGetTheOriginal) {
    const std::string text = R"({ "system" : {"time":{"currentTime":"x"}, "clock":{"setRtcTime":"now","tz":"NST"} } })";
    publish(kStrictClient, text);
    EXPECT_EQ(subscriber_->next_message(), text);
    EXPECT_TRUE(events().wait_for_log(LOG_INFO, kModified + clock_with("\"tz\":\"NST\"")));
    EXPECT_THAT(subscriber_->get("/system/clock/tz"), HasSubstr("NST"));
    EXPECT_THAT(subscriber_->get("/system/clock/setRtcTime"), Not(HasSubstr("now")));
}

TEST_F(CheckedPublish, NormalClientsKeepTheMembersThatAStrictOneLoses) {
    expect_taken(kRemoteClient, clock_with("\"setRtcTime\":\"remote\""));
    EXPECT_THAT(subscriber_->get("/system/clock/setRtcTime"), HasSubstr("remote"));
    expect_taken(kLocalClient, R"({"system":{"time":{"currentTime":"x"},"clock":{"setRtcTime":"local"}}})");
    EXPECT_THAT(subscriber_->get("/system/clock/setRtcTime"), HasSubstr("local"));
}

TEST_F(CheckedPublish, LimitsRefuseEvenWhatPresenceModified) {
    expect_refused(kStrictClient, clock_with(R"("setRtcTime":"x","offset":90000)"), "Invalid time offset 90000");
}

TEST_F(CheckedPublish, Latitude90PassesAndBeyondOrNotANumberIsRefused) {
    expect_taken(kRemoteClient, R"({"address":{"latitude":90.0}})");
    expect_refused(kRemoteClient, R"({"address":{"latitude":90.5}})", "Invalid address latitude");
    expect_refused(kLocalClient, R"({"address":{"longitude":"NaN"}})", "Invalid address longitude");
}

TEST_F(CheckedPublish, UnknownPriorityOfTheCommandedAlertIsRefusedAndInsideActiveAccepted) {
    expect_refused(kRemoteClient, R"({"alarms":{"alertCmd":{"alert":{"priority":"urgent"}}}})",
                   "Invalid alert priority");
    expect_taken(kRemoteClient, R"({"alarms":{"active":[{"id":0,"alert":{"priority":"urgent"}}]}})");
}

TEST_F(CheckedPublish, VersionOfAnyClientIsRefused) {
    for (const int32_t client : {kLocalClient, kRemoteClient, kStrictClient})
        expect_refused(client, R"({"version":{"schemaVersion":"9"}})", "");
}

TEST_F(CheckedPublish, SecondMemberOrDuplicateCannotHideAValue) {
    expect_refused(kLocalClient, R"({"logs":{},"system":{"clock":{"offset":999999}}})", "");
    expect_refused(kRemoteClient, clock_with(R"("offset":0,"offset":999999)"), "");
}

TEST_F(CheckedPublish, InternalPublishersSkipTheChecker) {
    expect_taken(kInternal, clock_with("\"offset\":86401"));
    EXPECT_THAT(subscriber_->get("/system/clock/offset"), HasSubstr(": 86401"));
    expect_taken(kInternal, R"({"version":{"schemaVersion":"9"}})");
    EXPECT_THAT(subscriber_->get("/version/schemaVersion"), HasSubstr("\"9\""));
}

}  // namespace
