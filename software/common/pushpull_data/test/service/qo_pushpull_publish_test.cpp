// The handlers of "register", "subscribe" and "publish", who is told, and the gateway's watchdog.
#include "qo_pushpull_constants.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_send.h"
#include "qo_service_fixture.h"
#include "qo_statistics_rows.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

std::vector<timespec> deadlines;       // of every send
double clock_step = 0;                 // seconds that pass between two looks at the clock
double clock_now = 0;                  // monotonic seconds
thread_local int looks_at_queues = 0;  // at how many messages they hold
bool give_null_child = false;          // lists of JSON children hold a null

double look_at_clock() { return clock_now += clock_step; }

}  // namespace

// ---- replacements ----

extern "C" {
int __real_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority, const timespec* deadline);
int __wrap_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority, const timespec* deadline);
int __real_mq_getattr(mqd_t descriptor, mq_attr* attributes);
int __wrap_mq_getattr(mqd_t descriptor, mq_attr* attributes);
JSONNODE_ITERATOR __real_json_children(JSONNODE* node, size_t* count);
JSONNODE_ITERATOR __wrap_json_children(JSONNODE* node, size_t* count);

// A full queue answers at once instead of after a second.
int __wrap_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority,
                        const timespec* deadline) {
    deadlines.push_back(*deadline);
    const timespec long_ago{};
    return __real_mq_timedsend(descriptor, text, length, priority, &long_ago);
}

int __wrap_mq_getattr(mqd_t descriptor, mq_attr* attributes) {
    ++looks_at_queues;
    return __real_mq_getattr(descriptor, attributes);
}

JSONNODE* null_children[1] = {nullptr};
JSONNODE_ITERATOR __wrap_json_children(JSONNODE* node, size_t* count) {
    if (!give_null_child) return __real_json_children(node, count);
    *count = 1;
    return null_children;
}
}

namespace {

class Service : public QoServiceFixture {
protected:
    explicit Service(bool statistics = false) : QoServiceFixture(statistics, look_at_clock) {
        deadlines.clear();
        clock_step = 0;
        give_null_child = false;
    }
    std::vector<QoLogLine> logged() const { return log_.lines_above_debug(); }
};

using Register = Service;
using Subscribe = Service;
using Publish = Service;
using Notify = Service;
using SubscriberList = Service;
using Checker = Service;
using SoftWatchdog = Service;

constexpr char kNewName[] = R"({"system":{"config":{"name":"new"}}})";
constexpr char kSameName[] = R"({"system":{"config":{"name":"x"}}})";

}  // namespace

// ---- component classes ----

struct ClassBoundary {
    int comp_id;
    eQO_COMPONENT_CLASS_ component_class;
};

class ComponentClass : public testing::TestWithParam<ClassBoundary> {};

INSTANTIATE_TEST_SUITE_P(
    Boundaries, ComponentClass,
    testing::Values(ClassBoundary{1100, QO_INTERNAL}, ClassBoundary{1200, QO_INTERNAL},
                    ClassBoundary{1201, QO_LOCAL_CLIENT}, ClassBoundary{1225, QO_LOCAL_CLIENT},
                    ClassBoundary{1250, QO_LOCAL_CLIENT}, ClassBoundary{1251, QO_INTERNAL},
                    ClassBoundary{1301, QO_INTERNAL}, ClassBoundary{1302, QO_REMOTE_CLIENT},
                    ClassBoundary{1303, QO_REMOTE_CLIENT}, ClassBoundary{1304, QO_INTERNAL},
                    ClassBoundary{0x40000021, QO_INTERNAL}, ClassBoundary{0x40000022, QO_LOCAL_CLIENT},
                    ClassBoundary{0x40000053, QO_LOCAL_CLIENT}, ClassBoundary{0x40000054, QO_INTERNAL},
                    ClassBoundary{0x40000055, QO_INTERNAL}, ClassBoundary{0x40000086, QO_INTERNAL},
                    ClassBoundary{0, QO_INTERNAL}, ClassBoundary{-1, QO_INTERNAL}),
    [](const auto& boundary) {
        return boundary.param.comp_id < 0 ? std::string("negative") : std::to_string(boundary.param.comp_id);
    });

