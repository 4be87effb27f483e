// The handlers of "get", "delete", "clear", "save" and "sync".
#include "qo_pushpull_files.h"
#include "qo_pushpull_json.h"
#include "qo_service_fixture.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

double clock_step = 0;  // seconds that pass between two looks at the clock
double clock_now = 0;   // monotonic seconds
bool fail_subscriber_lookup = false;

double look_at_clock() { return clock_now += clock_step; }

}  // namespace

// ---- replacements ----

extern "C" {
int __real_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority, const timespec* deadline);
int __wrap_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority, const timespec* deadline);
JSONNODE* __real_json_duplicate(const JSONNODE* node);
JSONNODE* __wrap_json_duplicate(const JSONNODE* node);

// A full queue answers at once instead of after a second.
int __wrap_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority, const timespec*) {
    const timespec long_ago{};
    return __real_mq_timedsend(descriptor, text, length, priority, &long_ago);
}

// The lookup copies the entry of every subscriber that it finds.
JSONNODE* __wrap_json_duplicate(const JSONNODE* node) {
    const bool is_entry = qo_json_name(node) == "cmpID";
    return fail_subscriber_lookup && is_entry ? nullptr : __real_json_duplicate(node);
}
}

namespace {

constexpr char kVersion[] = "{\n\t\"version\": {\n\t\t\"schemaVersion\": \"1\"\n\t}\n}";
constexpr char kPackedVersion[] = R"({"version":{"schemaVersion":"1"}})";
constexpr char kStatus[] = "{\n\t\"system\": {\n\t\t\"status\": {\n\t\t\t\"name\": \"y\"\n\t\t}\n\t}\n}";

class Service : public QoServiceFixture {
protected:
    Service() : QoServiceFixture(false, look_at_clock) {
        clock_step = 0;
        fail_subscriber_lookup = false;
    }
    ~Service() override { clock_step = 0; }

    int get(const std::string& pointers, const std::string& sender_id = "", bool pack = false) {
        log_.clear();
        return service_->comp_get(requester_.id, pointers, false, sender_id, pack);
    }
    int pack(const std::string& pointers, const std::string& sender_id = "") { return get(pointers, sender_id, true); }
    std::vector<QoLogLine> logged() const { return log_.lines_above_debug(); }

    QoTestComponent requester_{*service_, QO_CMPID_DEMO, "/requester", 10, 512};
};

using Get = Service;
using Size = Service;
using Pack = Service;
using Delete = Service;
using Clear = Service;
using Save = Service;
using Sync = Service;

const QoLogLine kFinalFailure{LOG_ERR, " comp_get : Incorrect Path or comp_notify Failed"};
const QoLogLine kSendFailure{LOG_ERR, " comp_get : comp_notify Failed"};

QoLogLine send_failure(const std::string& queue, size_t length) {
    return {LOG_ERR, "Send message from pushpull to \"" + queue +
                         "\" queue : mq_send: failed:, ERR_CODE : 50003, msg size = " + std::to_string(length)};
}

}  // namespace

// ---- which pointers ask for a size ----

struct SizeCase {
    const char* name;
    std::string pointer;
    bool asked;
    std::string path;
    std::vector<QoLogLine> lines;
};

class CheckSize : public testing::TestWithParam<SizeCase> {};

static const QoLogLine kSlashLine{LOG_DEBUG, "PushPull:*@#: Root path or dangling / or back to back slashes //"};
static const QoLogLine kFirstSegmentLine{LOG_DEBUG, "PushPull:*@#:prev_node_name size is=0"};
static QoLogLine position_line(const std::string& position) {
    return {LOG_ERR, "PushPull:*@#:out =" + position + ",Read path incorrect"};
}

