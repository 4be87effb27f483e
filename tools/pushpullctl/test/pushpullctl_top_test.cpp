// top on terminals and into pipes, with the real service.
#include <fstream>

#include "component.h"
#include "pushpullctl_run.h"
#include "pushpullctl_terminal.h"

namespace {

using testing::HasSubstr;

bool fits(const std::vector<std::string>& lines, size_t width) {
    return !lines.empty() &&
           std::all_of(
               lines.begin(), lines.end(), [width](const std::string& line) { return line.size() <= width; });
}

bool has(const std::vector<std::string>& lines, const std::string& text) {
    return std::any_of(
        lines.begin(), lines.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

class PushpullctlTop : public RunningService {
protected:
    std::string reader() { return "running: qo_pushpull (" + std::to_string(service().pid()) + ")"; }
};

TEST_F(PushpullctlTop, FitsAWideTerminal) {
    const Component display(service(), QO_CMPID_DEMO);
    PushpullctlTerminal terminal({"top"}, 200, 24);
    EXPECT_TRUE(terminal.wait_for_text("service: " + reader()));
    EXPECT_TRUE(fits(terminal.screen(), 200));
    EXPECT_TRUE(has(terminal.screen(), "OF SIZE"));
    EXPECT_TRUE(has(terminal.screen(), " KiB"));
    EXPECT_TRUE(has(terminal.screen(), display.queue_name()));
    terminal.press("q");
    EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(PushpullctlTop, FitsANarrowTerminal) {
    const Component display(service(), QO_CMPID_DEMO);
    PushpullctlTerminal terminal({"top"}, 50, 24);
    EXPECT_TRUE(terminal.wait_for_text(display.queue_name()));
    EXPECT_TRUE(fits(terminal.screen(), 50));
    EXPECT_FALSE(has(terminal.screen(), "OF SIZE"));
    terminal.press("q");
    EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(PushpullctlTop, FollowsATerminalThatIsResized) {
    PushpullctlTerminal terminal({"queues", "--watch"}, 200, 24);
    ASSERT_TRUE(terminal.wait_for_text("OF SIZE"));
    terminal.resize(30, 10);
    EXPECT_TRUE(terminal.wait_for_screen([](const auto& lines) { return fits(lines, 30); }));
    EXPECT_TRUE(has(terminal.screen(), "/pushpull"));
    terminal.resize(200, 5);
    EXPECT_TRUE(terminal.wait_for_screen([](const auto& lines) { return lines.size() <= 4 && has(lines, " KiB"); }));
    terminal.press("\003");
    EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(PushpullctlTop, WithALogTellsRequestsAndRefusals) {
    const std::string log = events().scratch() + "syslog";
    std::ofstream file(log);
    PushpullctlTerminal terminal({"top", "--log", log}, 120, 24);
    ASSERT_TRUE(terminal.wait_for_text("requests: 0.0/s"));
    file << "Nov 22 13:00:00 board PushPull[812]: PushPullData : mq_receive: retval: 80 , msg: "
            R"({"function":"get","arg":{"comp_id":1350,"buffer":"/nosuch"}})"
            "\nNov 22 13:00:00 board PushPull[812]: comp_get: ReadNode failed OR json_size is zero, node = /nosuch\n"
         << std::flush;
    EXPECT_TRUE(terminal.wait_for_text("get /nosuch: comp_get: ReadNode failed"));
    EXPECT_TRUE(terminal.has_shown("(get "));
    terminal.press("q");
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_EQ(run_pushpullctl({"top", "--log", "/nonexistent"}).status, 1);
}

TEST_F(PushpullctlTop, IntoAPipeIsAnObjectALine) {
    PushpullctlRun run({"top"});
    ASSERT_TRUE(run.wait_for_output(R"({"service":"/pushpull","process":)" + std::to_string(service().pid())));
    EXPECT_THAT(run.output(), HasSubstr(R"({"queue":"/pushpull",)"));
    run.send_signal(SIGINT);
    EXPECT_EQ(run.wait(), 0);
}

TEST_F(PushpullctlTop, WithoutAServiceGoesOnUntilThereIsOne) {
    EXPECT_EQ(service().stop(), 0);
    mq_unlink("/pushpull");
    PushpullctlTerminal terminal({"top"}, 80, 24);
    EXPECT_TRUE(terminal.wait_for_text("its queue /pushpull is not there"));
    terminal.press("q");
    EXPECT_EQ(terminal.wait(), 0);
}

}  // namespace
