// The script that restarts the device, in a folder where somebody else may be at work, and the commands before it.
#include <fcntl.h>
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
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "log_capture.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_pushpull_restart_script.h"
#include "qo_scratch_queue.h"
#include "scratch_directory.h"
#include "shell_capture.h"

extern "C" {
pid_t __real_qo_start_shell(const char* command, rlim_t file_bytes);

std::atomic<int> write_error{0};  // of every write to a file
ssize_t __real_write(int file, const void* bytes, size_t length);
ssize_t __wrap_write(int file, const void* bytes, size_t length) {
    if (write_error == 0) return __real_write(file, bytes, length);
    errno = write_error;
    return -1;
}
}

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

constexpr char kScript[] = "sleep 2;\npkill -SIGUSR1 qo_pushpull\n";
constexpr char kEvil[] = "echo owned\n";
constexpr uid_t kStranger = 54321;
constexpr seconds kPatience{20};  // reached by failing tests only

bool wait_until(const std::function<bool()>& condition) {
    const auto deadline = steady_clock::now() + kPatience;
    while (!condition()) {
        if (steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

/// Another user's process, for as long as it is wanted.
class Stranger {
public:
    explicit Stranger(const std::function<void()>& work) : process_(fork()) {
        if (process_ != 0) return;
        alarm(120);
        if (setresgid(kStranger, kStranger, kStranger) != 0 || setresuid(kStranger, kStranger, kStranger) != 0 ||
            !give_up_capabilities())
            _exit(kForbidden);
        work();
        _exit(0);
    }
    ~Stranger() {
        if (process_ <= 0) return;
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Stranger(const Stranger&) = delete;
    Stranger& operator=(const Stranger&) = delete;

    /// Waits for its end. False where a process may not become somebody else.
    bool worked() {
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = -1;
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    bool is_there() const { return waitpid(process_, nullptr, WNOHANG) == 0; }

private:
    static constexpr int kForbidden = 3;

    static bool give_up_capabilities() {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[2]{};
        return syscall(SYS_capset, &header, none) == 0;
    }

    pid_t process_;
};

std::atomic<int> signals{0};

class RestartScript : public testing::Test {
protected:
    RestartScript() {
        // As the folder of the device: for everyone, and nobody can take away what is another's.
        std::filesystem::permissions(files_.path(), std::filesystem::perms(01777));
    }
    ~RestartScript() override { write_error = 0; }

    struct stat status_of(const std::string& name) const {
        struct stat status {};
        lstat(files_.file(name).c_str(), &status);
        return status;
    }
    void expect_our_script() const {
        EXPECT_EQ(files_.read("restart.sh"), kScript);
        const struct stat script = status_of("restart.sh");
        EXPECT_TRUE(S_ISREG(script.st_mode));
        EXPECT_EQ(script.st_mode & 07777, 0700U);
        EXPECT_EQ(script.st_uid, geteuid());
        EXPECT_EQ(script.st_nlink, 1U);
    }
    testing::AssertionResult logged_doubt(const std::string& doubt) const {
        const std::string start = "QoPushPullQueueMonitor: Restart script " + path_ + " " + doubt;
        for (const QoLogLine& line : log_.lines())
            if (line.level == LOG_CRIT && line.text.starts_with(start)) return testing::AssertionSuccess();
        return testing::AssertionFailure() << testing::PrintToString(log_.lines());
    }
    // As another user may have left it, where there may be another user.
    void leave_evil_script() {
        const auto write_evil = [this] {
            files_.write("restart.sh", kEvil);
            chmod(path_.c_str(), 0777);
        };
        if (!Stranger(write_evil).worked()) write_evil();
    }

    QoLogCapture log_;
    QoShellCapture shell_;
    const QoScratchDirectory files_;
    const std::string path_ = files_.file("restart.sh");
};

}  // namespace

// ---- the file ----

TEST_F(RestartScript, IsMadeForItsUserAlone) {
    const mode_t before = umask(0);
    QoRestartScript script(path_);
    EXPECT_TRUE(script.write(kScript));
    EXPECT_TRUE(script.is_ours());
    umask(before);
    expect_our_script();
    EXPECT_THAT(log_.lines(), testing::IsEmpty());
}

TEST_F(RestartScript, TakesThePlaceOfAnotherUsersScript) {
    leave_evil_script();
    const int foreign = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(foreign, 0);
    QoRestartScript script(path_);
    EXPECT_TRUE(script.write(kScript));
    EXPECT_TRUE(script.is_ours());
    expect_our_script();
    struct stat theirs {};
    fstat(foreign, &theirs);
    EXPECT_EQ(theirs.st_nlink, 0U) << "what they may still hold open is another file";
    EXPECT_NE(theirs.st_ino, status_of("restart.sh").st_ino);
    close(foreign);
}

TEST_F(RestartScript, TakesThePlaceOfALinkWithoutFollowingIt) {
    files_.write("target", "precious");
    for (const bool hard : {false, true}) {
        const int linked = hard ? link(files_.file("target").c_str(), path_.c_str())
                                : symlink(files_.file("target").c_str(), path_.c_str());
        ASSERT_EQ(linked, 0);
        QoRestartScript script(path_);
        EXPECT_TRUE(script.write(kScript));
        EXPECT_TRUE(script.is_ours());
        expect_our_script();
        EXPECT_EQ(files_.read("target"), "precious");
        unlink(path_.c_str());
    }
}

TEST_F(RestartScript, TakesThePlaceOfAPipeThatNobodyReads) {
    ASSERT_EQ(mkfifo(path_.c_str(), 0666), 0);
    QoRestartScript script(path_);
    EXPECT_TRUE(script.write(kScript));
    EXPECT_TRUE(script.is_ours());
    expect_our_script();
}

TEST_F(RestartScript, IsDoubtedWhereADirectoryStands) {
    ASSERT_EQ(mkdir(path_.c_str(), 0777), 0);
    EXPECT_FALSE(QoRestartScript(path_).write(kScript));
    EXPECT_TRUE(logged_doubt("cannot be replaced (error "));
}

TEST_F(RestartScript, IsDoubtedWithoutItsFolder) {
    EXPECT_FALSE(QoRestartScript(files_.file("missing/restart.sh")).write(kScript));
    EXPECT_TRUE(log_.contains(LOG_CRIT, "QoPushPullQueueMonitor: Restart script " + files_.file("missing/restart.sh") +
                                            " has no folder (error " + std::to_string(ENOENT) + ")"));
}

TEST_F(RestartScript, IsDoubtedWhereNoFileCanBeMade) {
    EXPECT_FALSE(QoRestartScript("/proc/restart.sh").write(kScript));
    ASSERT_FALSE(log_.lines().empty());
    EXPECT_THAT(log_.lines().back().text, HasSubstr("cannot be made (error "));
}

TEST_F(RestartScript, IsDoubtedWhenTheDiskIsFull) {
    QoRestartScript script(path_);
    write_error = ENOSPC;
    EXPECT_FALSE(script.write(kScript));
    write_error = 0;
    EXPECT_TRUE(logged_doubt("cannot be written (error " + std::to_string(ENOSPC) + ")"));
}

TEST_F(RestartScript, IsDoubtedWhereOthersMayRenameIt) {
    for (const int mode : {0777, 0770}) {
        ASSERT_EQ(chmod(files_.path().c_str(), static_cast<mode_t>(mode)), 0);
        QoRestartScript script(path_);
        EXPECT_TRUE(script.write(kScript));
        expect_our_script();
        EXPECT_FALSE(script.is_ours());
        EXPECT_TRUE(logged_doubt("lies where others can replace it"));
    }
}

TEST_F(RestartScript, IsDoubtedInAnotherUsersFolder) {
    if (chown(files_.path().c_str(), kStranger, kStranger) != 0) GTEST_SKIP() << "a folder cannot be given away here";
    QoRestartScript script(path_);
    script.write(kScript);
    EXPECT_FALSE(script.is_ours());
}

TEST_F(RestartScript, IsDoubtedOnceSomethingElseStandsThere) {
    const std::function<void()> changes[] = {
        [this] { rename(path_.c_str(), files_.file("old").c_str()); },
        [this] {
            rename(path_.c_str(), files_.file("old").c_str());
            files_.write("restart.sh", kScript);
        },
        [this] { EXPECT_EQ(symlink(files_.file("old").c_str(), path_.c_str()), -1); },
        [this] { EXPECT_EQ(link(path_.c_str(), files_.file("more").c_str()), 0); },
        [this] { files_.write("restart.sh", kEvil); },
        [this] { chmod(path_.c_str(), 0722); },
    };
    for (size_t change = 0; change < std::size(changes); ++change) {
        QoRestartScript script(path_);
        ASSERT_TRUE(script.write(kScript));
        ASSERT_TRUE(script.is_ours());
        changes[change]();
        // What changed nothing must not be doubted.
        EXPECT_EQ(script.is_ours(), change == 2) << change;
        unlink(files_.file("more").c_str());
    }
}

TEST_F(RestartScript, IsNeverTheOneOfAUserWhoRacesForThePath) {
    files_.write("target", "precious");
    const auto race = [this] {
        const std::string evil = files_.file("evil");
        for (;;) {
            files_.write("evil", kEvil);
            chmod(evil.c_str(), 0777);
            rename(evil.c_str(), path_.c_str());
            symlink(files_.file("target").c_str(), path_.c_str());
            mkfifo(path_.c_str(), 0666);
            unlink(path_.c_str());
        }
    };
    const Stranger stranger(race);
    int ours = 0;
    const auto end = steady_clock::now() + seconds(2);
    while (steady_clock::now() < end) {
        QoRestartScript script(path_);
        if (!script.write(kScript) || !script.is_ours()) continue;
        ++ours;
        // What is run now.
        ASSERT_NO_FATAL_FAILURE(expect_our_script());
        ASSERT_FALSE(HasFailure());
    }
    if (!stranger.is_there()) GTEST_SKIP() << "a process may not become another user here";
    EXPECT_GT(ours, 0);
    EXPECT_EQ(files_.read("target"), "precious");
}

// ---- the monitor ----

namespace {

// Outlives the test in a thread that was left behind.
struct Hold {
    std::mutex mutex;
    std::condition_variable released;
    bool reached = false;  // guarded by mutex
    bool release = false;  // guarded by mutex
};

class Restart : public RestartScript {
protected:
    Restart() {
        signals = 0;
        struct sigaction count {};
        count.sa_handler = [](int) { ++signals; };
        sigaction(SIGUSR1, &count, &before_);
        settings_.poll = milliseconds(2);
        settings_.full_for = seconds(0);
        settings_.restart_grace = std::chrono::minutes(10);  // ended by the destructor
        settings_.command_output = files_.file("output");
        settings_.restart_script = path_;
    }
    ~Restart() override {
        release();
        monitor_.reset();
        sigaction(SIGUSR1, &before_, nullptr);
    }
    void fail() {
        queue_.fill();
        monitor_.emplace(settings_);
        monitor_->addQueue("/a", QO_CMPID_TESTPUBLISHER, queue_.descriptor());
    }
    bool ran(const std::string& command) {
        return wait_until([&] { return testing::Value(shell_.commands(), Contains(command)); });
    }
    bool ran_script() { return ran(path_ + " &"); }
    bool wait_for(int level, const std::string& text) {
        return wait_until([&] { return log_.contains(level, text); });
    }
    void expect_signal_without_script() {
        EXPECT_TRUE(wait_until([] { return signals > 0; })) << "no signal";
        EXPECT_THAT(shell_.commands(), Not(Contains(path_ + " &")));
        EXPECT_TRUE(log_.contains(LOG_CRIT, "QoPushPullQueueMonitor: Terminating..."));
        EXPECT_TRUE(
            log_.contains(LOG_CRIT, "QoPushPullQueueMonitor: The service is signalled without the restart script"));
    }
    // Holds whoever starts the commands that begin like this, until release().
    void hold(const std::string& start) {
        shell_.replace_start([hold = hold_, start](const char* command, rlim_t) {
            std::unique_lock lock(hold->mutex);
            if (std::string(command).starts_with(start)) {
                hold->reached = true;
                hold->released.wait(
                    lock, [&hold] { return hold->release; });
            }
            return __real_qo_start_shell("true", RLIM_INFINITY);
        });
    }
    bool held() {
        return wait_until([this] {
            const std::lock_guard lock(hold_->mutex);
            return hold_->reached;
        });
    }
    void release() {
        const std::lock_guard lock(hold_->mutex);
        hold_->release = true;
        hold_->released.notify_all();
    }

    const QoScratchQueue queue_{"/a", 2, 16};
    QoQueueMonitorSettings settings_;
    std::optional<QoPushPullQueueMonitor> monitor_;

private:
    struct sigaction before_ {};
    const std::shared_ptr<Hold> hold_ = std::make_shared<Hold>();
};

}  // namespace

TEST_F(Restart, ScriptOfAnotherUserIsReplacedBeforeItIsRun) {
    leave_evil_script();
    fail();
    ASSERT_TRUE(ran_script());
    expect_our_script();
    EXPECT_EQ(signals, 0);
}

TEST_F(Restart, WithoutAScriptTheServiceIsSignalledDirectly) {
    ASSERT_EQ(mkdir(path_.c_str(), 0777), 0);
    fail();
    expect_signal_without_script();
}

TEST_F(Restart, WhereOthersCanReplaceTheScriptItIsWrittenAndNotRun) {
    ASSERT_EQ(chmod(files_.path().c_str(), 0777), 0);
    fail();
    expect_signal_without_script();
    expect_our_script();
}

TEST_F(Restart, WhoseShellCannotBeStartedSignalsDirectly) {
    shell_.set_result(-1);
    fail();
    EXPECT_TRUE(wait_until([] { return signals > 0; }));
    EXPECT_TRUE(log_.contains(LOG_ERR, "QoPushPullQueueMonitor: System command pstree could not be started (error " +
                                           std::to_string(EAGAIN) + ")"));
}

TEST_F(Restart, FailedCommandsAndAFailedChmodAreNotLookedAt) {
    shell_.replace_start([](const char* command, rlim_t bytes) {
        return __real_qo_start_shell(std::string(command).ends_with(" &") ? "true" : "false", bytes);
    });
    fail();
    EXPECT_TRUE(wait_for(LOG_CRIT, "QoPushPullQueueMonitor: Terminating..."));
    EXPECT_TRUE(ran_script());
    monitor_.reset();
    EXPECT_EQ(signals, 0);
}

// ---- diagnostics that hang ----

TEST_F(Restart, CommandThatDoesNotEndIsLeftBehindAndTheNextOnesAreRun) {
    settings_.command_limit = milliseconds(300);
    shell_.replace_start([](const char* command, rlim_t bytes) {
        const bool hangs = std::string(command).starts_with("ps ");
        return __real_qo_start_shell(hangs ? "exec sleep 1000" : "true", bytes);
    });
    fail();
    ASSERT_TRUE(
        wait_for(LOG_ERR, "QoPushPullQueueMonitor: System command ps -AF | grep qo was left behind after 300 ms"));
    EXPECT_TRUE(ran("pstree >> " + settings_.command_output));
    EXPECT_TRUE(ran_script());
}

TEST_F(Restart, DiagnosticsHoldNobodyWhoAddsOrCountsQueues) {
    hold("top -b ");
    fail();
    ASSERT_TRUE(held());
    monitor_->addQueue("/b", QO_CMPID_DEMO, -1);
    monitor_->removeQueue(queue_.descriptor());
    EXPECT_EQ(monitor_->getQueueNames(), "/b(Total),/b(Saves),/b(Max),/b(Avg)");
    release();
    EXPECT_TRUE(ran_script());
}

TEST_F(Restart, DiagnosticsThatAreStuckAreLeftBehind) {
    settings_.report_limit = milliseconds(100);
    hold("top -b ");
    fail();
    ASSERT_TRUE(held());
    EXPECT_TRUE(wait_for(LOG_CRIT, "QoPushPullQueueMonitor: The diagnostics are stuck and were left behind"));
    EXPECT_TRUE(ran_script());
    release();
    EXPECT_THAT(shell_.commands(), Not(Contains("top -bi -n 1 >> " + settings_.command_output)));
}

TEST_F(Restart, DiagnosticsDoNotHoldTheMonitorsEnd) {
    hold("top -b ");
    fail();
    ASSERT_TRUE(held());
    monitor_.reset();
    EXPECT_TRUE(log_.contains(LOG_INFO, "QoPushPullQueueMonitor: Exited..."));
}

TEST_F(Restart, PipeInThePlaceOfTheOutputIsRemoved) {
    ASSERT_EQ(mkfifo(settings_.command_output.c_str(), 0666), 0);
    fail();
    ASSERT_TRUE(ran_script());
    EXPECT_TRUE(log_.contains(LOG_ERR, "QoPushPullQueueMonitor: " + settings_.command_output +
                                           " is no file and had to be removed (error 0)"));
    EXPECT_FALSE(files_.has("output"));
}

TEST_F(Restart, LinkInThePlaceOfTheOutputIsRemovedAndNotRead) {
    files_.write("target", "precious");
    ASSERT_EQ(symlink(files_.file("target").c_str(), settings_.command_output.c_str()), 0);
    fail();
    ASSERT_TRUE(ran_script());
    EXPECT_EQ(files_.read("target"), "precious");
    EXPECT_FALSE(log_.contains(LOG_NOTICE, "001: precious"));
}

TEST_F(Restart, CommandThatPrintsForEverFillsNeitherDiskNorLog) {
    shell_.replace_start([this](const char* command, rlim_t bytes) {
        const bool prints = std::string(command).starts_with("pstree");
        const std::string yes = "exec yes 1234567 >> " + settings_.command_output;
        return __real_qo_start_shell(prints ? yes.c_str() : "true", bytes);
    });
    fail();
    ASSERT_TRUE(ran_script());
    EXPECT_TRUE(log_.contains(LOG_NOTICE, "2000: 1234567"));
    EXPECT_FALSE(log_.contains(LOG_NOTICE, "2001: 1234567"));
    EXPECT_TRUE(log_.contains(LOG_NOTICE, "QoPushPullQueueMonitor: " + std::to_string(1048576 - 2000 * 8) +
                                              " bytes of the output of system command pstree were left out"));
}

TEST_F(Restart, LineThatNoLogTakesIsCut) {
    files_.write("output", std::string(10000, 'x') + "\nnext\n");
    fail();
    ASSERT_TRUE(ran_script());
    EXPECT_TRUE(log_.contains(LOG_NOTICE, "001: " + std::string(8192, 'x')));
    EXPECT_TRUE(log_.contains(LOG_NOTICE, "002: next"));
    EXPECT_TRUE(log_.contains(LOG_NOTICE,
                              "QoPushPullQueueMonitor: 1808 bytes of the output of system command "
                              "top -b -n 1 | grep qo were left out"));
}