INSTANTIATE_TEST_SUITE_P(
    Pointers, CheckSize,
    testing::Values(SizeCase{"OfAnObject", "/system/config/size", true, "/system/config", {}},
                    SizeCase{"OfAnElementByItsPosition", "/devices/3/size", false, "-", {position_line("3")}},
                    SizeCase{"CutAtTheFirstSizeInsideALongerName", "/logs/sizer/size", true, "/logs", {}},
                    SizeCase{"NameThatBeginsWithSize", "/logs/sizer", false, "-", {}},
                    SizeCase{"FirstSegment", "/size", false, "-", {kFirstSegmentLine}},
                    SizeCase{"OfAFirstSegmentNamedSize", "/size/size", true, "", {kFirstSegmentLine}},
                    SizeCase{"InTheMiddle", "/a/size/b", true, "/a", {}},
                    SizeCase{"EmptySegmentDoesNotReplaceThePreviousOne", "/a//size", true, "/a/", {kSlashLine}},
                    SizeCase{"EmptySegmentBeforeTheFirst", "//size", false, "-", {kSlashLine, kFirstSegmentLine}},
                    SizeCase{"TrailingSlashAfterSize", "/a/size/", true, "/a", {}},
                    SizeCase{"TrailingSlash", "/a/", false, "-", {kSlashLine}},
                    SizeCase{"NegativePosition", "/a/-3/size", false, "-", {position_line("-3")}},
                    SizeCase{"SignedPosition", "/a/+3/size", false, "-", {position_line("3")}},
                    SizeCase{"PositionBehindABlank", "/a/ 3/size", false, "-", {position_line("3")}},
                    SizeCase{"NumberFollowedByABlank", "/a/3 /size", true, "/a/3 ", {}},
                    SizeCase{"NumberFollowedByText", "/a/3x/size", true, "/a/3x", {}},
                    SizeCase{"NumberTooLargeToRead", "/a/99999999999/size", true, "/a/99999999999", {}},
                    SizeCase{"FirstCharacterIsTakenForTheSlash", "xa/size", true, "xa", {}}),
    [](const auto& pointer) { return pointer.param.name; });

TEST_P(CheckSize, IsDecidedByTheSegmentBefore) {
    const QoLogCapture log;
    std::string path = "-";
    EXPECT_EQ(CheckSizeRequested(GetParam().pointer, path), GetParam().asked);
    EXPECT_EQ(path, GetParam().path);
    EXPECT_EQ(log.lines(), GetParam().lines);
    EXPECT_THAT(log.lines(), Each(testing::Field(&QoLogLine::operation, "CheckSizeRequested")));
}

TEST(CheckSizeOfAHostilePointer, LogsTheFirstSixteenOf260000Slashes) {
    const QoLogCapture log;
    std::string path;
    EXPECT_TRUE(CheckSizeRequested(std::string(260000, '/') + "a/size", path));
    EXPECT_EQ(log.lines().size(), 16U);
    EXPECT_THAT(log.lines(), Each(kSlashLine));
}

// ---- sizes ----

