// Commands that end, hang, write much, or leave children behind.
#include "qo_utilities_command.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "scratch_directory.h"
#include "shell_capture.h"

extern "C" pid_t __real_qo_start_shell(const char* command, rlim_t file_bytes);

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr seconds kPatience{30};  // reached by failing tests only
constexpr QoCommandLimits kPatient{kPatience};
constexpr char kEndless[] = "exec sleep 1000";

class Commands : public testing::Test {
protected:
    Commands() { shell_.replace_start(__real_qo_start_shell); }
    ~Commands() override {
        for (const pid_t process : children()) kill(-process, SIGKILL);
        EXPECT_TRUE(wait_until([] { return qo_reap_commands(), children().empty(); })) << "not reaped";
    }

    static bool wait_until(const std::function<bool()>& condition) {
        const auto deadline = steady_clock::now() + kPatience;
        while (!condition()) {
            if (steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(milliseconds(1));
        }
        return true;
    }
    // Living or ended and not yet reaped.
    static std::set<pid_t> children() {
        std::set<pid_t> found;
        std::ifstream list("/proc/self/task/" + std::to_string(gettid()) + "/children");
        for (pid_t process = 0; list >> process;) found.insert(process);
        return found;
    }
    std::string output_of(const std::string& command) const {
        const QoCommandResult result = qo_run_command((command + " >" + files_.file("output")).c_str(), kPatient);
        EXPECT_EQ(result.end, QoCommandEnd::ended);
        return files_.read("output");
    }
    // The command tells in this file that it runs.
    std::string telling(const std::string& command) const { return "echo x >" + files_.file("runs") + "; " + command; }
    bool runs() const {
        return wait_until([this] { return !files_.read("runs").empty(); });
    }

    QoShellCapture shell_;
    const QoScratchDirectory files_;
};

}  // namespace

TEST_F(Commands, RunToTheirEndGiveTheirStatus) {
    const QoCommandResult good = qo_run_command("true", kPatient);
    EXPECT_EQ(good.end, QoCommandEnd::ended);
    EXPECT_EQ(good.status, 0);
    const QoCommandResult bad = qo_run_command("exit 3", kPatient);
    EXPECT_EQ(bad.end, QoCommandEnd::ended);
    ASSERT_TRUE(WIFEXITED(bad.status));
    EXPECT_EQ(WEXITSTATUS(bad.status), 3);
    const QoCommandResult missing = qo_run_command("/does/not/exist 2>/dev/null", kPatient);
    EXPECT_EQ(WEXITSTATUS(missing.status), 127);
}

TEST_F(Commands, AreTheShells) { EXPECT_EQ(output_of("{ echo a; echo c; } | tr a b"), "b\nc\n"); }

TEST_F(Commands, ThatDoNotEndAreKilledWithAllTheyStarted) {
    const std::string command = telling("(sleep 1000; true) | (echo $$ >>" + files_.file("runs") + "; sleep 1000)");
    const QoCommandResult result = qo_run_command(command.c_str(), {seconds(1)});
    EXPECT_EQ(result.end, QoCommandEnd::left_behind);
    ASSERT_TRUE(runs());
    const pid_t group = [&] {
        std::istringstream written(files_.read("runs"));
        std::string word;
        pid_t process = 0;
        written >> word >> process;
        return process;
    }();
    ASSERT_GT(group, 0);
    EXPECT_TRUE(wait_until([group] { return kill(-group, 0) == -1 && errno == ESRCH; })) << "something lives on";
    EXPECT_TRUE(children().empty());
}

// As one that waits for a device: neither its end nor its death is waited for.
TEST_F(Commands, ThatDoNotDieAreLeftBehindAndReapedLater) {
    shell_.replace_start([](const char* command, rlim_t) {
        // Out of its group it is not met by the signal.
        const pid_t process = fork();
        if (process == 0) {
            execl("/bin/sh", "sh", "-c", command, nullptr);
            _exit(127);
        }
        return process;
    });
    EXPECT_EQ(qo_run_command(kEndless, {milliseconds(10)}).end, QoCommandEnd::left_behind);
    const std::set<pid_t> left = children();
    ASSERT_EQ(left.size(), 1U);
    kill(*left.begin(), SIGKILL);
    EXPECT_TRUE(wait_until([] { return qo_reap_commands(), children().empty(); }));
}

