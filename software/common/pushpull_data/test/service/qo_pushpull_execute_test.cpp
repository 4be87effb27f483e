// Start-up, the main loop, "init", "exit" and SIGTERM.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <unistd.h>

#include <thread>

#include "notify_socket.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_signal_gate.h"
#include "qo_service_fixture.h"
#include "qo_statistics_rows.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

std::vector<time_t> pauses;  // seconds, of every sleep
double clock_now = 0;        // monotonic seconds, of the service
bool refuse_service_queue = false;
std::function<void()> before_receive;  // what happens when the service looks into its queue
std::function<void()> before_send;     // and when a handler sends

auto open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

}  // namespace

// ---- replacements ----

extern "C" {
int __wrap_nanosleep(const timespec* duration, timespec* left);
mqd_t __real_mq_open(const char* name, int flags, ...);
mqd_t __wrap_mq_open(const char* name, int flags, ...);
ssize_t __real_mq_receive(mqd_t descriptor, char* buffer, size_t length, unsigned* priority);
ssize_t __wrap_mq_receive(mqd_t descriptor, char* buffer, size_t length, unsigned* priority);
int __real_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority, const timespec* deadline);
int __wrap_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority, const timespec* deadline);

int __wrap_nanosleep(const timespec* duration, timespec*) {
    pauses.push_back(duration->tv_sec);
    clock_now += static_cast<double>(duration->tv_sec);
    return 0;
}

mqd_t __wrap_mq_open(const char* name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    mq_attr* attributes = (flags & O_CREAT) != 0 ? va_arg(arguments, mq_attr*) : nullptr;
    va_end(arguments);
    if (refuse_service_queue && std::string(name).starts_with(QO_SERVICE_QUEUE_NAME)) {
        errno = EMFILE;
        return -1;
    }
    return __real_mq_open(name, flags, mode, attributes);
}

ssize_t __wrap_mq_receive(mqd_t descriptor, char* buffer, size_t length, unsigned* priority) {
    if (before_receive) before_receive();
    return __real_mq_receive(descriptor, buffer, length, priority);
}

int __wrap_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority, const timespec*) {
    if (before_send) before_send();
    const timespec long_ago{};
    return __real_mq_timedsend(descriptor, text, length, priority, &long_ago);
}
}

namespace {

class Service : public QoServiceFixture {
protected:
    explicit Service(bool statistics = false) : QoServiceFixture(statistics, [] { return clock_now; }) { forget(); }
    ~Service() override { forget(); }

    static void forget() {
        pauses.clear();
        refuse_service_queue = false;
        before_receive = nullptr;
        before_send = nullptr;
    }

    void post(const std::string& function, const std::string& arguments) {
        post_bytes(R"({"function":")" + function + R"(","arg":{)" + arguments + "}}" + '\0');
    }
    void post_bytes(const std::string& bytes) { ASSERT_TRUE(service_queue_.put(bytes)); }
    void post_exit() { post("exit", R"("comp_id":1073741852,"buffer":"true")"); }
    /// Serves what was posted, which an exit request ends.
    int run() {
        log_.clear();
        return service_->execute();
    }
    std::vector<QoLogLine> logged() const { return log_.lines_above_debug(); }

    QoNotifySocket systemd_;
};

/// With no service yet.
class StartUp : public Service {
protected:
    StartUp() {
        end_service();
        log_.clear();
    }
};

using Loop = Service;
using InitRequest = Service;
using ExitRequest = Service;
using NotifyAll = Service;
using Sigterm = Service;

constexpr char kGetVersion[] = R"("comp_id":1073741852,"buffer":"/version")";
constexpr char kVersion[] = "{\n\t\"version\": {\n\t\t\"schemaVersion\": \"1\"\n\t}\n}";
constexpr char kExiting[] = "pushpull exiting";

}  // namespace

// ---- start-up ----

TEST_F(StartUp, ReportsReadinessOnceEverythingIsThere) {
    PushPullData service(false);
    service.init("");
    EXPECT_THAT(systemd_.told(), ElementsAre("READY=1"));
    EXPECT_THAT(
        log_.lines(),
        IsSupersetOf({QoLogLine{LOG_INFO, "PushPullData Start"},
                      QoLogLine{LOG_INFO, "PushPullData MessageQueue: open the queue /pushpull"},
                      QoLogLine{LOG_DEBUG, "PushPullData MessageQueue: /pushpull Message queue successfully opened"},
                      QoLogLine{LOG_INFO, "QoPushPullQueueMonitor: Adding queue /pushpull (component ID 1100)"}}));
    service.terminate();
}

