// What the service makes of a message: framing, parsing, dispatch, "init" and "exit".
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>

#include "component.h"
#include "service_process.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr int32_t kDemo = QO_CMPID_DEMO;
constexpr int32_t kOther = QO_CMPID_TESTPUBLISHER;

std::string request(const std::string& function, int64_t comp_id, const std::string& buffer,
                    const std::string& more = "") {
    return R"({"function":")" + function + R"(","arg":{"comp_id":)" + std::to_string(comp_id) + R"(,"buffer":")" +
           buffer + "\"" + more + "}}";
}

// ---- framing ----

class Message : public RunningService {};

TEST_F(Message, OfNoLengthCountsAsAReceiveFailureAndCostsAPauseOfOneSecond) {
    Component component(service(), kDemo);
    component.fence();
    const auto before = std::chrono::steady_clock::now();
    ASSERT_TRUE(service().post_bytes(""));
    component.fence();
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1000));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR,
                                      "parseJSON failed in pushpull recv retval= 0, precv_string->length() = 0 , "
                                      "ERR_CODE = 50002"));
}

TEST_F(Message, WithoutItsNulEndsWhereItsBytesEnd) {
    Component component(service(), kDemo);
    const std::string ask = request("get", kDemo, "/version");
    ASSERT_TRUE(service().post("{" + std::string(ask.size() + 1000, 'x')));  // leaves more bytes than the next has
    ASSERT_TRUE(service().post_bytes(ask));
    EXPECT_THAT(component.next_message(), HasSubstr("schemaVersion"));
}

TEST_F(Message, OfTheLargestSizeWithoutANulIsTaken) {
    Component component(service(), kDemo);
    std::string ask = request("get", kDemo, "/version");
    ask += std::string(262144 - ask.size(), ' ');
    ASSERT_TRUE(service().post_bytes(ask));
    EXPECT_THAT(component.next_message(), HasSubstr("schemaVersion"));
}

TEST_F(Message, EndsAtItsFirstNul) {
    Component component(service(), kDemo);
    const std::string ask = request("get", kDemo, "/version");
    ASSERT_TRUE(service().post_bytes(ask + std::string(1, '\0') + "what follows is no JSON"));
    EXPECT_THAT(component.next_message(), HasSubstr("schemaVersion"));
}

TEST_F(Message, ThatIsNoJsonIsLoggedAndDropped) {
    Component component(service(), kDemo);
    ASSERT_TRUE(service().post("{\"function\":"));
    EXPECT_TRUE(events().wait_for_log(LOG_DEBUG, "Invalid JSON Node , {\"function\":"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "parseJSON failed in pushpull recv= -1"));
    EXPECT_TRUE(component.hears_nothing());
}

TEST_F(Message, IsTracedWithItsLength) {
    ASSERT_TRUE(service().post("[]"));
    EXPECT_TRUE(events().wait_for_log(LOG_DEBUG, "PushPullData : mq_receive: retval: 3 , msg: []"));
}

// ---- dispatch ----

class Request : public RunningService {
protected:
    std::vector<QoLogLine> log_above_debug() {
        std::vector<QoLogLine> lines = events().log();
        std::erase_if(lines, [](const QoLogLine& line) { return line.level == LOG_DEBUG; });
        return lines;
    }
};

TEST_F(Request, OfAnUnknownKindIsIgnoredWithoutAMessage) {
    Component component(service(), kDemo);
    component.fence();
    events().clear_log();
    ASSERT_TRUE(service().post(request("Register", kDemo, "/x")));
    ASSERT_TRUE(service().post(request("", kDemo, "/x")));
    ASSERT_TRUE(service().post(R"({"function":17,"arg":[1,2],"que":null})"));
    EXPECT_TRUE(component.hears_nothing());
    EXPECT_THAT(log_above_debug(), testing::IsEmpty());
}

TEST_F(Request, RegisterWithoutQueueAttributesTakesTheQueueThatExists) {
    Component component(service(), kDemo, {4, 4096}, false);
    ASSERT_TRUE(service().post(request("register", kDemo, component.queue_name())));
    EXPECT_THAT(component.get("/version"), HasSubstr("schemaVersion"));
}