TEST_F(Size, OfAnArrayIsItsElementCount) {
    EXPECT_EQ(get("/devices/size"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre("/devices/size:3"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Size, OfAnEmptyArrayIsZero) {
    EXPECT_EQ(get("/system/empty/size"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre("/system/empty/size:0"));
}

TEST_F(Size, OfAnObjectIsMinusOne) {
    std::string text;
    EXPECT_EQ(service_->get_node("/system/config/size", &text, ""), -1);
    EXPECT_EQ(text, "/system/config/size:-1");
}

TEST_F(Size, OfAMissingNodeIsMinusOneAndLogged) {
    EXPECT_EQ(get("/nope/size"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre("/nope/size:-1"));
    EXPECT_THAT(logged(), Contains(QoLogLine{LOG_ERR,
                                             "comp_get: ReadNode failed OR json_size is zero, node = "
                                             "/nope/size"}));
}

TEST_F(Size, OfAnElementByItsPositionIsRefused) {
    std::string text;
    log_.clear();
    EXPECT_EQ(service_->get_node("/devices/3/size", &text, ""), -1);
    EXPECT_EQ(text, "/devices/3/size:-1");
    EXPECT_THAT(logged(), ElementsAre(position_line("3")));
}

TEST_F(Size, AsTheOnlySegmentIsRefused) {
    std::string text;
    EXPECT_EQ(service_->get_node("/size", &text, ""), -1);
    EXPECT_EQ(text, "/size:-1");
}

TEST_F(Size, PointerWithALongerNameThatBeginsLikeSizeIsAnOrdinaryRead) {
    std::string text;
    EXPECT_EQ(service_->get_node("/logs/sizer", &text, ""), 0);
    EXPECT_THAT(text, AllOf(StartsWith("{"), HasSubstr("\"long\"")));
}

// ---- get ----

TEST_F(Get, AnswerIsTheNodeWithItsPathAsFormattedText) {
    EXPECT_EQ(get("/version"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre(kVersion));
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_DEBUG, "pushpull : normal GET"},
                                          QoLogLine{LOG_DEBUG, "mq_send success: msg size = " +
                                                                   std::to_string(std::string(kVersion).length()) +
                                                                   ", queue list = \"/requester;\""}));
}

TEST_F(Get, EachPointerOfAListIsAnsweredInOrder) {
    EXPECT_EQ(get("/version;/system/status;/version"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre(kVersion, kStatus, kVersion));
}

TEST_F(Get, ListEndsAtItsFirstEmptyPiece) {
    EXPECT_EQ(get("/version;;/system/status"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre(kVersion));
    EXPECT_EQ(get("/version;"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre(kVersion));
}

TEST_F(Get, EmptyListSendsNothingAndFails) {
    for (const bool packed : {false, true}) {
        for (const std::string list : {"", ";", ";/version"}) {
            EXPECT_EQ(get(list, "me", packed), -1);
            EXPECT_THAT(log_.lines(), ElementsAre(kFinalFailure));
        }
    }
    EXPECT_THAT(requester_.texts(), IsEmpty());
}

TEST_F(Get, SenderIdPrefixesEveryMessage) {
    EXPECT_EQ(get("/version;/nope;/devices/size;/size", "me"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre("sender_id:me;" + std::string(kVersion), "sender_id:me;/nope:{}",
                                                "sender_id:me;/devices/size:3", "sender_id:me;/size:-1"));
    EXPECT_EQ(pack("/version;/nope", "me"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre("sender_id:me;" + std::string(kPackedVersion)));
}

TEST_F(Get, FailedReadIsAnsweredWithThePointerAndAnEmptyObject) {
    EXPECT_EQ(get("/nope"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre("/nope:{}"));
    EXPECT_THAT(logged(), Contains(QoLogLine{LOG_ERR, "comp_get: ReadNode failed OR json_size is zero, node = /nope"}));
    EXPECT_THAT(logged(), Not(Contains(kFinalFailure)));
}

TEST_F(Get, WholeTreeIsNeverRead) {
    EXPECT_EQ(get("/"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre("/:{}"));
}

TEST_F(Get, UnregisteredComponentIsRefused) {
    log_.clear();
    EXPECT_EQ(service_->comp_get(QO_CMPID_CLP, "/version", false, "", false), -1);
    EXPECT_THAT(logged(),
                ElementsAre(QoLogLine{LOG_ERR,
                                      "comp_get: Component not Registered: ncomp_id=1073741855, get_data = /version"}));
}

TEST_F(Get, FailedSendIsLoggedAndReturned) {
    requester_.queue.fill();
    EXPECT_EQ(get("/version"), -1);
    EXPECT_THAT(logged(),
                ElementsAre(send_failure("/requester", std::string(kVersion).length()), kSendFailure, kFinalFailure));
}

TEST_F(Get, ResultIsThatOfTheLastSend) {
    QoTestComponent narrow(*service_, QO_CMPID_CLP, "/narrow", 4, 20);
    EXPECT_EQ(service_->comp_get(narrow.id, "/version;/nope", false, "", false), 0) << "the first one is too large";
    EXPECT_THAT(narrow.texts(), ElementsAre("/nope:{}"));
    EXPECT_EQ(service_->comp_get(narrow.id, "/nope;/version", false, "", false), -1);
}

TEST_F(Get, WalkThatTakesTooLongEndsWithTheFinalFailure) {
    clock_step = 2;
    EXPECT_EQ(get("/version;/version;/version;/version"), -1);
    EXPECT_THAT(requester_.texts(), ElementsAre(kVersion, kVersion));
    EXPECT_THAT(logged(), ElementsAre(kFinalFailure));
}

TEST_F(Get, ListOf80000PointersIsNotCutShortByItsLengthAlone) {
    QoTestComponent narrow(*service_, QO_CMPID_CLP, "/narrow", 1, 4);
    std::string pointers;
    for (int i = 0; i < 80000; ++i) pointers += "/a;";
    EXPECT_EQ(service_->comp_get(narrow.id, pointers, false, "", false), -1);
    const std::vector<QoLogLine> lines = logged();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), kSendFailure), 80000);
}

// ---- packing ----

TEST_F(Pack, TwoAnswersThatFitShareOneMessage) {
    EXPECT_EQ(pack("/version;/system/status"), 0);
    EXPECT_THAT(requester_.texts(),
                ElementsAre(R"({"version":{"schemaVersion":"1"},"system":{"status":{"name":"y"}}})"));
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "comp_get : packed buff sent"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Pack, TwoAnswersThatDoNotFitTakeTwoMessages) {
    const long packed_length = static_cast<long>(std::string(kPackedVersion).length());
    const long status_length = static_cast<long>(std::string(kStatus).length());
    QoTestComponent narrow(*service_, QO_CMPID_CLP, "/narrow", 4, packed_length + status_length);
    log_.clear();
    EXPECT_EQ(service_->comp_get(narrow.id, "/version;/system/status", false, "", true), 0);
    EXPECT_THAT(narrow.texts(), ElementsAre(kPackedVersion, R"({"system":{"status":{"name":"y"}}})"));
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "pushpull : MessageQueue size full and send the packed buff"));
}

TEST_F(Pack, OneByteMoreLetsBothIn) {
    const long packed_length = static_cast<long>(std::string(kPackedVersion).length());
    const long status_length = static_cast<long>(std::string(kStatus).length());
    QoTestComponent wide(*service_, QO_CMPID_CLP, "/wide", 4, packed_length + status_length + 1);
    EXPECT_EQ(service_->comp_get(wide.id, "/version;/system/status", false, "", true), 0);
    EXPECT_EQ(wide.texts().size(), 1U);
}

TEST_F(Pack, SenderIdPrefixCountsInTheLength) {
    const long packed_length = static_cast<long>(std::string("sender_id:me;").append(kPackedVersion).length());
    const long status_length = static_cast<long>(std::string(kStatus).length());
    QoTestComponent narrow(*service_, QO_CMPID_CLP, "/narrow", 4, packed_length + status_length);
    EXPECT_EQ(service_->comp_get(narrow.id, "/version;/system/status", false, "me", true), 0);
    EXPECT_THAT(narrow.texts(), ElementsAre("sender_id:me;" + std::string(kPackedVersion),
                                            R"(sender_id:me;{"system":{"status":{"name":"y"}}})"));
}

TEST_F(Pack, AnswerTooLargeByItselfIsSentAloneAndItsFailureLogged) {
    QoTestComponent narrow(*service_, QO_CMPID_CLP, "/narrow", 4, 40);
    log_.clear();
    EXPECT_EQ(service_->comp_get(narrow.id, "/version;/devices;/version", false, "", true), 0);
    EXPECT_THAT(narrow.texts(), ElementsAre(kPackedVersion, kPackedVersion));
    EXPECT_THAT(logged(),
                ElementsAre(testing::Field(&QoLogLine::text, StartsWith("Send message from pushpull")), kSendFailure));
}

TEST_F(Pack, SizesFailuresAndArraysWithoutIdsAreLoggedAndNotSent) {
    EXPECT_EQ(pack("/devices/size;/nope;/labels;/version"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre(kPackedVersion));
    const std::vector<QoLogLine> lines = log_.lines();
    EXPECT_EQ(
        std::count(lines.begin(), lines.end(), QoLogLine{LOG_DEBUG, "pushpull : MessageQueue: GET : packing error"}),
        3);
}

TEST_F(Pack, OfNothingThatCanBeJoinedAnswersAnEmptyObjectAtTheEndOfTheWalk) {
    EXPECT_EQ(pack("/nope;/nope"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre("{}"));
    EXPECT_EQ(pack("/nope;/devices/size", "me"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre("sender_id:me;{}"));
}

TEST_F(Pack, PathsAreJoinedMetadataLeftOutAndArraysFilledUp) {
    EXPECT_EQ(pack("/system/status;/system/config;/devices/1"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre(R"({"system":{"status":{"name":"y"},"config":{"name":"x"}},)"
                                                R"("devices":[{"id":0},{"id":1,"temp":20}]})"));
}

TEST_F(Pack, TracesWhereTheAnswerBegins) {
    pack("/version", "me");
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "comp_get : pack and send buff"));
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "comp_get : buff offset = 13, senderIDBuff = sender_id:me;"));
    pack("/version");
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "comp_get : No senderIDBuff found"));
}

TEST_F(Pack, BehindASenderIdWithASemicolonNoAnswerCanBeJoined) {
    EXPECT_EQ(pack("/version", "a;b"), 0);
    EXPECT_THAT(requester_.texts(), ElementsAre("sender_id:a;b;{}"));
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "pushpull : MessageQueue: GET : packing error"));
}

TEST_F(Pack, DescriptorMinusOneIsLoggedAsNoQueueToAnswerTo) {
    log_.clear();
    EXPECT_FALSE(qo_has_answer_queue(-1));
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_ERR, "pushpull : MessageQueue: GET :Invalid Descriptor and break"}));
    log_.clear();
    EXPECT_TRUE(qo_has_answer_queue(requester_.queue.descriptor()));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Pack, FailedSendAtTheEndIsLogged) {
    requester_.queue.fill();
    EXPECT_EQ(pack("/version"), -1);
    EXPECT_THAT(logged(), ElementsAre(send_failure("/requester", std::string(kPackedVersion).length()), kSendFailure,
                                      kFinalFailure));
}