TEST_F(StartUp, DiscardsWhatAnEarlierInstanceLeftInTheQueue) {
    post("save", R"("comp_id":1073741849)");
    post_exit();
    PushPullData service(false);
    service.init("");
    EXPECT_EQ(service_queue_.count(), 0);
    EXPECT_THAT(log_.lines(), Contains(testing::Field(&QoLogLine::text, HasSubstr("Flushed 2 stale messages"))));
    service.terminate();
}

TEST_F(StartUp, InstanceSuffixNamesTheQueueInFullInTheMonitor) {
    const QoScratchQueue suffixed("/pushpullfoo", 2, 4096);
    PushPullData service(false);
    service.init("foo");
    EXPECT_TRUE(log_.contains(LOG_INFO, "PushPullData MessageQueue: open the queue /pushpull"));
    EXPECT_TRUE(log_.contains(LOG_INFO, "QoPushPullQueueMonitor: Adding queue /pushpullfoo (component ID 1100)"));
    service.terminate();
}

TEST_F(StartUp, GoesOnWithoutItsQueue) {
    refuse_service_queue = true;
    PushPullData service(false);
    service.init("");
    EXPECT_TRUE(log_.contains(LOG_CRIT, "PushPullData MessageQueue: /pushpull Message queue failed to open"));
    EXPECT_THAT(log_.lines(), Not(Contains(testing::Field(&QoLogLine::text, HasSubstr("Adding queue")))));
    EXPECT_THAT(systemd_.told(), ElementsAre("READY=1"));
    std::string text;
    EXPECT_EQ(service.get_node("/version", &text, ""), 0) << "the tree is there";
    service.terminate();
}

TEST_F(StartUp, WithStatisticsSaysSo) {
    PushPullData service(true);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_INFO, "PushPullData Start"},
                                          QoLogLine{LOG_INFO, "QoPushPullQueueMonitor: Started..."},
                                          QoLogLine{LOG_INFO, "QoPushPullStats: Started..."}));
    service.init("");
    EXPECT_THAT(log_.lines(), Not(Contains(testing::Field(&QoLogLine::text, HasSubstr("PushPull Stats:")))));
    service.terminate();
}

// ---- the main loop ----

TEST_F(Loop, ServesRequestsInOrderUntilAnExit) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    post("get", kGetVersion);
    post("get", R"("comp_id":1073741852,"buffer":"/nope","sender_id":"me")");
    post_exit();
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(display.texts(), ElementsAre(kVersion, "sender_id:me;/nope:{}", kExiting, "exit"));
}

TEST_F(Loop, MalformedRequestIsLoggedAndDropped) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    post_bytes(std::string("{\"function\"\0", 12));
    post("get", kGetVersion);
    post_exit();
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "PushPullData : mq_receive: retval: 12 , msg: {\"function\""));
    EXPECT_TRUE(log_.contains(LOG_ERR, "parseJSON failed in pushpull recv= -1"));
    EXPECT_THAT(display.texts(), Contains(kVersion));
    EXPECT_THAT(pauses, IsEmpty());
}

TEST_F(Loop, ZeroLengthMessageIsAReceiveFailureWithOneSecondsPause) {
    post_bytes("");
    post_exit();
    EXPECT_EQ(run(), -1);
    EXPECT_TRUE(log_.contains(
        LOG_ERR, "parseJSON failed in pushpull recv retval= 0, precv_string->length() = 0 , ERR_CODE = 50002"));
    EXPECT_THAT(pauses, ElementsAre(1));
}

TEST_F(Loop, QueueThatFailedToOpenCostsASecondPerReceive) {
    end_service();
    refuse_service_queue = true;
    PushPullData service(false);
    service.init("");
    int looks = 0;
    before_receive = [&looks] {
        if (++looks == 3) throw std::runtime_error("seen enough");
    };
    log_.clear();
    EXPECT_THROW(service.execute(), std::runtime_error);
    const QoLogLine failure{LOG_ERR,
                            "parseJSON failed in pushpull recv retval= -1, precv_string->length() = 0 , ERR_CODE = "
                            "50002"};
    EXPECT_THAT(log_.lines(), ElementsAre(failure, failure));
    EXPECT_THAT(pauses, ElementsAre(1, 1));
    service.terminate();
}

