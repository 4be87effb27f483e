// get, tree, components and queues against the real service.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "component.h"
#include "pushpullctl_run.h"
#include "qo_ctl_moment.h"
#include "qo_ctl_process.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class PushpullctlGet : public RunningService {};

TEST_F(PushpullctlGet, ANodeIsOneLineOfJsonInAPipe) {
    const PushpullctlResult result = run_pushpullctl({"get", "/logs"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output,
              R"({"logs":{"mapper":"","debugloglevel":"notice","writeAccess":"remote","flush":"","vexalog":"disable"}})"
              "\n");
    EXPECT_EQ(result.messages, "");
}

TEST_F(PushpullctlGet, NumbersKeepTheirText) {
    EXPECT_EQ(run_pushpullctl({"get", "/system/config/circulateTime"}).output,
              R"({"system":{"config":{"circulateTime":35.0}}})"
              "\n");
}

TEST_F(PushpullctlGet, SeveralPointersAreAnsweredInTheirOrder) {
    const PushpullctlResult result = run_pushpullctl({"get", "/version", "/centerButton", "/version/schemaVersion"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, R"({"version":{"schemaVersion":"0.0"}})"
                             "\n"
                             R"({"centerButton":{"status":"unknown","doNotPersist":true}})"
                             "\n"
                             R"({"version":{"schemaVersion":"0.0"}})"
                             "\n");
}

TEST_F(PushpullctlGet, AMissingNodeIsToldOnStderrAndTheOthersArePrinted) {
    const PushpullctlResult result = run_pushpullctl({"get", "/nosuch", "/version"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, R"({"version":{"schemaVersion":"0.0"}})"
                             "\n");
    EXPECT_EQ(result.messages, "pushpullctl: /nosuch: no such node\n");
}

TEST_F(PushpullctlGet, TheSizeOfAnArrayIsANumber) {
    const PushpullctlResult result = run_pushpullctl({"get", "--size", "/devices", "/siblings"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "1\n1\n");
}

TEST_F(PushpullctlGet, ASizeThatCannotBeAskedIsToldByThePointerThatWasGiven) {
    for (const char* pointer : {"/system", "/nosuch", "/devices/0"}) {
        const PushpullctlResult result = run_pushpullctl({"get", "--size", pointer});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.messages,
                  std::string("pushpullctl: ") + pointer + ": no array there whose size can be asked for\n");
    }
}

TEST_F(PushpullctlGet, PackedAnswersAreOneObject) {
    const PushpullctlResult result = run_pushpullctl({"get", "--pack", "/version", "/usb/mode"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, R"({"version":{"schemaVersion":"0.0"},"usb":{"mode":"fwm"}})"
                             "\n");
}

TEST_F(PushpullctlGet, PackedAnswersThatDoNotFitInOneMessageAreSeveralLines) {
    const PushpullctlResult result =
        run_pushpullctl({"get", "--pack", "--message-size", "512", "/nmKivowifi", "/remoteStatus", "/version"});
    EXPECT_EQ(result.status, 0) << result.messages;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 2);
    EXPECT_THAT(result.output, StartsWith(R"({"nmKivowifi":)"));
    EXPECT_THAT(result.output, HasSubstr(R"("version":{"schemaVersion":"0.0"})"));
}

TEST_F(PushpullctlGet, NothingThatATerminalObeysOrThatTurnsTextAroundComesThrough) {
    ASSERT_EQ(run_pushpullctl({"publish", "{\"version\":{\"schemaVersion\":\"\xC2\x9B\x32J\xE2\x80\xAEtxt\"}}"}).status,
              0);
    EXPECT_EQ(run_pushpullctl({"get", "/version"}).output, R"({"version":{"schemaVersion":"\u009b2J\u202etxt"}})"
                                                           "\n");
    EXPECT_EQ(run_pushpullctl({"get", "/\xC2\x9B\x32J\xE2\x80\xAEtxt\npushpullctl: \x1b[2J"}).messages,
              R"(pushpullctl: /\u009b2J\u202etxt\u000apushpullctl: \u001b[2J: no such node)"
              "\n");
    EXPECT_EQ(run_pushpullctl({"stats", "/nowhere/\x9b\x32J"}).messages,
              "pushpullctl: /nowhere/\\x9b2J: No such file or directory\npushpullctl: there are no rows\n");
}

TEST_F(PushpullctlGet, WhatIsMissingAmongPackedAnswersIsTold) {
    const PushpullctlResult result = run_pushpullctl({"get", "--pack", "/nosuch", "/version", "/devices/7"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, R"({"version":{"schemaVersion":"0.0"}})"
                             "\n");
    EXPECT_EQ(result.messages,
              "pushpullctl: /nosuch: no such node, or longer than a message\n"
              "pushpullctl: /devices/7: no such node, or longer than a message\n");
}

TEST_F(PushpullctlGet, AnAnswerTooLongToBeReceivedIsToldAtOnce) {
    const PushpullctlResult result = run_pushpullctl({"get", "--message-size", "512", "--timeout", "3600", "/system"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.messages, HasSubstr("/system: the answer is longer than the 512 bytes"));
}

TEST_F(PushpullctlGet, ActsAsTheComponentThatItIsTold) {
    EXPECT_EQ(run_pushpullctl({"get", "/version", "--as", "webserver_gateway_c3"}).status, 0);
    EXPECT_TRUE(
        events().wait_for_log(LOG_INFO, "QoPushPullQueueMonitor: Adding queue /pushpullctl-1204 (component ID 1204)"));
    EXPECT_EQ(run_pushpullctl({"get", "/version", "--as", "1240"}).status, 0);
    EXPECT_TRUE(
        events().wait_for_log(LOG_INFO, "QoPushPullQueueMonitor: Adding queue /pushpullctl-1240 (component ID 1240)"));
}

TEST_F(PushpullctlGet, InColourItIsFormatted) {
    EXPECT_EQ(run_pushpullctl({"get", "/version", "--color", "always"}).output,
              "{\n\t\033[34m\"version\"\033[0m: {\n\t\t\033[34m\"schemaVersion\"\033[0m: "
              "\033[32m\"0.0\"\033[0m\n\t}\n}\n");
}

TEST_F(PushpullctlGet, OutputThatCannotBeWrittenEndsWith1) {
    PushpullctlRun run({"get", "/version"}, "", PushpullctlRun::Reader::full_device);
    EXPECT_EQ(run.wait(), 1);
    EXPECT_EQ(run.messages(), "pushpullctl: cannot write to standard output: No space left on device\n");
}

// ---- tree ----

class PushpullctlTree : public RunningService {};

TEST_F(PushpullctlTree, FromTheDumpHoldsMembersThatAreNotKnownHere) {
    ASSERT_EQ(run_pushpullctl({"publish", R"({"siteNotes":{"text":"hello"}})"}).status, 0);
    const PushpullctlResult result = run_pushpullctl({"tree"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, StartsWith("{\n\t\"centerButton\": {\n\t\t\"status\": \"unknown\""));
    EXPECT_THAT(result.output, HasSubstr("\n\t\"siteNotes\": {\n\t\t\"text\": \"hello\"\n\t}"));
    EXPECT_EQ(result.messages, "");
}

TEST_F(PushpullctlTree, WithoutTheDumpAsksForTheKnownMembersAndSaysSo) {
    ASSERT_EQ(run_pushpullctl({"publish", R"({"siteNotes":{"text":"hello"}})"}).status, 0);
    ASSERT_EQ(run_pushpullctl({"delete", "/usb"}).status, 0);
    const PushpullctlResult result = run_pushpullctl({"tree", "--no-dump"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, StartsWith("{\n\t\"centerButton\": {\n\t\t\"status\": \"unknown\""));
    EXPECT_THAT(result.output, HasSubstr("\n\t\"connectionManagement\": ["));
    EXPECT_THAT(result.output, Not(HasSubstr("siteNotes")));
    EXPECT_THAT(result.output, Not(HasSubstr("\"usb\"")));
    EXPECT_THAT(result.messages, HasSubstr("the service may hold more"));
    EXPECT_FALSE(std::filesystem::exists("/kivo/data/active_tree.json"));
}

TEST_F(PushpullctlTree, StandsInOneLineWhenAskedTo) {
    const PushpullctlResult result = run_pushpullctl({"tree", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, StartsWith(R"({"centerButton":{"status":"unknown")"));
    EXPECT_EQ(result.output.find('\n'), result.output.size() - 1);
}

TEST_F(PushpullctlTree, BothWaysGiveTheSameForTheDefaultTree) {
    EXPECT_EQ(run_pushpullctl({"tree"}).output, run_pushpullctl({"tree", "--no-dump"}).output);
}

TEST_F(PushpullctlTree, ADumpThatIsNotNewIsNotTakenForOne) {
    std::filesystem::create_directory("/kivo/data/active_tree.json");  // the service cannot write there
    const struct timespec long_ago[2] = {{1, 0}, {1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, "/kivo/data/active_tree.json", long_ago, 0), 0);
    const PushpullctlResult result = run_pushpullctl({"tree"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.messages, HasSubstr("the service's dump cannot be read from here"));
    EXPECT_THAT(result.output, StartsWith("{\n\t\"centerButton\":"));
}

TEST_F(PushpullctlTree, AMemberTooLongToBeReceivedIsToldAndTheOthersAreShown) {
    const PushpullctlResult result = run_pushpullctl({"tree", "--no-dump", "--message-size", "2048"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages, HasSubstr("/system: the answer is longer than the 2048 bytes"));
    EXPECT_THAT(result.output, HasSubstr("\t\"schemaVersion\": \"0.0\"\n"));
}

// ---- components and queues ----

class PushpullctlLists : public ServiceProcess {
protected:
    /// Of a queue that a test has open, and no service.
    static std::string this_process_as_reader() {
        const std::optional<QoCtlProcess> process = qo_ctl_look_at_process(getpid());
        return R"("readers":[{"process":)" + std::to_string(getpid()) + R"(,"program":")" + process->program +
               R"(","state":"running","since":")" + qo_ctl_second_text(process->started) + R"("}])";
    }
};

TEST_F(PushpullctlLists, ComponentsNeedNoService) {
    const PushpullctlResult result = run_pushpullctl({"components"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 80);
    EXPECT_THAT(result.output, StartsWith(R"({"name":"PUSHPULL","number":1100,"hex":"0x44C","class":"internal"})"
                                          "\n"));
    EXPECT_THAT(result.output,
                HasSubstr(R"({"name":"REMOTE_GATEWAY_DM","number":1302,"hex":"0x516","class":"remote client"})"
                          "\n"));
}

TEST_F(PushpullctlLists, ComponentsAreATableInColour) {
    EXPECT_THAT(run_pushpullctl({"components", "--color", "always"}).output,
                HasSubstr("DEMO                          1073741852  0x4000001C  internal\n"));
}

TEST_F(PushpullctlLists, QueuesShowDepthAndLimits) {
    service().make_queue();
    ASSERT_TRUE(service().post("x"));
    const PushpullctlResult result = run_pushpullctl({"queues"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, R"({"queue":"/pushpull","messages":1,"max_messages":)" +
                                 std::to_string(service().capacity()) +
                                 R"(,"message_size":262144,"service":true,"component":"PUSHPULL","number":1100,)" +
                                 this_process_as_reader() + "}\n");
}

TEST_F(PushpullctlLists, QueuesInColourHaveAFillBar) {
    service().make_queue();
    while (service().waiting_requests() < service().capacity()) ASSERT_TRUE(service().post("x"));
    EXPECT_THAT(run_pushpullctl({"queues", "--color", "always"}).output, HasSubstr("[####################]"));
}

TEST_F(PushpullctlLists, WatchedQueuesAreShownEverySecondWithTheTimeTheyAreFullUntilCtrlC) {
    service().make_queue();
    while (service().waiting_requests() < service().capacity()) ASSERT_TRUE(service().post("x"));
    PushpullctlRun run({"queues", "--watch"});
    ASSERT_TRUE(run.wait_for_output(R"("full_for":0,)"));
    ASSERT_TRUE(run.wait_for_output(R"("full_for":2,)"));
    ASSERT_TRUE(service().take_request());
    ASSERT_TRUE(run.wait_for_output(R"("messages":)" + std::to_string(service().capacity() - 1)));
    run.send_signal(SIGINT);
    EXPECT_EQ(run.wait(), 0);
}

TEST_F(PushpullctlLists, WithoutTheServicesQueueTheyEndWith3) {
    const PushpullctlResult result = run_pushpullctl({"queues"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.output, IsEmpty());
    EXPECT_THAT(result.messages, HasSubstr("/pushpull is not there"));
}

TEST_F(PushpullctlLists, WhereTheQueueFileSystemIsNotMountedTheServicesQueueIsShownWithAnAdvice) {
    service().make_queue();
    ASSERT_EQ(umount2("/dev/mqueue", MNT_DETACH), 0);
    const PushpullctlResult result = run_pushpullctl({"queues"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, StartsWith(R"({"queue":"/pushpull",)"));
    EXPECT_THAT(result.messages, HasSubstr("mount -t mqueue none /dev/mqueue"));
}

// ---- names ----

class PushpullctlNames : public RunningService {};

TEST_F(PushpullctlNames, AreThePointersOfWhatIsBelow) {
    EXPECT_EQ(run_pushpullctl({"get", "--names", "/version"}).output, "/version/schemaVersion\n");
    EXPECT_THAT(run_pushpullctl({"get", "--names", "/devices"}).output, testing::StartsWith("/devices/0\n"));
    EXPECT_EQ(run_pushpullctl({"get", "--names", "/version/schemaVersion"}).output, "");
    EXPECT_EQ(run_pushpullctl({"get", "--names", "/nothing"}).status, 1);
}

}  // namespace
