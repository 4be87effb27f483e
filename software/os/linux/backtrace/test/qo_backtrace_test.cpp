// Which signals are traced, which are handed to the callback, and what the trace says.
#include "qo_backtrace.h"

#include <execinfo.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "log_capture.h"

namespace {

bool no_frames = false;
void* outermost_frame = nullptr;  // added to the trace
time_t fixed_time = -1;           // of the wall clock; -1: as it is

constexpr int kNone[] = {-1};
constexpr int kRanOn = 77;  // exit status of a child that came to its end

}  // namespace

extern "C" {
int __real_backtrace(void** frames, int size);
time_t __real_time(time_t* now);

// Only ever called with null.
time_t __wrap_time(time_t* now) { return fixed_time != -1 ? fixed_time : __real_time(now); }

// The frame of this function is taken out again.
[[gnu::noinline]] int __wrap_backtrace(void** frames, int size) {
    if (no_frames) return 0;
    const int count = __real_backtrace(frames, size);
    std::copy(frames + 1, frames + count, frames);
    if (outermost_frame == nullptr) return count - 1;
    frames[count - 1] = outermost_frame;
    return count;
}
}

// Exported, so that their names are found in the trace.
namespace qo_backtrace_test_names {

[[gnu::noinline]] void* page_of_zeros() { return mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0); }

[[gnu::noinline]] void write_where_nothing_may_be_written(int value) {
    *static_cast<volatile int*>(page_of_zeros()) = value;
}

}  // namespace qo_backtrace_test_names

extern "C" [[gnu::noinline]] int qo_backtrace_test_plain_name(int value) {
    qo_backtrace_test_names::write_where_nothing_may_be_written(value);
    return value + 1;  // no tail call
}

namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::MatchesRegex;

struct Ended {
    int wait_status;
    std::vector<QoLogLine> lines;

    int exit_status() const { return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1; }
    int signal() const { return WIFSIGNALED(wait_status) ? WTERMSIG(wait_status) : 0; }
    std::vector<std::string> texts() const {
        std::vector<std::string> all;
        for (const QoLogLine& line : lines) all.push_back(line.text);
        return all;
    }
    // All lines between the first and the last.
    std::string frames() const {
        std::string joined;
        for (size_t index = 1; index + 1 < lines.size(); ++index) joined += lines[index].text;
        return joined;
    }
};

// Runs `body` in a child process, and gives back how it ended and what it logged after installing.
template <typename Body>
Ended in_child(const Body& body) {
    int log[2];
    EXPECT_EQ(pipe(log), 0);
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        close(log[0]);
        QoLogCapture capture;
        body(capture, log[1]);
        _exit(kRanOn);
    }
    close(log[1]);
    Ended ended{0, QoLogCapture::read_copies(log[0])};
    close(log[0]);
    EXPECT_EQ(waitpid(child, &ended.wait_status, 0), child);
    return ended;
}

void log_call(int signal) { syslog(LOG_INFO, "called back with %d", signal); }

// Installs, then runs `body` with the log going to the parent.
template <typename Body>
Ended installed(const int* trace_signals, const int* callback_signals, const Body& body) {
    return in_child([&](QoLogCapture& capture, int log) {
        if (qo_bt_install("the program", trace_signals, callback_signals, log_call) != 0) _exit(1);
        capture.copy_to(log);
        body();
    });
}

TEST(BtInstall, LogsTheProgramNameAtDebugLevelAndReturns0) {
    const Ended ended = in_child([](QoLogCapture& capture, int log) {
        capture.copy_to(log);
        _exit(qo_bt_install("qo_pushpull", kNone, kNone, nullptr));
    });
    EXPECT_EQ(ended.exit_status(), 0);
    EXPECT_THAT(ended.lines, ElementsAre(QoLogLine{LOG_DEBUG, "[ST]:BT installed for qo_pushpull\n"}));
}

TEST(BtInstall, InstallsTheHandlerWithInformationAndRestart) {
    const int trace[] = {SIGUSR2, -1};
    const Ended ended = installed(trace, kNone, [] {
        struct sigaction action = {};
        sigaction(SIGUSR2, nullptr, &action);
        const bool right = action.sa_sigaction == qo_bt_signal_handler &&
                           (action.sa_flags & (SA_SIGINFO | SA_RESTART)) == (SA_SIGINFO | SA_RESTART);
        _exit(right ? 0 : 1);
    });
    EXPECT_EQ(ended.exit_status(), 0);
}

