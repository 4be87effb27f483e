// Publishes and who is told of them, through the real service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <chrono>
#include <thread>

#include "component.h"
#include "service_process.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr int32_t kPublisher = QO_CMPID_TESTPUBLISHER;
constexpr int32_t kSubscriber = QO_CMPID_DEMO;
constexpr int32_t kThird = QO_CMPID_SCHEDULER;
constexpr char kVersion9[] = R"({"version":{"schemaVersion":"9"}})";

class Notification : public RunningService {
protected:
    void SetUp() override {
        RunningService::SetUp();
        if (IsSkipped()) return;
        publisher_.emplace(service(), kPublisher);
        subscriber_.emplace(service(), kSubscriber);
    }
    void TearDown() override {
        publisher_.reset();
        subscriber_.reset();
        RunningService::TearDown();
    }

    void publish(const std::string& json) { EXPECT_EQ(publisher_->api().publish(publisher_->id(), json), 0); }
    void subscribe(const std::string& pointers, bool changes = false) {
        EXPECT_EQ(subscriber_->api().subscribe(subscriber_->id(), pointers, changes), 0);
        subscriber_->fence();
    }

    std::optional<Component> publisher_;
    std::optional<Component> subscriber_;
};

TEST_F(Notification, IsThePublishedTextByteForByte) {
    subscribe("/version");
    const std::string text = "{ \"version\" :\n\t{\"schemaVersion\": \"\\u0041 \xc3\xa9 \\/\"  ,\"n\":1.50e+01 } }  ";
    publish(text);
    EXPECT_EQ(subscriber_->next_message(), text);
}

TEST_F(Notification, ReachesEverySubscriberOnThePathOnceAndNobodyBeside) {
    Component beside(service(), kThird);
    ASSERT_EQ(beside.api().subscribe(beside.id(), "/system/status;/usb", false), 0);
    subscribe("/;/system;/system/config");
    const std::string text = R"({"system":{"config":{"name":"x"}}})";
    publish(text);
    EXPECT_EQ(subscriber_->next_message(), text);
    EXPECT_TRUE(subscriber_->hears_nothing());
    EXPECT_TRUE(beside.hears_nothing());
}

TEST_F(Notification, OfAPublishBelowASubscriptionAndNotOfOneAboveIt) {
    subscribe("/system/config");
    publish(R"({"system":{}})");
    EXPECT_TRUE(subscriber_->hears_nothing());
    publish(R"({"system":{"config":{"name":"y"}}})");
    EXPECT_EQ(subscriber_->next_message(), R"({"system":{"config":{"name":"y"}}})");
}

TEST_F(Notification, NeverGoesToThePublisherItself) {
    subscribe("/version");
    ASSERT_EQ(publisher_->api().subscribe(publisher_->id(), "/version", false), 0);
    publish(kVersion9);
    EXPECT_EQ(subscriber_->next_message(), kVersion9);
    EXPECT_TRUE(publisher_->hears_nothing());
}

TEST_F(Notification, APublishWhoseOnlySubscriberIsThePublisherSendsNothing) {
    ASSERT_EQ(publisher_->api().subscribe(publisher_->id(), "/version", false), 0);
    publish(kVersion9);
    EXPECT_TRUE(publisher_->hears_nothing());
    EXPECT_TRUE(events().wait_for_log(LOG_DEBUG, "mq_send success: msg size = 33, queue list = \"\""));
}

TEST_F(Notification, ASubscriberOfTheWholeTreeHearsEveryPublishEvenOfAnEmptyObject) {
    subscribe("/");
    publish("{}");
    EXPECT_EQ(subscriber_->next_message(), "{}");
    publish(R"({"unknown":{"x":1}})");
    EXPECT_EQ(subscriber_->next_message(), R"({"unknown":{"x":1}})");
}

TEST_F(Notification, IsSentForAPublishThatChangedNothing) {
    subscribe("/version");
    publish(R"({"version":{"schemaVersion":"0.0"}})");
    EXPECT_EQ(subscriber_->next_message(), R"({"version":{"schemaVersion":"0.0"}})");
}

TEST_F(Notification, NotifyOnChangeOnlyHearsNothingOfAPublishThatLeftTheTreeUnchanged) {
    subscribe("/version", true);
    publish(R"({"version":{"schemaVersion":"0.0"}})");
    EXPECT_TRUE(subscriber_->hears_nothing());
    publish(kVersion9);
    EXPECT_EQ(subscriber_->next_message(), kVersion9);
    publish(kVersion9);
    EXPECT_TRUE(subscriber_->hears_nothing());
}