TEST_F(Loop, MessageWithoutItsNulEndsWhereItWasSent) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    post("get", R"("comp_id":1073741852,"buffer":"/a much longer request than the one that follows it")");
    post_bytes(R"({"function":"get","arg":{"comp_id":1073741852,"buffer":"/version"}})");
    post_exit();
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(display.texts(), Contains(kVersion));
    EXPECT_THAT(log_.lines(), Not(Contains(QoLogLine{LOG_ERR, "parseJSON failed in pushpull recv= -1"})));
}

TEST_F(Loop, RequestTakesOverWhatItOmitsButForFiveMembers) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    post("get", R"("comp_id":1073741852,"buffer":"/version","sender_id":"me","pack_and_send":true)");
    post_bytes(std::string("{}\0", 3));
    post_exit();
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(display.texts(),
                ElementsAre(R"(sender_id:me;{"version":{"schemaVersion":"1"}})", kVersion, kExiting, "exit"));
}

TEST_F(Loop, RequestToSubscribeForgetsThatTheOneBeforeWantedChangesOnly) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    post("subscribe", R"("comp_id":1073741852,"buffer":"/system/config","notifyOnChangeOnly":true)");
    post("subscribe", R"("comp_id":1073741852,"buffer":"/version")");
    const std::string same = R"({"version":{"schemaVersion":"1"}})";
    post("publish", R"("comp_id":1073741835,"buffer":"{\"version\":{\"schemaVersion\":\"1\"}}")");
    post_exit();
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(display.texts(), ElementsAre(same, kExiting, "exit"));
}

TEST_F(Loop, RequestToRegisterForgetsTheQueueSizesOfTheOneBefore) {
    const std::string request = R"({"function":"register","arg":{"comp_id":1100,"buffer":"no slash"})";
    const std::string complete = R"(,"que":{"maxmsg":3,"msgsize":16}})";
    for (const std::string more : {"}", R"(,"que":{"maxmsg":3}})", R"(,"que":{"msgsize":16}})"}) {
        post_bytes(request + complete);
        post_bytes(request + more);
    }
    post_exit();
    EXPECT_EQ(run(), -1);
    const std::vector<QoLogLine> lines = logged();
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         QoLogLine{LOG_ERR,
                                   "ResourceMgr MessageQueue: mq_open: \"no slash\" - failed: (nil) size=64 , "
                                   "max=262144 , ERR_CODE:" +
                                       std::to_string(EINVAL)}),
              3);
}

TEST_F(Loop, RequestToRegisterFindsNoErrnoOfTheOneBefore) {
    const QoScratchQueue display("/display", 2, 256);
    post("register", R"("comp_id":1073741852,"buffer":"/not_there"},"que":{"maxmsg":2,"msgsize":64)");
    post("register", R"("comp_id":1073741853,"buffer":"/display")");
    post_exit();
    run();
    mq_unlink("/not_there");
    const auto missing = [](const char* name) {
        return QoLogLine{LOG_ERR, "ResourceMgr MessageQueue: mq_open:" + std::string(name) + " no device found\n"};
    };
    EXPECT_THAT(logged(), AllOf(Contains(missing("/not_there")), Not(Contains(missing("/display")))));
}

TEST_F(Loop, UnknownKindIsIgnoredSilently) {
    post("reboot", R"("comp_id":1073741852,"buffer":"true")");
    post_exit();
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(logged(), ElementsAre(QoLogLine{LOG_ERR,
                                                "Component not Registered, comp_exit : ncomp_id=1073741852 , "
                                                "ERR_CODE=50014"},
                                      QoLogLine{LOG_ERR, " comp_exit : Incorrect Path or comp_notify Failed"},
                                      QoLogLine{LOG_ERR, "Component comp_exit data failed = -1"}));
}

namespace {

class CountingLoop : public Service {
protected:
    CountingLoop() : Service(true) {}
    const QoStatisticsRows rows_;
};

}  // namespace