TEST(BtInstall, OfASignalThatCannotBeHandledLogsItAndReturnsMinus1) {
    const Ended ended = in_child([](QoLogCapture& capture, int log) {
        capture.copy_to(log);
        const int trace[] = {SIGKILL, SIGUSR1, -1};
        _exit(qo_bt_install("the program", trace, kNone, nullptr) == -1 ? 0 : 1);
    });
    EXPECT_EQ(ended.exit_status(), 0);
    EXPECT_THAT(ended.lines, ElementsAre(QoLogLine{LOG_ERR, "[ST]: error setting signal handler for 9 (Killed)\n"}));
}

TEST(BtInstall, TakesAtMostFifteenSignals) {
    int trace[17];
    for (int index = 0; index < 16; ++index) trace[index] = SIGRTMIN + index;
    trace[16] = -1;
    EXPECT_EQ(installed(
                  trace, kNone, [] { raise(SIGRTMIN + 14); })
                  .exit_status(),
              1);
    EXPECT_EQ(installed(
                  trace, kNone, [] { raise(SIGRTMIN + 15); })
                  .signal(),
              SIGRTMIN + 15);
    EXPECT_EQ(installed(
                  kNone, trace, [] { raise(SIGRTMIN + 14); })
                  .exit_status(),
              kRanOn);
    EXPECT_EQ(installed(kNone, trace, [] { raise(SIGRTMIN + 15); }).signal(), SIGRTMIN + 15);
}

TEST(BtInstall, TheSecondTimeReplacesTheListsWholly) {
    const int first[] = {SIGUSR1, -1};
    const int second[] = {SIGUSR2, -1};
    const auto replace_then_raise = [&](int number) {
        return in_child([&](QoLogCapture& capture, int log) {
            if (qo_bt_install("the program", first, first, log_call) != 0) _exit(2);
            if (qo_bt_install("the program", kNone, second, log_call) != 0) _exit(2);
            capture.copy_to(log);
            raise(number);
        });
    };
    const Ended forgotten = replace_then_raise(SIGUSR1);
    EXPECT_EQ(forgotten.exit_status(), 1);  // in neither list any more
    EXPECT_TRUE(forgotten.lines.empty());
    const Ended known = replace_then_raise(SIGUSR2);
    EXPECT_EQ(known.exit_status(), kRanOn);
    EXPECT_THAT(known.lines, ElementsAre(QoLogLine{LOG_INFO, "called back with 12"}));
}

TEST(BtInstall, WithoutListsAndNameInstallsNothing) {
    const Ended ended = in_child([](QoLogCapture&, int) { _exit(qo_bt_install(nullptr, nullptr, nullptr, nullptr)); });
    EXPECT_EQ(ended.exit_status(), 0);
}

TEST(BtSignalHandler, ARealSegmentationFaultLogsTheTraceAndEndsWithStatus1) {
    const int trace[] = {SIGSEGV, SIGILL, SIGFPE, SIGUSR1, -1};
    const int called_back[] = {SIGUSR1, -1};
    const time_t before = time(nullptr);
    const Ended ended = installed(trace, called_back, [] { qo_backtrace_test_plain_name(5); });
    EXPECT_EQ(ended.exit_status(), 1);
    ASSERT_GE(ended.lines.size(), 4U);
    for (const QoLogLine& line : ended.lines) EXPECT_EQ(line.level, LOG_ERR);

    const std::string start = "[ST]:----- stack trace start ";
    ASSERT_THAT(ended.lines.front().text, MatchesRegex("\\[ST\\]:----- stack trace start [0-9]+------\n"));
    const time_t started = std::stoll(ended.lines.front().text.substr(start.size()));
    EXPECT_GE(started, before);
    EXPECT_LE(started, time(nullptr));
    EXPECT_EQ(ended.lines.back().text, "[ST]:----- stack trace end ------\n");
}

TEST(BtSignalHandler, NamesTheFramesFromTheFaultOutwardsButNotItself) {
    const int trace[] = {SIGSEGV, -1};
    const Ended ended = installed(trace, kNone, [] { qo_backtrace_test_plain_name(5); });
    const std::string frames = ended.frames();
    EXPECT_THAT(frames, ContainsRegex("\\[ST\\]:  [^ ]*qo_backtrace_test : qo_backtrace_test_names::"
                                      "write_where_nothing_may_be_written\\(int\\)\\+0x[0-9a-f]+, Addr: [0-9a-f]+\n"));
    EXPECT_THAT(frames, ContainsRegex("\\[ST\\]:  [^ ]*qo_backtrace_test : "
                                      "qo_backtrace_test_plain_name\\(\\)\\+0x[0-9a-f]+, Addr: [0-9a-f]+\n"));
    EXPECT_LT(frames.find("write_where_nothing_may_be_written"), frames.find("qo_backtrace_test_plain_name"));
#ifndef QO_SANITIZED  // which puts a backtrace() of its own in between
    EXPECT_THAT(frames, testing::Not(testing::HasSubstr("qo_bt_signal_handler")));
#endif
}

