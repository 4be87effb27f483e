// publish, delete, clear, save, dump, sync, init and exit against the real service.
#include <fcntl.h>
#include <sys/stat.h>

#include "component.h"
#include "pushpullctl_run.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr Component::Queue kSmall{8, 4096};

std::string node(const std::string& pointer) { return run_pushpullctl({"get", pointer}).output; }

// ---- publish ----

class PushpullctlPublish : public RunningService {};

TEST_F(PushpullctlPublish, TheTextReachesTheTreeAndSubscribersAsItWasGiven) {
    Component display(service(), QO_CMPID_DEMO, kSmall);
    ASSERT_EQ(display.api().subscribe(display.id(), "/system/config", false), 0);
    display.fence();
    const std::string text = R"({"system": {"config":{"circulateTime":36.50}} })";
    const PushpullctlResult result = run_pushpullctl({"publish", text});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.messages, "");
    EXPECT_EQ(display.next_message(), text);
    EXPECT_EQ(node("/system/config/circulateTime"), R"({"system":{"config":{"circulateTime":36.50}}})"
                                                    "\n");
}

TEST_F(PushpullctlPublish, ReadsAFile) {
    const std::string file = events().scratch() + "change.json";
    std::ofstream(file) << R"({"version":{"schemaVersion":"file"}})";
    EXPECT_EQ(run_pushpullctl({"publish", "--file", file}).status, 0);
    EXPECT_THAT(node("/version"), HasSubstr("\"file\""));
}

TEST_F(PushpullctlPublish, ReadsStandardInput) {
    EXPECT_EQ(run_pushpullctl({"publish", "-"}, R"({"version":{"schemaVersion":"stdin"}})").status, 0);
    EXPECT_THAT(node("/version"), HasSubstr("\"stdin\""));
}