TEST_P(ComponentClass, FollowsTheIdentifier) {
    PushPullData service(false);
    EXPECT_EQ(service.get_comp_class(static_cast<eQO_CMP_IDs_>(GetParam().comp_id)), GetParam().component_class);
}

// ---- register and unregister ----

TEST_F(Register, FailureIsLoggedWithTheQueueNameAndTheResult) {
    EXPECT_EQ(service_->comp_register(QO_CMPID_DEMO, "no slash", nullptr), QO_ERR_QUEUE_OPEN);
    EXPECT_TRUE(log_.contains(LOG_ERR,
                              "comp_register fail: ncomp_id=1073741852 , pqueue_name = no slash , ret_val = "
                              "50001"));
}

TEST_F(Register, ServicesOwnQueueIsRefusedBecauseAnswersWouldComeBackAsRequests) {
    EXPECT_EQ(service_->comp_register(QO_CMPID_DEMO, "/pushpull", nullptr), QO_ERR_QUEUE_OPEN);
    EXPECT_THAT(logged(), ElementsAre(QoLogLine{LOG_ERR,
                                                "comp_register fail: ncomp_id=1073741852 , pqueue_name = "
                                                "/pushpull , ret_val = 50001"}));
    EXPECT_EQ(service_->comp_save_debug(QO_CMPID_DEMO), -1) << "nobody was registered";
}

TEST_F(Register, ServicesOwnQueueIsRefusedAlsoBehindANulThatTheKernelDoesNotSee) {
    EXPECT_EQ(service_->comp_register(QO_CMPID_DEMO, std::string("/pushpull\0x", 11), nullptr), QO_ERR_QUEUE_OPEN);
    EXPECT_EQ(service_->comp_register(QO_CMPID_DEMO, std::string("/pushpull\0", 10), nullptr), QO_ERR_QUEUE_OPEN);
    EXPECT_EQ(service_->comp_save_debug(QO_CMPID_DEMO), -1) << "nobody was registered";
}

TEST_F(Register, UnregisteringAnUnregisteredComponentSucceedsWithoutAMessage) {
    EXPECT_EQ(service_->comp_unregister(QO_CMPID_DEMO), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Register, UnregisteringDropsAllSubscriptionsAnywhereInTheTree) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    display.subscribe("/");
    display.subscribe("/system/config");
    EXPECT_EQ(service_->comp_unregister(display.id), 0);
    display.enter();
    EXPECT_EQ(service_->comp_publish(writer.id, kNewName), 0);
    EXPECT_THAT(display.texts(), IsEmpty());
}

TEST_F(Register, UnregisteringWithoutASubscriptionTreeStillForgetsTheComponent) {
    PushPullData not_started(false);
    QoTestComponent display(not_started, QO_CMPID_DEMO, "/display");
    log_.clear();
    EXPECT_EQ(not_started.comp_unregister(display.id), 0);
    EXPECT_THAT(logged(),
                Contains(QoLogLine{LOG_ERR, "comp_unregister : RemoveSubscriber Failed ncomp_id=1073741852"}));
    EXPECT_EQ(not_started.comp_save_debug(display.id), -1) << "it is not registered any more";
}

// ---- subscribe and unsubscribe ----

TEST_F(Subscribe, ListWithAnInvalidFirstPointerSubscribesTheSecondAndReturnsItsResult) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    log_.clear();
    EXPECT_EQ(service_->comp_subscribe(display.id, "a;/system/config", false), 0);
    EXPECT_THAT(logged(), Contains(QoLogLine{LOG_WARNING,
                                             "comp_subscribe : Subscription Failed for \"a\", comp_id = 1073741852, "
                                             "ret_val = -1, ERR_CODE = 50005"}));
    EXPECT_THAT(logged(), Contains(QoLogLine{LOG_INFO,
                                             "comp_subscribe : Subscription Passed for \"/system/config\", "
                                             "comp_id = 1073741852"}));
    EXPECT_EQ(service_->comp_publish(writer.id, kNewName), 0);
    EXPECT_THAT(display.texts(), ElementsAre(kNewName));
}