TEST_F(Commands, MayBeLeftRunningAfterTheirTime) {
    const QoCommandResult result =
        qo_run_command(telling(kEndless).c_str(), {milliseconds(10), QoPastLimit::left_running});
    EXPECT_EQ(result.end, QoCommandEnd::left_behind);
    EXPECT_TRUE(runs());
    qo_reap_commands();
    EXPECT_EQ(children().size(), 1U);
}

TEST_F(Commands, ThatAreStartedAreNotWaitedForAndReapedWhenTheyEnd) {
    ASSERT_EQ(qo_start_command(telling(kEndless).c_str()), 0);
    EXPECT_TRUE(runs());
    qo_reap_commands();
    const std::set<pid_t> started = children();
    ASSERT_EQ(started.size(), 1U) << "it runs on";
    kill(-*started.begin(), SIGTERM);
    EXPECT_TRUE(wait_until([] { return qo_reap_commands(), children().empty(); }));
}

TEST_F(Commands, ThatNeverEndDoNotPileUp) {
    for (int count = 0; count < QO_MOST_STARTED_COMMANDS; ++count) ASSERT_EQ(qo_start_command(kEndless), 0);
    EXPECT_EQ(qo_start_command(kEndless), EAGAIN);
    EXPECT_EQ(children().size(), static_cast<size_t>(QO_MOST_STARTED_COMMANDS));
    EXPECT_EQ(qo_run_command("true", kPatient).end, QoCommandEnd::ended) << "what is waited for is run all the same";
    kill(-*children().begin(), SIGKILL);
    EXPECT_TRUE(wait_until([] { return qo_start_command("true") == 0; })) << "there is room again";
}

TEST_F(Commands, ThatCannotBeStartedSaySo) {
    shell_.replace_start([](const char*, rlim_t) {
        errno = ENOMEM;
        return -1;
    });
    const QoCommandResult result = qo_run_command("true", kPatient);
    EXPECT_EQ(result.end, QoCommandEnd::not_started);
    EXPECT_EQ(result.status, ENOMEM);
    EXPECT_EQ(qo_start_command("true"), ENOMEM);
}

TEST_F(Commands, WriteNoFileBeyondTheLimit) {
    const std::string command = "yes >" + files_.file("output");
    const QoCommandResult result = qo_run_command(command.c_str(), {kPatience, QoPastLimit::killed, 65536});
    EXPECT_EQ(result.end, QoCommandEnd::ended);
    EXPECT_EQ(files_.read("output").size(), 65536U);
}

// ---- what a command inherits ----

TEST_F(Commands, HaveNoSignalBlockedOrHandledOrIgnored) {
    struct sigaction ignored {};
    ignored.sa_handler = SIG_IGN;
    struct sigaction before {};
    sigaction(SIGUSR2, &ignored, &before);
    sigset_t blocked;
    sigset_t mask;
    sigfillset(&blocked);
    pthread_sigmask(SIG_SETMASK, &blocked, &mask);
    const std::string status = output_of("exec cat /proc/self/status");
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    sigaction(SIGUSR2, &before, nullptr);
    EXPECT_THAT(status, testing::ContainsRegex("\nSigBlk:\t0+\n"));
    EXPECT_THAT(status, testing::ContainsRegex("\nSigIgn:\t0+\n"));
}

TEST_F(Commands, LeaveTheCallersSignalsAsTheyWere) {
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    qo_run_command("true", kPatient);
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int number = 1; number < 32; ++number) EXPECT_EQ(sigismember(&after, number), sigismember(&before, number));
}

TEST_F(Commands, HaveNoDescriptorButTheStandardOnes) {
    const int open_everywhere = open("/dev/null", O_RDONLY);
    ASSERT_EQ(output_of("readlink /proc/self/fd/" + std::to_string(open_everywhere)), "");
    close(open_everywhere);
}

TEST_F(Commands, AreProcessGroupsOfTheirOwn) {
    const std::string group = output_of("cut -d' ' -f5 /proc/self/stat");
    EXPECT_NE(std::stoi(group), getpgrp());
}

TEST_F(Commands, MakeFilesForTheirUserAlone) {
    const mode_t before = umask(0);
    output_of("true");
    umask(before);
    struct stat file {};
    ASSERT_EQ(stat(files_.file("output").c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777, 0600U);
}