TEST_F(Pack, WalkThatTakesTooLongSendsWhatItHasAndFails) {
    clock_step = 2;
    EXPECT_EQ(pack("/version;/version;/system/status;/system/status"), -1);
    EXPECT_THAT(requester_.texts(), ElementsAre(kPackedVersion));
    EXPECT_THAT(logged(), ElementsAre(kFinalFailure));
}

TEST_F(Pack, LimitIsTheQueuesMessageSizeAndExclusive) {
    const mqd_t descriptor = requester_.queue.descriptor();
    EXPECT_TRUE(qo_check_mqueue_limit(descriptor, 500, 11));
    log_.clear();
    EXPECT_FALSE(qo_check_mqueue_limit(descriptor, 500, 12));
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_DEBUG,
                                                    "qo_check_mqueue_limit : packed_buff_length = 500, "
                                                    "new_buff_length = 12, attr.mq_msgsize = 512"},
                                          QoLogLine{LOG_DEBUG, "qo_check_mqueue_limit : return false"}));
    log_.clear();
    EXPECT_FALSE(qo_check_mqueue_limit(-1, 0, 0));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

// ---- delete ----

TEST_F(Delete, SubscribersAreToldButNotTheRequester) {
    QoTestComponent display(*service_, QO_CMPID_ALERTS, "/display");
    QoTestComponent changes(*service_, QO_CMPID_CLP, "/changes");
    display.subscribe("/system/config");
    changes.subscribe("/system", true);
    requester_.subscribe("/system/config");
    EXPECT_EQ(service_->comp_delete(requester_.id, "/system/config", false), 0);
    EXPECT_THAT(display.texts(), ElementsAre("NODE DELETED: /system/config"));
    EXPECT_THAT(changes.texts(), ElementsAre("NODE DELETED: /system/config"));
    EXPECT_THAT(requester_.texts(), IsEmpty());
    std::string text;
    EXPECT_EQ(service_->get_node("/system/config", &text, ""), -1);
}

