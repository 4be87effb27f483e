// "get", "delete", "clear", "save", "save_debug" and "sync" through the real service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <fstream>
#include <sstream>

#include "component.h"
#include "qo_pushpull_json.h"
#include "service_process.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr int32_t kReader = QO_CMPID_DEMO;
constexpr int32_t kOther = QO_CMPID_TESTPUBLISHER;
constexpr int32_t kSystemController = QO_CMPID_HVAC_SYSCON_SUB;

// The text that the service writes for a JSON text.
std::string formatted(const std::string& json) {
    const QoJsonNode node = qo_json_parse(json);
    return qo_json_write_formatted(node.get());
}

std::string file_text(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class Read : public RunningService {
protected:
    void SetUp() override {
        RunningService::SetUp();
        if (!IsSkipped()) reader_.emplace(service(), kReader);
    }
    void TearDown() override {
        reader_.reset();
        RunningService::TearDown();
    }
    void ask(const std::string& pointers, const std::string& sender_id = "", bool pack = false) {
        EXPECT_EQ(reader_->api().get(reader_->id(), pointers, sender_id, pack), 0);
    }

    std::optional<Component> reader_;
};

// ---- get ----

using Get = Read;

TEST_F(Get, AnswersTheNodeWithThePathToItAsFormattedText) {
    EXPECT_EQ(reader_->get("/version"), formatted(R"({"version":{"schemaVersion":"0.0"}})"));
    EXPECT_EQ(reader_->get("/version/schemaVersion"), formatted(R"({"version":{"schemaVersion":"0.0"}})"));
    EXPECT_EQ(reader_->get("/system/registration/eula"),
              formatted(R"({"system":{"registration":{"eula":"accepted"}}})"));
}

TEST_F(Get, OfAnArrayElementAnswersThatElementAlone) {
    ASSERT_EQ(reader_->api().publish(reader_->id(), R"({"error":[{"id":1,"code":3,"message":"a"}]})"), 0);
    EXPECT_EQ(reader_->get("/error/1"), formatted(R"({"error":[{"id":1,"code":3,"message":"a"}]})"));
    EXPECT_EQ(reader_->get("/error/1/code"), formatted(R"({"error":[{"code":3}]})"));
    EXPECT_EQ(reader_->get("/error/2"), "/error/2:{}");
}

TEST_F(Get, WithASenderIdPrefixesEveryMessage) {
    ask("/version;/nope;/devices/size;/devices/3/size", "tag 1");
    EXPECT_EQ(reader_->next_message(), "sender_id:tag 1;" + formatted(R"({"version":{"schemaVersion":"0.0"}})"));
    EXPECT_EQ(reader_->next_message(), "sender_id:tag 1;/nope:{}");
    EXPECT_EQ(reader_->next_message(), "sender_id:tag 1;/devices/size:1");
    EXPECT_EQ(reader_->next_message(), "sender_id:tag 1;/devices/3/size:-1");
}

TEST_F(Get, TheFirstEmptyPieceEndsTheList) {
    ask("/version;;/usb");
    EXPECT_THAT(reader_->next_message(), HasSubstr("schemaVersion"));
    EXPECT_TRUE(reader_->hears_nothing());
}

TEST_F(Get, OfAnEmptyListSendsNothingAndFails) {
    for (const char* pointers : {"", ";", ";/version"}) ask(pointers);
    EXPECT_TRUE(reader_->hears_nothing());
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, " comp_get : Incorrect Path or comp_notify Failed"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component get data failed = -1"));
}

TEST_F(Get, OfWhatIsNotThereAnswersThePointerAndAnEmptyObject) {
    for (const char* pointer : {"/nope", "/version/schemaVersion/x", "/", "//", "version", "/devices/-1", "/devices/x",
                                "/devices/99999999999999999999"})
        EXPECT_EQ(reader_->get(pointer), std::string(pointer) + ":{}");
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "comp_get: ReadNode failed OR json_size is zero, node = /nope"));
    EXPECT_TRUE(events().wait_for_store_log(LOG_ERR, "Cannot read the entire tree"));
}

