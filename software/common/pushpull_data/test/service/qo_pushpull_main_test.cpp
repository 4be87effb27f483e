// The entry of the process: its options, its order of steps and its signals.
#include "qo_pushpull_main.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "failing_new.h"
#include "log_capture.h"
#include "notify_socket.h"
#include "qo_pushpull.h"
#include "qo_pushpull_constants.h"
#include "qo_scratch_queue.h"
#include "shell_capture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::function<void()> when_ready;      // at the end of the start-up
std::function<void()> before_receive;  // when the service looks into its queue
std::vector<unsigned> pauses;          // seconds, of every sleep
unsigned interrupted_once_after = 0;   // seconds; 0: no sleep is interrupted

}  // namespace

// ---- replacements ----

extern "C" {
unsigned __wrap_sleep(unsigned seconds);
ssize_t __real_send(int socket, const void* data, size_t length, int flags);
ssize_t __wrap_send(int socket, const void* data, size_t length, int flags);
ssize_t __real_mq_receive(mqd_t descriptor, char* buffer, size_t length, unsigned* priority);
ssize_t __wrap_mq_receive(mqd_t descriptor, char* buffer, size_t length, unsigned* priority);

unsigned __wrap_sleep(unsigned seconds) {
    pauses.push_back(seconds);
    const unsigned left = interrupted_once_after > 0 ? seconds - interrupted_once_after : 0;
    interrupted_once_after = 0;
    return left;
}

ssize_t __wrap_send(int socket, const void* data, size_t length, int flags) {
    const ssize_t sent = __real_send(socket, data, length, flags);
    if (when_ready && std::string_view(static_cast<const char*>(data), length) == "READY=1") when_ready();
    return sent;
}

ssize_t __wrap_mq_receive(mqd_t descriptor, char* buffer, size_t length, unsigned* priority) {
    if (before_receive) before_receive();
    return __real_mq_receive(descriptor, buffer, length, priority);
}
}

namespace {

class Main : public testing::Test {
protected:
    Main() {
        optind = 0;  // the options of the test before are forgotten
        when_ready = [this] { post_exit(queue_); };
        before_receive = nullptr;
        pauses.clear();
        interrupted_once_after = 0;
    }
    ~Main() override {
        when_ready = nullptr;
        before_receive = nullptr;
        signal(SIGTERM, SIG_DFL);
    }

    static void post_exit(const QoScratchQueue& queue) {
        EXPECT_TRUE(
            queue.put(R"({"function":"exit","arg":{"comp_id":1073741852,"buffer":"true"}})" + std::string(1, '\0')));
    }

    static int run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "qo_pushpull");
        std::vector<char*> argv(arguments.size() + 1, nullptr);
        std::transform(arguments.begin(), arguments.end(), argv.begin(),
                       [](std::string& argument) { return argument.data(); });
        return pushpull_main(static_cast<int>(arguments.size()), argv.data());
    }

    /// The first allocation fails behind the line that the start of that number, counted from 1, has opened its queue.
    void run_out_of_memory_in_start(int number) {
        log_.on_line([this, number, starts = std::make_shared<int>(0)](const QoLogLine& line) {
            if (line.text == "QoPushPullQueueMonitor: Adding queue /pushpull (component ID 1100)" &&
                ++*starts == number)
                short_of_memory_.emplace(0);
        });
    }

    /// Runs with options that are refused: status 1, one line, nothing created.
    void expect_refused(const std::vector<std::string>& arguments, const std::string& line) {
        when_ready = [] { ADD_FAILURE() << "the service was started"; };
        testing::internal::CaptureStderr();
        EXPECT_EQ(run(arguments), 1);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_THAT(log_.lines_above_debug(), ElementsAre(QoLogLine{LOG_ERR, line}));
    }

    QoLogCapture log_;
    QoShellCapture shell_;
    QoNotifySocket systemd_;
    std::optional<QoFailingNew> short_of_memory_;
    const QoScratchQueue queue_{QO_SERVICE_QUEUE_NAME, 4, 4096};
};

using Options = Main;
using Signals = Main;

}  // namespace

// ---- options ----

TEST_F(Options, VersionAndLoggingTogetherLogBothLinesAndStartWithStatistics) {
    EXPECT_EQ(run({"-v", "-l"}), 0);
    const std::vector<QoLogLine> lines = log_.lines_above_debug();
    ASSERT_GE(lines.size(), 5U);
    EXPECT_THAT(
        std::vector<QoLogLine>(lines.begin(), lines.begin() + 5),
        ElementsAre(QoLogLine{LOG_INFO, "pushpull_data version 0.1"},
                    QoLogLine{LOG_INFO, "Pushpull Logging is enabled"}, QoLogLine{LOG_INFO, "PushPullData Start"},
                    QoLogLine{LOG_INFO, "QoPushPullQueueMonitor: Started..."},
                    QoLogLine{LOG_INFO, "QoPushPullStats: Started..."}));
}