TEST_F(CountingLoop, CountsEveryMessageOnTheServiceQueueAndTheTimeOfEveryRequest) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    const double started_at = clock_now;
    post_bytes("");  // costs a pause of one second
    post("reboot", R"("comp_id":1073741852)");
    post("get", kGetVersion);
    post_exit();
    before_receive = [] { clock_now += 1; };
    before_send = [] { clock_now += 2; };
    EXPECT_EQ(run(), 0);
    clock_now = started_at + 20;
    const auto row = rows_.next();
    EXPECT_EQ(row.at("/pushpull(Total)"), "4") << "whether it was a request or not";
    EXPECT_EQ(row.at("/display(Total)"), "2") << "the answers to the get and to the exit";
    EXPECT_EQ(row.at("Percent Active"), "15.000000") << "the exit leaves the loop before its time is counted";
    EXPECT_EQ(row.at("Avg Read Time"), "2000.000000") << "from the reception of the request";
}

// ---- exit ----

TEST_F(ExitRequest, WithBufferFalseKeepsTheServiceRunning) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    post("exit", R"("comp_id":1073741852,"buffer":"false")");
    post("get", kGetVersion);
    post_exit();
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(display.texts(), ElementsAre(kVersion, kExiting, "exit"));
}

TEST_F(ExitRequest, FromAnUnregisteredComponentEndsTheLoopWithMinusOneAndTellsNobody) {
    QoTestComponent display(*service_, QO_CMPID_ALERTS, "/display");
    post_exit();
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(display.texts(), IsEmpty());
}

TEST_F(ExitRequest, EveryRegisteredComponentIsTold) {
    QoTestComponent a(*service_, QO_CMPID_DEMO, "/a");
    QoTestComponent b(*service_, QO_CMPID_ALERTS, "/b");
    log_.clear();
    EXPECT_EQ(service_->comp_exit(a.id), 0);
    EXPECT_THAT(a.texts(), ElementsAre(kExiting, "exit"));
    EXPECT_THAT(b.texts(), ElementsAre("exit"));
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "comp_exit : send_data pushpull exiting"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ExitRequest, WithNoComponentRegisteredAnyMoreFails) {
    // The gateway asks with its own queue full: the soft watchdog unregisters it, and nobody is left.
    QoTestComponent gateway(*service_, QO_CMPID_REMOTE_GATEWAY_CM, "/gateway", 1);
    gateway.queue.fill();
    log_.clear();
    EXPECT_EQ(service_->comp_exit(gateway.id), -1);
    const std::vector<QoLogLine> lines = logged();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_THAT(std::vector<QoLogLine>(lines.end() - 3, lines.end()),
                ElementsAre(QoLogLine{LOG_ERR, " comp_exit : comp_notify Failed"},
                            QoLogLine{LOG_ERR, " comp_exit : comp_notify_all Failed"},
                            QoLogLine{LOG_ERR, " comp_exit : Incorrect Path or comp_notify Failed"}));
}

TEST_F(NotifyAll, WithNobodyRegisteredFails) {
    EXPECT_EQ(service_->comp_notify_all("text"), -1);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(NotifyAll, FailedSendIsLoggedWithQueueAndText) {
    QoTestComponent narrow(*service_, QO_CMPID_DEMO, "/narrow", 1, 4);
    QoTestComponent display(*service_, QO_CMPID_ALERTS, "/display");
    log_.clear();
    EXPECT_EQ(service_->comp_notify_all("too long"), 0) << "the last send's result";
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_ERR, " comp_notify_all : sending failed to /narrow.  String = too long."}));
    EXPECT_THAT(display.texts(), ElementsAre("too long"));
}

// ---- init ----

namespace {

const std::string kSavedTree = std::string(QO_DATA_DIRECTORY) + QO_SAVED_TREE_FILE;
const std::string kBackup = kSavedTree + QO_BACKUP_EXTENSION;

}  // namespace

TEST_F(InitRequest, FromAnUnregisteredComponentStillDeletesTheSavedTreeAndItsBackupAndRestarts) {
    std::ofstream(kSavedTree) << "{}";
    std::ofstream(kBackup) << "{}";
    log_.clear();
    EXPECT_EQ(service_->comp_init(QO_CMPID_DEMO), -1);
    EXPECT_FALSE(std::filesystem::exists(kSavedTree));
    EXPECT_FALSE(std::filesystem::exists(kBackup));
    EXPECT_THAT(systemd_.told(), ElementsAre("READY=1"));
    const std::vector<QoLogLine> lines = logged();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[0],
              (QoLogLine{LOG_ERR, "Component not Registered, comp_init : ncomp_id=1073741852 , ERR_CODE=50014"}));
    EXPECT_EQ(lines[1], (QoLogLine{LOG_ERR, " comp_init : Incorrect Path or comp_notify Failed"}));
}

