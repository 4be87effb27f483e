// monitor and who --log, on what the real service logs.
#include <filesystem>
#include <fstream>

#include "component.h"
#include "pushpullctl_run.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr char kHeader[] = "Nov 22 13:00:00 board PushPull[812]: ";

/// As a syslog daemon writes a text that holds control characters.
std::string escaped(const std::string& text) {
    std::string line;
    for (const char character : text)
        line += character == '\n' ? "#012" : character == '\t' ? "#011" : std::string(1, character);
    return line;
}

/// What the service logged, as a daemon writes it to a file.
std::string log_file_text(const std::vector<QoLogLine>& lines) {
    std::string text;
    for (const QoLogLine& line : lines) {
        std::string whole = line.text;
        if (const size_t operation = whole.find("*@#"); operation != std::string::npos)
            whole.replace(operation, 3, line.operation + "@7");
        text += kHeader + escaped(whole) + "\n";
    }
    return text;
}

class PushpullctlMonitor : public RunningService {
protected:
    void SetUp() override {
        RunningService::SetUp();
        if (!IsSkipped()) file_ = events().scratch() + "syslog";
    }
    /// All that was logged since the last time, once all that was sent has been handled.
    std::string logged(Component& component) {
        component.fence();
        std::string text = log_file_text(events().log());
        events().clear_log();
        return text;
    }
    void append(const std::string& text) const { std::ofstream(file_, std::ios::app) << text << std::flush; }

    std::string file_;
};

TEST_F(PushpullctlMonitor, EachRequestIsALineWithSenderSubjectAndWhoWasTold) {
    Component display(service(), QO_CMPID_DEMO);
    Component other(service(), QO_CMPID_TESTPUBLISHER);
    ASSERT_EQ(display.api().subscribe(display.id(), "/version", false), 0);
    ASSERT_EQ(other.api().publish(other.id(), R"({"version":{"schemaVersion":"9"}})"), 0);
    const PushpullctlResult result = run_pushpullctl({"monitor", "-", "--kind", "publish"}, logged(other));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.messages, HasSubstr("reading standard input"));
    EXPECT_THAT(result.output,
                AllOf(StartsWith(R"({"time":"Nov 22 13:00:00","component":"TESTPUBLISHER","number":)"),
                      EndsWith(R"("kind":"publish","subject":"/version/schemaVersion","bytes":120,"whole":true,)"
                               R"("result":"done","reasons":[],"told":["DEMO"]})"
                               "\n")));
}