TEST_F(Options, NoneStartsWithoutStatisticsOnTheDefaultQueue) {
    EXPECT_EQ(run({}), 0);
    EXPECT_FALSE(log_.contains(LOG_INFO, "QoPushPullStats: Started..."));
    EXPECT_TRUE(log_.contains(LOG_INFO, "QoPushPullQueueMonitor: Adding queue /pushpull (component ID 1100)"));
}

TEST_F(Options, InstanceNameIsAppendedToTheQueueName) {
    const QoScratchQueue foo("/pushpullfoo", 4, 4096);
    when_ready = [&foo] { post_exit(foo); };
    EXPECT_EQ(run({"-m", "foo"}), 0);
    EXPECT_EQ(foo.count(), 0) << "the request was read there";
    EXPECT_TRUE(log_.contains(LOG_INFO, "QoPushPullQueueMonitor: Adding queue /pushpullfoo (component ID 1100)"));
}

TEST_F(Options, InstanceNameMissingIsRefused) {
    expect_refused({"-m"}, "Option -m requires an argument (instance name).");
}

TEST_F(Options, UnknownPrintableOptionIsRefused) { expect_refused({"-x"}, "Unknown option '-x'.\n"); }

TEST_F(Options, UnknownUnprintableOptionIsRefused) { expect_refused({"-\x01"}, "Unknown option character '\\x1'.\n"); }

TEST_F(Options, MissingArgumentOfDAndYIsReportedAsAnUnknownOption) {
    expect_refused({"-d"}, "Unknown option '-d'.\n");
    optind = 0;
    log_.clear();
    expect_refused({"-y"}, "Unknown option '-y'.\n");
}

TEST_F(Options, DIsAcceptedAndInert) {
    EXPECT_EQ(run({"-d", "anything"}), 0);
    EXPECT_EQ(log_.lines_above_debug().front(), (QoLogLine{LOG_INFO, "PushPullData Start"}));
}

TEST_F(Options, YWithAnyArgumentAborts) { EXPECT_EXIT(run({"-y", "anything"}), testing::KilledBySignal(SIGABRT), ""); }

// ---- the life of the process ----

TEST_F(Main, ExitRequestTakesTheComponentsQueuesFromTheMonitorBeforeTheEnd) {
    const QoScratchQueue display("/display", 2, 256);
    when_ready = [this] {
        ASSERT_TRUE(queue_.put(R"({"function":"register","arg":{"comp_id":1073741852,"buffer":"/display"}})"));
        post_exit(queue_);
    };
    EXPECT_EQ(run({}), 0);
    const std::vector<QoLogLine> lines = log_.lines_above_debug();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_THAT(std::vector<QoLogLine>(lines.end() - 3, lines.end()),
                ElementsAre(QoLogLine{LOG_INFO, "QoPushPullQueueMonitor: Removing queue"},
                            QoLogLine{LOG_NOTICE,
                                      "QoPushPullMonitoredQueue: Monitored queue /display (component ID "
                                      "1073741852): 2 / 2 messages"},
                            QoLogLine{LOG_INFO, "QoPushPullQueueMonitor: Exited..."}));
}

TEST_F(Main, InitRequestStartsAgainOnTheQueueOfTheInstance) {
    const QoScratchQueue foo("/pushpullfoo", 4, 4096);
    int starts = 0;
    when_ready = [&] {
        if (++starts == 1)
            ASSERT_TRUE(foo.put(R"({"function":"init","arg":{"comp_id":1073741852,"buffer":"true"}})"));
        else
            post_exit(foo);
    };
    EXPECT_EQ(run({"-m", "foo"}), 0);
    EXPECT_EQ(starts, 2);
    EXPECT_EQ(foo.count(), 0) << "the request to exit was read there";
}

TEST_F(Main, ExceptionEndsTheProcessWithStatusZeroAndACriticalLineAndIsStartedAgain) {
    before_receive = [] { throw std::runtime_error("no more"); };
    EXPECT_EQ(run({}), 0);
    EXPECT_TRUE(log_.contains(LOG_CRIT, "exception no more"));
    EXPECT_THAT(systemd_.told(), ElementsAre("READY=1", "WATCHDOG=trigger"));
}

TEST_F(Main, ExitRequestIsNotStartedAgain) {
    EXPECT_EQ(run({}), 0);
    EXPECT_THAT(systemd_.told(), ElementsAre("READY=1"));
}

TEST_F(Main, ExceptionDuringTheStartUpEndsTheProcessWithStatusOneBeforeItIsReady) {
    run_out_of_memory_in_start(1);
    when_ready = [this] {
        ADD_FAILURE() << "readiness was reported";
        post_exit(queue_);
    };
    before_receive = [] { ADD_FAILURE() << "a request was served"; };
    EXPECT_EQ(run({}), 1);
    EXPECT_TRUE(log_.contains(LOG_CRIT, "exception std::bad_alloc"));
}

