// A component stops reading, and the soft watchdog restarts the device. By the real clock, from end to end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "component.h"
#include "service_process.h"

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::Matcher;
using testing::MatchesRegex;
using testing::Not;

constexpr int32_t kReader = QO_CMPID_TESTPUBLISHER;
constexpr int32_t kStopped = QO_CMPID_BASE_SIMULATOR;
constexpr char kScript[] = "/var/volatile/tmp/restartPushPull.sh";
constexpr char kMonitorTerminates[] = "QoPushPullQueueMonitor: Terminating...";
constexpr char kRebootAnnounced[] = "Received queue full signal (SIGUSR1) - Rebooting system in 5 seconds";

Matcher<const QoLogLine&> Line(int level, const Matcher<const std::string&>& text) {
    return AllOf(Field(&QoLogLine::level, level), Field(&QoLogLine::text, text));
}

class Supervision : public RunningService {
protected:
    // The stand-ins print what the monitor is to log; the pkill of the machine sends a real signal.
    void print_from_stand_ins() {
        const std::string folder = events().stand_in_directory();
        std::filesystem::remove(folder + "/pkill");
        for (const char* name : {"top", "ps", "pstree"}) {
            std::ofstream(folder + "/" + name, std::ios::app)
                << "echo 'qo_pushpull seen by " << name << "'\necho\necho 'and its neighbour qo_other'\n";
        }
    }
    // Stops reading, with a full queue.
    void stop_reading(Component& stopped) {
        while (stopped.waiting_messages() < 2) {
            ASSERT_EQ(stopped.api().get(stopped.id(), "/version", "", false), 0);
            ASSERT_TRUE(service().wait_until_idle());
        }
    }
    size_t count(const QoLogLine& line) {
        const std::vector<QoLogLine> log = events().log();
        return static_cast<size_t>(std::count(log.begin(), log.end(), line));
    }
    // What the log holds from the header of a command's output on.
    std::vector<std::string> output_of(const std::string& command) {
        const QoLogLine header{LOG_NOTICE, "---- Output from system command " + command + " ----"};
        const std::vector<QoLogLine> log = events().log();
        std::vector<std::string> texts;
        for (auto line = std::find(log.begin(), log.end(), header); line != log.end() && texts.size() < 3; ++line)
            texts.push_back(line->text);
        return texts;
    }
    void expect_output_of(const std::string& command, const std::string& name) {
        EXPECT_THAT(output_of(command),
                    ElementsAre("---- Output from system command " + command + " ----",
                                "001: qo_pushpull seen by " + name, "002: and its neighbour qo_other"));
    }
};

TEST_F(Supervision, AQueueFullForTwoMinutesIsReportedAndSignalledAndEndsTheServiceAfter30MoreSeconds) {
    print_from_stand_ins();
    Component reader(service(), kReader);
    Component stopped(service(), kStopped, {2, 8192});
    events().clear_log();
    const auto filled = steady_clock::now();
    stop_reading(stopped);
    const QoLogLine status{LOG_NOTICE, "QoPushPullMonitoredQueue: Monitored queue " + stopped.queue_name() +
                                           " (component ID " + std::to_string(kStopped) + "): 2 / 2 messages"};
    ASSERT_TRUE(events().wait_for_log(LOG_WARNING, "QoPushPullQueueMonitor: A queue is full"));
    ASSERT_TRUE(events().wait_for_log(status.level, status.text));

    ASSERT_TRUE(events().wait_for_log(LOG_CRIT, kMonitorTerminates, seconds(150)));
    // All three bounds are below what they stand for by two seconds: the monitor counts whole ones.
    EXPECT_GT(steady_clock::now() - filled, seconds(118));
    EXPECT_THAT(events().log(),
                Contains(Line(LOG_CRIT, MatchesRegex("QoPushPullQueueMonitor: Queue full failure detected "
                                                     "\\(queue full for 12[0-9] seconds\\)"))));
    EXPECT_GT(count(status), 100U) << "once a second";
    expect_output_of("top -b -n 1 | grep qo", "top");
    expect_output_of("top -bi -n 1", "top");
    expect_output_of("ps -AF | grep qo", "ps");
    expect_output_of("pstree", "pstree");
    std::ostringstream script;
    script << std::ifstream(kScript).rdbuf();
    EXPECT_EQ(script.str(), "sleep 2;\npkill -SIGUSR1 qo_pushpull\n");

    ASSERT_TRUE(events().wait_for_log(LOG_ERR, "[ST]:----- stack trace end ------\n"));
    ASSERT_TRUE(events().wait_for_log(LOG_CRIT, kRebootAnnounced));
    ASSERT_TRUE(events().wait_for_command("reboot now"));
    EXPECT_GT(steady_clock::now() - filled, seconds(118 + 2 + 5));
    EXPECT_THAT(events().commands(), ElementsAre("top -b -n 1", "top -bi -n 1", "ps -AF", "pstree ", "reboot now"));

    // The stand-in did not reboot: the service goes on until the monitor gives it up.
    EXPECT_THAT(reader.get("/version"), HasSubstr("schemaVersion"));
    const std::optional<int> end = service().wait_for_end(seconds(60));
    ASSERT_TRUE(end) << "the service goes on";
    EXPECT_GT(steady_clock::now() - filled, seconds(118 + 30));
    ASSERT_TRUE(WIFEXITED(*end)) << "signal " << WTERMSIG(*end);
    EXPECT_EQ(WEXITSTATUS(*end), 255);
}

