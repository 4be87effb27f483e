// who: the readers of queues, with the real service and real components.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "component.h"
#include "pushpullctl_run.h"
#include "qo_ctl_moment.h"
#include "qo_ctl_process.h"

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string line_of(const std::string& output, const std::string& queue) {
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);)
        if (line.find("\"" + queue + "\"") != std::string::npos || line.starts_with(queue + " ")) return line;
    return "";
}

/// "process":7,"program":"name","state":"running","since":"..."
std::string process_text(pid_t id, const std::string& state = "running") {
    const std::optional<QoCtlProcess> process = qo_ctl_look_at_process(id);
    if (!process) return "no such process";
    return R"("process":)" + std::to_string(id) + R"(,"program":")" + process->program + R"(","state":")" + state +
           R"(","since":")" + qo_ctl_second_text(process->started) + R"("})";
}

/// A process that may not be looked into, as those of another user.
class ClosedProcess {
public:
    ClosedProcess() {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        process_ = fork();
        if (process_ == 0) {
            prctl(PR_SET_DUMPABLE, 0);
            const ssize_t written = write(ready[1], "x", 1);
            while (written == 1) pause();
            _exit(1);
        }
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
        close(ready[1]);
    }
    ~ClosedProcess() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    ClosedProcess(const ClosedProcess&) = delete;
    ClosedProcess& operator=(const ClosedProcess&) = delete;
    pid_t id() const { return process_; }

private:
    pid_t process_ = -1;
};

class PushpullctlWho : public RunningService {};

TEST_F(PushpullctlWho, TheServiceReadsItsQueueAndNoneOfAComponent) {
    const Component display(service(), QO_CMPID_DEMO);
    const PushpullctlResult result = run_pushpullctl({"who"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.messages, "");
    EXPECT_THAT(line_of(result.output, "/pushpull"),
                AllOf(StartsWith(R"({"queue":"/pushpull","component":"PUSHPULL","number":1100,"messages":0,)"),
                      EndsWith("," + process_text(service().pid()))));
    EXPECT_THAT(line_of(result.output, display.queue_name()), EndsWith("," + process_text(getpid())));
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 2);
}

TEST_F(PushpullctlWho, AStoppedReaderIsToldWithItsComponent) {
    PushpullctlRun run({"subscribe", "/system"});
    ASSERT_TRUE(run.wait_for_messages("following"));
    run.send_signal(SIGSTOP);
    while (qo_ctl_look_at_process(run.pid())->state != 'T') std::this_thread::yield();
    const std::string output = run_pushpullctl({"who"}).output;
    EXPECT_THAT(output, AllOf(HasSubstr(R"("component":"TESTPUBLISHER","number":)"),
                              HasSubstr(process_text(run.pid(), "stopped"))));
    EXPECT_THAT(run_pushpullctl({"queues"}).output, HasSubstr("[{" + process_text(run.pid(), "stopped") + "]"));
    EXPECT_THAT(run_pushpullctl({"queues", "--color", "always"}).output,
                HasSubstr("stopped: pushpullctl (" + std::to_string(run.pid()) + ")"));
    run.send_signal(SIGCONT);
    run.send_signal(SIGINT);
    EXPECT_EQ(run.wait(), 0);
}

TEST_F(PushpullctlWho, AQueueThatOnlyTheServiceHoldsIsReadByNobody) {
    ASSERT_TRUE(service().post(R"({"function":"register","arg":{"comp_id":1352,"buffer":"/left"},)"
                               R"("que":{"flags":0,"maxmsg":1,"msgsize":64,"curmsgs":0}})"));
    ASSERT_TRUE(service().wait_until_idle());
    EXPECT_EQ(line_of(run_pushpullctl({"who"}).output, "/left"), R"({"queue":"/left","messages":0,"max_messages":1})");
    EXPECT_THAT(line_of(run_pushpullctl({"who", "--color", "always"}).output, "/left"),
                ContainsRegex("^/left +- +- +- +nobody seen +0/1  -$"));
}

TEST_F(PushpullctlWho, IsATableInColour) {
    const std::string output = run_pushpullctl({"who", "--color", "always"}).output;
    EXPECT_THAT(output, StartsWith("QUEUE      COMPONENT  PROCESS  PROGRAM      STATE"));
    EXPECT_THAT(line_of(output, "/pushpull"), HasSubstr("qo_pushpull  running"));
}

TEST_F(PushpullctlWho, SaysWhichProcessesCouldNotBeLookedInto) {
    const ClosedProcess closed;
    if (geteuid() == 0) GTEST_SKIP() << "root may look into every process";
    // The programs started from here on have no capabilities, as those of an ordinary user.
    ASSERT_EQ(prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0), 0);
    const PushpullctlResult result = run_pushpullctl({"who"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.messages, AllOf(StartsWith("pushpullctl: not looked into, for want of permission: "),
                                       HasSubstr("(" + std::to_string(closed.id()) + ")")));
    EXPECT_THAT(result.output, HasSubstr(R"({"queue":"/pushpull",)"));
}

class PushpullctlWhoAlone : public ServiceProcess {};

TEST_F(PushpullctlWhoAlone, WithoutAServiceItsQueueIsReadByWhoeverHasItOpen) {
    service().make_queue();
    EXPECT_THAT(run_pushpullctl({"who"}).output, EndsWith(process_text(getpid()) + "\n"));
}

TEST_F(PushpullctlWhoAlone, WithoutQueuesThereIsNothingToShow) {
    const PushpullctlResult result = run_pushpullctl({"who"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
}

}  // namespace