TEST_F(Main, ExceptionDuringTheStartThatAnInitRequestCausesEndsTheProcessWithStatusOne) {
    run_out_of_memory_in_start(2);
    int starts = 0;
    when_ready = [&] {
        ++starts;
        ASSERT_TRUE(queue_.put(R"({"function":"init","arg":{"comp_id":1073741852,"buffer":"true"}})"));
    };
    EXPECT_EQ(run({}), 1);
    EXPECT_EQ(starts, 1);
    EXPECT_TRUE(log_.contains(LOG_CRIT, "exception std::bad_alloc"));
}

TEST_F(Main, ClosedStandardDescriptorsAreOpenedSoThatNoQueueIsNumberZero) {
    EXPECT_EXIT(
        {
            for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(descriptor);
            run({"-x"});
            int open_ones = 0;
            for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
                if (fcntl(descriptor, F_GETFD) != -1) ++open_ones;
            _exit(open_ones);
        },
        testing::ExitedWithCode(3), "");
}

// ---- signals ----

TEST_F(Signals, SigtermDuringStartUpKillsByItsDefaultAction) {
    when_ready = [] { kill(getpid(), SIGTERM); };
    EXPECT_EXIT(run({}), testing::KilledBySignal(SIGTERM), "");
}

TEST_F(Signals, SigtermHandlerIsInstalledAfterTheStartUp) {
    struct sigaction during_start_up {};
    struct sigaction while_running {};
    when_ready = [&] {
        sigaction(SIGTERM, nullptr, &during_start_up);
        post_exit(queue_);
    };
    before_receive = [&while_running] { sigaction(SIGTERM, nullptr, &while_running); };
    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(during_start_up.sa_handler, SIG_DFL);
    EXPECT_EQ(while_running.sa_handler, &PushPullData::SignalHandler);
}

TEST_F(Signals, SigtermDuringARequestActsWhenTheRequestIsDone) {
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    int starts = 0;
    when_ready = [&] {
        if (++starts == 1) {
            ASSERT_TRUE(queue_.put(R"({"function":"init","arg":{"comp_id":1073741852,"buffer":"true"}})"));
            return;
        }
        kill(getpid(), SIGTERM);
        EXPECT_EQ(write(pipe_ends[1], "x", 1), 1);
    };
    EXPECT_EXIT(run({}), testing::ExitedWithCode(0), "");
    close(pipe_ends[1]);
    char byte = 0;
    EXPECT_EQ(read(pipe_ends[0], &byte, 1), 1) << "the request went on";
    close(pipe_ends[0]);
    EXPECT_EQ(queue_.count(), 2);
}

TEST_F(Signals, SigtermWhileIdleLeavesTwoMessagesAndEndsWithStatusZero) {
    when_ready = nullptr;
    before_receive = [] { kill(getpid(), SIGTERM); };
    EXPECT_EXIT(run({}), testing::ExitedWithCode(0), "");
    before_receive = nullptr;
    EXPECT_EQ(queue_.count(), 2);
    EXPECT_THAT(queue_.take()->bytes, HasSubstr("\"save\""));
    EXPECT_THAT(queue_.take()->bytes, HasSubstr("\"exit\""));
}

TEST_F(Signals, Sigusr1RebootsAfterFiveSeconds) {
    signalCallback(SIGUSR1);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_CRIT,
                                                    "Received queue full signal (SIGUSR1) - Rebooting system "
                                                    "in 5 seconds"}));
    EXPECT_THAT(pauses, ElementsAre(5U));
    EXPECT_THAT(shell_.commands(), ElementsAre("reboot now"));
}

TEST_F(Signals, Sigusr1WaitsTheWholeFiveSecondsWhenAnotherSignalComesBetween) {
    interrupted_once_after = 2;
    signalCallback(SIGUSR1);
    EXPECT_THAT(pauses, ElementsAre(5U, 3U));
    EXPECT_THAT(shell_.commands(), ElementsAre("reboot now"));
}

TEST_F(Signals, Sigusr1LeavesTheAlarmAsTheSystemHasIt) {
    signalCallback(SIGUSR1);
    struct sigaction action {};
    sigaction(SIGALRM, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
    EXPECT_EQ(alarm(0), 0U);
}

// What it runs is seen through the built program only.
TEST_F(Signals, Sigusr1WhoseLineIsNeverLoggedEndsTheProcessAllTheSame) {
    int blocked_log[2];
    ASSERT_EQ(pipe2(blocked_log, O_NONBLOCK), 0);
    while (write(blocked_log[1], "x", 1) == 1) continue;
    ASSERT_EQ(fcntl(blocked_log[1], F_SETFL, 0), 0);
    const auto announce_in_vain = [&] {
        std::thread([] {
            std::this_thread::sleep_for(std::chrono::seconds(20));
            _exit(2);  // it hangs
        }).detach();
        log_.copy_to(blocked_log[1]);
        signalCallback(SIGUSR1);
    };
    EXPECT_EXIT(announce_in_vain(), testing::ExitedWithCode(1), "");
    for (const int end : blocked_log) close(end);
}

TEST_F(Signals, CallbackIgnoresEveryOtherSignal) {
    signalCallback(SIGTERM);
    signalCallback(SIGSEGV);
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_THAT(shell_.commands(), IsEmpty());
}
