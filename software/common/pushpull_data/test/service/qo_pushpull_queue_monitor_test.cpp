// The thread that looks at the supervised queues, with short periods on real queues. Nothing sleeps for its own sake:
// the tests wait for the monitor's lines and commands.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "log_capture.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_scratch_queue.h"
#include "scratch_directory.h"
#include "shell_capture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

constexpr eQO_CMP_IDs_ kComponent = QO_CMPID_TESTPUBLISHER;
constexpr seconds kPatience{20};  // reached by failing tests only

const QoLogLine kStarted{LOG_INFO, "QoPushPullQueueMonitor: Started..."};
const QoLogLine kExited{LOG_INFO, "QoPushPullQueueMonitor: Exited..."};
const QoLogLine kFull{LOG_WARNING, "QoPushPullQueueMonitor: A queue is full"};
const QoLogLine kScriptMade{LOG_CRIT, "QoPushPullQueueMonitor: Creating termination shellscript"};
const QoLogLine kTerminating{LOG_CRIT, "QoPushPullQueueMonitor: Terminating..."};

QoLogLine status_line(const std::string& name, const std::string& messages) {
    return {LOG_NOTICE, "QoPushPullMonitoredQueue: Monitored queue " + name + " (component ID " +
                            std::to_string(static_cast<int>(kComponent)) + "): " + messages};
}

QoLogLine failure_line(int full_for) {
    return {LOG_CRIT, "QoPushPullQueueMonitor: Queue full failure detected (queue full for " +
                          std::to_string(full_for) + " seconds)"};
}

QoLogLine header_line(const std::string& command) {
    return {LOG_NOTICE, "---- Output from system command " + command + " ----"};
}

const std::vector<std::string> kCommands = {"top -b -n 1 | grep qo", "top -bi -n 1", "ps -AF | grep qo", "pstree"};

