// Those whom the service writes to beside the log and the components stop reading: it goes on.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <list>
#include <optional>
#include <string>

#include "component.h"
#include "qo_pushpull_descriptor.h"
#include "service_process.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::HasSubstr;

// ---- standard output ----

/// Standard output is a pipe.
class StandardOutput : public ServiceProcess {
protected:
    void SetUp() override {
        ServiceProcess::SetUp();
        if (IsSkipped()) return;
        const std::string pipe = events().scratch() + "stdout";
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        reader_.emplace(open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
        ASSERT_TRUE(service().start_and_wait());
    }
    void expect_sigterm_ends_it() {
        service().send_signal(SIGTERM);
        const std::optional<int> status = service().wait_for_end();
        ASSERT_TRUE(status) << "the service hangs";
        ASSERT_TRUE(WIFEXITED(*status)) << "signal " << WTERMSIG(*status);
        EXPECT_EQ(WEXITSTATUS(*status), 0);
    }

    std::optional<QoDescriptor> reader_;
};

TEST_F(StandardOutput, ThatIsFullLeavesSigtermToEndTheService) {
    while (write(reader_->get(), "x", 1) == 1) continue;
    expect_sigterm_ends_it();
}

TEST_F(StandardOutput, ThatHasEndedLeavesSigtermToEndTheService) {
    reader_.reset();
    expect_sigterm_ends_it();
}

// ---- systemd ----

class StoppedSystemd : public ServiceProcess {
protected:
    static constexpr milliseconds kPeriod{40};  // of the watchdog

    void start_watched() {
        setenv("WATCHDOG_USEC", std::to_string(std::chrono::microseconds(kPeriod).count()).c_str(), 1);
        service().start();
        unsetenv("WATCHDOG_USEC");
    }

    // Until the socket takes nothing, of a new sender neither.
    void fill_notify_socket() {
        events().pause_notifications();
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        events().notify_socket().copy(address.sun_path, sizeof address.sun_path - 1);
        for (bool full = false; !full;) {
            senders_.emplace_back(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            ASSERT_EQ(connect(senders_.back().get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
            full = send(senders_.back().get(), "x", 1, 0) != 1;
            while (!full && send(senders_.back().get(), "x", 1, 0) == 1) continue;
        }
    }

    std::list<QoDescriptor> senders_;
};

TEST_F(StoppedSystemd, LeavesTheServiceServingThatItWatches) {
    service().make_queue();
    start_watched();
    ASSERT_TRUE(events().wait_for_notifications(1));
    Component component(service(), QO_CMPID_DEMO);
    fill_notify_socket();
    const auto reports_due = steady_clock::now() + 2 * kPeriod;
    while (steady_clock::now() < reports_due) ASSERT_THAT(component.get("/version"), HasSubstr("schemaVersion"));

    events().resume_notifications();
    const size_t before = events().notifications().size();
    EXPECT_TRUE(events().wait_for_notifications(before + 3)) << "it reports again";
}

TEST_F(StoppedSystemd, LeavesTheServiceServingThatItStarted) {
    fill_notify_socket();
    service().make_queue();
    start_watched();
    ASSERT_TRUE(events().wait_for_log(LOG_INFO, "QoPushPullQueueMonitor: Adding queue /pushpull (component ID 1100)"));
    EXPECT_TRUE(service().wait_until_idle());
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "PushPullData: systemd does not take READY=1, errno 11"));
}

}  // namespace