TEST_F(Subscribe, ListWithAnInvalidLastPointerReturnsItsFailure) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    EXPECT_EQ(service_->comp_subscribe(display.id, "/system;b", false), -1);
}

TEST_F(Subscribe, ListEndsAtItsFirstEmptyPiece) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    EXPECT_EQ(service_->comp_subscribe(display.id, "/version;;/system/config", false), 0);
    EXPECT_EQ(service_->comp_publish(writer.id, kNewName), 0);
    EXPECT_THAT(display.texts(), IsEmpty());
    EXPECT_EQ(service_->comp_publish(writer.id, R"({"version":{"schemaVersion":"2"}})"), 0);
    EXPECT_THAT(display.texts(), ElementsAre(R"({"version":{"schemaVersion":"2"}})"));
}

TEST_F(Subscribe, WalkThatTakesTooLongFailsAtThePointerItHasReached) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    clock_step = 2;
    log_.clear();
    EXPECT_EQ(service_->comp_subscribe(display.id, "/version;/logs;/system;/devices", false), -1);
    const std::string by = ", comp_id = 1073741852";
    EXPECT_THAT(logged(), ElementsAre(QoLogLine{LOG_INFO, "comp_subscribe : Subscription Passed for \"/version\"" + by},
                                      QoLogLine{LOG_INFO, "comp_subscribe : Subscription Passed for \"/logs\"" + by},
                                      QoLogLine{LOG_WARNING, "comp_subscribe : Subscription Failed for \"/system\"" +
                                                                 by + ", ret_val = -1, ERR_CODE = 50005"}));
    log_.clear();
    EXPECT_EQ(service_->comp_unsubscribe(display.id, "/version;/logs;/version;/logs"), -1);
    EXPECT_THAT(logged(),
                ElementsAre(QoLogLine{LOG_WARNING, "comp_unsubscribe : Unsubscription Failed for \"/version\"" + by +
                                                       ", ret_val = -1, ERR_CODE = 50006"}));
}

TEST_F(Subscribe, EmptyListFails) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    EXPECT_EQ(service_->comp_subscribe(display.id, "", false), -1);
    EXPECT_EQ(service_->comp_subscribe(display.id, ";/system", false), -1);
    EXPECT_EQ(service_->comp_unsubscribe(display.id, ""), -1);
}

TEST_F(Subscribe, UnregisteredComponentIsRefused) {
    EXPECT_EQ(service_->comp_subscribe(QO_CMPID_DEMO, "/system", false), -1);
    EXPECT_EQ(service_->comp_unsubscribe(QO_CMPID_DEMO, "/system"), -1);
    EXPECT_THAT(logged(), ElementsAre(QoLogLine{LOG_ERR,
                                                "Component not Registered, ncomp_id=1073741852 , sub_data = /system, "
                                                "ERR_CODE=50014"},
                                      QoLogLine{LOG_ERR,
                                                "Component not Registered, ncomp_id=1073741852 , unsub_data = /system, "
                                                "ERR_CODE=50014"}));
}

TEST_F(Subscribe, UnsubscribingIsSilentAndGoesOnAfterAFailure) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    display.subscribe("/system/config");
    log_.clear();
    EXPECT_EQ(service_->comp_unsubscribe(display.id, "a;/system/config"), 0);
    EXPECT_THAT(logged(),
                Contains(QoLogLine{LOG_WARNING,
                                   "comp_unsubscribe : Unsubscription Failed for \"a\", comp_id = 1073741852, "
                                   "ret_val = -1, ERR_CODE = 50006"}));
    EXPECT_EQ(service_->comp_publish(writer.id, kNewName), 0);
    EXPECT_THAT(display.texts(), IsEmpty());
    log_.clear();
    EXPECT_EQ(service_->comp_unsubscribe(display.id, "/system/config"), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

// ---- publish ----

TEST_F(Publish, WhoseOnlySubscriberIsThePublisherItselfSendsNothing) {
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    writer.subscribe("/system/config");
    EXPECT_EQ(service_->comp_publish(writer.id, kNewName), 0);
    EXPECT_THAT(writer.texts(), IsEmpty());
    EXPECT_THAT(deadlines, IsEmpty());
}

TEST_F(Publish, SubscribersGetTheTextByteForByte) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    display.subscribe("/system/config");
    const std::string odd = " {\t\"system\" : {\"config\":{ \"name\":\"\\u0041\\u0000\xC3\xA9\" }} ,\"x\":1.0} ";
    EXPECT_EQ(service_->comp_publish(writer.id, odd), 0);
    EXPECT_THAT(display.texts(), ElementsAre(odd));
}

