// What each operation of the client library sends, how often it tries, and what it logs when it fails.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <future>

#include "log_capture.h"
#include "qo_json.h"
#include "qo_pushpull_api.h"
#include "qo_scratch_queue.h"

namespace {
bool no_text_is_usable = false;
}

// A request without text arguments can always be built.
extern "C" {
int __real_json_is_text_n(const char* text, size_t length);
int __wrap_json_is_text_n(const char* text, size_t length) {
    return no_text_is_usable ? 0 : __real_json_is_text_n(text, length);
}
}

namespace {

using Lines = std::vector<QoLogLine>;

constexpr std::chrono::milliseconds kShort{1};
constexpr QoPushpullApiTimings kNoPauses{kShort, kShort, kShort};
constexpr auto kSender = QO_CMPID_HVAC_SYSCON_SUB;  // may delete
const mq_attr kQueue = [] {
    mq_attr attributes{};
    attributes.mq_maxmsg = 10;
    attributes.mq_msgsize = 512;
    return attributes;
}();

// ---- every operation: what it sends and what it logs ----

struct Operation {
    const char* name;
    std::function<int32_t(QoPushpullApi& api)> call;
    std::function<std::string(QoPushpullApi& api)> request;
    const char* not_sent_line;
    const char* empty_line;
};
void PrintTo(const Operation& operation, std::ostream* stream) { *stream << operation.name; }

std::vector<Operation> all_operations() {
    return {
        {"comp_register", [](QoPushpullApi& api) { return api.comp_register(kSender, "/own", &kQueue); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "/own", "register", &kQueue); },
         "QoPushpullApi: register : mq_send: failed:", "QoPushpullApi:comp_register : post_msg.size() = 0"},
        {"comp_register_without_attributes",
         [](QoPushpullApi& api) { return api.comp_register(kSender, "/own", nullptr); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "/own", "register"); },
         "QoPushpullApi: register : mq_send: failed:", "QoPushpullApi:comp_register : post_msg.size() = 0"},
        {"comp_unregister", [](QoPushpullApi& api) { return api.comp_unregister(kSender); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "", "unregister"); },
         "QoPushpullApi: unregister : mq_send: failed:", "QoPushpullApi:comp_unregister:post_msg.size() = 0"},
        {"subscribe", [](QoPushpullApi& api) { return api.subscribe(kSender, "/a", false); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "/a", "subscribe"); },
         "QoPushpullApi: subscribe : mq_send: failed:", "QoPushpullApi :subscribe : post_msg.size() = 0"},
        {"subscribe_to_changes", [](QoPushpullApi& api) { return api.subscribe(kSender, "/a", true); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "/a", "subscribe", nullptr, true); },
         "QoPushpullApi: subscribe : mq_send: failed:", "QoPushpullApi :subscribe : post_msg.size() = 0"},
        {"un_subscribe", [](QoPushpullApi& api) { return api.un_subscribe(kSender, "/a"); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "/a", "unsubscribe"); },
         "QoPushpullApi: un_subscribe : mq_send: failed:", "QoPushpullApi :un_subscribe : post_msg.size() = 0"},
        {"publish", [](QoPushpullApi& api) { return api.publish(kSender, R"({"a":1})"); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, R"({"a":1})", "publish"); },
         "QoPushpullApi: publish : mq_send: failed:", "QoPushpullApi :publish : post_msg.size() = 0"},
        {"get", [](QoPushpullApi& api) { return api.get(kSender, "/a;/b", "me", true); },
         [](QoPushpullApi& api) {
             return api.build_json_post_msg(kSender, "/a;/b", "get", nullptr, false, "me", QO_CMPID_RESERVED, true);
         },
         "QoPushpullApi: get : mq_send: failed:", "QoPushpullApi :get : post_msg.size() = 0"},
        {"flush", [](QoPushpullApi& api) { return api.flush(kSender); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "", "save"); },
         "QoPushpullApi: flush : mq_send: failed:", "QoPushpullApi :flush : post_msg.size() = 0"},
        {"save_complete_tree", [](QoPushpullApi& api) { return api.save_complete_tree(kSender); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "", "save_debug"); },
         "QoPushpullApi: save_complete_tree : mq_send: failed:",
         "QoPushpullApi :save_complete_tree : post_msg.size() = 0"},
        {"clear", [](QoPushpullApi& api) { return api.clear(kSender, "/a"); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "/a", "clear"); },
         "QoPushpullApi: clear : mq_send: failed:", "QoPushpullApi :clear : post_msg.size() = 0"},
        {"delete_node", [](QoPushpullApi& api) { return api.delete_node(kSender, "/a"); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "/a", "delete"); },
         "QoPushpullApi: delete_node : mq_send: failed:", "QoPushpullApi :delete_node : post_msg.size() = 0"},
        {"init_request", [](QoPushpullApi& api) { return api.init_request(kSender, "true"); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "true", "init"); },
         "QoPushpullApi: true init_request:mq_send: failed:", "QoPushpullApi :true init_request:post_msg.size() = 0"},
        {"exit_request", [](QoPushpullApi& api) { return api.exit_request(kSender, "no"); },
         [](QoPushpullApi& api) { return api.build_json_post_msg(kSender, "no", "exit"); },
         "QoPushpullApi: no exit_request:mq_send: failed:", "QoPushpullApi :no exit_request:post_msg.size() = 0"},
        // Deliberate: in the words of a failed registration.
        {"comp_sync", [](QoPushpullApi& api) { return api.comp_sync(kSender, QO_CMPID_DEMO, "/a"); },
         [](QoPushpullApi& api) {
             return api.build_json_post_msg(kSender, "/a", "sync", nullptr, false, "", QO_CMPID_DEMO);
         },
         "QoPushpullApi: register : mq_send: failed:", "QoPushpullApi:comp_register : post_msg.size() = 0"},
    };
}