TEST_F(Delete, OfAMissingNodeFails) {
    log_.clear();
    EXPECT_EQ(service_->comp_delete(requester_.id, "/nope", false), -1);
    EXPECT_TRUE(log_.contains(LOG_ERR,
                              " comp_delete : DeleteNode - ERROR, ncomp_id=1073741852, del_data = /nope, "
                              "ERR_CODE: 50010"));
}

TEST_F(Delete, UnregisteredComponentIsRefused) {
    EXPECT_EQ(service_->comp_delete(QO_CMPID_CLP, "/version", false), -1);
    EXPECT_THAT(logged(), Contains(QoLogLine{LOG_ERR,
                                             "Component -not Registered, comp_delete : ncomp_id=1073741855 , "
                                             "del_data = /version, ERR_CODE=50014"}));
    std::string text;
    EXPECT_EQ(service_->get_node("/version", &text, ""), 0);
}

TEST_F(Delete, FailedSubscriberLookupIsLogged) {
    QoTestComponent display(*service_, QO_CMPID_ALERTS, "/display");
    display.subscribe("/version");
    fail_subscriber_lookup = true;
    EXPECT_EQ(service_->comp_delete(requester_.id, "/version", false), -1);
    EXPECT_TRUE(log_.contains(LOG_ERR, " comp_delete : subscriber_list is NULL or ret_val = -1"));
}