TEST_F(Request, RegisterMakesAMissingQueueForUserAndGroupWhateverTheUmask) {
    Component component(service(), kDemo);
    const std::string attributes = R"(},"que":{"flags":0,"maxmsg":3,"msgsize":512,"curmsgs":0)";
    ASSERT_TRUE(service().post(request("register", kOther, "/made_by_the_service", attributes)));
    component.fence();
    struct stat queue {};
    ASSERT_EQ(stat("/dev/mqueue/made_by_the_service", &queue), 0);
    EXPECT_EQ(queue.st_mode & 07777, 0660U);
    EXPECT_TRUE(
        events().wait_for_log(LOG_ERR, "ResourceMgr MessageQueue: mq_open:/made_by_the_service no device found\n"));
    const mqd_t made = mq_open("/made_by_the_service", O_RDONLY);
    mq_attr found{};
    ASSERT_EQ(mq_getattr(made, &found), 0);
    EXPECT_EQ(found.mq_maxmsg, 3);
    EXPECT_EQ(found.mq_msgsize, 512);
    mq_close(made);
}

TEST_F(Request, RegisterWithAQueueThatCannotBeOpenedFailsAndStoresNothing) {
    Component component(service(), kDemo);
    ASSERT_TRUE(service().post(request("register", kOther, "no leading slash")));
    ASSERT_TRUE(service().post(request("get", kOther, "/version")));
    component.fence();
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "ResourceMgr MessageQueue: mq_open: - failed: ERR_CODE : 50001"));
    EXPECT_TRUE(events().wait_for_log(
        LOG_ERR, "comp_register fail: ncomp_id=1073741853 , pqueue_name = no leading slash , ret_val = 50001"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component Registration failed = 50001"));
    EXPECT_TRUE(
        events().wait_for_log(LOG_ERR, "comp_get: Component not Registered: ncomp_id=1073741853, get_data = /version"));
}

TEST_F(Request, RegisterOfTheReservedIdentifierFails) {
    Component component(service(), kDemo);
    ASSERT_TRUE(service().post(request("register", 0, component.queue_name())));
    component.fence();
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Invalid Res_ID [QO_CMPID_RESERVED] = 0"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component Registration failed = -1"));
}

TEST_F(Request, RegisterAgainWithAnotherQueueKeepsTheFirst) {
    Component component(service(), kDemo);
    Component other(service(), kOther);
    ASSERT_TRUE(service().post(request("register", kDemo, other.queue_name())));
    EXPECT_THAT(component.get("/version"), HasSubstr("schemaVersion"));
    EXPECT_TRUE(events().wait_for_log(
        LOG_CRIT, "Register WARNING: Component (1073741852) already registered but with different queue /component" +
                      std::to_string(kOther)));
    EXPECT_TRUE(other.hears_nothing());
}

TEST_F(Request, RegisterOfThe129thComponentFailsAndFitsAfterOneUnregisters) {
    Component component(service(), kDemo);
    for (int32_t id = 2000; id < 2127; ++id)
        ASSERT_TRUE(service().post(request("register", id, component.queue_name())));
    ASSERT_TRUE(service().post(request("register", 3000, component.queue_name())));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Res Mgr Table Full , ERR_CODE:50013"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component Registration failed = 50013"));
    ASSERT_TRUE(service().post(request("unregister", 2000, "")));
    ASSERT_TRUE(service().post(request("register", 3000, component.queue_name())));
    ASSERT_TRUE(service().post(request("get", 3000, "/version")));
    EXPECT_THAT(component.next_message(), HasSubstr("schemaVersion"));
}

TEST_F(Request, WithExplicitFalseFlagsIsAnOrdinaryOne) {
    Component component(service(), kDemo);
    ASSERT_TRUE(
        service().post(request("get", kDemo, "/version;/usb", R"(,"pack_and_send":false,"notifyOnChangeOnly":false)")));
    EXPECT_THAT(component.next_message(), HasSubstr("schemaVersion"));
    EXPECT_THAT(component.next_message(), HasSubstr("mounted"));
}

TEST_F(Request, TakesOverWhatItOmitsFromTheOneBefore) {
    Component component(service(), kDemo);
    EXPECT_THAT(component.get("/version", "once"), StartsWith("sender_id:once;"));
    ASSERT_TRUE(service().post(R"({"function":"get"})"));  // the sender and the pointer, not the sender identifier
    EXPECT_THAT(component.next_message(), testing::AllOf(StartsWith("{"), HasSubstr("schemaVersion")));
    ASSERT_TRUE(service().post(R"({"arg":{"buffer":"/usb"}})"));  // the kind too
    EXPECT_THAT(component.next_message(), HasSubstr("mounted"));
}

// ---- unregistered requesters ----

struct Refusal {
    const char* kind;
    std::vector<QoLogLine> lines;

    // Part of the name that CTest shows.
    friend void PrintTo(const Refusal& refusal, std::ostream* stream) { *stream << refusal.kind; }
};

class UnregisteredRequester : public RunningService, public testing::WithParamInterface<Refusal> {};

