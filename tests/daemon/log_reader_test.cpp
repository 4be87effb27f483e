// The reader of the system log stops, ends, comes back, or is of another kind: the service goes on all the same.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "component.h"
#include "service_process.h"

namespace {

using testing::Contains;
using testing::Each;
using testing::Field;
using testing::HasSubstr;
using testing::Not;

constexpr int kShortQueue = 10;   // datagrams, as the kernel has it
constexpr int kLongQueue = 512;   // as systemd sets it; the memory of the lines fills the socket before
constexpr int kManyLines = 1000;  // more than any socket holds

// How many datagrams a socket made from now on holds: a setting of the network namespace, so in one of our own.
bool set_socket_queue(int datagrams) {
    if (unshare(CLONE_NEWNET) != 0) return false;
    std::ofstream setting("/proc/sys/net/unix/max_dgram_qlen");
    setting << datagrams << std::flush;
    return setting.good();
}

std::string request(int number) { return R"({"function":"number )" + std::to_string(number) + R"("})"; }

// The one line that such a request causes.
QoLogLine line_of_request(int number) {
    const std::string text = request(number);
    return {LOG_DEBUG, "PushPullData : mq_receive: retval: " + std::to_string(text.size() + 1) + " , msg: " + text};
}

QoLogLine lost_lines(size_t lines) {
    return {LOG_WARNING, "QoLogSender: " + std::to_string(lines) + " lines are lost: the system log did not take them"};
}

class LogReader : public ServiceProcess {
protected:
    // Requests that log one line each, handled when this returns, and a "get".
    void make_lines(Component& component, int first, int end) {
        for (int number = first; number < end; ++number) ASSERT_TRUE(service().post(request(number)));
        make_lines_of_get(component);
    }
    void make_lines_of_get(Component& component) {
        ASSERT_THAT(component.get("/version"), HasSubstr("schemaVersion"));
        ASSERT_TRUE(service().wait_until_receiving());
    }

    void expect_sigterm_ends_it() {
        service().send_signal(SIGTERM);
        const std::optional<int> status = service().wait_for_end();
        ASSERT_TRUE(status) << "the service hangs";
        ASSERT_TRUE(WIFEXITED(*status)) << "signal " << WTERMSIG(*status);
        EXPECT_EQ(WEXITSTATUS(*status), 0);
    }
};

// ---- the reader stops ----

class StoppedLogReader : public LogReader, public testing::WithParamInterface<int> {
protected:
    void SetUp() override {
        if (!set_socket_queue(GetParam())) GTEST_SKIP() << "the length of a socket's queue cannot be set";
        LogReader::SetUp();
        if (IsSkipped()) return;
        ASSERT_TRUE(service().start_and_wait());
    }