TEST_F(Get, OfASizeAnswersThePointerAndTheNumberOfElements) {
    EXPECT_EQ(reader_->get("/devices/size"), "/devices/size:1");
    ASSERT_EQ(reader_->api().publish(reader_->id(), R"({"devices":[{"id":5,"device":{}}]})"), 0);
    EXPECT_EQ(reader_->get("/devices/size"), "/devices/size:6");
}

TEST_F(Get, OnlyArraysHaveASize) {
    EXPECT_EQ(reader_->get("/system/config/size"), "/system/config/size:-1");
    EXPECT_EQ(reader_->get("/version/schemaVersion/size"), "/version/schemaVersion/size:-1");
    EXPECT_EQ(reader_->get("/nope/size"), "/nope/size:-1");
    EXPECT_EQ(reader_->get("/size"), "/size:-1");
}

TEST_F(Get, TheSizeOfAnElementByItsPositionIsRefused) {
    EXPECT_EQ(reader_->get("/devices/3/size"), "/devices/3/size:-1");
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "PushPull:*@#:out =3,Read path incorrect"));
}

TEST_F(Get, ASizeIsCutAtTheFirstSizeInTheTextEvenInsideALongerName) {
    EXPECT_EQ(reader_->get("/logs/sizer/size"), "/logs/sizer/size:-1");  // reads "/logs", which is no array
    EXPECT_EQ(reader_->get("/devices/sizer/size"), "/devices/sizer/size:1");
    EXPECT_EQ(reader_->get("/logs/sizer"), "/logs/sizer:{}");
}

// ---- packing ----

TEST_F(Get, OfTwoPointersPackedAnswersBothInOneMessageWhenTheyFit) {
    ask("/version;/resetKivo", "p", true);
    EXPECT_EQ(reader_->next_message(),
              R"(sender_id:p;{"version":{"schemaVersion":"0.0"},"resetKivo":{"state":"run"}})");
    EXPECT_TRUE(reader_->hears_nothing());
}

// What is packed so far with its prefix, and the next answer as it would be sent alone, must stay below the
// message size of the requester's queue: 47 + 70 here.
TEST_F(Get, OfTwoPointersPackedAnswersInTwoMessagesWhenTheyDoNotFit) {
    Component just_enough(service(), kOther, {4, 118});
    ASSERT_EQ(just_enough.api().get(just_enough.id(), "/version;/ledErrorType", "p", true), 0);
    EXPECT_EQ(
        just_enough.next_message(),
        R"(sender_id:p;{"version":{"schemaVersion":"0.0"},"ledErrorType":{"errorType":"NOERROR","isError":false}})");

    Component too_small(service(), QO_CMPID_SCHEDULER, {4, 117});
    ASSERT_EQ(too_small.api().get(too_small.id(), "/version;/ledErrorType", "p", true), 0);
    EXPECT_EQ(too_small.next_message(), R"(sender_id:p;{"version":{"schemaVersion":"0.0"}})");
    EXPECT_EQ(too_small.next_message(), R"(sender_id:p;{"ledErrorType":{"errorType":"NOERROR","isError":false}})");
}

TEST_F(Get, PackedJoinsThePathsThatTheAnswersShare) {
    ask("/system/registration/eula;/system/registration/state", "", true);
    EXPECT_EQ(reader_->next_message(), R"({"system":{"registration":{"eula":"accepted","state":"not registered"}}})");
}

TEST_F(Get, PackedAnswersLoseTheirMetadata) {
    ask("/centerButton;/logs", "", true);
    EXPECT_EQ(reader_->next_message(),
              R"({"centerButton":{"status":"unknown"},)"
              R"("logs":{"mapper":"","debugloglevel":"notice","flush":"","vexalog":"disable"}})");
}

TEST_F(Get, PackedOfWhatCannotBeJoinedIsLoggedAndNotSent) {
    ask("/nope;/version;/devices/size", "p", true);
    EXPECT_EQ(reader_->next_message(), R"(sender_id:p;{"version":{"schemaVersion":"0.0"}})");
    EXPECT_TRUE(reader_->hears_nothing());
    EXPECT_TRUE(events().wait_for_log(LOG_DEBUG, "pushpull : MessageQueue: GET : packing error"));
}

TEST_F(Get, PackedOfNothingThatCanBePackedStillAnswers) {
    ask("/nope;/devices/size", "p", true);
    EXPECT_EQ(reader_->next_message(), "sender_id:p;{}");
    EXPECT_TRUE(reader_->hears_nothing());
}