TEST(BtSignalHandler, TellsTheTimeAfter2038) {
    const int trace[] = {SIGSEGV, -1};
    const Ended ended = installed(trace, kNone, [] {
        fixed_time = time_t{1} << 31;
        raise(SIGSEGV);
    });
    EXPECT_EQ(ended.exit_status(), 1);
    ASSERT_FALSE(ended.lines.empty());
    EXPECT_EQ(ended.lines.front(), (QoLogLine{LOG_ERR, "[ST]:----- stack trace start 2147483648------\n"}));
}

TEST(BtSignalHandler, LogsTheWholeSymbolLineOfAFrameWithoutAName) {
    const int trace[] = {SIGSEGV, -1};
    const Ended ended = installed(trace, kNone, [] {
        outermost_frame = qo_backtrace_test_names::page_of_zeros();
        raise(SIGSEGV);
    });
    EXPECT_EQ(ended.exit_status(), 1);
    EXPECT_THAT(ended.frames(), ContainsRegex("\\[ST\\]:  \\[0x[0-9a-f]+\\], Addr: [0-9a-f]+\n"));
}

#ifndef __arm__  // where a trace knows nothing of code without unwind tables
TEST(BtSignalHandler, TracesACallOfWhatIsNoFunction) {
    const int trace[] = {SIGSEGV, -1};
    const Ended ended = installed(trace, kNone, [] {
        void* nowhere = qo_backtrace_test_names::page_of_zeros();
        void (*jump)() = nullptr;
        memcpy(&jump, &nowhere, sizeof jump);
        jump();
    });
    EXPECT_EQ(ended.exit_status(), 1);
    EXPECT_THAT(ended.frames(), ContainsRegex("\\[ST\\]:  \\[0x[0-9a-f]+\\], Addr: [0-9a-f]+\n"));
}
#endif

TEST(BtSignalHandler, WithoutFramesSaysSo) {
    const int trace[] = {SIGFPE, -1};
    const Ended ended = installed(trace, kNone, [] {
        no_frames = true;
        raise(SIGFPE);
    });
    EXPECT_EQ(ended.exit_status(), 1);
    ASSERT_EQ(ended.lines.size(), 3U);
    EXPECT_EQ(ended.lines[1], (QoLogLine{LOG_ERR, "[ST]:  <empty, possibly corrupt>\n"}));
    EXPECT_EQ(ended.lines[2], (QoLogLine{LOG_ERR, "[ST]:----- stack trace end ------\n"}));
}

TEST(BtSignalHandler, ASignalOfBothListsIsTracedAndThenHandedToTheCallback) {
    const int trace[] = {SIGSEGV, SIGUSR1, -1};
    const int called_back[] = {SIGUSR1, -1};
    const Ended ended = installed(trace, called_back, [] { raise(SIGUSR1); });
    EXPECT_EQ(ended.exit_status(), kRanOn);
    ASSERT_GE(ended.lines.size(), 4U);
    EXPECT_THAT(ended.lines.front().text, MatchesRegex("\\[ST\\]:----- stack trace start [0-9]+------\n"));
    EXPECT_EQ(ended.lines[ended.lines.size() - 2].text, "[ST]:----- stack trace end ------\n");
    EXPECT_EQ(ended.lines.back(), (QoLogLine{LOG_INFO, "called back with 10"}));
}

TEST(BtSignalHandler, ASignalInstalledOnlyForTheCallbackProducesNoTrace) {
    const int trace[] = {SIGSEGV, -1};
    const int called_back[] = {SIGUSR1, -1};
    const Ended ended = installed(trace, called_back, [] { raise(SIGUSR1); });
    EXPECT_EQ(ended.exit_status(), kRanOn);
    EXPECT_THAT(ended.lines, ElementsAre(QoLogLine{LOG_INFO, "called back with 10"}));
}

TEST(BtSignalHandler, WithoutACallbackTheProcessRunsOn) {
    const int both[] = {SIGUSR1, -1};
    const Ended ended = in_child([&](QoLogCapture&, int) {
        if (qo_bt_install("the program", both, both, nullptr) != 0) _exit(2);
        raise(SIGUSR1);
    });
    EXPECT_EQ(ended.exit_status(), kRanOn);
}

TEST(BtSignalHandler, KeepsErrnoOfTheCodeItInterrupted) {
    const int called_back[] = {SIGUSR1, -1};
    const Ended ended = in_child([&](QoLogCapture&, int) {
        const auto spoil_errno = [](int) { errno = EBADF; };
        if (qo_bt_install("the program", kNone, called_back, spoil_errno) != 0) _exit(2);
        errno = EAGAIN;
        raise(SIGUSR1);
        _exit(errno == EAGAIN ? 0 : 1);
    });
    EXPECT_EQ(ended.exit_status(), 0);
}