TEST_F(InitRequest, AnswersTheRequesterAndForgetsEverybodyAndEverything) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    display.subscribe("/version");
    ASSERT_EQ(service_->comp_publish(writer.id, R"({"version":{"schemaVersion":"9"}})"), 0);
    display.texts();
    log_.clear();
    EXPECT_EQ(service_->comp_init(display.id), 0);
    EXPECT_THAT(display.texts(), ElementsAre("pushpull init success"));
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "comp_init : send_data pushpull init success"));
    EXPECT_TRUE(log_.contains(LOG_INFO, "QoPushPullQueueMonitor: Started...")) << "of the new registry";
    EXPECT_TRUE(log_.contains(LOG_INFO, "QoPushPullQueueMonitor: Exited...")) << "of the old one";
    EXPECT_TRUE(log_.contains(LOG_INFO, "Error deleting file or file not exist " + kSavedTree + "\n"));
    EXPECT_TRUE(log_.contains(LOG_INFO, "Error deleting file or file not exist " + kBackup + "\n"));

    EXPECT_EQ(service_->comp_save_debug(display.id), -1) << "nobody is registered";
    std::string text;
    EXPECT_EQ(service_->get_node("/version", &text, ""), 0);
    EXPECT_EQ(text, kVersion) << "the default is back";
    display.enter();
    writer.enter();
    EXPECT_EQ(service_->comp_publish(writer.id, R"({"version":{"schemaVersion":"9"}})"), 0);
    EXPECT_THAT(display.texts(), IsEmpty()) << "nobody is subscribed";
}

TEST_F(InitRequest, FailedAnswerIsLoggedAndTheResetDoneAllTheSame) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display", 1);
    display.queue.fill();
    log_.clear();
    EXPECT_EQ(service_->comp_init(display.id), -1);
    EXPECT_TRUE(log_.contains(LOG_ERR, " comp_init : comp_notify Failed"));
    EXPECT_TRUE(log_.contains(LOG_ERR, " comp_init : Incorrect Path or comp_notify Failed"));
    EXPECT_THAT(systemd_.told(), ElementsAre("READY=1"));
}

