// What "top" shows on screens of any size.
#include "qo_ctl_top_screen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

QoCtlQueue queue(const std::string& name, long messages, long full_for, const std::string& reader) {
    QoCtlQueue made{.name = name, .messages = messages, .max_messages = 10, .message_size = 4096, .full_for = full_for};
    QoCtlProcess process;
    process.id = 812;
    process.program = reader;
    process.state = 'S';
    if (!reader.empty()) made.readers.push_back(process);
    return made;
}

QoCtlTopView view_of_three() {
    QoCtlTopView view;
    view.service = "/pushpull";
    view.queues = {queue("/display", 5, 0, "display"), queue("/pushpull", 9, 0, "qo_pushpull"),
                   queue("/web_server_gateway", 10, 7, "")};
    view.resident_kib = 3456;
    return view;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

TEST(TopScreen, OfAWideTerminalHasAllColumns) {
    EXPECT_THAT(
        lines_of(qo_ctl_top_screen(view_of_three(), 200, 50, false)),
        ElementsAre(
            "service: running: qo_pushpull (812), 3456 KiB", "requests: told with --log FILE",
            "slowest: /web_server_gateway 10/10, nobody seen", "",
            "QUEUE                FULL                    MESSAGES     OF SIZE  FULL FOR  COMPONENT  READ BY",
            "/display             [##########..........]      5/10  4096 bytes       0 s  -          running: display "
            "(812)",
            "/pushpull            [##################..]      9/10  4096 bytes       0 s  -          running: "
            "qo_pushpull (812)",
            "/web_server_gateway  [####################]     10/10  4096 bytes       7 s  -          nobody seen"));
}

TEST(TopScreen, OfANarrowTerminalLeavesColumnsOut) {
    EXPECT_THAT(
        lines_of(qo_ctl_top_screen(view_of_three(), 50, 50, false)),
        ElementsAre("service: running: qo_pushpull (812), 3456 KiB", "requests: told with --log FILE",
                    "slowest: /web_server_gateway 10/10, nobody seen", "", "QUEUE                MESSAGES  READ BY",
                    "/display                 5/10  running: display (8",
                    "/pushpull                9/10  running: qo_pushpul",
                    "/web_server_gateway     10/10  nobody seen"));
}

TEST(TopScreen, NeverIsWiderOrHigherThanTheTerminal) {
    QoCtlTopView view = view_of_three();
    view.has_log = true;
    view.requests = {{"publish", 12.34}, {"get", 0}};
    view.refusals = {std::string(300, 'x'), "K\xc3\xa4se K\xc3\xa4se K\xc3\xa4se", "\033[2J"};
    for (const size_t width : {1U, 2U, 9U, 20U, 50U, 79U, 200U}) {
        for (const size_t height : {1U, 2U, 5U, 7U, 24U}) {
            const std::vector<std::string> lines = lines_of(qo_ctl_top_screen(view, width, height, false));
            EXPECT_LE(lines.size(), height) << width;
            for (const std::string& line : lines) {
                const auto continued = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; };
                const auto more = std::count_if(line.begin(), line.end(), continued);
                EXPECT_LE(line.size() - static_cast<size_t>(more), width) << line;
                EXPECT_THAT(line, Not(HasSubstr("\033")));
            }
        }
    }
}

TEST(TopScreen, OfALowTerminalHasTheFullestQueues) {
    const std::vector<std::string> lines = lines_of(qo_ctl_top_screen(view_of_three(), 200, 8, false));
    EXPECT_EQ(lines.back(), "and 1 more that are less full");
    EXPECT_THAT(lines[6], StartsWith("/web_server_gateway"));
}

TEST(TopScreen, WithALogTellsRequestsAndTheLastRefusals) {
    QoCtlTopView view = view_of_three();
    view.has_log = true;
    view.requests = {{"publish", 12.34}, {"get", 0}, {"sync", 1}};
    for (int i = 0; i < 9; ++i) view.refusals.push_back("refusal " + std::to_string(i));
    const std::string screen = qo_ctl_top_screen(view, 200, 50, false);
    EXPECT_THAT(screen, HasSubstr("requests: 13.3/s (publish 12.3, sync 1.0)\n"));
    EXPECT_THAT(screen, HasSubstr("last refusals:\n refusal 4\n"));
    EXPECT_THAT(screen, testing::EndsWith(" refusal 8\n"));
}

TEST(TopScreen, WithoutQueuesSaysSo) {
    QoCtlTopView view;
    view.service = "/pushpull";
    EXPECT_EQ(qo_ctl_top_screen(view, 200, 50, false),
              "service: its queue /pushpull is not there\nrequests: told with --log FILE\nslowest: none is behind\n\n"
              "no queues\n");
}

TEST(Slowest, IsTheOneFullForLongestThenTheFullestButNeverTheService) {
    QoCtlTopView view = view_of_three();
    EXPECT_EQ(qo_ctl_slowest(view)->name, "/web_server_gateway");
    view.queues.pop_back();
    EXPECT_EQ(qo_ctl_slowest(view)->name, "/display");
    view.queues[0].messages = 0;
    EXPECT_EQ(qo_ctl_slowest(view), nullptr);
}

TEST(TopLines, AreTheQueuesAndTheService) {
    QoCtlTopView view = view_of_three();
    view.has_log = true;
    view.requests = {{"get", 2}};
    view.refusals = {"no"};
    const std::vector<std::string> lines = lines_of(qo_ctl_top_lines(view));
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_THAT(lines[0], StartsWith(R"({"queue":"/display","messages":5,)"));
    EXPECT_EQ(
        lines[3],
        R"({"service":"/pushpull","process":812,"program":"qo_pushpull","state":"running",)"
        R"("since":"1970-01-01T00:00:00Z","resident_kib":3456,"requests_per_second":{"get":2.0},"refusals":["no"]})");
}

}  // namespace