TEST_F(PushpullctlMonitor, ARefusalAndAFailureAreToldWithTheirReasons) {
    Component client(service(), QO_CMPID_WEBSERVER_GATEWAY_C0);
    ASSERT_EQ(client.api().publish(client.id(), R"({"system":{"nosuch":1}})"), 0);
    ASSERT_EQ(client.api().get(client.id(), "/nosuch", "", false), 0);
    const std::string log = logged(client);
    EXPECT_THAT(run_pushpullctl({"monitor", "-", "--kind", "publish"}, log).output,
                HasSubstr(R"("result":"refused","reasons":["Component not authorized to publish new nodes",)"));
    EXPECT_THAT(run_pushpullctl({"monitor", "-", "--pointer", "/nosuch"}, log).output,
                HasSubstr(R"("result":"failed","reasons":["comp_get: ReadNode failed)"));
    EXPECT_THAT(run_pushpullctl({"monitor", "-", "--color", "always", "--pointer", "/system"}, log).output,
                AllOf(StartsWith("Nov 22 13:00:00  WEBSERVER_GATEWAY_C0      publish      /system/nosuch"),
                      HasSubstr("  refused: Component not authorized")));
}

TEST_F(PushpullctlMonitor, FiltersLeaveOutWhatIsNotAskedFor) {
    Component display(service(), QO_CMPID_DEMO);
    ASSERT_EQ(display.api().publish(display.id(), R"({"version":{"schemaVersion":"9"}})"), 0);
    const std::string log = logged(display);
    EXPECT_THAT(run_pushpullctl({"monitor", "-", "--sender", "demo"}, log).output, HasSubstr("schemaVersion"));
    EXPECT_THAT(run_pushpullctl({"monitor", "-", "--sender", "TESTPUBLISHER"}, log).output, IsEmpty());
    EXPECT_THAT(run_pushpullctl({"monitor", "-", "--pointer", "/system"}, log).output, Not(HasSubstr("schemaVersion")));
    EXPECT_EQ(run_pushpullctl({"monitor", "-", "--sender", "nobody"}).status, 2);
    EXPECT_EQ(run_pushpullctl({"monitor", "-", "--pointer", "system"}).status, 2);
    EXPECT_EQ(run_pushpullctl({"monitor", "x"}).status, 2);
}

TEST_F(PushpullctlMonitor, AFileIsFollowedFromItsEndAlsoWhenItIsRotated) {
    Component display(service(), QO_CMPID_DEMO);
    ASSERT_EQ(display.api().publish(display.id(), R"({"version":{"schemaVersion":"old"}})"), 0);
    append(logged(display));
    PushpullctlRun run({"monitor", "--file", file_, "--sender", "DEMO"});
    ASSERT_TRUE(run.wait_for_messages("reading " + file_));
    ASSERT_EQ(display.api().publish(display.id(), R"({"usb":{"first":1}})"), 0);
    append(logged(display));
    ASSERT_TRUE(run.wait_for_output("/usb/first"));
    EXPECT_THAT(run.output(), Not(HasSubstr("schemaVersion")));
    std::filesystem::rename(file_, file_ + ".1");
    ASSERT_EQ(display.api().publish(display.id(), R"({"usb":{"second":1}})"), 0);
    append(logged(display));
    ASSERT_TRUE(run.wait_for_output("/usb/second"));
    run.send_signal(SIGINT);
    EXPECT_EQ(run.wait(), 0);
}

TEST_F(PushpullctlMonitor, AFileThatIsNotThereEndsWith1) {
    const PushpullctlResult result = run_pushpullctl({"monitor", "--file", "/nonexistent"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.messages, "pushpullctl: /nonexistent: No such file or directory\n");
}

TEST_F(PushpullctlMonitor, TheJournalIsReadByItsOwnProgram) {
    const std::string folder = events().scratch() + "bin";
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/journalctl") << R"(#!/bin/sh
echo "$@" >&2
cat <<'END'
{"__REALTIME_TIMESTAMP":"1795352400123456","SYSLOG_IDENTIFIER":"PushPull","MESSAGE":"PushPullData : mq_receive: retval: 80 , msg: {\n\"function\":\"get\",\"arg\":{\"comp_id\":1350,\"buffer\":\"/usb\"}}"}
END
)";
    std::filesystem::permissions(folder + "/journalctl", std::filesystem::perms::owner_all);
    setenv("PATH", (folder + ":" + getenv("PATH")).c_str(), 1);
    const PushpullctlResult result = run_pushpullctl({"monitor"});
    EXPECT_EQ(result.status, 1) << "it has ended";
    EXPECT_THAT(result.messages, AllOf(HasSubstr("reading the journal"), HasSubstr("--output=json"),
                                       HasSubstr("--follow"), HasSubstr("journalctl has ended; give the file")));
    EXPECT_THAT(result.output, AllOf(StartsWith(R"({"time":"2026-11-22T13:00:00.123Z",)"), HasSubstr(R"("/usb")")));
}

TEST_F(PushpullctlMonitor, WithoutAJournalItSaysWhatElseThereIs) {
    setenv("PATH", "/nonexistent", 1);
    const PushpullctlResult result = run_pushpullctl({"monitor"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages, AllOf(HasSubstr("journalctl: No such file"), HasSubstr("--file /var/log/syslog")));
}

TEST_F(PushpullctlMonitor, WhoTellsComponentsAndSubscriptionsFromTheLog) {
    Component display(service(), QO_CMPID_DEMO);
    ASSERT_EQ(display.api().subscribe(display.id(), "/version", true), 0);
    ASSERT_EQ(display.api().subscribe(display.id(), "/usb", false), 0);
    append(logged(display));
    const std::string queue = R"({"queue":")" + display.queue_name() + R"(",)";
    EXPECT_THAT(run_pushpullctl({"who"}).output, HasSubstr(queue + R"("messages")"));
    const PushpullctlResult result = run_pushpullctl({"who", "--log", file_});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr(queue + R"("component":"DEMO",)"));
    EXPECT_THAT(
        result.output,
        HasSubstr(R"("subscriptions":[{"pointer":"/usb","changes":false},{"pointer":"/version","changes":true}]})"));
    EXPECT_THAT(run_pushpullctl({"who", "--log", file_, "--color", "always"}).output,
                EndsWith("\n\nDEMO follows /usb, /version (changes)\n"));
    EXPECT_EQ(run_pushpullctl({"who", "--log", "/nonexistent"}).status, 1);
}

}  // namespace