TEST_F(InitRequest, AgainAndAgainWithComponentsLeavesNoDescriptorOpen) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    QoTestComponent writer(*service_, QO_CMPID_ALERTS, "/writer");
    const auto before = open_descriptors();
    for (int turn = 0; turn < 5; ++turn) {
        EXPECT_EQ(service_->comp_init(display.id), 0);
        EXPECT_THAT(display.texts(), ElementsAre("pushpull init success"));
        display.enter();
        writer.enter();
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(InitRequest, ForgetsAPendingRestartOfTheGateway) {
    QoTestComponent gateway(*service_, QO_CMPID_REMOTE_GATEWAY_DM, "/gateway", 1);
    gateway.queue.fill();
    EXPECT_EQ(service_->comp_notify(1, &gateway.id, "1"), -1);
    ASSERT_EQ(shell_.commands().size(), 1U);
    service_->comp_init(QO_CMPID_DEMO);
    gateway.enter();
    EXPECT_EQ(service_->comp_notify(1, &gateway.id, "2"), -1);
    EXPECT_EQ(shell_.commands().size(), 2U);
}

TEST_F(InitRequest, LeavesTheLoopRunningOnTheSameQueue) {
    post("init", R"("comp_id":1073741852,"buffer":"true")");
    int looks = 0;
    before_receive = [&] {
        if (++looks == 2) post_exit();  // what was in the queue before is discarded as stale
    };
    EXPECT_EQ(run(), -1);
    EXPECT_TRUE(log_.contains(LOG_ERR, "Component comp_init data failed = -1"));
    EXPECT_THAT(systemd_.told(), ElementsAre("READY=1"));
}

TEST_F(InitRequest, WithoutTheExactBufferTrueIsIgnored) {
    post("init", R"("comp_id":1073741852,"buffer":"yes")");
    post_exit();
    run();
    EXPECT_THAT(systemd_.told(), IsEmpty());
}

// ---- SIGTERM ----

namespace {

/// As the process entry has it, in a process that ends with it.
class Serving {
public:
    Serving() { signal(SIGTERM, PushPullData::SignalHandler); }

private:
    const QoSignalGate working_{QoSignalGate::State::kWorking};
};

}  // namespace

TEST_F(Sigterm, OnAnotherThreadIsPassedOnToTheMainThread) {
    static thread_local int sigterms = 0;
    signal(
        SIGTERM, [](int) { ++sigterms; });
    std::thread([] { PushPullData::SignalHandler(SIGTERM); }).join();
    signal(SIGTERM, SIG_DFL);
    EXPECT_EQ(sigterms, 1);
    EXPECT_EQ(service_queue_.count(), 0) << "nothing was done on that thread";
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Sigterm, OtherSignalsOnlyLog) {
    testing::internal::CaptureStdout();
    PushPullData::SignalHandler(SIGHUP);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Pushpull About to Exit\n");
    EXPECT_THAT(logged(), ElementsAre(QoLogLine{LOG_WARNING, "Pushpull About to Exit \n"}));
    EXPECT_EQ(service_queue_.count(), 0);
}

TEST_F(Sigterm, WhileIdlePostsSaveAndExitAndEndsTheProcessWithStatusZero) {
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    EXPECT_EXIT(
        {
            log_.copy_to(pipe_ends[1]);
            const Serving serving;
            before_receive = [] { kill(getpid(), SIGTERM); };
            service_->execute();
        },
        testing::ExitedWithCode(0), "");
    close(pipe_ends[1]);
    EXPECT_THAT(QoLogCapture::read_copies(pipe_ends[0]),
                IsSupersetOf({QoLogLine{LOG_WARNING, "Pushpull About to Exit \n"},
                              QoLogLine{LOG_ALERT, "Received SIGTERM - Pushpull will Exit \n"}}));
    close(pipe_ends[0]);
    ASSERT_EQ(service_queue_.count(), 2);
    EXPECT_THAT(service_queue_.take()->bytes, AllOf(HasSubstr("\"save\""), HasSubstr("1073741849")));
    EXPECT_THAT(service_queue_.take()->bytes,
                AllOf(HasSubstr("\"exit\""), HasSubstr("1073741849"), HasSubstr("\"true\"")));
}

TEST_F(Sigterm, DuringARequestWaitsUntilTheRequestIsDone) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    post("get", kGetVersion);
    EXPECT_EXIT(
        {
            const Serving serving;
            before_send = [] { kill(getpid(), SIGTERM); };
            service_->execute();
        },
        testing::ExitedWithCode(0), "");
    EXPECT_THAT(display.texts(), ElementsAre(kVersion)) << "the request was answered before the process ended";
}

TEST_F(Sigterm, AfterTheLoopActsAtTheEndOfTheService) {
    post("exit", R"("comp_id":1073741852,"buffer":"true")");
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    EXPECT_EXIT(
        {
            {
                const Serving serving;
                service_->execute();
                kill(getpid(), SIGTERM);
                if (write(pipe_ends[1], "x", 1) != 1) _exit(2);
            }
            _exit(1);
        },
        testing::ExitedWithCode(0), "");
    close(pipe_ends[1]);
    char byte = 0;
    EXPECT_EQ(read(pipe_ends[0], &byte, 1), 1) << "it went on";
    close(pipe_ends[0]);
    EXPECT_EQ(service_queue_.count(), 2);
}

TEST_F(Sigterm, StormDuringRequestsLosesNoAnswerAndActsOnce) {
    QoTestComponent display(*service_, QO_CMPID_DEMO, "/display");
    post("get", kGetVersion);
    EXPECT_EXIT(
        {
            const Serving serving;
            before_send = [] {
                std::thread storm([main = pthread_self()] {
                    for (int signals = 0; signals < 10000; ++signals) pthread_kill(main, SIGTERM);
                });
                for (int signals = 0; signals < 10000; ++signals) raise(SIGTERM);
                storm.join();
            };
            service_->execute();
        },
        testing::ExitedWithCode(0), "");
    EXPECT_THAT(display.texts(), ElementsAre(kVersion));
    EXPECT_EQ(service_queue_.count(), 2);
}