TEST_F(Get, PackedAnAnswerTooLargeByItselfIsSentAloneAndFails) {
    Component small(service(), kOther, {4, 100});
    ASSERT_EQ(small.api().get(small.id(), "/version;/system/config;/resetKivo", "", true), 0);
    EXPECT_THAT(small.next_message(), HasSubstr("schemaVersion"));
    EXPECT_THAT(small.next_message(), HasSubstr("resetKivo"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, " comp_get : comp_notify Failed"));
}

// ---- delete and clear ----

using Delete = Read;

TEST_F(Delete, RemovesTheNodeAndTellsItsSubscribersButNotTheRequester) {
    Component controller(service(), kSystemController);
    for (Component* component : {&controller, &*reader_})
        ASSERT_EQ(component->api().subscribe(component->id(), "/ledErrorType", component == &controller), 0);
    ASSERT_EQ(controller.api().delete_node(controller.id(), "/ledErrorType/errorType"), 0);
    EXPECT_EQ(reader_->next_message(), "NODE DELETED: /ledErrorType/errorType");
    EXPECT_TRUE(controller.hears_nothing());
    EXPECT_EQ(reader_->get("/ledErrorType"), formatted(R"({"ledErrorType":{"isError":false}})"));
}

TEST_F(Delete, TellsChangeOnlySubscribersToo) {
    Component controller(service(), kSystemController);
    ASSERT_EQ(reader_->api().subscribe(reader_->id(), "/ledErrorType", true), 0);
    reader_->fence();
    ASSERT_EQ(controller.api().delete_node(controller.id(), "/ledErrorType"), 0);
    EXPECT_EQ(reader_->next_message(), "NODE DELETED: /ledErrorType");
}

TEST_F(Delete, OfAnArrayElementLeavesAPlaceholderAndOfTheLastOneRemovesIt) {
    Component controller(service(), kSystemController);
    ASSERT_EQ(reader_->api().publish(reader_->id(), R"({"error":[{"id":1,"code":1},{"id":2,"code":2}]})"), 0);
    reader_->fence();
    ASSERT_EQ(controller.api().delete_node(controller.id(), "/error/1"), 0);
    controller.fence();
    EXPECT_EQ(reader_->get("/error/1"), formatted(R"({"error":[{"id":1}]})"));
    ASSERT_EQ(controller.api().delete_node(controller.id(), "/error/2"), 0);
    controller.fence();
    EXPECT_EQ(reader_->get("/error/size"), "/error/size:2");
}

TEST_F(Delete, OfTheWholeTreeOrOfNothingFails) {
    Component controller(service(), kSystemController);
    const std::string before = reader_->active_tree();
    for (const char* pointer : {"/", "//", "", "usb", "/nope", "/usb/state/x", "/devices/7"}) {
        ASSERT_EQ(controller.api().delete_node(controller.id(), pointer), 0);
        EXPECT_TRUE(controller.hears_nothing()) << pointer;
    }
    EXPECT_EQ(reader_->active_tree(), before);
    EXPECT_TRUE(events().wait_for_store_log(LOG_ERR, "Cannot delete the entire tree"));
    EXPECT_TRUE(events().wait_for_log(
        LOG_ERR, " comp_delete : DeleteNode - ERROR, ncomp_id=1073741827, del_data = /nope, ERR_CODE: 50010"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "component delete request failed = -1"));
}

using Clear = Read;

TEST_F(Clear, RepublishesTheDefaultValueToTheSubscribersAndNotToTheRequester) {
    Component other(service(), kOther);
    ASSERT_EQ(other.api().subscribe(other.id(), "/version", true), 0);
    other.fence();
    ASSERT_EQ(reader_->api().publish(reader_->id(), R"({"version":{"schemaVersion":"8","more":1}})"), 0);
    EXPECT_THAT(other.next_message(), HasSubstr("more"));
    ASSERT_EQ(reader_->api().clear(reader_->id(), "/version"), 0);
    EXPECT_EQ(other.next_message(), formatted(R"({"version":{"schemaVersion":"0.0"}})"));
    EXPECT_TRUE(reader_->hears_nothing());
    EXPECT_EQ(reader_->get("/version"), formatted(R"({"version":{"schemaVersion":"0.0"}})"));
}