Lines missing_queue_attempts() {
    Lines lines;
    for (const char* attempt : {"1", "2", "3", "4", "5"}) {
        lines.push_back(
            {LOG_ERR, std::string("QoPushpullApi : MsgQueue: Invalid Descriptor: ffffffff, Retry Attempt ") + attempt});
        lines.push_back({LOG_DEBUG, "QoPushpullApi MessageQueue: mq_open: MQ: ffffffff"});
        lines.push_back({LOG_ERR, "QoPushpullApi MessageQueue:mq_open: \"/pushpull\" -failed:, ERR_CODE : 2"});
    }
    lines.push_back(
        {LOG_CRIT, "QoPushpullApi : Fatal Error: Can not open msg que to push pull after 5 retries.  Aborting!"});
    return lines;
}

class ApiOperation : public testing::TestWithParam<Operation> {};

TEST_P(ApiOperation, SendsItsRequestWithTheNulAndPriority1) {
    const QoScratchQueue service("/pushpull", 4, 1024);
    QoPushpullApi api("", kNoPauses);
    ASSERT_EQ(api.init(""), 0);
    const QoLogCapture log;
    const std::string expected = GetParam().request(api);
    ASSERT_NE(expected, "");

    EXPECT_EQ(GetParam().call(api), 0);

    const std::optional<QoScratchQueue::Message> sent = service.take();
    ASSERT_TRUE(sent.has_value());
    EXPECT_EQ(sent->bytes, expected + '\0');
    EXPECT_EQ(sent->priority, 1U);
    EXPECT_EQ(service.count(), 0);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_P(ApiOperation, FailsAfterItsSendFailedInItsOwnWords) {
    QoPushpullApi api("", kNoPauses);
    ASSERT_EQ(api.init(""), -1);
    const QoLogCapture log;

    EXPECT_EQ(GetParam().call(api), -1);

    Lines expected = missing_queue_attempts();
    expected.push_back({LOG_ERR, GetParam().not_sent_line});
    EXPECT_EQ(log.lines(), expected);
}

TEST_P(ApiOperation, SendsNothingWhenTheRequestIsEmpty) {
    const QoScratchQueue service("/pushpull", 4, 1024);
    QoPushpullApi api("", kNoPauses);
    ASSERT_EQ(api.init(""), 0);
    const QoLogCapture log;

    no_text_is_usable = true;
    const int32_t result = GetParam().call(api);
    no_text_is_usable = false;

    EXPECT_EQ(result, -1);
    EXPECT_EQ(service.count(), 0);
    EXPECT_EQ(log.lines(), (Lines{{LOG_ERR, GetParam().empty_line}}));
}

INSTANTIATE_TEST_SUITE_P(OfThirteen, ApiOperation, testing::ValuesIn(all_operations()),
                         [](const testing::TestParamInfo<Operation>& row) { return std::string(row.param.name); });

TEST(ApiPublish, OfATextThatIsNotUtf8FailsUnsent) {
    const QoScratchQueue service("/pushpull", 4, 1024);
    QoPushpullApi api("", kNoPauses);
    ASSERT_EQ(api.init(""), 0);
    const QoLogCapture log;
    EXPECT_EQ(api.publish(kSender, "{\"a\":\"\xff\"}"), -1);
    EXPECT_EQ(service.count(), 0);
    EXPECT_EQ(log.lines(), (Lines{{LOG_ERR, "QoPushpullApi :publish : post_msg.size() = 0"}}));
}

// ---- who may delete ----

TEST(ApiDelete, IsAllowedToTheSystemControllerOnly) {
    QoPushpullApi api;
    for (const int32_t allowed : {0x40000003, 0x40000004, 0x40000005, 0x40000006, 0x40000007})
        EXPECT_EQ(api.check_delete_authority(static_cast<eQO_CMP_IDs_>(allowed)), 0) << allowed;
    for (const int32_t refused : {0x40000002, 0x40000008, 0, -1, 1100, 1201})
        EXPECT_EQ(api.check_delete_authority(static_cast<eQO_CMP_IDs_>(refused)), -1) << refused;
}

TEST(ApiDelete, ByAComponentOutsideTheRangeLogsThePermissionLineAndNothingReachesTheQueue) {
    const QoScratchQueue service("/pushpull", 4, 1024);
    QoPushpullApi api("", kNoPauses);
    ASSERT_EQ(api.init(""), 0);
    const QoLogCapture log;
    EXPECT_EQ(api.delete_node(QO_CMPID_TCOMP, "/a"), -1);
    EXPECT_EQ(service.count(), 0);
    EXPECT_EQ(log.lines(), (Lines{{LOG_ERR,
                                   "QoPushpullApi: delete_node : Component 1073741832 does not have permission to "
                                   "delete this node."}}));
}

// ---- set-up and tear-down ----

std::string hexadecimal(int number) {
    std::ostringstream text;
    text << std::hex << number;
    return text.str();
}

int lowest_free_descriptor() {
    const int descriptor = open("/dev/null", O_RDONLY);
    close(descriptor);
    return descriptor;
}

TEST(ApiInit, OpensTheServiceQueue) {
    const QoScratchQueue service("/pushpull", 2, 256);
    const QoLogCapture log;
    QoPushpullApi api;
    const int next = lowest_free_descriptor();
    EXPECT_EQ(api.init(""), 0);
    EXPECT_EQ(log.lines(), (Lines{{LOG_DEBUG, "QoPushpullApi MessageQueue: mq_open: MQ: " + hexadecimal(next)}}));
}

TEST(ApiInit, OpensTheQueueOfTheInstance) {
    const QoScratchQueue service("/pushpullfoo", 2, 256);
    QoPushpullApi api("foo", kNoPauses);
    ASSERT_EQ(api.init("foo"), 0);
    EXPECT_EQ(api.flush(kSender), 0);
    EXPECT_EQ(service.count(), 1);
}

TEST(ApiInit, WithTheServiceQueueAbsentFailsAndDoesNotCreateIt) {
    const QoLogCapture log;
    QoPushpullApi api;
    EXPECT_EQ(api.init("foo"), -1);
    EXPECT_EQ(log.lines(),
              (Lines{{LOG_DEBUG, "QoPushpullApi MessageQueue: mq_open: MQ: ffffffff"},
                     {LOG_ERR, "QoPushpullApi MessageQueue:mq_open: \"/pushpull\" -failed:, ERR_CODE : 2"}}));
    EXPECT_EQ(mq_open("/pushpullfoo", O_RDWR), -1);
    EXPECT_EQ(mq_open("/pushpull", O_RDWR), -1);
}

TEST(ApiInit, CalledAgainClosesTheQueueItHadOpen) {
    const QoScratchQueue service("/pushpull", 2, 256);
    QoPushpullApi api;
    ASSERT_EQ(api.init(""), 0);
    const int before = lowest_free_descriptor();
    for (int again = 0; again < 4; ++again) ASSERT_EQ(api.init(""), 0);
    ASSERT_EQ(api.terminate(), 0);
    EXPECT_LE(lowest_free_descriptor(), before);
}

TEST(ApiTerminate, BeforeInitHasNothingToDo) {
    const QoLogCapture log;
    QoPushpullApi api;
    EXPECT_EQ(api.terminate(), 0);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST(ApiTerminate, ClosesTheQueueOnce) {
    const QoScratchQueue service("/pushpull", 2, 256);
    QoPushpullApi api;
    const int before = lowest_free_descriptor();
    ASSERT_EQ(api.init(""), 0);
    const QoLogCapture log;
    EXPECT_EQ(api.terminate(), 0);
    EXPECT_EQ(lowest_free_descriptor(), before);
    EXPECT_EQ(api.terminate(), 0);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST(ApiTerminate, OnAnObjectWhoseOpenFailedFailsAndLogsTheCloseFailure) {
    QoPushpullApi api;
    ASSERT_EQ(api.init(""), -1);
    const QoLogCapture log;
    EXPECT_EQ(api.terminate(), -1);
    EXPECT_EQ(log.lines(), (Lines{{LOG_ERR, "QoPushpullApi : terminate: mq_close: failed:"}}));
}

TEST(ApiObject, ClosesItsQueueWhenItIsDestroyedWithoutTerminate) {
    const QoScratchQueue service("/pushpull", 2, 256);
    const int before = lowest_free_descriptor();
    {
        QoPushpullApi api;
        ASSERT_EQ(api.init(""), 0);
    }
    EXPECT_EQ(lowest_free_descriptor(), before);
}

// ---- reopening and sending again ----

TEST(ApiSend, ReopensTheQueueOfItsInstanceOnFirstUse) {
    QoPushpullApi api("foo", kNoPauses);
    ASSERT_EQ(api.init("foo"), -1);
    const QoScratchQueue service("/pushpullfoo", 2, 256);
    const QoLogCapture log;
    const int next = lowest_free_descriptor();
    EXPECT_EQ(api.flush(kSender), 0);
    EXPECT_EQ(service.count(), 1);
    EXPECT_EQ(log.lines(), (Lines{{LOG_ERR, "QoPushpullApi : MsgQueue: Invalid Descriptor: ffffffff, Retry Attempt 1"},
                                  {LOG_DEBUG, "QoPushpullApi MessageQueue: mq_open: MQ: " + hexadecimal(next)}}));
}

TEST(ApiSend, OfNCharactersIsNPlus1Bytes) {
    const QoScratchQueue service("/pushpull", 2, 256);
    QoPushpullApi api("", kNoPauses);
    ASSERT_EQ(api.init(""), 0);
    EXPECT_EQ(api.post_msg_to_pushpull_data("0123456789"), 0);
    EXPECT_EQ(service.take(), (QoScratchQueue::Message{std::string("0123456789\0", 11), 1}));
}

Lines send_attempts(int error, int messages, mqd_t descriptor, int length) {
    Lines lines;
    for (const char* attempt : {"0", "1", "2", "3", "4"}) {
        lines.push_back({LOG_ERR, "QoPushPullApi: mq_timedsend failed with errnum " + std::to_string(error) +
                                      ", Msgs in que = " + std::to_string(messages) + ", Retry Attempt " + attempt});
    }
    lines.push_back({LOG_CRIT, "QoPushpullApi: mq_send FAILED all tries: Descriptor: " + hexadecimal(descriptor) +
                                   ", ERR_CODE: 50003, Message Length = " + std::to_string(length)});
    return lines;
}

TEST(ApiSend, IntoAFullQueueIsGivenUpAfterFiveAttempts) {
    const QoScratchQueue service("/pushpull", 3, 256);
    service.fill();
    QoPushpullApi api("", kNoPauses);
    const int descriptor = lowest_free_descriptor();
    ASSERT_EQ(api.init(""), 0);
    const QoLogCapture log;
    EXPECT_EQ(api.post_msg_to_pushpull_data("0123456789"), -1);
    EXPECT_EQ(log.lines(), send_attempts(ETIMEDOUT, 3, descriptor, 11));
    EXPECT_EQ(service.count(), 3);
}

TEST(ApiSend, IntoAFullQueueEndsAsSoonAsThereIsRoom) {
    const QoScratchQueue service("/pushpull", 3, 256);
    service.fill();
    QoPushpullApi api("", {kShort, std::chrono::minutes(1), kShort});
    ASSERT_EQ(api.init(""), 0);
    const QoLogCapture log;
    std::future<int32_t> sent = std::async(std::launch::async, [&api] { return api.flush(kSender); });
    EXPECT_EQ(sent.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    ASSERT_TRUE(service.take().has_value());
    EXPECT_EQ(sent.get(), 0);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST(ApiSend, OfAMessageLongerThanTheQueueTakesIsGivenUpAfterFiveAttempts) {
    const QoScratchQueue service("/pushpull", 3, 10);
    QoPushpullApi api("", kNoPauses);
    const int descriptor = lowest_free_descriptor();
    ASSERT_EQ(api.init(""), 0);
    const QoLogCapture log;
    EXPECT_EQ(api.post_msg_to_pushpull_data("0123456789"), -1);
    EXPECT_EQ(log.lines(), send_attempts(EMSGSIZE, 0, descriptor, 11));
}

TEST(ApiSend, WithoutInitIsGivenUpAfterFiveAttempts) {
    const QoScratchQueue service("/pushpull", 3, 256);
    QoPushpullApi api("", kNoPauses);
    const QoLogCapture log;
    EXPECT_EQ(api.post_msg_to_pushpull_data("0123456789"), -1);
    EXPECT_EQ(log.lines(), send_attempts(EBADF, 0, 0, 11));
    EXPECT_EQ(service.count(), 0);
}

// ---- the service's own queue ----

class QueueCreation : public testing::Test {
protected:
    QueueCreation() {
        attributes_.mq_maxmsg = 4;
        attributes_.mq_msgsize = 128;
    }
    ~QueueCreation() override { mq_unlink("/made"); }

    mqd_t create() {
        return api_.message_queue_create_and_error_handling("/made", O_RDWR | O_CREAT, 0660, &attributes_);
    }

    QoPushpullApi api_;
    mq_attr attributes_{};
};

TEST_F(QueueCreation, GivesAnEmptyQueueOfTheModeAskedFor) {
    const QoLogCapture log;
    const mode_t old_mask = umask(077);
    const mqd_t descriptor = create();
    EXPECT_EQ(umask(old_mask), 077U);  // restored
    ASSERT_NE(descriptor, -1);

    struct stat status {};
    EXPECT_EQ(fstat(descriptor, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0660U);
    mq_attr attributes{};
    EXPECT_EQ(mq_getattr(descriptor, &attributes), 0);
    EXPECT_EQ(attributes.mq_maxmsg, 4);
    EXPECT_EQ(attributes.mq_msgsize, 128);
    // An error line although it succeeded.
    EXPECT_EQ(log.lines(),
              (Lines{{LOG_ERR, " message_queue_create_and_error_handling: open ::" + std::to_string(descriptor)}}));
    mq_close(descriptor);
}

TEST_F(QueueCreation, DrainsWhatAnEarlierInstanceLeft) {
    const QoScratchQueue earlier("/made", 4, 128);
    earlier.fill();
    const QoLogCapture log;
    const mqd_t descriptor = create();
    ASSERT_NE(descriptor, -1);
    EXPECT_EQ(earlier.count(), 0);
    const std::string number = std::to_string(descriptor);
    EXPECT_EQ(log.lines(), (Lines{{LOG_ERR, " message_queue_create_and_error_handling: open ::" + number},
                                  {LOG_DEBUG, "Flushed 4 stale messages from queue " + number}}));
    mq_close(descriptor);
}

TEST_F(QueueCreation, ThatFailsLogsTheErrorOfTheOpen) {
    attributes_.mq_maxmsg = -1;
    const QoLogCapture log;
    const mode_t old_mask = umask(027);
    EXPECT_EQ(create(), -1);
    EXPECT_EQ(umask(old_mask), 027U);
    EXPECT_EQ(log.lines(), (Lines{{LOG_ERR, " message_queue_create_and_error_handling: open ::-1"},
                                  {LOG_ERR, "Error in creating the queue. Error: " + std::to_string(EINVAL)}}));
}

TEST_F(QueueCreation, UsesExactlyTheGivenFlags) {
    const QoScratchQueue existing("/made", 1, 16);
    const QoLogCapture log;
    EXPECT_EQ(api_.message_queue_create_and_error_handling("/made", O_RDWR | O_CREAT | O_EXCL, 0660, &attributes_), -1);
    EXPECT_TRUE(log.contains(LOG_ERR, "Error in creating the queue. Error: " + std::to_string(EEXIST)));
}

}  // namespace
