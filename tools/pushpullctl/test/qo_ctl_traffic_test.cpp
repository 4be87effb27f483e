// Requests and their outcomes out of log lines.
#include "qo_ctl_traffic.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr auto kDisplay = static_cast<eQO_CMP_IDs_>(1350);

std::string request_text(const std::string& kind, int sender, const std::string& buffer) {
    return "{\n\t\"function\": \"" + kind + "\",\n\t\"arg\": {\n\t\t\"comp_id\": " + std::to_string(sender) +
           ",\n\t\t\"buffer\": \"" + buffer + "\"\n\t}\n}";
}

std::string received(const std::string& text) {
    return "PushPullData : mq_receive: retval: " + std::to_string(text.size() + 1) + " , msg: " + text;
}

class Traffic : public testing::Test {
protected:
    void log(const std::string& text) { traffic_.add({QoCtlLogLine::Origin::service, "now", text}); }
    /// As it stands in a file whose lines are not escaped.
    void log_in_lines(const std::string& text) {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) traffic_.add({QoCtlLogLine::Origin::bare, "", line});
    }
    void ask(const std::string& kind, int sender, const std::string& buffer) {
        log(received(request_text(kind, sender, buffer)));
    }

    std::vector<QoCtlHandled> handled_;
    QoCtlTraffic traffic_{[this](const QoCtlHandled& handled) { handled_.push_back(handled); }};
};

TEST_F(Traffic, ARequestIsToldOnceTheNextComes) {
    ask("get", 1350, "/a");
    EXPECT_TRUE(traffic_.is_waiting());
    EXPECT_THAT(handled_, IsEmpty());
    ask("get", 1351, "/b");
    ASSERT_EQ(handled_.size(), 1U);
    EXPECT_EQ(handled_[0].time, "now");
    EXPECT_EQ(handled_[0].request.sender, 1350);
    EXPECT_EQ(handled_[0].request.buffer, "/a");
    EXPECT_EQ(handled_[0].bytes, static_cast<int64_t>(request_text("get", 1350, "/a").size()) + 1);
    EXPECT_EQ(handled_[0].outcome, QoCtlOutcome::done);
    traffic_.finish();
    EXPECT_EQ(handled_.size(), 2U);
    traffic_.finish();
    EXPECT_EQ(handled_.size(), 2U);
}

TEST_F(Traffic, WhoWasToldIsKeptOnceEach) {
    ask("publish", 1350, "{}");
    EXPECT_FALSE(traffic_.is_settled());
    log("mq_send success: msg size = 2, queue list = \"/display;/a\"b;\"");
    EXPECT_TRUE(traffic_.is_settled());
    log("mq_send success: msg size = 2, queue list = \"/display;\"");
    traffic_.finish();
    EXPECT_THAT(handled_[0].told, ElementsAre("/display", "/a\"b"));
}

TEST_F(Traffic, TheWorstOutcomeCountsWithItsReasons) {
    ask("publish", 1350, "{}");
    log("PushPull DENY:TreeMerge@221: Component not authorized to update this node value - name");
    log(" comp_get : something else");
    traffic_.finish();
    EXPECT_EQ(handled_[0].outcome, QoCtlOutcome::refused);
    EXPECT_THAT(handled_[0].reasons, ElementsAre("Component not authorized to update this node value - name"));
    ask("publish", 1350, "{");
    log("Published JSON is invalid , published_data = {");
    log("PushPull DENY:TreeMerge@221: x");
    log("Component data publish failed = -1");
    EXPECT_TRUE(traffic_.is_settled());
    traffic_.finish();
    EXPECT_EQ(handled_[1].outcome, QoCtlOutcome::failed);
    EXPECT_EQ(handled_[1].reasons.size(), 3U);
    ask("publish", 1350, "{}");
    log("Send message from pushpull to \"/web\" queue : mq_send: failed:, ERR_CODE : 50007, msg size = 2");
    traffic_.finish();
    EXPECT_EQ(handled_[2].outcome, QoCtlOutcome::undelivered);
}

TEST_F(Traffic, ReasonsAreKeptShortAndFew) {
    ask("publish", 1350, "{}");
    for (int i = 0; i < 100; ++i) log("PushPull DENY:TreeMerge@221: " + std::string(10000, 'x'));
    traffic_.finish();
    EXPECT_EQ(handled_[0].reasons.size() + handled_[0].more_reasons, 100U);
    EXPECT_EQ(handled_[0].reasons.size(), 8U);
    EXPECT_EQ(handled_[0].reasons[0].size(), 300U);
}

TEST_F(Traffic, LinesOfOthersAndOutcomesOfNoRequestSayNothing) {
    log("Component data publish failed = -1");
    log("mq_send success: msg size = 2, queue list = \"/display;\"");
    traffic_.add({QoCtlLogLine::Origin::other, "", received(request_text("get", 1, "/a"))});
    traffic_.finish();
    EXPECT_THAT(handled_, IsEmpty());
}

