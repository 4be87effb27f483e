// One service per queue, and on a queue of its own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <thread>

#include "component.h"
#include "service_process.h"

namespace {

using testing::HasSubstr;

constexpr int kComponent = QO_CMPID_DEMO;
constexpr uid_t kStranger = 64123;
constexpr char kInUse[] = "PushPullData MessageQueue: /pushpull is served by another process";

// Every file below /kivo with what it holds.
std::map<std::string, std::string> files() {
    std::map<std::string, std::string> all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator("/kivo")) {
        if (!entry.is_regular_file()) continue;
        std::ostringstream text;
        text << std::ifstream(entry.path()).rdbuf();
        all[entry.path()] = text.str();
    }
    return all;
}

class SecondService : public ServiceProcess {
protected:
    /// A second one on the queue of the first. Expects that it ends with status 1.
    void expect_refused(const std::vector<std::string>& arguments) {
        const std::optional<int> status = service().run_another(arguments);
        ASSERT_TRUE(status) << "it serves";
        ASSERT_TRUE(WIFEXITED(*status));
        EXPECT_EQ(WEXITSTATUS(*status), 1);
    }
};

class ServiceQueue : public ServiceProcess {};

TEST_F(SecondService, OnTheSameQueueEndsWithStatus1AndTouchesNoFileAndNoMessage) {
    ASSERT_TRUE(service().start_and_wait());
    // What it would sort out as left behind, discard, or rotate.
    std::ofstream("/kivo/data/saved_tree.json.tmp12345") << "{}";
    std::filesystem::create_directories("/kivo/data/logs/ppstat");
    std::ofstream("/kivo/data/logs/ppstat/ppstats.csv") << "a row\n";
    std::ofstream("/kivo/data/saved_tree.json") << "no tree";
    service().send_signal(SIGSTOP);
    for (int message = 0; message < 2; ++message)  // it may wait in a receive, which takes the first
        ASSERT_TRUE(service().post(R"({"function":"waiting"})"));
    const long waiting = service().waiting_requests();
    ASSERT_GT(waiting, 0);
    const std::map<std::string, std::string> before = files();
    events().clear_log();
    expect_refused({"-v", "-l"});
    EXPECT_EQ(files(), before);
    EXPECT_EQ(service().waiting_requests(), waiting);
    EXPECT_TRUE(events().wait_for_log(LOG_INFO, "pushpull_data version 0.1"));
    EXPECT_TRUE(events().wait_for_log(LOG_CRIT, kInUse));
    EXPECT_EQ(events().notifications().size(), 1U) << "it was ready";
    service().send_signal(SIGCONT);
    Component component(service(), kComponent);
    EXPECT_THAT(component.get("/version"), HasSubstr("schemaVersion"));
}

TEST_F(SecondService, LeavesEveryAnswerToTheFirst) {
    ASSERT_TRUE(service().start_and_wait());
    Component component(service(), kComponent, {8, 8192});
    expect_refused({});
    for (int turn = 0; turn < 40; ++turn) {
        const std::string sender = std::to_string(turn);
        EXPECT_THAT(component.get("/version", sender), HasSubstr("sender_id:" + sender + ";"));
    }
}

TEST_F(SecondService, IsRefusedAfterAnInitRequestToo) {
    ASSERT_TRUE(service().start_and_wait());
    ASSERT_TRUE(service().post(R"({"function":"init","arg":{"comp_id":1102,"buffer":"true"}})"));
    ASSERT_TRUE(events().wait_for_notifications(2));
    expect_refused({});
}

TEST_F(SecondService, WithAnotherInstanceNameServesBesideTheFirst) {
    ASSERT_TRUE(service().start_and_wait());
    mq_attr small{};
    small.mq_maxmsg = 1;
    small.mq_msgsize = 4096;
    const mqd_t queue = mq_open("/pushpullbeside", O_RDWR | O_CREAT, 0660, &small);
    ASSERT_NE(queue, -1);
    std::thread exit_request([&] {
        if (!events().wait_for_notifications(2)) return;
        const std::string text = R"({"function":"exit","arg":{"comp_id":1102,"buffer":"true"}})";
        mq_send(queue, text.c_str(), text.size() + 1, 1);
    });
    const std::optional<int> status = service().run_another({"-m", "beside"});
    exit_request.join();
    mq_close(queue);
    ASSERT_TRUE(status && WIFEXITED(*status));
    EXPECT_EQ(WEXITSTATUS(*status), 0);
}

TEST_F(SecondService, GetsTheQueueRightAfterTheFirstWasKilled) {
    ASSERT_TRUE(service().start_and_wait());
    for (int turn = 0; turn < 20; ++turn) {
        service().send_signal(SIGKILL);
        ASSERT_TRUE(service().start_and_wait()) << "turn " << turn;
    }
}