bool wait_until(const std::function<bool()>& condition) {
    const auto deadline = steady_clock::now() + kPatience;
    while (!condition()) {
        if (steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

}  // namespace

// ---- the rule ----

namespace {

class FullQueueRule : public testing::Test {
protected:
    QoFullQueueStep look(bool full, time_t now) { return watch_full_queue(full, now, seconds(120), time_full_); }

    time_t time_full_ = -1;
};

}  // namespace

TEST_F(FullQueueRule, FullAtEveryPollFailsAtTheFirstOneAt120SecondsOrMore) {
    for (time_t now = 1000; now < 1120; ++now) ASSERT_EQ(look(true, now), QoFullQueueStep::waiting) << now;
    EXPECT_EQ(look(true, 1120), QoFullQueueStep::failed);
    EXPECT_EQ(time_full_, 1000);
}

TEST_F(FullQueueRule, PollThatComesLateFailsAllTheSame) {
    EXPECT_EQ(look(true, 1000), QoFullQueueStep::waiting);
    EXPECT_EQ(look(true, 1135), QoFullQueueStep::failed);
}

TEST_F(FullQueueRule, FullFor119SecondsThenDrainedByOneMessageStartsOver) {
    EXPECT_EQ(look(true, 1000), QoFullQueueStep::waiting);
    EXPECT_EQ(look(true, 1119), QoFullQueueStep::waiting);
    EXPECT_EQ(look(false, 1120), QoFullQueueStep::drained);
    EXPECT_EQ(time_full_, -1);
    EXPECT_EQ(look(true, 1121), QoFullQueueStep::waiting);
    EXPECT_EQ(look(true, 1240), QoFullQueueStep::waiting);
    EXPECT_EQ(look(true, 1241), QoFullQueueStep::failed);
}

TEST_F(FullQueueRule, QueueFullAtTimeZeroCountsFromThere) {
    EXPECT_EQ(look(true, 0), QoFullQueueStep::waiting);
    EXPECT_EQ(look(true, 119), QoFullQueueStep::waiting);
    EXPECT_EQ(look(true, 120), QoFullQueueStep::failed);
}

TEST(MonitoredQueueWatch, RealQueueIsStampedWhenFullAndResetWhenDrainedByOneMessage) {
    const QoScratchQueue queue("/a", 3, 16);
    QoPushPullMonitoredQueue watched("/a", kComponent, queue.descriptor());
    EXPECT_EQ(watched.watch(1000, seconds(120)), QoFullQueueStep::drained);
    queue.fill();
    EXPECT_EQ(watched.watch(1001, seconds(120)), QoFullQueueStep::waiting);
    EXPECT_EQ(watched.watch(1002, seconds(120)), QoFullQueueStep::waiting);
    EXPECT_EQ(watched.timeFull(), 1001);
    queue.take();
    EXPECT_EQ(watched.watch(1120, seconds(120)), QoFullQueueStep::drained);
    EXPECT_EQ(watched.timeFull(), -1);
}

TEST(MonitoredQueueWatch, QueueWhoseAttributesCannotBeReadNeverFails) {
    QoPushPullMonitoredQueue watched("/gone", kComponent, -1);
    for (const time_t now : {1000, 1120, 100000}) {
        EXPECT_EQ(watched.watch(now, seconds(120)), QoFullQueueStep::drained);
        EXPECT_EQ(watched.timeFull(), -1);
    }
}

TEST(MonitorSettings, AreOneSecondTwoMinutesAndHalfAMinuteAndTheFilesOfTheDevice) {
    const QoQueueMonitorSettings settings;
    EXPECT_EQ(settings.poll, milliseconds(1000));
    EXPECT_EQ(settings.full_for, seconds(120));
    EXPECT_EQ(settings.restart_grace, milliseconds(30000));
    EXPECT_EQ(settings.command_limit, seconds(10));
    EXPECT_EQ(settings.report_limit, seconds(60));
    EXPECT_EQ(settings.command_output, "/kivo/data/logs/pushpullCmdResult.txt");
    EXPECT_EQ(settings.restart_script, "/var/volatile/tmp/restartPushPull.sh");
}

// ---- the thread ----

namespace {

class MonitorThread : public testing::Test {
protected:
    void SetUp() override {
        settings_.poll = milliseconds(2);
        settings_.restart_grace = std::chrono::minutes(10);  // ended by the destructor
        settings_.command_output = files_.file("output");
        settings_.restart_script = files_.file("restart.sh");
    }
    // Every full queue fails at the first look.
    void start_failing_at_once() {
        settings_.full_for = seconds(0);
        start();
    }
    void start() {
        monitor_.emplace(settings_);
        log_.clear();
    }
    void fill_and_supervise() {
        queue_.fill();
        monitor_->addQueue("/a", kComponent, queue_.descriptor());
    }
    bool wait_for(const QoLogLine& line) {
        return wait_until([&] { return log_.contains(line.level, line.text); });
    }
    bool wait_for_looks_at_other() {
        log_.clear();
        return wait_until([this] { return count(status_line("/other", "1 / 1 messages")) >= 3; });
    }
    size_t count(const QoLogLine& line) const {
        const std::vector<QoLogLine> lines = log_.lines();
        return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
    }
    bool wait_for_restart() {
        return wait_until([this] { return shell_.commands().size() == kCommands.size() + 2; });
    }
    // Fails once, and gives back what was logged from the failure on.
    std::vector<QoLogLine> lines_of_failure() {
        start_failing_at_once();
        fill_and_supervise();
        EXPECT_TRUE(wait_for_restart());
        std::vector<QoLogLine> lines = log_.lines();
        const auto failure = std::find(lines.begin(), lines.end(), failure_line(0));
        return {failure, lines.end()};
    }

    QoLogCapture log_;
    QoShellCapture shell_;
    const QoScratchDirectory files_;
    const QoScratchQueue queue_{"/a", 2, 16};
    QoQueueMonitorSettings settings_;
    std::optional<QoPushPullQueueMonitor> monitor_;
};

class QueueFullFailure : public MonitorThread {};

std::set<std::string> threads() {
    std::set<std::string> ids;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
        ids.insert(thread.path().filename());
    return ids;
}

bool blocks(const std::string& thread, int signal_number) {
    std::ifstream status("/proc/" + thread + "/status");
    for (std::string line; std::getline(status, line);) {
        if (!line.starts_with("SigBlk:")) continue;
        return (std::stoull(line.substr(7), nullptr, 16) >> (signal_number - 1) & 1) != 0;
    }
    return false;
}

}  // namespace

TEST_F(MonitorThread, LogsItsStartAndItsEnd) {
    monitor_.emplace(settings_);
    EXPECT_THAT(log_.lines(), ElementsAre(kStarted));
    monitor_.reset();
    EXPECT_THAT(log_.lines(), ElementsAre(kStarted, kExited));
}

TEST_F(MonitorThread, BlocksSigtermAndLeavesTheMaskOfItsCreatorAsItWas) {
    const std::set<std::string> before = threads();
    ASSERT_FALSE(blocks("self", SIGTERM));
    start();
    std::set<std::string> started = threads();
    for (const std::string& thread : before) started.erase(thread);
    ASSERT_EQ(started.size(), 1U);
    const std::string thread = "self/task/" + *started.begin();
    ASSERT_TRUE(wait_until([&] { return !blocks(thread, SIGUSR2); })) << "it is created with every signal blocked";
    EXPECT_TRUE(blocks(thread, SIGTERM));
    EXPECT_FALSE(blocks("self", SIGTERM));
}

TEST_F(MonitorThread, EndsAtOnceHoweverLongItsPause) {
    settings_.poll = std::chrono::hours(1);
    start();
    const auto before = steady_clock::now();
    monitor_.reset();
    EXPECT_LT(steady_clock::now() - before, kPatience);
    EXPECT_THAT(log_.lines(), ElementsAre(kExited));
}

TEST_F(MonitorThread, ExitedIsLoggedAlsoWithQueuesStillSupervised) {
    start();
    for (const char* name : {"/a", "/b", "/c"}) monitor_->addQueue(name, kComponent, queue_.descriptor());
    log_.clear();
    monitor_.reset();
    EXPECT_THAT(log_.lines(), ElementsAre(kExited));
    EXPECT_EQ(queue_.count(), 0) << "the descriptor stays its opener's";
}

TEST_F(MonitorThread, WithAnEmptyListAndWithRoomInTheQueueIsSilent) {
    const QoScratchQueue busy("/busy", 2, 16);
    start();
    monitor_->addQueue("/a", kComponent, queue_.descriptor());
    queue_.put("one of two");
    monitor_->addQueue("/busy", kComponent, busy.descriptor());
    busy.fill();
    ASSERT_TRUE(wait_for(status_line("/busy", "2 / 2 messages"))) << "the queue in front of it was looked at too";
    EXPECT_THAT(log_.lines(), Not(Contains(status_line("/a", "1 / 2 messages"))));
    EXPECT_THAT(shell_.commands(), IsEmpty());
}

TEST_F(MonitorThread, FullQueueIsLoggedWithItsStatusAtEveryPoll) {
    start();
    fill_and_supervise();
    ASSERT_TRUE(wait_until([this] { return count(kFull) >= 3; }));
    monitor_.reset();
    std::vector<QoLogLine> lines = log_.lines();
    lines.erase(lines.begin());  // it was added
    lines.pop_back();            // "Exited..."
    ASSERT_EQ(lines.size() % 2, 0U);
    for (size_t i = 0; i < lines.size(); i += 2) {
        EXPECT_EQ(lines[i], kFull);
        EXPECT_EQ(lines[i + 1], status_line("/a", "2 / 2 messages"));
    }
}

TEST_F(MonitorThread, QueuesAreLoggedInOrderOfAddition) {
    const QoScratchQueue second("/b", 1, 16);
    queue_.fill();
    second.fill();
    settings_.poll = milliseconds(50);
    start();
    monitor_->addQueue("/b", kComponent, second.descriptor());
    monitor_->addQueue("/a", kComponent, queue_.descriptor());
    ASSERT_TRUE(wait_for(status_line("/a", "2 / 2 messages")));
    monitor_->removeQueue(std::string("/b"));
    const std::vector<QoLogLine> lines = log_.lines();
    const auto first_status = std::find(lines.begin(), lines.end(), status_line("/b", "1 / 1 messages"));
    const auto second_status = std::find(lines.begin(), lines.end(), status_line("/a", "2 / 2 messages"));
    EXPECT_LT(first_status, second_status);
}

TEST_F(MonitorThread, QueueDrainedByOneMessageIsLoggedNoMoreUntilItIsFullAgain) {
    const QoScratchQueue other("/other", 1, 16);
    other.fill();
    start();
    fill_and_supervise();
    monitor_->addQueue("/other", kComponent, other.descriptor());
    ASSERT_TRUE(wait_for(status_line("/a", "2 / 2 messages")));
    queue_.take();
    ASSERT_TRUE(wait_for_looks_at_other());  // one look may have been under way
    ASSERT_TRUE(wait_for_looks_at_other());
    EXPECT_THAT(log_.lines(), Not(Contains(status_line("/a", "2 / 2 messages"))));
    queue_.fill();
    EXPECT_TRUE(wait_for(status_line("/a", "2 / 2 messages")));
}

TEST_F(MonitorThread, RemovedQueueIsNoLongerLookedAt) {
    settings_.poll = milliseconds(1);
    start();
    fill_and_supervise();
    ASSERT_TRUE(wait_for(kFull));
    monitor_->removeQueue(queue_.descriptor());
    const QoScratchQueue other("/other", 1, 16);
    other.fill();
    log_.clear();
    monitor_->addQueue("/other", kComponent, other.descriptor());
    ASSERT_TRUE(wait_for(status_line("/other", "1 / 1 messages")));
    EXPECT_THAT(log_.lines(), Not(Contains(status_line("/a", "2 / 2 messages"))));
}

// ---- a queue that stays full ----

TEST_F(QueueFullFailure, ReportsHowLongTheQueueWasFull) {
    settings_.full_for = seconds(1);
    settings_.poll = milliseconds(5);
    start();
    fill_and_supervise();
    const auto is_failure = [](const QoLogLine& line) {
        return line.level == LOG_CRIT && line != kScriptMade && line != kTerminating;
    };
    ASSERT_TRUE(wait_for_restart());
    const std::vector<QoLogLine> lines = log_.lines();
    const auto failure = std::find_if(lines.begin(), lines.end(), is_failure);
    ASSERT_NE(failure, lines.end());
    EXPECT_THAT(failure->text, MatchesRegex("QoPushPullQueueMonitor: Queue full failure detected "
                                            "\\(queue full for [1-9][0-9]* seconds\\)"));
}

TEST_F(QueueFullFailure, RunsTheDiagnosticsThenMakesAndRunsTheScript) {
    std::vector<std::string> expected;
    for (const std::string& command : kCommands) expected.push_back(command + " >> " + settings_.command_output);
    expected.push_back("chmod +x " + settings_.restart_script);
    expected.push_back(settings_.restart_script + " &");
    EXPECT_THAT(lines_of_failure(), ElementsAre(failure_line(0), kScriptMade, kTerminating));
    EXPECT_THAT(shell_.commands(), ElementsAreArray(expected));
    EXPECT_EQ(files_.read("restart.sh"), "sleep 2;\npkill -SIGUSR1 qo_pushpull\n");
    EXPECT_EQ(std::filesystem::file_size(settings_.restart_script), 36U);
}

TEST_F(QueueFullFailure, ScriptOfAnEarlierFailureIsReplacedWhole) {
    files_.write("restart.sh", std::string(1000, 'x'));
    lines_of_failure();
    EXPECT_EQ(files_.read("restart.sh"), "sleep 2;\npkill -SIGUSR1 qo_pushpull\n");
}

TEST_F(QueueFullFailure, ScratchFileThatCannotBeOpenedLogsNothing) {
    EXPECT_THAT(lines_of_failure(), ElementsAre(failure_line(0), kScriptMade, kTerminating));
}

TEST_F(QueueFullFailure, OutputIsLoggedInNumberedLinesWithoutTheEmptyOnesAndDeleted) {
    files_.write("output", "\nfirst\n\n\n  second %s \nthird without an end");
    EXPECT_THAT(lines_of_failure(),
                ElementsAre(failure_line(0), header_line(kCommands[0]), QoLogLine{LOG_NOTICE, "001: first"},
                            QoLogLine{LOG_NOTICE, "002:   second %s "},
                            QoLogLine{LOG_NOTICE, "003: third without an end"}, kScriptMade, kTerminating));
    EXPECT_FALSE(files_.has("output"));
}

TEST_F(QueueFullFailure, EmptyOutputLogsItsHeaderOnly) {
    files_.write("output", "");
    EXPECT_THAT(lines_of_failure(), ElementsAre(failure_line(0), header_line(kCommands[0]), kScriptMade, kTerminating));
    EXPECT_FALSE(files_.has("output"));
}

TEST_F(QueueFullFailure, MoreThan999LinesAreNumberedOn) {
    std::string output;
    for (int i = 0; i < 1001; ++i) output += "line\n";
    files_.write("output", output);
    EXPECT_THAT(lines_of_failure(), Contains(QoLogLine{LOG_NOTICE, "1001: line"}));
}

TEST_F(QueueFullFailure, ServiceThatGoesDownDuringTheGraceIsNotEndedByTheMonitor) {
    lines_of_failure();
    const auto before = steady_clock::now();
    monitor_.reset();  // returns, where exit() would have ended this program
    EXPECT_LT(steady_clock::now() - before, kPatience);
    EXPECT_EQ(log_.lines().back(), kExited);
}

TEST_F(QueueFullFailure, QueuesCanBeAddedAndRemovedDuringTheGrace) {
    lines_of_failure();
    monitor_->addQueue("/b", kComponent, -1);
    monitor_->removeQueue(std::string("/a"));
    EXPECT_EQ(monitor_->getQueueNames(), "/b(Total),/b(Saves),/b(Max),/b(Avg)");
}

TEST_F(MonitorThread, NamesThatWouldSplitAColumnAreQuoted) {
    start();
    for (const char* name : {"/plain name;'", "/a,b", "/\"q\"", "/line\nfeed", "/return\r"})
        monitor_->addQueue(name, kComponent, -1);
    monitor_->removeQueue(std::string("/a"));
    EXPECT_EQ(monitor_->getQueueNames(),
              "/plain name;'(Total),/plain name;'(Saves),/plain name;'(Max),/plain name;'(Avg),"
              "\"/a,b(Total)\",\"/a,b(Saves)\",\"/a,b(Max)\",\"/a,b(Avg)\","
              "\"/\"\"q\"\"(Total)\",\"/\"\"q\"\"(Saves)\",\"/\"\"q\"\"(Max)\",\"/\"\"q\"\"(Avg)\","
              "\"/line\nfeed(Total)\",\"/line\nfeed(Saves)\",\"/line\nfeed(Max)\",\"/line\nfeed(Avg)\","
              "\"/return\r(Total)\",\"/return\r(Saves)\",\"/return\r(Max)\",\"/return\r(Avg)\"");
}

TEST_F(QueueFullFailure, ServiceStillThereAfterTheGraceExitsWithStatus255) {
    settings_.restart_grace = milliseconds(20);
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        start_failing_at_once();
        fill_and_supervise();
        for (;;) pause();
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 255);
}