TEST_F(Publish, ThatLeftTheTreeUnchangedIsNotToldToAChangeOnlySubscriber) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    display.subscribe("/system/config", true);
    EXPECT_EQ(service_->comp_publish(writer.id, kSameName), 0);
    EXPECT_THAT(display.texts(), IsEmpty());
    EXPECT_EQ(service_->comp_publish(writer.id, kNewName), 0);
    EXPECT_THAT(display.texts(), ElementsAre(kNewName));
}

TEST_F(Publish, ThatLeftTheTreeUnchangedIsToldToOrdinarySubscribers) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent changes(*service_, QO_CMPID_CLP, "/changes");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    display.subscribe("/system/config");
    changes.subscribe("/system/config", true);
    EXPECT_EQ(service_->comp_publish(writer.id, kSameName), 0);
    EXPECT_THAT(display.texts(), ElementsAre(kSameName));
    EXPECT_THAT(changes.texts(), IsEmpty());
}

TEST_F(Publish, UnregisteredComponentIsRefused) {
    EXPECT_EQ(service_->comp_publish(QO_CMPID_DEMO, "{}"), -1);
    EXPECT_THAT(logged(), ElementsAre(QoLogLine{LOG_ERR,
                                                "Component not Registered, ncomp_id=1073741852 , pub_data = "
                                                "{}, ERR_CODE=50014"}));
}

TEST_F(Publish, InvalidJsonIsRefused) {
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    log_.clear();
    for (const std::string text : {"", "{", "{}x", "[1,]"}) {
        EXPECT_EQ(service_->comp_publish(writer.id, text), -1);
        EXPECT_TRUE(log_.contains(LOG_ERR, "Published JSON is invalid , published_data = " + text));
    }
    EXPECT_EQ(logged().size(), 4U);
}

TEST_F(Publish, ThatTheStoreRefusesIsLoggedWithItsTextAndNobodyIsTold) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    display.subscribe("/");
    const std::string without_id = R"({"devices":[{"temp":1}]})";
    EXPECT_EQ(service_->comp_publish(writer.id, without_id), -1);
    EXPECT_TRUE(log_.contains(LOG_ERR, "UpdateNode Failed : Published String : " + without_id + " , ERR_CODE = 50007"));
    EXPECT_THAT(display.texts(), IsEmpty());
}

TEST_F(Publish, FailedDeliveryIsThePublishersResult) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    display.subscribe("/system/config");
    display.queue.fill();
    log_.clear();
    EXPECT_EQ(service_->comp_publish(writer.id, kNewName), -1);
    EXPECT_TRUE(log_.contains(LOG_ERR, "comp_publish : comp_notify ERROR"));
}

TEST_F(Publish, ScalarTextMergesNothingAndTellsWholeTreeSubscribers) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    display.subscribe("/");
    EXPECT_EQ(service_->comp_publish(writer.id, "5"), 0);
    EXPECT_THAT(display.texts(), ElementsAre("5"));
}

// ---- the object checker ----

TEST_F(Checker, InternalPublishersAreNotChecked) {
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    EXPECT_EQ(service_->comp_publish(writer.id, R"({"nonsense":{"a":1}})"), 0);
}

