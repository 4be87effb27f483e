// record, replay and the times of subscribe, with the real service.
#include <fstream>
#include <sstream>

#include "component.h"
#include "pushpullctl_run.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kEntry[] = R"({"time":"2026-11-22T13:00:0%.000Z","pointer":"/usb","text":{"usb":{"mode":"%"}}})";

/// One entry, a second behind another for each number.
std::string entry(char number) {
    std::string text = kEntry;
    std::replace(text.begin(), text.end(), '%', number);
    return text + "\n";
}

class PushpullctlRecord : public RunningService {
protected:
    void SetUp() override {
        RunningService::SetUp();
        if (!IsSkipped()) file_ = events().scratch() + "recording.jsonl";
    }
    std::string recording() const {
        std::ostringstream text;
        text << std::ifstream(file_).rdbuf();
        return text.str();
    }
    void write(const std::string& text) const { std::ofstream(file_) << text; }

    std::string file_;
};

TEST_F(PushpullctlRecord, WhatIsPublishedIsKeptAndPublishedAgain) {
    Component sensor(service(), QO_CMPID_DEMO);
    PushpullctlRun run({"record", file_, "/usb", "/logs", "--count", "2"});
    ASSERT_TRUE(run.wait_for_messages("following /usb /logs"));
    ASSERT_EQ(sensor.api().publish(sensor.id(), R"({"usb":{"mode":"1"}})"), 0);
    ASSERT_EQ(sensor.api().publish(sensor.id(), R"({"logs":{"mapper":"2"}})"), 0);
    EXPECT_EQ(run.wait(), 0);
    EXPECT_THAT(recording(), ContainsRegex(R"(^\{"time":"20[-0-9T:.]*Z","pointer":"/usb","text":\{"usb":)"));
    EXPECT_THAT(recording(), HasSubstr(R"(Z","pointer":"/logs","text":{"logs":{"mapper":"2"}}})"
                                       "\n"));

    ASSERT_EQ(sensor.api().subscribe(sensor.id(), "/", false), 0);
    const PushpullctlResult result = run_pushpullctl({"replay", file_, "--speed", "1000"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, R"({"published":2,"skipped":0})"
                             "\n");
    EXPECT_EQ(sensor.next_message(), R"({"usb":{"mode":"1"}})");
    EXPECT_EQ(sensor.next_message(), R"({"logs":{"mapper":"2"}})");
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

TEST_F(PushpullctlRecord, ReplayKeepsThePaceOrIsSoManyTimesAsFast) {
    write(entry('0') + entry('1'));
    const auto took = [&](const std::string& speed) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(run_pushpullctl({"replay", file_, "--speed", speed}).status, 0);
        return std::chrono::steady_clock::now() - begin;
    };
    // Never sooner, however slow the machine is.
    EXPECT_GE(took("1"), std::chrono::seconds(1));
    EXPECT_GE(took("5"), std::chrono::milliseconds(200));
}

TEST_F(PushpullctlRecord, ReplayWaitsAndIsEndedByCtrlC) {
    Component listener(service(), QO_CMPID_DEMO);
    ASSERT_EQ(listener.api().subscribe(listener.id(), "/usb", false), 0);
    write(entry('0') + entry('9'));
    PushpullctlRun run({"replay", file_, "--speed", "0.001", "--as", "BASE_SIMULATOR"});
    EXPECT_EQ(listener.next_message(), R"({"usb":{"mode":"0"}})");
    run.send_signal(SIGINT);
    EXPECT_EQ(run.wait(), 130);
    EXPECT_EQ(run.output(), R"({"published":1,"skipped":0})"
                            "\n");
    EXPECT_TRUE(listener.hears_nothing());
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

TEST_F(PushpullctlRecord, WhatCannotBePublishedIsSkipped) {
    write(entry('0') + R"({"time":"2026-11-22T12:00:00.000Z","text":"NODE DELETED: /usb"})" + "\n");
    EXPECT_EQ(run_pushpullctl({"replay", file_}).output, R"({"published":1,"skipped":1})"
                                                         "\n");
}

TEST_F(PushpullctlRecord, AFileThatIsNoRecordingIsNotReplayedAtAll) {
    Component listener(service(), QO_CMPID_DEMO);
    ASSERT_EQ(listener.api().subscribe(listener.id(), "/usb", false), 0);
    write(entry('0') + "{}\n");
    const PushpullctlResult result = run_pushpullctl({"replay", file_});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.messages, HasSubstr(file_ + ":2: no line of a recording"));
    EXPECT_TRUE(listener.hears_nothing());
    EXPECT_EQ(run_pushpullctl({"replay", "/nonexistent"}).status, 2);
    for (const char* speed : {"0", "-1", "x", "1x", "", "nan", "inf"})
        EXPECT_EQ(run_pushpullctl({"replay", file_, std::string("--speed=") + speed}).status, 2) << speed;
}

TEST_F(PushpullctlRecord, AFileThatCannotBeWrittenEndsWith1) {
    EXPECT_EQ(run_pushpullctl({"record", "/nonexistent/file", "/usb"}).status, 1);
    Component sensor(service(), QO_CMPID_DEMO);
    PushpullctlRun run({"record", "/dev/full", "/usb"});
    ASSERT_TRUE(run.wait_for_messages("following"));
    ASSERT_EQ(sensor.api().publish(sensor.id(), R"({"usb":{"mode":"1"}})"), 0);
    EXPECT_EQ(run.wait(), 1);
    EXPECT_THAT(run.messages(), HasSubstr("cannot write to /dev/full: No space left on device"));
}

TEST_F(PushpullctlRecord, SubscribeEndsAfterItsTime) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(run_pushpullctl({"subscribe", "/usb", "--for", "0.3"}).status, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

TEST_F(PushpullctlRecord, SubscribeTellsTheTimesOnDemand) {
    Component sensor(service(), QO_CMPID_DEMO);
    PushpullctlRun run({"subscribe", "/", "--timestamps", "--count", "1"});
    ASSERT_TRUE(run.wait_for_messages("following"));
    ASSERT_EQ(sensor.api().publish(sensor.id(), R"({"usb":{"mode":"1"}})"), 0);
    EXPECT_EQ(run.wait(), 0);
    EXPECT_THAT(run.output(), ContainsRegex(R"(^\{"time":"20[-0-9T:.]*Z","pointer":"/","text":\{"usb")"));
}

}  // namespace