TEST_F(Notification, NotifyOnChangeOnlyHearsOfANewMemberAndOfANewArrayElement) {
    subscribe("/version;/devices", true);
    publish(R"({"version":{"added":1}})");
    EXPECT_EQ(subscriber_->next_message(), R"({"version":{"added":1}})");
    publish(R"({"devices":[{"id":2,"device":{"deviceName":"hall"}}]})");
    EXPECT_EQ(subscriber_->next_message(), R"({"devices":[{"id":2,"device":{"deviceName":"hall"}}]})");
}

TEST_F(Notification, OneOfEachModeOnTheSameNode) {
    Component changes_only(service(), kThird);
    ASSERT_EQ(changes_only.api().subscribe(changes_only.id(), "/version", true), 0);
    changes_only.fence();
    subscribe("/version");
    publish(R"({"version":{"schemaVersion":"0.0"}})");
    EXPECT_EQ(subscriber_->next_message(), R"({"version":{"schemaVersion":"0.0"}})");
    EXPECT_TRUE(changes_only.hears_nothing());
    publish(kVersion9);
    EXPECT_EQ(subscriber_->next_message(), kVersion9);
    EXPECT_EQ(changes_only.next_message(), kVersion9);
}

TEST_F(Notification, SubscribingTheListABWithAInvalidStillSubscribesBAndReturnsItsResult) {
    events().clear_log();
    subscribe("/nowhere;/version");
    EXPECT_TRUE(events().wait_for_log(LOG_WARNING,
                                      "comp_subscribe : Subscription Failed for \"/nowhere\", comp_id = 1073741852, "
                                      "ret_val = -1, ERR_CODE = 50005"));
    EXPECT_TRUE(
        events().wait_for_log(LOG_INFO, "comp_subscribe : Subscription Passed for \"/version\", comp_id = 1073741852"));
    EXPECT_THAT(events().log(), Not(Contains(QoLogLine{LOG_WARNING, "Component subscription failed = -1"})));
    publish(kVersion9);
    EXPECT_EQ(subscriber_->next_message(), kVersion9);
}

TEST_F(Notification, TheFirstEmptyPieceEndsAListOfPointers) {
    subscribe("/version;;/usb");
    publish(R"({"usb":{"state":"x"}})");
    publish(kVersion9);
    EXPECT_EQ(subscriber_->next_message(), kVersion9);
}

TEST_F(Notification, UnsubscribingAlsoRemovesTheSubscriptionsBelow) {
    subscribe("/system/config;/system/status;/version");
    ASSERT_EQ(subscriber_->api().un_subscribe(subscriber_->id(), "/system"), 0);
    subscriber_->fence();
    publish(R"({"system":{"config":{"name":"x"}}})");
    publish(kVersion9);
    EXPECT_EQ(subscriber_->next_message(), kVersion9);
}

TEST_F(Notification, UnsubscribingWhereNothingIsFailsWithAWarning) {
    ASSERT_EQ(subscriber_->api().un_subscribe(subscriber_->id(), "/nowhere"), 0);
    EXPECT_TRUE(events().wait_for_log(LOG_WARNING,
                                      "comp_unsubscribe : Unsubscription Failed for \"/nowhere\", comp_id = "
                                      "1073741852, ret_val = -1, ERR_CODE = 50006"));
    EXPECT_TRUE(events().wait_for_log(LOG_WARNING, "Comp unsubscription failed= -1"));
}

TEST_F(Notification, UnregisteringRemovesEverySubscription) {
    subscribe("/;/version;/system/config");
    ASSERT_EQ(subscriber_->api().comp_unregister(subscriber_->id()), 0);
    publish(kVersion9);
    publisher_->fence();
    EXPECT_EQ(subscriber_->waiting_messages(), 0);
    ASSERT_EQ(subscriber_->api().comp_register(subscriber_->id(), subscriber_->queue_name(), nullptr), 0);
    publish(kVersion9);
    EXPECT_TRUE(subscriber_->hears_nothing());
}

TEST_F(Notification, AFullQueueLosesTheMessageForItsOwnerOnly) {
    Component deaf(service(), kThird, {1, 512});
    ASSERT_EQ(deaf.api().subscribe(deaf.id(), "/version", false), 0);
    ASSERT_TRUE(service().wait_until_idle());
    subscribe("/version");
    publish(kVersion9);
    publish(kVersion9);
    EXPECT_EQ(subscriber_->next_message(), kVersion9);
    EXPECT_EQ(subscriber_->next_message(), kVersion9);
    EXPECT_TRUE(events().wait_for_log(LOG_ERR,
                                      "Send message from pushpull to \"/component1352\" queue : mq_send: failed:, "
                                      "ERR_CODE : 50003, msg size = 33"));
    EXPECT_EQ(deaf.waiting_messages(), 1);
    EXPECT_THAT(events().commands(), testing::IsEmpty());
}