TEST_F(Checker, ClientsMayOnlyPublishKnownObjects) {
    for (const eQO_CMP_IDs_ client : {QO_CMPID_WEBSERVER_GATEWAY_C0, QO_CMPID_REMOTE_GATEWAY_DM}) {
        QoTestComponent gateway(*service_, client, "/gateway");
        log_.clear();
        EXPECT_EQ(service_->comp_publish(gateway.id, R"({"nonsense":{"a":1}})"), -1);
        EXPECT_THAT(logged(), ElementsAre(QoLogLine{LOG_ERR,
                                                    "UpdateNode Failed: JSON object checker returned unacceptable.  "
                                                    "Node was not published!"}));
    }
}

TEST_F(Checker, CorrectedTextIsMergedAndLoggedButThePublishedTextIsSent) {
    QoTestComponent gateway(*service_, QO_CMPID_REMOTE_GATEWAY_RM, "/gateway");
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    display.subscribe("/system");
    const std::string published = R"({"system":{"time":{"currentTime":"now"},"clock":{"offset":60}}})";
    log_.clear();
    EXPECT_EQ(service_->comp_publish(gateway.id, published), 0);
    EXPECT_TRUE(log_.contains(LOG_INFO,
                              "UpdateNode Warning: JSON object checker returned modified.  New node = "
                              R"({"system":{"clock":{"offset":60}}})"));
    EXPECT_THAT(display.texts(), ElementsAre(published));
    std::string system;
    EXPECT_EQ(service_->get_node("/system/time/currentTime", &system, ""), 0);
    EXPECT_THAT(system, testing::HasSubstr(R"("currentTime": "t")"));
    EXPECT_EQ(service_->get_node("/system/clock/offset", &system, ""), 0);
    EXPECT_THAT(system, testing::HasSubstr(R"("offset": 60)"));
}

TEST_F(Checker, OnlyTheRemoteGatewaysRmIsCheckedStrictly) {
    QoTestComponent gateway(*service_, QO_CMPID_REMOTE_GATEWAY_DM, "/gateway");
    log_.clear();
    EXPECT_EQ(service_->comp_publish(gateway.id, R"({"system":{"time":{"currentTime":"now"}}})"), 0);
    EXPECT_THAT(logged(), Not(Contains(testing::Field(&QoLogLine::text, testing::HasSubstr("returned modified")))));
}

// ---- the subscriber list ----

TEST_F(SubscriberList, TakesBothModesInOrderWithoutThePublisher) {
    const QoJsonNode list = qo_json_parse(
        R"({"cmpID":5,"notifyOnChangeOnly":6,"other":7,"cmpID":8,"notifyOnChangeOnly":8,"notifyOnChangeOnly":9})");
    eQO_CMP_IDs_ comp_ids[QO_MAX_SUBSCRIBERS];
    const auto publisher = static_cast<eQO_CMP_IDs_>(8);
    ASSERT_EQ(service_->parse_and_get_cmpIDs(list.get(), publisher, comp_ids, true), 3);
    EXPECT_EQ(comp_ids[0], 5);
    EXPECT_EQ(comp_ids[1], 6);
    EXPECT_EQ(comp_ids[2], 9);
    EXPECT_EQ(comp_ids[3], QO_CMPID_RESERVED) << "the array is cleared";
    EXPECT_EQ(service_->parse_and_get_cmpIDs(list.get(), publisher, comp_ids, false), 1);
}

TEST_F(SubscriberList, HoldsAtMost128) {
    const QoJsonNode list(json_new(JSON_NODE));
    for (int number = 1; number <= 130; ++number) json_push_back(list.get(), json_new_i("cmpID", number));
    eQO_CMP_IDs_ comp_ids[QO_MAX_SUBSCRIBERS];
    EXPECT_EQ(service_->parse_and_get_cmpIDs(list.get(), QO_CMPID_DEMO, comp_ids, true), 128);
    EXPECT_EQ(comp_ids[127], 128);
    const QoLogLine dropped{LOG_DEBUG, "cmpID array reached Max, no_ofSubscribers=128"};
    EXPECT_THAT(log_.lines(), ElementsAre(dropped, dropped));
}

TEST_F(SubscriberList, NullChildEndsTheWalk) {
    eQO_CMP_IDs_ comp_ids[QO_MAX_SUBSCRIBERS];
    give_null_child = true;
    EXPECT_EQ(service_->parse_and_get_cmpIDs(nullptr, QO_CMPID_DEMO, comp_ids, true), 0);
    give_null_child = false;
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "Invalid JSON Node"}));
}

