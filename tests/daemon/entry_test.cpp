// The command line, the start-up and the signals of the real service.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <mqueue.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>

#include <iostream>
#include <thread>

#include "component.h"
#include "service_process.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

constexpr int kComponent = QO_CMPID_DEMO;

auto LogLine(int level, const testing::Matcher<std::string>& text) {
    return AllOf(Field("level", &QoLogLine::level, level), Field("text", &QoLogLine::text, text));
}

bool queue_exists(const std::string& name) {
    const mqd_t queue = mq_open(name.c_str(), O_RDONLY);
    if (queue != -1) mq_close(queue);
    return queue != -1;
}

// ---- options ----

class Options : public ServiceProcess {
protected:
    // Starts with options that end the process at once. @return the status as waitpid() gives it.
    int status_of(const std::vector<std::string>& arguments) {
        service().start(arguments);
        const std::optional<int> status = service().wait_for_end();
        EXPECT_TRUE(status) << "the service runs";
        return status.value_or(-1);
    }
};

TEST_F(Options, VersionAndLoggingTogetherLogBothLinesAndStartWithStatisticsCollectionOn) {
    ASSERT_TRUE(service().start_and_wait({"-v", "-l"}));
    EXPECT_TRUE(events().wait_for_log(LOG_INFO, "pushpull_data version 0.1"));
    EXPECT_TRUE(events().wait_for_log(LOG_INFO, "Pushpull Logging is enabled"));
    EXPECT_TRUE(events().wait_for_log(LOG_INFO, "QoPushPullStats: Started..."));
}

TEST_F(Options, WithoutLoggingThereIsNoStatisticsCollection) {
    ASSERT_TRUE(service().start_and_wait());
    EXPECT_THAT(events().log(), Not(Contains(LogLine(LOG_INFO, HasSubstr("QoPushPullStats")))));
    EXPECT_THAT(events().log(), Not(Contains(LogLine(LOG_INFO, HasSubstr("Logging is enabled")))));
}

TEST_F(Options, InstanceNameWithoutArgumentIsReportedAndEndsWithStatus1) {
    const int status = status_of({"-m"});
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Option -m requires an argument (instance name)."));
}

TEST_F(Options, InstanceNameFooMakesTheServiceReadTheQueueWithThatSuffix) {
    service().make_queue("foo");
    ASSERT_TRUE(service().start_and_wait({"-m", "foo"}));
    Component component(service(), kComponent);
    EXPECT_THAT(component.get("/version"), HasSubstr("schemaVersion"));
    EXPECT_FALSE(queue_exists("/pushpull"));
    EXPECT_TRUE(events().wait_for_log(LOG_INFO, "PushPullData MessageQueue: open the queue /pushpull"));
    EXPECT_TRUE(
        events().wait_for_log(LOG_INFO, "QoPushPullQueueMonitor: Adding queue /pushpullfoo (component ID 1100)"));
}

TEST_F(Options, AnUnknownPrintableOptionIsReportedAndEndsWithStatus1) {
    const int status = status_of({"-x"});
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Unknown option '-x'.\n"));
}

TEST_F(Options, AnUnknownOptionThatCannotBePrintedIsReportedByItsNumber) {
    const int status = status_of({"-\x01"});
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Unknown option character '\\x1'.\n"));
}

TEST_F(Options, AMissingArgumentOfDOrYIsReportedAsAnUnknownOption) {
    EXPECT_EQ(WEXITSTATUS(status_of({"-d"})), 1);
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Unknown option '-d'.\n"));
    EXPECT_EQ(WEXITSTATUS(status_of({"-y"})), 1);
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Unknown option '-y'.\n"));
}

TEST_F(Options, ABadOptionEndsBeforeAnythingIsCreated) {
    status_of({"-v", "-x"});
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Unknown option '-x'.\n"));
    EXPECT_FALSE(queue_exists("/pushpull"));
    EXPECT_TRUE(events().notifications().empty());
    EXPECT_THAT(events().log(), Contains(LogLine(LOG_INFO, "pushpull_data version 0.1")));
    EXPECT_THAT(events().log(), Not(Contains(LogLine(LOG_INFO, "PushPullData Start"))));
}