TEST_F(Delete, FailedNoticeIsLoggedWithThePublishHandlersText) {
    QoTestComponent display(*service_, QO_CMPID_ALERTS, "/display");
    display.subscribe("/version");
    display.queue.fill();
    EXPECT_EQ(service_->comp_delete(requester_.id, "/version", false), -1);
    EXPECT_TRUE(log_.contains(LOG_ERR, " comp_publish : comp_notify ERROR"));
}

// ---- clear ----

TEST_F(Clear, DefaultIsRepublishedToTheSubscribersOnly) {
    QoTestComponent display(*service_, QO_CMPID_ALERTS, "/display");
    display.subscribe("/version", true);
    requester_.subscribe("/version");
    ASSERT_EQ(service_->comp_publish(QO_CMPID_DEMO, R"({"version":{"schemaVersion":"9"}})"), 0);
    display.texts();
    log_.clear();
    EXPECT_EQ(service_->comp_delete(requester_.id, "/version", true), 0);
    EXPECT_THAT(display.texts(), ElementsAre(kVersion));
    EXPECT_THAT(requester_.texts(), IsEmpty());
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "comp_get : send_data " + std::string(kVersion)));
}

TEST_F(Clear, WithoutASubscriberListTheRequesterIsTheOnlyRecipient) {
    QoTestComponent display(*service_, QO_CMPID_ALERTS, "/display");
    display.subscribe("/version");
    fail_subscriber_lookup = true;
    EXPECT_EQ(service_->comp_delete(requester_.id, "/version", true), 0);
    EXPECT_THAT(display.texts(), IsEmpty());
    EXPECT_THAT(requester_.texts(), ElementsAre(kVersion));
}

TEST_F(Clear, NodeThatTheDefaultTreeLacksIsRepublishedAsGone) {
    QoTestComponent display(*service_, QO_CMPID_ALERTS, "/display");
    display.subscribe("/version");
    ASSERT_EQ(service_->comp_publish(requester_.id, R"({"version":{"extra":1}})"), 0);
    display.texts();
    EXPECT_EQ(service_->comp_delete(requester_.id, "/version/extra", true), 0);
    EXPECT_THAT(display.texts(), ElementsAre("/version/extra:{}"));
}