// ---- delivery ----

double seconds_of(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return seconds_of(time);
}

TEST_F(Notify, WaitsAtMostASecondForAFullQueue) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    const double before = now();
    EXPECT_EQ(service_->comp_notify(1, &display.id, "text"), 0);
    const double after = now();
    ASSERT_EQ(deadlines.size(), 1U);
    constexpr double kRounding = 1e-6;
    EXPECT_GE(seconds_of(deadlines[0]), before + 1 - kRounding);
    EXPECT_LE(seconds_of(deadlines[0]), after + 1 + kRounding);
    EXPECT_THAT(display.texts(), ElementsAre("text"));
}

TEST_F(Notify, SuccessNamesTheQueuesThatWereReached) {
    QoTestComponent a(*service_, QO_CMPID_DEMO, "/a");
    QoTestComponent b(*service_, QO_CMPID_ALERTS, "/b");
    log_.clear();
    const eQO_CMP_IDs_ comp_ids[] = {a.id, b.id};
    EXPECT_EQ(service_->comp_notify(2, comp_ids, "four"), 0);
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_DEBUG, "mq_send success: msg size = 4, queue list = \"/a;/b;\""}));
}

TEST_F(Notify, NobodyToTellIsASuccess) {
    EXPECT_EQ(service_->comp_notify(0, nullptr, "four"), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_DEBUG, "mq_send success: msg size = 4, queue list = \"\""}));
}

TEST_F(Notify, ResultIsThatOfTheLastSend) {
    QoTestComponent full(*service_, QO_CMPID_DEMO, "/full");
    QoTestComponent empty(*service_, QO_CMPID_ALERTS, "/empty");
    full.queue.fill();
    log_.clear();
    const eQO_CMP_IDs_ full_last[] = {empty.id, full.id};
    EXPECT_EQ(service_->comp_notify(2, full_last, "four"), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR,
                                                    "Send message from pushpull to \"/full\" queue : mq_send: failed:, "
                                                    "ERR_CODE : 50003, msg size = 4"}));
    const eQO_CMP_IDs_ empty_last[] = {full.id, empty.id};
    EXPECT_EQ(service_->comp_notify(2, empty_last, "four"), 0);
    EXPECT_THAT(empty.texts(), ElementsAre("four", "four"));
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "mq_send success: msg size = 4, queue list = \"/empty;\""));
}

TEST_F(Notify, UnregisteredComponentFailsLikeASend) {
    const eQO_CMP_IDs_ comp_id = QO_CMPID_DEMO;
    EXPECT_EQ(service_->comp_notify(1, &comp_id, "four"), -1);
    EXPECT_TRUE(log_.contains(LOG_ERR,
                              "Send message from pushpull to \"\" queue : mq_send: failed:, ERR_CODE : 50003, "
                              "msg size = 4"));
}

TEST_F(Notify, DescriptorMinusOneIsLoggedAsNoQueueToSendTo) {
    EXPECT_FALSE(qo_is_queue(-1, "/display"));
    EXPECT_THAT(logged(), ElementsAre(QoLogLine{
                              LOG_ERR, "pushpull : MessageQueue: POST:Invalid Descriptor: ffffffff ,\"/display\" "}));
    log_.clear();
    EXPECT_TRUE(qo_is_queue(0, "")) << "the send fails";
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Notify, TextWithAnEmbeddedNulIsSentWholeWithItsTerminator) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    EXPECT_EQ(service_->comp_notify(1, &display.id, std::string("a\0b", 3)), 0);
    EXPECT_EQ(display.queue.take()->bytes, std::string("a\0b\0", 4));
}

// ---- the soft watchdog ----