TEST_F(Options, YWithAnyArgumentAborts) {
    const int status = status_of({"-y", "anything"});
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGABRT);
}

TEST_F(Options, DWithAnArgumentIsInert) {
    ASSERT_TRUE(service().start_and_wait({"-d", "anything"}));
    Component component(service(), kComponent);
    EXPECT_THAT(component.get("/version"), HasSubstr("schemaVersion"));
}

// ---- start-up ----

class StartUp : public ServiceProcess {
protected:
    // The lines above debug level that begin like one of the awaited ones, in the order in which they came.
    std::vector<std::string> lines_like(const std::vector<std::string>& awaited) {
        std::vector<std::string> found;
        for (const QoLogLine& line : events().log()) {
            for (const std::string& text : awaited)
                if (line.level != LOG_DEBUG && line.text.starts_with(text)) found.push_back(text);
        }
        return found;
    }
};

TEST_F(StartUp, LogsItsStepsInOrderAndThenReportsReadiness) {
    ASSERT_TRUE(service().start_and_wait());
    const std::vector<std::string> steps = {
        "PushPullData Start",
        "QoPushPullQueueMonitor: Started...",
        "PushPullData MessageQueue: open the queue /pushpull",
        " message_queue_create_and_error_handling: open ::",
        "QoPushPullQueueMonitor: Adding queue /pushpull (component ID 1100)",
        "PushPull:*@#: No json defaults found",
        "PushPull:*@#: Default tree created",
        "PushPull:*@#: No saved configuration found",
        "PushPull:*@#: No back up configuration found",
        "PushPull:*@#: No saved configuration, using default tree as data tree",
    };
    Component component(service(), kComponent);
    component.fence();
    EXPECT_EQ(lines_like(steps), steps);
    EXPECT_THAT(events().notifications(), ElementsAre("READY=1"));
}

TEST_F(StartUp, LogsUnderItsIdentWithTheUserFacility) {
    ASSERT_TRUE(service().start_and_wait());
    EXPECT_THAT(events().idents(), ElementsAre("1 PushPull"));
}

TEST_F(StartUp, DiscardsTheStaleMessagesOfAnEarlierRun) {
    service().make_queue();
    ASSERT_TRUE(service().post(R"({"function":"exit","arg":{"comp_id":1102,"buffer":"true"}})"));
    ASSERT_TRUE(service().post("not even JSON"));
    ASSERT_TRUE(service().start_and_wait());
    Component component(service(), kComponent);
    component.fence();
    EXPECT_THAT(events().log(),
                Contains(LogLine(LOG_DEBUG, MatchesRegex("Flushed 2 stale messages from queue [0-9]+"))));
    EXPECT_THAT(events().log(), Not(Contains(LogLine(LOG_ERR, HasSubstr("parseJSON failed")))));
}

TEST_F(StartUp, MakesTheQueueForUserAndGroupWhateverTheUmask) {
    if (!QoServiceProcess::may_make_full_queue()) GTEST_SKIP() << "the quota forbids the queue that the service makes";
    const mode_t before = umask(0777);
    service().start();
    umask(before);
    ASSERT_TRUE(events().wait_for_notifications(1));
    struct stat queue {};
    ASSERT_EQ(stat("/dev/mqueue/pushpull", &queue), 0);
    EXPECT_EQ(queue.st_mode & 07777, 0660U);
}

TEST_F(StartUp, WithoutAQueueItReportsReadinessAllTheSameAndTriesEverySecond) {
    std::ofstream("/proc/sys/fs/mqueue/queues_max") << 0;
    // Who has this capability is not held to it.
    prctl(PR_CAPBSET_DROP, CAP_SYS_RESOURCE);
    prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_LOWER, CAP_SYS_RESOURCE, 0, 0);
    service().start();
    ASSERT_TRUE(events().wait_for_notifications(1));
    EXPECT_TRUE(events().wait_for_log(LOG_CRIT, "PushPullData MessageQueue: /pushpull Message queue failed to open"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR,
                                      "parseJSON failed in pushpull recv retval= -1, precv_string->length() = 0 , "
                                      "ERR_CODE = 50002"));
    service().send_signal(SIGKILL);
    EXPECT_TRUE(service().wait_for_end());
}