TEST_F(Traffic, ARequestOfSeveralLinesIsPutTogether) {
    log_in_lines(received(request_text("get", 1350, "/a")));
    log_in_lines("mq_send success: msg size = 2, queue list = \"/display;\"");
    traffic_.finish();
    ASSERT_EQ(handled_.size(), 1U);
    EXPECT_TRUE(handled_[0].request.whole);
    EXPECT_EQ(handled_[0].request.buffer, "/a");
    EXPECT_THAT(handled_[0].told, ElementsAre("/display"));
}

TEST_F(Traffic, WhatFollowsACutRequestDoesNotMakeItLongerThanItWas) {
    const std::string text = request_text("get", 1350, "/a");
    const std::string line = "PushPullData : mq_receive: retval: " + std::to_string(text.size() + 1) + " , msg: ";
    log_in_lines(line + text.substr(0, 30));
    for (int i = 0; i < 1000; ++i) log_in_lines(std::string(1000, 'x'));
    traffic_.finish();
    ASSERT_EQ(handled_.size(), 1U);
    EXPECT_FALSE(handled_[0].request.whole);
    EXPECT_EQ(handled_[0].request.kind, "get");
}

TEST_F(Traffic, HostileNumbersAreNoRequests) {
    for (const char* text : {"PushPullData : mq_receive: retval: ", "PushPullData : mq_receive: retval: x , msg: {}",
                             "PushPullData : mq_receive: retval: 99999999999999999999 , msg: {}",
                             "PushPullData : mq_receive: retval: 7, msg: {}"})
        log(text);
    traffic_.finish();
    EXPECT_THAT(handled_, IsEmpty());
    log("PushPullData : mq_receive: retval: -5 , msg: ");
    log_in_lines("more");
    traffic_.finish();
    EXPECT_EQ(handled_.size(), 1U);
}

TEST_F(Traffic, RegistrationsComeAndGo) {
    log("QoPushPullQueueMonitor: Adding queue /a (component ID 9) (component ID 1350)");
    EXPECT_THAT(traffic_.queues(), ElementsAre(Pair(kDisplay, "/a (component ID 9)")));
    EXPECT_EQ(traffic_.component_of("/a (component ID 9)"), 1350);
    EXPECT_EQ(traffic_.component_of("/b"), QO_CMPID_RESERVED);
    ask("unregister", 1350, "");
    traffic_.finish();
    EXPECT_THAT(traffic_.queues(), IsEmpty());
    log("QoPushPullQueueMonitor: Adding queue /b");
    log("QoPushPullQueueMonitor: Adding queue /b (component ID x)");
    EXPECT_THAT(traffic_.queues(), IsEmpty());
}

TEST_F(Traffic, SubscriptionsComeAndGo) {
    ask("subscribe", 1350, "/system;/usb/x;/usb;/usbfoo");
    for (const char* pointer : {"/system", "/usb/x", "/usb", "/usbfoo"})
        log("comp_subscribe : Subscription Passed for \"" + std::string(pointer) + "\", comp_id = 1350");
    EXPECT_EQ(traffic_.subscriptions().at(kDisplay).size(), 4U);
    ask("unsubscribe", 1350, "/usb;;/system");
    traffic_.finish();
    EXPECT_THAT(traffic_.subscriptions().at(kDisplay), ElementsAre(Pair("/system", false), Pair("/usbfoo", false)));
    ask("unsubscribe", 1350, "/");
    log("Comp unsubscription failed= -1");
    traffic_.finish();
    EXPECT_EQ(traffic_.subscriptions().at(kDisplay).size(), 2U);
}

TEST_F(Traffic, AResetOrANewStartForgetsAll) {
    for (const char* line : {"init", "exit"}) {
        log("QoPushPullQueueMonitor: Adding queue /a (component ID 1350)");
        log("comp_subscribe : Subscription Passed for \"/x\", comp_id = 1350");
        ask(line, 1350, "false");
        traffic_.finish();
        EXPECT_EQ(traffic_.queues().size(), 1U);
        ask(line, 1350, "true");
        traffic_.finish();
        EXPECT_THAT(traffic_.queues(), IsEmpty());
        EXPECT_THAT(traffic_.subscriptions(), IsEmpty());
    }
    log("QoPushPullQueueMonitor: Adding queue /a (component ID 1350)");
    log("PushPullData Start");
    EXPECT_THAT(traffic_.queues(), IsEmpty());
}

TEST_F(Traffic, TheGatewayThatIsRestartedIsForgotten) {
    log("QoPushPullQueueMonitor: Adding queue /dm (component ID 1302)");
    log("*********UNREGISTERING:RGW COMP_IDs***********");
    EXPECT_THAT(traffic_.queues(), IsEmpty());
}

}  // namespace