TEST_F(Clear, BringsTheDefaultMetadataBack) {
    ASSERT_EQ(reader_->api().clear(reader_->id(), "/logs"), 0);
    EXPECT_EQ(reader_->get("/logs"), formatted(R"({"logs":{"mapper":"","debugloglevel":"notice",)"
                                               R"("writeAccess":"remote","flush":"","vexalog":"disable"}})"));
}

TEST_F(Clear, OfWhatTheDefaultTreeLacksDeletesIt) {
    ASSERT_EQ(reader_->api().publish(reader_->id(), R"({"version":{"added":1}})"), 0);
    ASSERT_EQ(reader_->api().clear(reader_->id(), "/version/added"), 0);
    EXPECT_EQ(reader_->get("/version/added"), "/version/added:{}");
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Clear: Failed to read node(/version/added) from default tree."));
}

TEST_F(Clear, OfNothingFails) {
    ASSERT_EQ(reader_->api().clear(reader_->id(), "/nope"), 0);
    EXPECT_TRUE(reader_->hears_nothing());
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "component clear request failed = -1"));
}

// ---- save ----

using Save = Read;

TEST_F(Save, WritesTheTreeWithoutWhatDoesNotPersistAtOnce) {
    ASSERT_EQ(reader_->api().publish(reader_->id(), R"({"version":{"schemaVersion":"4"}})"), 0);
    ASSERT_EQ(reader_->api().flush(reader_->id()), 0);
    reader_->fence();
    EXPECT_THAT(file_text("/kivo/data/saved_tree.json"),
                AllOf(StartsWith("{\n\t\"crc\""), HasSubstr("\"schemaVersion\""), Not(HasSubstr("centerButton"))));
    EXPECT_TRUE(events().wait_for_store_log(LOG_INFO, "Forced Save"));
    EXPECT_TRUE(events().wait_for_store_log(LOG_INFO, "Saved the data tree"));
}

TEST_F(Save, ForDebuggingWritesTheWholeTree) {
    EXPECT_THAT(reader_->active_tree(), AllOf(HasSubstr("centerButton"), Not(HasSubstr("\"crc\""))));
    EXPECT_FALSE(std::filesystem::exists("/kivo/data/saved_tree.json"));
}

TEST_F(Save, IntoAMissingDirectoryFails) {
    std::filesystem::remove_all("/kivo/data");
    ASSERT_EQ(reader_->api().flush(reader_->id()), 0);
    ASSERT_EQ(reader_->api().save_complete_tree(reader_->id()), 0);
    reader_->fence();
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, " comp_save : SaveDataTree return FAIL: -1, ERR_CODE:50009"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "component save request failed = -1"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, " comp_save : SaveActiveTreeForDebug return FAIL: -1"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "component save debug request failed = -1"));
}

// ---- sync ----

using Sync = Read;

TEST_F(Sync, ForwardsTheTextWithTheRequestersNumber) {
    Component other(service(), kOther);
    other.fence();
    ASSERT_EQ(reader_->api().comp_sync(reader_->id(), other.id(), "any;text:{\"\\u00e9\"}"), 0);
    EXPECT_EQ(other.next_message(), "sync:1073741852:any;text:{\"\\u00e9\"}");
    EXPECT_TRUE(reader_->hears_nothing());
}

TEST_F(Sync, WorksForAnUnregisteredRequester) {
    ASSERT_TRUE(service().post(R"({"function":"sync","arg":{"comp_id":1351,"dst_comp_id":1073741852,"buffer":"x"}})"));
    EXPECT_EQ(reader_->next_message(), "sync:1351:x");
}

TEST_F(Sync, ToAnUnregisteredComponentFails) {
    ASSERT_EQ(reader_->api().comp_sync(reader_->id(), QO_CMPID_SCHEDULER, "x"), 0);
    EXPECT_TRUE(reader_->hears_nothing());
    EXPECT_TRUE(events().wait_for_log(
        LOG_ERR, "comp_sync() from pushpull to \"\" queue : mq_send: failed:, ERR_CODE : 50003, msg size = 17"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component comp_sync failed = -1"));
}

}  // namespace