TEST_F(StartUp, WithClosedStandardDescriptorsNoQueueIsDescriptor0) {
    service().make_queue();
    service().start({}, QoServiceProcess::StandardFiles::kClosed);
    ASSERT_TRUE(events().wait_for_notifications(1));
    Component component(service(), kComponent);
    Component other(service(), QO_CMPID_TESTPUBLISHER);
    ASSERT_EQ(other.api().subscribe(other.id(), "/version", false), 0);
    other.fence();
    ASSERT_EQ(component.api().publish(component.id(), R"({"version":{"schemaVersion":"1"}})"), 0);
    EXPECT_EQ(other.next_message(), R"({"version":{"schemaVersion":"1"}})");
}

TEST_F(StartUp, ASecondStartFindsWhatTheFirstSaved) {
    ASSERT_TRUE(service().start_and_wait());
    {
        Component component(service(), kComponent);
        ASSERT_EQ(component.api().publish(component.id(), R"({"version":{"schemaVersion":"77"}})"), 0);
        ASSERT_EQ(component.api().publish(component.id(), R"({"resetKivo":{"state":"gone after a restart"}})"), 0);
        ASSERT_EQ(component.api().flush(component.id()), 0);
        component.fence();
    }
    ASSERT_EQ(service().stop(), 0);
    ASSERT_TRUE(service().start_and_wait());
    Component component(service(), kComponent);
    EXPECT_THAT(component.get("/version"), HasSubstr("\"77\""));
    EXPECT_THAT(component.get("/resetKivo"), HasSubstr("\"run\""));
    EXPECT_TRUE(events().wait_for_store_log(LOG_INFO, "Saved configuration found"));
    EXPECT_TRUE(events().wait_for_store_log(LOG_INFO, "Default and saved trees merged"));
}

TEST_F(StartUp, ASiteDefaultsFileReplacesTheBuiltInTree) {
    std::ofstream("/kivo/others/defaults.json") << R"({"version":{"schemaVersion":"9"},"usb":{"state":"x"}})";
    ASSERT_TRUE(service().start_and_wait());
    Component component(service(), kComponent);
    EXPECT_THAT(component.get("/version"), HasSubstr("\"9\""));
    EXPECT_EQ(component.get("/system"), "/system:{}");
}

// ---- signals ----

class Sigterm : public RunningService {};
class SigtermUnderLoad : public ServiceProcess {};

TEST_F(Sigterm, WhileIdleLeavesTwoMessagesInTheQueueAndExits0) {
    service().send_signal(SIGTERM);
    const std::optional<int> status = service().wait_for_end();
    ASSERT_TRUE(status);
    ASSERT_TRUE(WIFEXITED(*status));
    EXPECT_EQ(WEXITSTATUS(*status), 0);

    ASSERT_EQ(service().waiting_requests(), 2);
    EXPECT_THAT(service().take_request().value_or(""),
                AllOf(HasSubstr("\"save\""), HasSubstr(std::to_string(QO_CMPID_DEBUG_LOGGER))));
    EXPECT_THAT(service().take_request().value_or(""),
                AllOf(HasSubstr("\"exit\""), HasSubstr("\"true\""), HasSubstr(std::to_string(QO_CMPID_DEBUG_LOGGER))));
    EXPECT_EQ(service().standard_output(), "Pushpull About to Exit\n");
    EXPECT_TRUE(events().wait_for_log(LOG_WARNING, "Pushpull About to Exit \n"));
    EXPECT_TRUE(events().wait_for_log(LOG_ALERT, "Received SIGTERM - Pushpull will Exit \n"));
}

TEST_F(Sigterm, TheNextStartDiscardsWhatItLeft) {
    service().send_signal(SIGTERM);
    ASSERT_TRUE(service().wait_for_end());
    events().clear_log();
    ASSERT_TRUE(service().start_and_wait());
    Component component(service(), kComponent);
    EXPECT_THAT(component.get("/version"), HasSubstr("schemaVersion"));
    EXPECT_THAT(events().log(),
                Contains(LogLine(LOG_DEBUG, MatchesRegex("Flushed 2 stale messages from queue [0-9]+"))));
}