TEST_F(Notification, ATextTooLargeForAQueueIsLostForItsOwnerOnly) {
    Component small(service(), kThird, {4, 256});
    ASSERT_EQ(small.api().subscribe(small.id(), "/version", false), 0);
    ASSERT_TRUE(service().wait_until_idle());
    subscribe("/version");
    const std::string text = R"({"version":{"schemaVersion":")" + std::string(300, '1') + R"("}})";
    publish(text);
    EXPECT_EQ(subscriber_->next_message(), text);
    EXPECT_EQ(small.waiting_messages(), 0);
}

// ---- what a publish does to the tree ----

using Publish = Notification;

TEST_F(Publish, OfInvalidJsonIsRefused) {
    subscribe("/");
    publish(R"({"version":)");
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Published JSON is invalid , published_data = {\"version\":"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component data publish failed = -1"));
    EXPECT_TRUE(subscriber_->hears_nothing());
}

TEST_F(Publish, OfAnArrayElementWithoutIdFailsAndTellsNobody) {
    subscribe("/devices");
    publish(R"({"devices":[{"device":{"deviceName":"x"}}]})");
    EXPECT_TRUE(events().wait_for_store_log(LOG_ERR, "id indicating array index not found in source array element"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR,
                                      "UpdateNode Failed : Published String : "
                                      "{\"devices\":[{\"device\":{\"deviceName\":\"x\"}}]} , ERR_CODE = 50007"));
    EXPECT_TRUE(subscriber_->hears_nothing());
}

TEST_F(Publish, OfAnIdEqualToMaxItemsIsAcceptedAndOfTheNextRefused) {
    publish(R"({"devices":[{"id":16,"device":{"deviceName":"last"}}]})");
    EXPECT_EQ(subscriber_->get("/devices/size"), "/devices/size:17");
    publish(R"({"devices":[{"id":17,"device":{"deviceName":"beyond"}}]})");
    EXPECT_TRUE(events().wait_for_store_log(LOG_ERR, "Array id 17 exceeded max items 16. Tree NOT updated!"));
    EXPECT_EQ(subscriber_->get("/devices/size"), "/devices/size:17");
}

TEST_F(Publish, OfARemoteClientIntoALocalNodeChangesNothingAndFailsNot) {
    Component gateway(service(), QO_CMPID_REMOTE_GATEWAY_DM);
    events().clear_log();
    ASSERT_EQ(gateway.api().publish(gateway.id(), R"({"system":{"status":{"numberOfDevices":7}}})"), 0);
    EXPECT_THAT(gateway.get("/system/status/numberOfDevices"), HasSubstr(": 1"));
    EXPECT_TRUE(
        events().wait_for_store_log(LOG_INFO, "Component not authorized to update this node value - numberOfDevices"));
    EXPECT_THAT(events().log(), Not(Contains(QoLogLine{LOG_ERR, "Component data publish failed = -1"})));
}

TEST_F(Publish, OfALocalClientIntoALocalNodeChangesIt) {
    Component client(service(), QO_CMPID_WEBSERVER_GATEWAY_C0);
    ASSERT_EQ(client.api().publish(client.id(), R"({"system":{"status":{"numberOfDevices":7}}})"), 0);
    EXPECT_THAT(client.get("/system/status/numberOfDevices"), HasSubstr(": 7"));
}

TEST_F(Publish, OfAClientNeverChangesMetadata) {
    Component gateway(service(), QO_CMPID_REMOTE_GATEWAY_DM);
    ASSERT_EQ(gateway.api().publish(gateway.id(), R"({"rgw":{"writeAccess":"internal","doNotPersist":true}})"), 0);
    const std::string rgw = gateway.get("/rgw");
    EXPECT_THAT(rgw.substr(rgw.rfind("writeAccess")), HasSubstr("openAll"));
}

// ---- the remote gateway's soft watchdog ----

class SoftWatchdog : public Notification {
protected:
    static constexpr char kRestart[] = "systemctl restart remote_gateway.service";

    // Fills the gateway's queue of one message, and publishes once more.
    void publish_into_full_queue(Component& gateway) {
        while (gateway.waiting_messages() < 1) {
            publish(kVersion9);
            ASSERT_TRUE(service().wait_until_idle());
        }
        publish(kVersion9);
        ASSERT_TRUE(service().wait_until_idle());
    }
    void register_again(Component& gateway) {
        ASSERT_EQ(gateway.api().comp_register(gateway.id(), gateway.queue_name(), nullptr), 0);
        ASSERT_EQ(gateway.api().subscribe(gateway.id(), "/version", false), 0);
        ASSERT_TRUE(service().wait_until_idle());
    }
};

TEST_F(SoftWatchdog, AFullQueueOf1302RestartsTheGatewayOnceUntilASendSucceeds) {
    Component gateway(service(), QO_CMPID_REMOTE_GATEWAY_DM, {1, 512});
    register_again(gateway);
    publish_into_full_queue(gateway);
    ASSERT_TRUE(events().wait_for_command(kRestart));
    EXPECT_TRUE(
        events().wait_for_log(LOG_CRIT, "*********Soft watchdog - KILL and Restart Remotegateway process***********"));
    EXPECT_TRUE(events().wait_for_log(LOG_CRIT, "*********UNREGISTERING:RGW COMP_IDs***********"));

    register_again(gateway);
    publish_into_full_queue(gateway);  // fails again, and restarts nothing
    EXPECT_THAT(events().commands(), ElementsAre(kRestart));

    EXPECT_EQ(gateway.next_message(), kVersion9);
    publish(kVersion9);
    EXPECT_TRUE(events().wait_for_log(LOG_INFO, "*********RGW recovered after soft watchdog***********"));

    publish_into_full_queue(gateway);
    ASSERT_TRUE(events().wait_for_commands(2));
    EXPECT_THAT(events().commands(), ElementsAre(kRestart, kRestart));
}

// A gateway that ends or starts slowly, or waits for an answer of the service meanwhile.
TEST_F(SoftWatchdog, ARestartThatTakesItsTimeHoldsNoRequest) {
    events().stall_stand_in("systemctl");
    Component gateway(service(), QO_CMPID_REMOTE_GATEWAY_DM, {1, 512});
    register_again(gateway);
    publish_into_full_queue(gateway);
    ASSERT_TRUE(events().wait_for_command(kRestart));
    EXPECT_THAT(subscriber_->get("/version"), HasSubstr("schemaVersion"));
    EXPECT_EQ(service().children().size(), 1U) << "it has not ended yet";
}

TEST_F(SoftWatchdog, ARestartThatHasEndedIsReaped) {
    Component gateway(service(), QO_CMPID_REMOTE_GATEWAY_DM, {1, 512});
    register_again(gateway);
    publish_into_full_queue(gateway);
    ASSERT_TRUE(events().wait_for_command(kRestart));
    const auto deadline = std::chrono::steady_clock::now() + kQoPatience;
    while (!service().children().empty() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_THAT(service().children(), testing::IsEmpty());
}

TEST_F(SoftWatchdog, UnregistersAllThreeGatewayComponents) {
    Component gateway(service(), QO_CMPID_REMOTE_GATEWAY_DM, {1, 512});
    Component manager(service(), QO_CMPID_REMOTE_GATEWAY_CM, {4, 512});
    Component remote(service(), QO_CMPID_REMOTE_GATEWAY_RM, {4, 512});
    register_again(gateway);
    publish_into_full_queue(gateway);
    ASSERT_TRUE(events().wait_for_command(kRestart));
    for (Component* component : {&gateway, &manager, &remote}) {
        ASSERT_EQ(component->api().get(component->id(), "/version", "", false), 0);
        EXPECT_TRUE(events().wait_for_log(LOG_ERR, "comp_get: Component not Registered: ncomp_id=" +
                                                       std::to_string(component->id()) + ", get_data = /version"));
    }
}

TEST_F(SoftWatchdog, AFullQueueOf1301RestartsTheGatewayToo) {
    Component manager(service(), QO_CMPID_REMOTE_GATEWAY_CM, {1, 512});
    register_again(manager);
    publish_into_full_queue(manager);
    EXPECT_TRUE(events().wait_for_command(kRestart));
}

TEST_F(SoftWatchdog, AFullQueueOf1303RestartsNothing) {
    Component remote(service(), QO_CMPID_REMOTE_GATEWAY_RM, {1, 512});
    register_again(remote);
    publish_into_full_queue(remote);
    EXPECT_TRUE(events().wait_for_log(LOG_ERR,
                                      "Send message from pushpull to \"/component1303\" queue : mq_send: failed:, "
                                      "ERR_CODE : 50003, msg size = 33"));
    EXPECT_THAT(events().commands(), testing::IsEmpty());
}

}  // namespace