TEST_F(PushpullctlPublish, InvalidJsonIsNotSent) {
    const PushpullctlResult result = run_pushpullctl({"publish", R"({"version":)"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.messages, HasSubstr("not valid JSON"));
    EXPECT_EQ(run_pushpullctl({"publish", "-"}, "").status, 2);
}

TEST_F(PushpullctlPublish, ATextThatDoesNotFitInARequestIsRefusedAtOnce) {
    // Each line feed takes two bytes in a request.
    const std::string text = R"({"version":{"schemaVersion":"x"}})" + std::string(200000, '\n');
    const PushpullctlResult result = run_pushpullctl({"publish", "-", "--timeout", "3600"}, text.substr(0, 60000));
    EXPECT_EQ(result.status, 0) << result.messages;
    const std::string file = events().scratch() + "long.json";
    std::ofstream(file) << text;
    const PushpullctlResult refused = run_pushpullctl({"publish", "--file", file, "--timeout", "3600"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.messages, HasSubstr("the request is too long"));
}

TEST_F(PushpullctlPublish, TheLargestTextThatFitsIsPublished) {
    std::string text = R"({"version":{"schemaVersion":""}})";
    text.insert(text.size() - 3, std::string(261500 - text.size(), 'x'));
    const std::string file = events().scratch() + "large.json";
    std::ofstream(file) << text;
    const PushpullctlResult result = run_pushpullctl({"publish", "--file", file});
    EXPECT_EQ(result.status, 0) << result.messages;
}

TEST_F(PushpullctlPublish, ARefusalOfTheServiceIsHandledAndStandsInItsLog) {
    EXPECT_EQ(run_pushpullctl({"publish", R"({"privateNode":{"basic":{"pin":"1234"}}})", "--as", "1201"}).status, 0);
    EXPECT_THAT(node("/privateNode/basic/pin"), HasSubstr(R"("pin":"")"));
}

// ---- delete and clear ----

class PushpullctlDelete : public RunningService {};

TEST_F(PushpullctlDelete, ANodeIsGoneAfterwards) {
    const PushpullctlResult result = run_pushpullctl({"delete", "/usb/mode"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.messages, "");
    EXPECT_EQ(run_pushpullctl({"get", "/usb/mode"}).status, 1);
}

TEST_F(PushpullctlDelete, ANodeThatIsNotThereIsTold) {
    const PushpullctlResult result = run_pushpullctl({"delete", "/nosuch"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.messages, "pushpullctl: /nosuch: no such node\n");
}

TEST_F(PushpullctlDelete, AnArrayElementThatIsNotTheLastLeavesItsPlaceholder) {
    ASSERT_EQ(run_pushpullctl({"publish", R"({"error":[{"id":2,"code":7}]})"}).status, 0);
    EXPECT_EQ(run_pushpullctl({"get", "--size", "/error"}).output, "3\n");
    EXPECT_EQ(run_pushpullctl({"delete", "/error/0"}).status, 0);
    EXPECT_EQ(node("/error/0"), R"({"error":[{"id":0}]})"
                                "\n");
    EXPECT_EQ(run_pushpullctl({"delete", "/error/2"}).status, 0);
    EXPECT_EQ(run_pushpullctl({"get", "--size", "/error"}).output, "2\n");
}

TEST_F(PushpullctlDelete, WithoutTheAuthorityNothingIsSent) {
    events().clear_log();
    const PushpullctlResult result = run_pushpullctl({"delete", "/usb", "--as", "DEMO"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages, HasSubstr("HVAC_SYSCON_SUB to HVAC_SYSCON_END"));
    EXPECT_THAT(events().log(), IsEmpty());
}

TEST_F(PushpullctlDelete, ItsSubscribersAreTold) {
    Component display(service(), QO_CMPID_DEMO, kSmall);
    ASSERT_EQ(display.api().subscribe(display.id(), "/usb", false), 0);
    display.fence();
    EXPECT_EQ(run_pushpullctl({"delete", "/usb/mode", "--as", "HVAC_SYSCON_SUB"}).status, 0);
    EXPECT_EQ(display.next_message(), "NODE DELETED: /usb/mode");
}

class PushpullctlClear : public RunningService {};

TEST_F(PushpullctlClear, ANodeIsBackAtItsDefault) {
    ASSERT_EQ(run_pushpullctl({"publish", R"({"logs":{"mapper":"changed"}})"}).status, 0);
    const PushpullctlResult result = run_pushpullctl({"clear", "/logs"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.messages, "");
    EXPECT_THAT(node("/logs"), HasSubstr(R"("mapper":"")"));
}

TEST_F(PushpullctlClear, ANodeThatTheDefaultTreeLacksIsDeletedAndTold) {
    ASSERT_EQ(run_pushpullctl({"publish", R"({"siteNotes":{"text":"hello"}})"}).status, 0);
    const PushpullctlResult result = run_pushpullctl({"clear", "/siteNotes"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.messages,
              "pushpullctl: /siteNotes: not in the default tree, so it was deleted and not restored\n");
    EXPECT_EQ(run_pushpullctl({"get", "/siteNotes"}).status, 1);
}

TEST_F(PushpullctlClear, ANodeThatIsNotThereIsTold) {
    EXPECT_EQ(run_pushpullctl({"clear", "/nosuch"}).messages, "pushpullctl: /nosuch: no such node\n");
}

// ---- save, dump, sync ----

class PushpullctlAsk : public RunningService {};

TEST_F(PushpullctlAsk, SaveHasWrittenTheFileWhenItEnds) {
    ASSERT_FALSE(std::filesystem::exists("/kivo/data/saved_tree.json"));
    EXPECT_EQ(run_pushpullctl({"save"}).status, 0);
    EXPECT_TRUE(std::filesystem::exists("/kivo/data/saved_tree.json"));
}

TEST_F(PushpullctlAsk, DumpSaysWhereTheFileIs) {
    const PushpullctlResult result = run_pushpullctl({"dump"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, R"({"file":"/kivo/data/active_tree.json","seen":true,"bytes":)" +
                                 std::to_string(std::filesystem::file_size("/kivo/data/active_tree.json")) + "}\n");
    EXPECT_EQ(result.messages, "");
}

TEST_F(PushpullctlAsk, DumpEndsWith1WhenTheFileIsNotNew) {
    std::filesystem::create_directory("/kivo/data/active_tree.json");  // the service cannot write there
    const struct timespec long_ago[2] = {{1, 0}, {1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, "/kivo/data/active_tree.json", long_ago, 0), 0);
    const PushpullctlResult result = run_pushpullctl({"dump"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, R"({"file":"/kivo/data/active_tree.json","seen":false})"
                             "\n");
    EXPECT_THAT(result.messages, HasSubstr("is not new, as seen from here"));
}

TEST_F(PushpullctlAsk, SyncReachesItsDestination) {
    Component scheduler(service(), QO_CMPID_SCHEDULER, kSmall);
    EXPECT_EQ(run_pushpullctl({"sync", "scheduler", "re;load"}).status, 0);
    EXPECT_EQ(scheduler.next_message(), "sync:" + std::to_string(int{QO_CMPID_TESTPUBLISHER}) + ":re;load");
}

// ---- init and exit ----

class PushpullctlInit : public RunningService {};

TEST_F(PushpullctlInit, WithoutYesNothingIsSent) {
    events().clear_log();
    EXPECT_EQ(run_pushpullctl({"init"}).status, 2);
    EXPECT_EQ(run_pushpullctl({"exit"}).status, 2);
    EXPECT_THAT(events().log(), IsEmpty());
}

TEST_F(PushpullctlInit, TheServiceIsBackWithItsDefaultTreeWhenItEnds) {
    Component display(service(), QO_CMPID_DEMO, kSmall);
    ASSERT_EQ(run_pushpullctl({"publish", R"({"logs":{"mapper":"changed"}})"}).status, 0);
    const PushpullctlResult result = run_pushpullctl({"init", "--yes"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.messages, "");
    EXPECT_THAT(node("/logs"), HasSubstr(R"("mapper":"")"));
    EXPECT_TRUE(is_not_registered(service(), QO_CMPID_DEMO));
    EXPECT_TRUE(is_not_registered(service(), QO_CMPID_TESTPUBLISHER));
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

class PushpullctlExit : public RunningService {};

TEST_F(PushpullctlExit, EndsTheServiceAndTellsEveryComponent) {
    Component display(service(), QO_CMPID_DEMO, kSmall);
    display.fence();
    EXPECT_EQ(run_pushpullctl({"exit", "--yes"}).status, 0);
    EXPECT_EQ(display.next_message(), "exit");
    EXPECT_EQ(service().wait_for_end(), std::optional<int>(0));
    EXPECT_THAT(queues_of_clients(), IsEmpty());
    EXPECT_EQ(service().waiting_requests(), 0);
}

}  // namespace