TEST_F(Sigterm, WithAPendingSaveTimerExits0AndSavesNothing) {
    {
        Component component(service(), kComponent);
        ASSERT_EQ(component.api().publish(component.id(), R"({"version":{"schemaVersion":"2"}})"), 0);
        component.fence();
    }
    ASSERT_TRUE(events().wait_for_store_log(LOG_INFO, "Timer to save the data tree created!"));
    ASSERT_TRUE(service().wait_until_idle());
    service().send_signal(SIGTERM);
    const std::optional<int> status = service().wait_for_end();
    ASSERT_TRUE(status && WIFEXITED(*status));
    EXPECT_EQ(WEXITSTATUS(*status), 0);
    EXPECT_FALSE(std::filesystem::exists("/kivo/data/saved_tree.json"));
}

// Publishes without a pause, so that the signal meets the service at any point of its work. One request waits at
// most, so that the two of the signal's handler find room.
TEST_F(SigtermUnderLoad, AtAnyMomentNeverHangs) {
    constexpr int kRounds = 40;
    service().make_queue("", 3);
    const std::string text = R"({"devices":[{"id":0,"device":{"deviceName":")" + std::string(3000, 'x') + R"("}}]})";
    int published = 0;
    for (int round = 0; round < kRounds; ++round) {
        ASSERT_TRUE(service().start_and_wait());
        Component component(service(), kComponent, {2, 4096});
        std::thread killer([&] {
            std::this_thread::sleep_for(std::chrono::microseconds(731 * round));
            service().send_signal(SIGTERM);
        });
        while (service().running()) {
            if (service().waiting_requests() > 0) continue;
            EXPECT_EQ(component.api().publish(component.id(), text), 0);
            ++published;
        }
        killer.join();
        const std::optional<int> status = service().wait_for_end();
        ASSERT_TRUE(status) << "round " << round;
        ASSERT_TRUE(WIFEXITED(*status)) << "round " << round << ", signal " << WTERMSIG(*status);
        EXPECT_EQ(WEXITSTATUS(*status), 0) << "round " << round;
        while (service().take_request()) continue;
    }
    std::cout << published << " publishes in " << kRounds << " rounds\n";
    EXPECT_GT(published, kRounds);  // also on a slow machine
}

class Sigusr1 : public RunningService {};

TEST_F(Sigusr1, LogsTheTraceAndRebootsAfterFiveSeconds) {
    const auto sent = std::chrono::steady_clock::now();
    service().send_signal(SIGUSR1);
    ASSERT_TRUE(events().wait_for_log(LOG_ERR, "[ST]:----- stack trace end ------\n"));
    ASSERT_TRUE(
        events().wait_for_log(LOG_CRIT, "Received queue full signal (SIGUSR1) - Rebooting system in 5 seconds"));
    ASSERT_TRUE(events().wait_for_command("reboot now"));
    EXPECT_GE(std::chrono::steady_clock::now() - sent, std::chrono::seconds(5));
    EXPECT_THAT(events().commands(), ElementsAre("reboot now"));

    // The stand-in did not reboot: the service goes on.
    Component component(service(), kComponent);
    EXPECT_THAT(component.get("/version"), HasSubstr("schemaVersion"));
}

class FatalSignal : public RunningService, public testing::WithParamInterface<int> {};

TEST_P(FatalSignal, LogsTheTraceAndEndsWithStatus1) {
    service().send_signal(GetParam());
    const std::optional<int> status = service().wait_for_end();
    ASSERT_TRUE(status);
    ASSERT_TRUE(WIFEXITED(*status)) << "signal " << WTERMSIG(*status);
    EXPECT_EQ(WEXITSTATUS(*status), 1);
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "[ST]:----- stack trace end ------\n"));
    EXPECT_THAT(events().log(),
                Contains(LogLine(LOG_ERR, MatchesRegex("\\[ST\\]:----- stack trace start [0-9]+------\n"))));
    EXPECT_THAT(events().log(), Contains(LogLine(LOG_ERR, AllOf(StartsWith("[ST]:  "), HasSubstr("pushpull_main")))));
    EXPECT_THAT(events().commands(), ElementsAre());
}

INSTANTIATE_TEST_SUITE_P(Signals, FatalSignal, testing::Values(SIGSEGV, SIGILL, SIGFPE));

}  // namespace