TEST_F(Supervision, ADiagnosticThatNeverEndsIsLeftBehindAndHoldsNoRequestMeanwhile) {
    events().stall_stand_in("top");
    Component reader(service(), kReader);
    Component stopped(service(), kStopped, {2, 8192});
    stop_reading(stopped);
    ASSERT_TRUE(events().wait_for_command("top -b -n 1", seconds(150)));
    {
        const Component newcomer(service(), QO_CMPID_DEMO);
        EXPECT_THAT(reader.get("/version"), HasSubstr("schemaVersion"));
    }
    EXPECT_THAT(events().log(), Not(Contains(Line(LOG_ERR, HasSubstr("was left behind"))))) << "it ran all the while";
    for (const char* command : {"top -b -n 1 | grep qo", "top -bi -n 1"}) {
        EXPECT_TRUE(events().wait_for_log(LOG_ERR, std::string("QoPushPullQueueMonitor: System command ") + command +
                                                       " was left behind after 10000 ms"));
    }
    EXPECT_TRUE(events().wait_for_command("pstree "));
    EXPECT_TRUE(events().wait_for_command("pkill -SIGUSR1 qo_pushpull"));
}

// Another user's process that keeps writing its own text into the script.
TEST_F(Supervision, AScriptThatAnotherUserMadeBeforeIsNotRun) {
    const std::string trace = events().scratch() + "owned";
    const pid_t stranger = fork();
    if (stranger == 0) {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[2]{};
        constexpr uid_t kStranger = 54321;
        if (setresuid(kStranger, kStranger, kStranger) != 0 || syscall(SYS_capset, &header, none) != 0) _exit(1);
        do {
            std::ofstream(kScript) << "touch " << trace << '\n';
            chmod(kScript, 0777);
        } while (usleep(200) == 0);
    }
    Component stopped(service(), kStopped, {2, 8192});
    stop_reading(stopped);
    if (waitpid(stranger, nullptr, WNOHANG) != 0) GTEST_SKIP() << "a process may not become another user here";
    const testing::AssertionResult terminates = events().wait_for_log(LOG_CRIT, kMonitorTerminates, seconds(150));
    EXPECT_TRUE(terminates);
    EXPECT_TRUE(events().wait_for_command("pkill -SIGUSR1 qo_pushpull"));
    kill(stranger, SIGKILL);
    waitpid(stranger, nullptr, 0);
    EXPECT_FALSE(std::filesystem::exists(trace)) << "somebody else's script was run by the service";
}

// The monitor has lines to log at each of its looks, and so has everyone else.
TEST_F(Supervision, AQueueFullForTwoMinutesRestartsTheDeviceAlthoughTheLogReaderStopped) {
    constexpr int kMoreThanItsSocketHolds = 1000;
    print_from_stand_ins();
    Component reader(service(), kReader);
    Component stopped(service(), kStopped, {2, 8192});
    stop_reading(stopped);
    events().pause_log();
    for (int line = 0; line < kMoreThanItsSocketHolds; ++line) ASSERT_TRUE(service().post("{}"));
    ASSERT_TRUE(events().wait_for_command("reboot now", seconds(180)));
    EXPECT_THAT(reader.get("/version"), HasSubstr("schemaVersion"));
    const std::optional<int> end = service().wait_for_end(seconds(60));
    ASSERT_TRUE(end) << "the service goes on";
    ASSERT_TRUE(WIFEXITED(*end)) << "signal " << WTERMSIG(*end);
    EXPECT_EQ(WEXITSTATUS(*end), 255);
}

}  // namespace