TEST_F(SoftWatchdog, FullQueueOfTheGatewayRestartsItOnceUntilASendSucceedsAgain) {
    QoTestComponent gateway(*service_, QO_CMPID_REMOTE_GATEWAY_DM, "/gateway", 2);
    gateway.queue.fill();
    EXPECT_EQ(service_->comp_notify(1, &gateway.id, "1"), -1);
    EXPECT_THAT(shell_.commands(), ElementsAre("systemctl restart remote_gateway.service"));

    gateway.enter();
    EXPECT_EQ(service_->comp_notify(1, &gateway.id, "2"), -1);
    EXPECT_EQ(shell_.commands().size(), 1U) << "not again before a send succeeded";

    gateway.queue.take();
    log_.clear();
    EXPECT_EQ(service_->comp_notify(1, &gateway.id, "3"), 0);
    EXPECT_THAT(logged(), ElementsAre(QoLogLine{LOG_INFO, "*********RGW recovered after soft watchdog***********"}));

    EXPECT_EQ(service_->comp_notify(1, &gateway.id, "4"), -1);
    EXPECT_EQ(shell_.commands().size(), 2U) << "full again after the recovery";
}

TEST_F(SoftWatchdog, RestartThatCannotBeStartedIsLogged) {
    QoTestComponent gateway(*service_, QO_CMPID_REMOTE_GATEWAY_DM, "/gateway", 1);
    gateway.queue.fill();
    shell_.set_result(-1);
    EXPECT_EQ(service_->comp_notify(1, &gateway.id, "1"), -1);
    EXPECT_TRUE(
        log_.contains(LOG_CRIT, "Command systemctl restart remote_gateway.service could not be started (error " +
                                    std::to_string(EAGAIN) + ")"));
}

TEST_F(SoftWatchdog, OnlyASendToTheGatewayItselfEndsItsWait) {
    QoTestComponent gateway(*service_, QO_CMPID_REMOTE_GATEWAY_CM, "/gateway", 1);
    QoTestComponent rm(*service_, QO_CMPID_REMOTE_GATEWAY_RM, "/rm");
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    gateway.queue.fill();
    EXPECT_EQ(service_->comp_notify(1, &gateway.id, "1"), -1);
    rm.enter();
    gateway.enter();
    log_.clear();
    for (const eQO_CMP_IDs_ comp_id : {rm.id, display.id}) EXPECT_EQ(service_->comp_notify(1, &comp_id, "2"), 0);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(service_->comp_notify(1, &gateway.id, "3"), -1);
    EXPECT_EQ(shell_.commands().size(), 1U);
}

TEST_F(SoftWatchdog, UnregistersTheGatewaysComponentsInOrderBetweenItsTwoLines) {
    QoTestComponent cm(*service_, QO_CMPID_REMOTE_GATEWAY_CM, "/cm", 1);
    QoTestComponent dm(*service_, QO_CMPID_REMOTE_GATEWAY_DM, "/dm", 1);
    QoTestComponent rm(*service_, QO_CMPID_REMOTE_GATEWAY_RM, "/rm", 1);
    cm.queue.fill();
    log_.clear();
    EXPECT_EQ(service_->comp_notify(1, &cm.id, "1"), -1);
    const auto status = [](const std::string& queue, int comp_id, int messages) {
        return QoLogLine{LOG_NOTICE, "QoPushPullMonitoredQueue: Monitored queue " + queue + " (component ID " +
                                         std::to_string(comp_id) + "): " + std::to_string(messages) + " / 1 messages"};
    };
    const QoLogLine removing{LOG_INFO, "QoPushPullQueueMonitor: Removing queue"};
    EXPECT_THAT(
        logged(),
        ElementsAre(QoLogLine{LOG_ERR,
                              "Send message from pushpull to \"/cm\" queue : mq_send: failed:, "
                              "ERR_CODE : 50003, msg size = 1"},
                    QoLogLine{LOG_CRIT, "*********Soft watchdog - KILL and Restart Remotegateway process***********"},
                    removing, status("/dm", 1302, 0), removing, status("/cm", 1301, 1), removing,
                    status("/rm", 1303, 0), QoLogLine{LOG_CRIT, "*********UNREGISTERING:RGW COMP_IDs***********"}));
    for (const eQO_CMP_IDs_ comp_id : {cm.id, dm.id, rm.id}) EXPECT_EQ(service_->comp_save_debug(comp_id), -1);
}