TEST_F(ServiceQueue, OfAnotherUserIsMadeAnewAndNothingInItIsServed) {
    const pid_t stranger = fork();
    if (stranger == 0) {
        umask(0);
        if (setresuid(kStranger, kStranger, kStranger) != 0) _exit(2);
        mq_attr attributes{};
        attributes.mq_maxmsg = 2;
        attributes.mq_msgsize = 4096;
        const mqd_t queue = mq_open("/pushpull", O_RDWR | O_CREAT | O_EXCL, 0666, &attributes);
        const std::string text = R"({"function":"exit","arg":{"comp_id":1102,"buffer":"true"}})";
        _exit(queue != -1 && mq_send(queue, text.c_str(), text.size() + 1, 1) == 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(stranger, &status, 0), stranger);
    if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "this machine lets us be no other user";
    ASSERT_EQ(WEXITSTATUS(status), 0);

    service().start();
    ASSERT_TRUE(events().wait_for_notifications(1));
    EXPECT_TRUE(events().wait_for_log(LOG_CRIT,
                                      "PushPullData MessageQueue: /pushpull belonged to user 64123 and is made anew"));
    struct stat queue {};
    if (stat("/dev/mqueue/pushpull", &queue) == 0) {
        EXPECT_EQ(queue.st_uid, geteuid());
        EXPECT_EQ(queue.st_mode & 07777, 0660U);
        EXPECT_TRUE(service().wait_until_idle());
    } else {
        // The quota does not allow the queue that the service makes itself.
        EXPECT_TRUE(
            events().wait_for_log(LOG_CRIT, "PushPullData MessageQueue: /pushpull Message queue failed to open"));
        service().send_signal(SIGKILL);
        ASSERT_TRUE(service().wait_for_end());
    }
}

// What becomes of a service that nobody can reach any more, and of what it had not saved.
class LostQueue : public RunningService {
protected:
    void SetUp() override {
        RunningService::SetUp();
        if (IsSkipped()) return;
        Component component(service(), kComponent);
        ASSERT_EQ(component.api().publish(component.id(), R"({"version":{"schemaVersion":"77"}})"), 0);
        component.fence();
    }
    void TearDown() override {
        mq_unlink("/pushpull");
        RunningService::TearDown();
    }
    void expect_save_and_failure() {
        const std::optional<int> status = service().wait_for_end();
        ASSERT_TRUE(status) << "it goes on";
        ASSERT_TRUE(WIFEXITED(*status));
        EXPECT_EQ(WEXITSTATUS(*status), 1);
        const std::vector<QoLogLine> log = events().log();
        EXPECT_EQ(std::count(log.begin(), log.end(),
                             QoLogLine{LOG_CRIT, "QoPushPullQueueMonitor: Queue /pushpull was removed"}),
                  1);
        std::ostringstream saved;
        saved << std::ifstream("/kivo/data/saved_tree.json").rdbuf();
        EXPECT_THAT(saved.str(), HasSubstr(R"("schemaVersion": "77")"));
    }
};

TEST_F(LostQueue, IsNoticedAndTheServiceSavesAndEndsToBeStartedAgain) {
    ASSERT_EQ(mq_unlink("/pushpull"), 0);
    expect_save_and_failure();
}

TEST_F(LostQueue, IsNoticedAlsoWhenSomebodyHasMadeItAgain) {
    ASSERT_EQ(mq_unlink("/pushpull"), 0);
    mq_attr small{};
    small.mq_maxmsg = 1;
    small.mq_msgsize = 16;
    const mqd_t other = mq_open("/pushpull", O_RDWR | O_CREAT | O_EXCL, 0660, &small);
    ASSERT_NE(other, -1);
    expect_save_and_failure();
    mq_close(other);
}

TEST_F(LostQueue, IsNoticedWhileRequestsStillCome) {
    std::atomic<bool> ended{false};
    std::thread sender([&] {
        while (!ended) service().post_bytes("no request");  // by a descriptor that was opened before
    });
    EXPECT_EQ(mq_unlink("/pushpull"), 0);
    expect_save_and_failure();
    ended = true;
    while (service().take_request()) continue;
    sender.join();
}

TEST_F(LostQueue, IsNoticedAfterAnInitRequestToo) {
    ASSERT_TRUE(service().post(R"({"function":"init","arg":{"comp_id":1102,"buffer":"true"}})"));
    ASSERT_TRUE(events().wait_for_notifications(2));
    Component component(service(), kComponent);
    ASSERT_EQ(component.api().publish(component.id(), R"({"version":{"schemaVersion":"77"}})"), 0);
    component.fence();
    ASSERT_EQ(mq_unlink("/pushpull"), 0);
    expect_save_and_failure();
}

class LostComponentQueue : public RunningService {};

TEST_F(LostComponentQueue, IsReachedAgainAfterItsComponentHasRegisteredAgain) {
    Component publisher(service(), kComponent);
    const eQO_CMP_IDs_ id = QO_CMPID_TESTPUBLISHER;
    std::optional<Component> removed(std::in_place, service(), id);
    ASSERT_EQ(removed->api().subscribe(id, "/version", false), 0);
    removed->fence();
    ASSERT_EQ(mq_unlink(removed->queue_name().c_str()), 0);
    const std::unique_ptr<QoPushpullReceiveQueue> made_again(
        publisher.api().create_receive_queue(removed->queue_name(), 8, 8192));
    ASSERT_NE(made_again, nullptr);
    ASSERT_EQ(removed->api().comp_register(id, removed->queue_name(), nullptr), 0);
    const std::string text = R"({"version":{"schemaVersion":"9"}})";
    ASSERT_EQ(publisher.api().publish(publisher.id(), text), 0);
    publisher.fence();
    ASSERT_EQ(made_again->current_messages(), 1);
    ASSERT_GT(made_again->timed_receive(kQoPatience), 0);
    EXPECT_EQ(made_again->get_queue_buffer(), text);
}

TEST_F(ServiceQueue, SmallerThanAskedForIsLoggedAndServed) {
    service().make_queue("", 2);
    ASSERT_TRUE(service().start_and_wait());
    EXPECT_TRUE(events().wait_for_log(
        LOG_WARNING, "PushPullData MessageQueue: /pushpull holds 2 messages of 262144 bytes instead of 64 of 262144"));
}

}  // namespace