// A descriptor into which a write blocks, as syslog() does while nobody reads the log.
class BlockedLog {
public:
    BlockedLog() {
        EXPECT_EQ(pipe2(ends_, O_NONBLOCK), 0);
        while (write(ends_[1], "x", 1) == 1) continue;
        EXPECT_EQ(fcntl(ends_[1], F_SETFL, 0), 0);
    }
    ~BlockedLog() {
        close(ends_[0]);
        close(ends_[1]);
    }
    BlockedLog(const BlockedLog&) = delete;
    BlockedLog& operator=(const BlockedLog&) = delete;
    int descriptor() const { return ends_[1]; }

private:
    int ends_[2];
};

// Ends like a service whose log is blocked when `number` comes.
Ended signal_while_the_log_is_blocked(int number, qo_bt_callback_t callback) {
    const BlockedLog log;
    return in_child([&](QoLogCapture& capture, int) {
        const int trace[] = {SIGSEGV, SIGUSR1, -1};
        const int called_back[] = {SIGUSR1, -1};
        if (qo_bt_install("the program", trace, called_back, callback) != 0) _exit(2);
        sigset_t all;
        sigfillset(&all);
        sigdelset(&all, number);
        sigprocmask(SIG_BLOCK, &all, nullptr);
        capture.copy_to(log.descriptor());
        raise(number);
    });
}

TEST(BtSignalHandler, ATraceThatBlocksForEverEndsTheProcessByTheAlarm) {
    const auto end_otherwise = [](int) { _exit(3); };
    EXPECT_EQ(signal_while_the_log_is_blocked(SIGSEGV, end_otherwise).signal(), SIGALRM);
}

TEST(BtSignalHandler, ATraceThatBlocksForEverStillHandsItsSignalToTheCallbackBeforeTheEnd) {
    const auto tell_signal = [](int signal) { _exit(signal); };
    EXPECT_EQ(signal_while_the_log_is_blocked(SIGUSR1, tell_signal).exit_status(), SIGUSR1);
    EXPECT_EQ(signal_while_the_log_is_blocked(SIGUSR1, [](int) {}).signal(), SIGALRM);
    EXPECT_EQ(signal_while_the_log_is_blocked(SIGUSR1, nullptr).signal(), SIGALRM);
}

TEST(BtSignalHandler, ACallbackOfATraceThatBlockedMayUseTheAlarmItself) {
    const auto set_alarm = [](int) {
        signal(SIGALRM, [](int) { _exit(kRanOn); });
        alarm(1);
        pause();
    };
    EXPECT_EQ(signal_while_the_log_is_blocked(SIGUSR1, set_alarm).exit_status(), kRanOn);
}

// Whose handler logs as well, and would wait for ever for a logger that it interrupted.
TEST(BtSignalHandler, LetsNoSigtermInBeforeTheCallbackHasReturned) {
    const int both[] = {SIGUSR1, -1};
    const Ended ended = in_child([&](QoLogCapture&, int) {
        const auto report_sigterm = [](int) {
            sigset_t blocked;
            sigprocmask(SIG_BLOCK, nullptr, &blocked);
            _exit(sigismember(&blocked, SIGTERM) == 1 ? 0 : 1);
        };
        if (qo_bt_install("the program", both, both, report_sigterm) != 0) _exit(2);
        raise(SIGUSR1);
    });
    EXPECT_EQ(ended.exit_status(), 0);
}

TEST(BtSignalHandler, ACallbackMayTakeLongerThanATrace) {
    const int both[] = {SIGUSR1, -1};
    const Ended ended = in_child([&](QoLogCapture&, int) {
        const auto report_alarm = [](int) {
            struct sigaction action = {};
            sigaction(SIGALRM, nullptr, &action);
            _exit(alarm(0) == 0 && action.sa_handler == SIG_DFL ? 0 : 1);
        };
        if (qo_bt_install("the program", both, both, report_alarm) != 0) _exit(2);
        raise(SIGUSR1);
    });
    EXPECT_EQ(ended.exit_status(), 0);
}

TEST(BtDefaultCallback, LogsTheSignalAtErrorLevelAndEndsWithStatus0) {
    const Ended ended = in_child([](QoLogCapture& capture, int log) {
        capture.copy_to(log);
        qo_bt_default_callback(SIGUSR1);
    });
    EXPECT_EQ(ended.exit_status(), 0);
    EXPECT_THAT(ended.lines, ElementsAre(QoLogLine{LOG_ERR, "[ST]: signal received 10 \n"}));
}

}  // namespace