TEST_F(Clear, FailedRepublishingIsLogged) {
    QoTestComponent display(*service_, QO_CMPID_ALERTS, "/display");
    display.subscribe("/version");
    display.queue.fill();
    log_.clear();
    EXPECT_EQ(service_->comp_delete(requester_.id, "/version", true), -1);
    const std::vector<QoLogLine> lines = logged();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_THAT(std::vector<QoLogLine>(lines.end() - 4, lines.end()),
                ElementsAre(send_failure("/display", std::string(kVersion).length()),
                            QoLogLine{LOG_ERR, " comp_get : comp_notify ERROR"}, kFinalFailure,
                            QoLogLine{LOG_ERR, "comp_delete : Publishing restored node failed: /version"}));
}

// ---- save ----

namespace {

const std::string kSavedTree = std::string(QO_DATA_DIRECTORY) + QO_SAVED_TREE_FILE;
const std::string kActiveTree = std::string(QO_DATA_DIRECTORY) + QO_ACTIVE_TREE_FILE;

}  // namespace

TEST_F(Save, WritesTheTreeAtOnce) {
    EXPECT_EQ(service_->comp_save(requester_.id), 0);
    EXPECT_TRUE(std::filesystem::is_regular_file(kSavedTree));
    EXPECT_FALSE(std::filesystem::exists(kActiveTree));
    EXPECT_EQ(service_->comp_save_debug(requester_.id), 0);
    EXPECT_TRUE(std::filesystem::is_regular_file(kActiveTree));
}

TEST_F(Save, UnregisteredComponentIsRefused) {
    EXPECT_EQ(service_->comp_save(QO_CMPID_CLP), -1);
    EXPECT_EQ(service_->comp_save_debug(QO_CMPID_CLP), -1);
    EXPECT_THAT(
        logged(),
        AllOf(Contains(QoLogLine{LOG_ERR, "Component not Registered, comp_save : ncomp_id=1073741855, ERR_CODE=50014"}),
              Contains(QoLogLine{LOG_ERR, "Component not Registered, comp_save_debug : ncomp_id=1073741855"})));
    EXPECT_FALSE(std::filesystem::exists(kSavedTree));
}

TEST_F(Save, FailuresAreLoggedBothUnderTheNameOfSave) {
    std::filesystem::create_directory(kSavedTree);
    std::filesystem::create_directory(kActiveTree);
    EXPECT_EQ(service_->comp_save(requester_.id), -1);
    EXPECT_EQ(service_->comp_save_debug(requester_.id), -1);
    std::filesystem::remove(kSavedTree);
    std::filesystem::remove(kActiveTree);
    EXPECT_TRUE(log_.contains(LOG_ERR, " comp_save : SaveDataTree return FAIL: -1, ERR_CODE:50009"));
    EXPECT_TRUE(log_.contains(LOG_ERR, " comp_save : SaveActiveTreeForDebug return FAIL: -1"));
}

// ---- sync ----

TEST_F(Sync, ForwardsTheBufferBehindTheRequestersNumber) {
    QoTestComponent destination(*service_, QO_CMPID_ALERTS, "/destination");
    EXPECT_EQ(service_->comp_sync(requester_.id, destination.id, "/any text"), 0);
    EXPECT_THAT(destination.texts(), ElementsAre("sync:1073741852:/any text"));
}

TEST_F(Sync, FailedSendIsLogged) {
    QoTestComponent destination(*service_, QO_CMPID_ALERTS, "/destination");
    destination.queue.fill();
    log_.clear();
    EXPECT_EQ(service_->comp_sync(requester_.id, destination.id, "x"), -1);
    EXPECT_THAT(logged(), ElementsAre(QoLogLine{LOG_ERR,
                                                "comp_sync() from pushpull to \"/destination\" queue : "
                                                "mq_send: failed:, ERR_CODE : 50003, msg size = 17"}));
}

TEST_F(Sync, UnregisteredDestinationFailsLikeASend) {
    log_.clear();
    EXPECT_EQ(service_->comp_sync(requester_.id, QO_CMPID_CLP, "x"), -1);
    EXPECT_THAT(logged(), ElementsAre(QoLogLine{LOG_ERR,
                                                "comp_sync() from pushpull to \"\" queue : mq_send: failed:, "
                                                "ERR_CODE : 50003, msg size = 17"}));
}