TEST_P(UnregisteredRequester, IsRefused) {
    Component component(service(), kDemo);
    Component stranger(service(), 1351, {2, 512}, false);
    const std::string before = component.active_tree();
    events().clear_log();
    ASSERT_TRUE(service().post(request(GetParam().kind, 1351, "/usb")));
    component.fence();
    for (const QoLogLine& line : GetParam().lines) EXPECT_TRUE(events().wait_for_log(line.level, line.text));
    if (GetParam().lines.empty())
        EXPECT_THAT(events().log(), Not(Contains(testing::Field(&QoLogLine::level, testing::Lt(LOG_DEBUG)))));
    EXPECT_EQ(stranger.waiting_messages(), 0);
    EXPECT_EQ(component.active_tree(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, UnregisteredRequester,
    testing::Values(
        Refusal{"subscribe",
                {{LOG_ERR, "Component not Registered, ncomp_id=1351 , sub_data = /usb, ERR_CODE=50014"},
                 {LOG_WARNING, "Component subscription failed = -1"}}},
        Refusal{"unsubscribe",
                {{LOG_ERR, "Component not Registered, ncomp_id=1351 , unsub_data = /usb, ERR_CODE=50014"},
                 {LOG_WARNING, "Comp unsubscription failed= -1"}}},
        Refusal{"publish",
                {{LOG_ERR, "Component not Registered, ncomp_id=1351 , pub_data = /usb, ERR_CODE=50014"},
                 {LOG_ERR, "Component data publish failed = -1"}}},
        Refusal{"get",
                {{LOG_ERR, "comp_get: Component not Registered: ncomp_id=1351, get_data = /usb"},
                 {LOG_ERR, "Component get data failed = -1"}}},
        Refusal{"save",
                {{LOG_ERR, "Component not Registered, comp_save : ncomp_id=1351, ERR_CODE=50014"},
                 {LOG_ERR, "component save request failed = -1"}}},
        Refusal{"save_debug",
                {{LOG_ERR, "Component not Registered, comp_save_debug : ncomp_id=1351"},
                 {LOG_ERR, "component save debug request failed = -1"}}},
        Refusal{"delete",
                {{LOG_ERR, "Component -not Registered, comp_delete : ncomp_id=1351 , del_data = /usb, ERR_CODE=50014"},
                 {LOG_ERR, "component delete request failed = -1"}}},
        Refusal{"clear",
                {{LOG_ERR, "Component -not Registered, comp_delete : ncomp_id=1351 , del_data = /usb, ERR_CODE=50014"},
                 {LOG_ERR, "component clear request failed = -1"}}},
        Refusal{"unregister", {}}),
    [](const testing::TestParamInfo<Refusal>& refusal) { return std::string(refusal.param.kind); });

// ---- init ----

class Init : public RunningService {};

TEST_F(Init, WithTrueAnswersForgetsEveryRegistrationAndReportsReadinessAgain) {
    Component component(service(), kDemo);
    ASSERT_EQ(component.api().publish(QO_CMPID_DEMO, R"({"version":{"schemaVersion":"5"}})"), 0);
    ASSERT_EQ(component.api().flush(QO_CMPID_DEMO), 0);
    ASSERT_EQ(component.api().init_request(QO_CMPID_DEMO, "true"), 0);
    EXPECT_EQ(component.next_message(), "pushpull init success");
    ASSERT_TRUE(events().wait_for_notifications(2));
    EXPECT_FALSE(std::filesystem::exists("/kivo/data/saved_tree.json"));

    ASSERT_TRUE(service().wait_until_idle());
    ASSERT_EQ(component.api().get(QO_CMPID_DEMO, "/version", "", false), 0);
    EXPECT_TRUE(
        events().wait_for_log(LOG_ERR, "comp_get: Component not Registered: ncomp_id=1073741852, get_data = /version"));
    ASSERT_EQ(component.api().comp_register(QO_CMPID_DEMO, component.queue_name(), nullptr), 0);
    EXPECT_THAT(component.get("/version"), HasSubstr("\"0.0\""));
}

TEST_F(Init, WithTrueFromAnUnregisteredComponentStillDeletesTheSavedTreeAndItsBackupAndRestarts) {
    {
        Component component(service(), kDemo);
        ASSERT_EQ(component.api().publish(QO_CMPID_DEMO, R"({"version":{"schemaVersion":"5"}})"), 0);
        ASSERT_EQ(component.api().flush(QO_CMPID_DEMO), 0);
        ASSERT_EQ(component.api().flush(QO_CMPID_DEMO), 0);
        component.fence();
    }
    ASSERT_TRUE(std::filesystem::exists("/kivo/data/saved_tree.json"));
    ASSERT_TRUE(std::filesystem::exists("/kivo/data/saved_tree.json.bak"));
    ASSERT_TRUE(service().post(request("init", 1351, "true")));
    ASSERT_TRUE(events().wait_for_notifications(2));
    EXPECT_FALSE(std::filesystem::exists("/kivo/data/saved_tree.json"));
    EXPECT_FALSE(std::filesystem::exists("/kivo/data/saved_tree.json.bak"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component not Registered, comp_init : ncomp_id=1351 , ERR_CODE=50014"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, " comp_init : Incorrect Path or comp_notify Failed"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component comp_init data failed = -1"));
}

TEST_F(Init, LogsEachSavedFileThatIsNotThere) {
    ASSERT_TRUE(service().post(request("init", 1351, "true")));
    ASSERT_TRUE(events().wait_for_notifications(2));
    EXPECT_TRUE(events().wait_for_log(LOG_INFO, "Error deleting file or file not exist /kivo/data/saved_tree.json\n"));
    EXPECT_TRUE(
        events().wait_for_log(LOG_INFO, "Error deleting file or file not exist /kivo/data/saved_tree.json.bak\n"));
}

TEST_F(Init, WithAnythingButTrueIsIgnored) {
    Component component(service(), kDemo);
    for (const char* text : {"false", "TRUE", "true ", ""})
        ASSERT_EQ(component.api().init_request(QO_CMPID_DEMO, text), 0);
    EXPECT_TRUE(component.hears_nothing());
    EXPECT_EQ(events().notifications().size(), 1U);
}

TEST_F(Init, ManyTimesLeavesNoDescriptorOpenAndNoThreadBehind) {
    ASSERT_TRUE(service().post(request("init", 1351, "true")));
    ASSERT_TRUE(events().wait_for_notifications(2));
    ASSERT_TRUE(service().wait_until_idle());
    const size_t descriptors = service().open_descriptors();
    const size_t threads = service().threads();
    for (size_t count = 3; count < 23; ++count) {
        ASSERT_TRUE(service().post(request("init", 1351, "true")));
        ASSERT_TRUE(events().wait_for_notifications(count));
    }
    ASSERT_TRUE(service().wait_until_idle());
    EXPECT_EQ(service().open_descriptors(), descriptors);
    EXPECT_EQ(service().threads(), threads);
}

// ---- exit ----

class Exit : public RunningService {
protected:
    int exit_status() {
        const std::optional<int> status = service().wait_for_end();
        EXPECT_TRUE(status) << "the service runs";
        return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
    }
};

TEST_F(Exit, WithTrueTellsTheRequesterThenEveryComponentAndEndsWithStatus0) {
    Component component(service(), kDemo);
    Component other(service(), kOther);
    ASSERT_EQ(component.api().exit_request(QO_CMPID_DEMO, "true"), 0);
    EXPECT_EQ(exit_status(), 0);
    EXPECT_EQ(component.next_message(), "pushpull exiting");
    EXPECT_EQ(component.next_message(), "exit");
    EXPECT_EQ(other.next_message(), "exit");
}

TEST_F(Exit, WithFalseKeepsTheServiceRunning) {
    Component component(service(), kDemo);
    ASSERT_EQ(component.api().exit_request(QO_CMPID_DEMO, "false"), 0);
    EXPECT_TRUE(component.hears_nothing());
}

TEST_F(Exit, WithTrueFromAnUnregisteredComponentEndsTheLoopAndTellsNobody) {
    Component component(service(), kDemo);
    component.fence();
    ASSERT_TRUE(service().post(request("exit", 1351, "true")));
    EXPECT_EQ(exit_status(), 0);
    EXPECT_EQ(component.waiting_messages(), 0);
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component not Registered, comp_exit : ncomp_id=1351 , ERR_CODE=50014"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, " comp_exit : Incorrect Path or comp_notify Failed"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component comp_exit data failed = -1"));
}

TEST_F(Exit, WithNobodyRegisteredEndsWithStatus0) {
    ASSERT_TRUE(service().post(request("exit", kDemo, "true")));
    EXPECT_EQ(exit_status(), 0);
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component comp_exit data failed = -1"));
}

TEST_F(Exit, LeavesTheServiceQueueAndPendingChangesUnsaved) {
    {
        Component component(service(), kDemo);
        ASSERT_EQ(component.api().publish(QO_CMPID_DEMO, R"({"version":{"schemaVersion":"2"}})"), 0);
        component.fence();
    }
    EXPECT_EQ(service().stop(), 0);
    EXPECT_EQ(service().waiting_requests(), 0);
    EXPECT_TRUE(std::filesystem::exists("/dev/mqueue/pushpull"));
    EXPECT_FALSE(std::filesystem::exists("/kivo/data/saved_tree.json"));
}

}  // namespace