TEST_F(SoftWatchdog, GatewayComponentsLaterInTheListFailAsUnregistered) {
    QoTestComponent dm(*service_, QO_CMPID_REMOTE_GATEWAY_DM, "/dm", 1);
    QoTestComponent rm(*service_, QO_CMPID_REMOTE_GATEWAY_RM, "/rm", 1);
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    dm.queue.fill();
    const eQO_CMP_IDs_ comp_ids[] = {dm.id, rm.id, display.id};
    EXPECT_EQ(service_->comp_notify(3, comp_ids, "text"), 0);
    EXPECT_TRUE(log_.contains(LOG_ERR,
                              "Send message from pushpull to \"\" queue : mq_send: failed:, ERR_CODE : 50003, "
                              "msg size = 4"));
    EXPECT_THAT(rm.texts(), IsEmpty());
    EXPECT_THAT(display.texts(), ElementsAre("text"));
}

TEST_F(SoftWatchdog, OtherComponentsOnlyLoseTheMessage) {
    QoTestComponent rm(*service_, QO_CMPID_REMOTE_GATEWAY_RM, "/rm", 1);
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display", 1);
    rm.queue.fill();
    display.queue.fill();
    EXPECT_EQ(service_->comp_notify(1, &rm.id, "1"), -1);
    EXPECT_EQ(service_->comp_notify(1, &display.id, "1"), -1);
    EXPECT_THAT(shell_.commands(), IsEmpty());
}

// ---- statistics ----

namespace {

class Counting : public Service {
protected:
    Counting() : Service(true) {}
    const QoStatisticsRows rows_;
};

}  // namespace

TEST_F(Counting, EverySendCountsOnItsQueueWhetherItSucceedsOrNot) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display", 1);
    looks_at_queues = 0;
    EXPECT_EQ(service_->comp_notify(1, &display.id, "1"), 0);
    EXPECT_EQ(service_->comp_notify(1, &display.id, "2"), -1);
    EXPECT_EQ(looks_at_queues, 2);
    const auto row = rows_.next();
    EXPECT_EQ(row.at("/display(Total)"), "2");
    EXPECT_EQ(row.at("/pushpull(Total)"), "0");
}

TEST_F(Counting, SoftWatchdogCountsThreeUnregistersHoweverManyOfTheGatewaysComponentsWereThere) {
    QoTestComponent cm(*service_, QO_CMPID_REMOTE_GATEWAY_CM, "/cm", 1);
    cm.queue.fill();
    EXPECT_EQ(service_->comp_notify(1, &cm.id, "1"), -1);
    EXPECT_EQ(rows_.next().at("Unregisters"), "3");
    EXPECT_EQ(service_->comp_unregister(cm.id), 0);
    EXPECT_EQ(rows_.next().at("Unregisters"), "0") << "a request to unregister is counted where it is dispatched";
}

TEST_F(Counting, OnlyAPublishThatAsksForASaveCountsForItsPublisher) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    EXPECT_EQ(service_->comp_publish(writer.id, kNewName), 0);
    const auto row = rows_.next();
    EXPECT_EQ(row.at("/writer(Saves)"), "1");
    EXPECT_EQ(row.at("/display(Saves)"), "0");
    EXPECT_EQ(service_->comp_publish(writer.id, "{"), -1);
    EXPECT_EQ(rows_.next().at("/writer(Saves)"), "0");
    EXPECT_EQ(service_->comp_publish(writer.id, R"({"usb":{"state":"mounted"}})"), 0);
    EXPECT_EQ(rows_.next().at("/writer(Saves)"), "0") << "this part of the tree is never saved";
}

TEST_F(Service, NothingIsCountedWithoutStatistics) {
    const QoStatisticsRows rows;
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    looks_at_queues = 0;
    EXPECT_EQ(service_->comp_publish(writer.id, kNewName), 0);
    EXPECT_EQ(service_->comp_notify(1, &writer.id, "1"), 0);
    EXPECT_EQ(looks_at_queues, 0);
    EXPECT_FALSE(rows.are_collected());
}