    // Stops the reader, and has the service log until long after it no longer can.
    void stop_reader(Component& component) {
        events().pause_log();
        make_lines(component, 0, kManyLines);
    }
};

INSTANTIATE_TEST_SUITE_P(Queues, StoppedLogReader, testing::Values(kShortQueue, kLongQueue));

TEST_P(StoppedLogReader, LeavesTheServiceServing) {
    Component component(service(), QO_CMPID_DEMO);
    stop_reader(component);
    EXPECT_EQ(component.api().publish(component.id(), R"({"version":{"schemaVersion":"of now"}})"), 0);
    EXPECT_THAT(component.get("/version"), HasSubstr("of now"));
}

// The end of the service waits for the monitor's thread, which has two lines to log at each look.
TEST_P(StoppedLogReader, LeavesTheMonitorAtWork) {
    Component full(service(), QO_CMPID_DEMO, {1, 8192});
    ASSERT_EQ(full.api().get(full.id(), "/version", "", false), 0);
    ASSERT_TRUE(events().wait_for_log(LOG_WARNING, "QoPushPullQueueMonitor: A queue is full"));
    Component component(service(), QO_CMPID_TESTPUBLISHER);
    stop_reader(component);
    EXPECT_EQ(service().stop(), 0);
}

TEST_P(StoppedLogReader, LeavesSigtermToEndTheService) {
    Component component(service(), QO_CMPID_DEMO);
    stop_reader(component);
    expect_sigterm_ends_it();
}

TEST_P(StoppedLogReader, LeavesSigusr1ToRebootTheDevice) {
    Component component(service(), QO_CMPID_DEMO);
    stop_reader(component);
    service().send_signal(SIGUSR1);
    EXPECT_TRUE(events().wait_for_command("reboot now"));
    EXPECT_THAT(component.get("/version"), HasSubstr("schemaVersion"));
}

TEST_P(StoppedLogReader, ThatGoesOnIsToldHowManyLinesItMissedBeforeTheNextOne) {
    Component component(service(), QO_CMPID_DEMO);
    make_lines_of_get(component);
    events().clear_log();
    make_lines_of_get(component);
    const size_t made = events().log().size() + kManyLines;
    events().clear_log();
    stop_reader(component);
    events().resume_log();
    ASSERT_FALSE(events().log().empty()) << "and the socket is now";
    ASSERT_TRUE(service().post(request(kManyLines)));
    ASSERT_TRUE(events().wait_for_log(LOG_DEBUG, line_of_request(kManyLines).text));

    const std::vector<QoLogLine> log = events().log();
    ASSERT_GT(log.size(), 5U);
    const size_t kept = log.size() - 2;
    ASSERT_LT(kept, made);
    for (size_t number = 0; number < kept; ++number) ASSERT_EQ(log[number], line_of_request(static_cast<int>(number)));
    EXPECT_EQ(log[kept], lost_lines(made - kept));
    EXPECT_EQ(log[kept + 1], line_of_request(kManyLines));
}

TEST_P(StoppedLogReader, ThatIsStartedAnewIsToldHowManyLinesWereLost) {
    Component component(service(), QO_CMPID_DEMO);
    stop_reader(component);
    events().close_log();
    events().clear_log();
    events().open_log();
    ASSERT_TRUE(service().post(request(kManyLines)));
    ASSERT_TRUE(events().wait_for_log(LOG_DEBUG, line_of_request(kManyLines).text));
    const std::vector<QoLogLine> log = events().log();
    ASSERT_EQ(log.size(), 2U);
    EXPECT_EQ(log[0].level, LOG_WARNING);
    EXPECT_THAT(log[0].text,
                testing::MatchesRegex("QoLogSender: [0-9]+ lines are lost: the system log did not take them"));
}

// ---- the reader ends, or comes late ----

TEST_F(LogReader, ThatIsStartedAnewIsSentTheNextLine) {
    ASSERT_TRUE(service().start_and_wait());
    Component component(service(), QO_CMPID_DEMO);
    events().close_log();
    make_lines(component, 0, 5);
    events().clear_log();
    events().open_log();
    make_lines(component, 5, 7);
    const std::vector<QoLogLine> log = events().log();
    ASSERT_GT(log.size(), 2U);
    EXPECT_EQ(log[0], line_of_request(5));
    EXPECT_EQ(log[1], line_of_request(6));
    EXPECT_THAT(log, Each(Field(&QoLogLine::text, Not(HasSubstr("lines are lost")))))
        << "without a reader there is none who lost them";
}

TEST_F(LogReader, ThatComesAfterTheServiceIsSentTheNextLine) {
    events().close_log();
    service().make_queue();
    service().start();
    ASSERT_TRUE(events().wait_for_notifications(1));
    Component component(service(), QO_CMPID_DEMO);
    make_lines(component, 0, 5);
    events().open_log();
    make_lines(component, 5, 6);
    ASSERT_FALSE(events().log().empty());
    EXPECT_EQ(events().log().front(), line_of_request(5));
}

// ---- a reader on a stream socket ----

/// Takes what comes when it is asked to, and nothing meanwhile.
class LogStream {
public:
    LogStream() : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        const sockaddr_un address{AF_UNIX, "/dev/log"};
        if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(listener_, 5) != 0)
            throw std::runtime_error("cannot listen on /dev/log");
    }
    ~LogStream() {
        close(listener_);
        if (connection_ != -1) close(connection_);
        unlink("/dev/log");
    }
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

    /// Reads lines, which each end in a NUL, until one holds the text. @return whether it came.
    testing::AssertionResult read_until(const std::string& text) {
        while (lines_.empty() || lines_.back().find(text) == std::string::npos) {
            pollfd source{connection_ == -1 ? listener_ : connection_, POLLIN, 0};
            if (poll(&source, 1, static_cast<int>(std::chrono::milliseconds(kQoPatience).count())) != 1)
                return testing::AssertionFailure() << "\"" << text << "\" did not come, of " << lines_.size();
            if (connection_ == -1)
                connection_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            else
                take();
        }
        return testing::AssertionSuccess();
    }
    const std::vector<std::string>& lines() const { return lines_; }

private:
    void take() {
        char character = 0;
        while (read(connection_, &character, 1) == 1) {
            if (character == '\0') {
                lines_.push_back(unfinished_);
                unfinished_.clear();
                return;
            }
            unfinished_.push_back(character);
        }
    }

    int listener_;
    int connection_ = -1;
    std::string unfinished_;
    std::vector<std::string> lines_;
};

class StreamLogReader : public LogReader {
protected:
    void SetUp() override {
        LogReader::SetUp();
        if (IsSkipped()) return;
        events().close_log();
        stream_.emplace();
        service().make_queue();
        service().start();
        ASSERT_TRUE(events().wait_for_notifications(1));
    }

    std::optional<LogStream> stream_;
};

TEST_F(StreamLogReader, IsSentLinesThatEndInANul) {
    Component component(service(), QO_CMPID_DEMO);
    make_lines(component, 0, 2);
    ASSERT_TRUE(stream_->read_until(request(1)));
    const std::vector<std::string>& lines = stream_->lines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_THAT(lines, Each(testing::MatchesRegex("<[0-9]+>[A-Z][a-z]+ [ 0-9:]+ PushPull: .*")));
    EXPECT_THAT(lines[lines.size() - 2], testing::EndsWith(line_of_request(0).text));
    EXPECT_THAT(lines[lines.size() - 1], testing::EndsWith(line_of_request(1).text));
}

TEST_F(StreamLogReader, ThatStopsAndGoesOnIsToldHowManyLinesItMissed) {
    Component component(service(), QO_CMPID_DEMO);
    ASSERT_TRUE(stream_->read_until("PushPullData Start"));
    make_lines(component, 0, kManyLines);
    ASSERT_TRUE(stream_->read_until(request(100)));
    ASSERT_TRUE(service().post(request(kManyLines)));
    ASSERT_TRUE(stream_->read_until(" lines are lost: "));
    ASSERT_TRUE(stream_->read_until(request(kManyLines)));
    EXPECT_THAT(stream_->lines(), Not(Contains(HasSubstr(request(kManyLines - 1)))));
}

TEST_F(StreamLogReader, ThatStopsLeavesSigtermToEndTheService) {
    Component component(service(), QO_CMPID_DEMO);
    make_lines(component, 0, kManyLines);
    expect_sigterm_ends_it();
}

}  // namespace
