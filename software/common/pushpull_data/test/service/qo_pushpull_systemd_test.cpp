// What goes over systemd's socket, and what its variables say.
#include "qo_pushpull_systemd.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <thread>

#include "notify_socket.h"
#include "qo_pushpull_descriptor.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

constexpr milliseconds kNoPatience{0};
constexpr milliseconds kEndless{60000};

class NotifySystemd : public testing::Test {
protected:
    // Until the socket takes nothing.
    void fill() {
        while (qo_notify_systemd("x", kNoPatience) == 1) continue;
    }

    QoNotifySocket systemd_;
};

class NobodyToNotify : public testing::Test {
protected:
    ~NobodyToNotify() override { unsetenv("NOTIFY_SOCKET"); }
    static int notify(const std::string& socket) {
        setenv("NOTIFY_SOCKET", socket.c_str(), 1);
        return qo_notify_systemd("READY=1", kNoPatience);
    }
};

class WatchdogPeriod : public testing::Test {
protected:
    ~WatchdogPeriod() override {
        unsetenv("WATCHDOG_USEC");
        unsetenv("WATCHDOG_PID");
    }
};

}  // namespace

TEST_F(NotifySystemd, SendsTheTextWithoutItsNul) {
    EXPECT_EQ(qo_notify_systemd("READY=1", kNoPatience), 1);
    EXPECT_EQ(qo_notify_systemd("WATCHDOG=1", kNoPatience), 1);
    EXPECT_THAT(systemd_.told(), ElementsAre("READY=1", "WATCHDOG=1"));
}

TEST_F(NotifySystemd, SendsToASocketWithoutAFile) {
    const std::string name = "@qo_notify_" + std::to_string(getpid());
    const QoDescriptor receiver(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, name.size());
    address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    ASSERT_EQ(bind(receiver.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    EXPECT_EQ(qo_notify_systemd("READY=1", kNoPatience), 1);
    char text[16] = {};
    EXPECT_EQ(recv(receiver.get(), text, sizeof text, 0), 7);
    EXPECT_STREQ(text, "READY=1");
}

TEST_F(NotifySystemd, LeavesErrnoAlone) {
    errno = EDOM;
    qo_notify_systemd("READY=1", kNoPatience);
    fill();
    EXPECT_EQ(errno, EDOM);
}

TEST_F(NotifySystemd, WithoutPatienceDoesNotWaitForRoom) {
    fill();
    EXPECT_EQ(qo_notify_systemd("WATCHDOG=1", kNoPatience), -EAGAIN);
}

TEST_F(NotifySystemd, WaitsForRoomNoLongerThanItsPatience) {
    fill();
    constexpr milliseconds kPatience{30};
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(qo_notify_systemd("READY=1", kPatience), -EAGAIN);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, kPatience);
}

TEST_F(NotifySystemd, SendsOnceThereIsRoom) {
    fill();
    std::thread systemd([this] { systemd_.told(); });
    EXPECT_EQ(qo_notify_systemd("READY=1", kEndless), 1);
    systemd.join();
    EXPECT_EQ(systemd_.told().back(), "READY=1");
}

TEST_F(NobodyToNotify, BecauseNobodyAskedForItIsNoFailure) {
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(qo_notify_systemd("READY=1", kEndless), 0);
}

TEST_F(NobodyToNotify, UnderTheNameOfASocketIsAFailure) {
    EXPECT_EQ(notify("/no/such/socket"), -ENOENT);
    EXPECT_EQ(notify("@no such socket"), -ECONNREFUSED);
    EXPECT_EQ(notify(""), -EINVAL);
    EXPECT_EQ(notify("/"), -EINVAL);
    EXPECT_EQ(notify("relative"), -EINVAL);
    EXPECT_EQ(notify("/" + std::string(sizeof(sockaddr_un{}.sun_path), 'x')), -ENAMETOOLONG);
}

TEST_F(WatchdogPeriod, IsThatOfThisProcess) {
    EXPECT_EQ(qo_systemd_watchdog_period(), std::nullopt);
    setenv("WATCHDOG_USEC", "90000000", 1);
    EXPECT_THAT(qo_systemd_watchdog_period(), Optional(90000000U));
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    EXPECT_THAT(qo_systemd_watchdog_period(), Optional(90000000U));
    for (const std::string& other : {std::to_string(getppid()), std::string("x"), std::string()}) {
        setenv("WATCHDOG_PID", other.c_str(), 1);
        EXPECT_EQ(qo_systemd_watchdog_period(), std::nullopt) << other;
    }
}

TEST_F(WatchdogPeriod, IsANumberAboveZero) {
    for (const char* none : {"", "0", "-1", "soon", "1s", "18446744073709551616"}) {
        setenv("WATCHDOG_USEC", none, 1);
        EXPECT_EQ(qo_systemd_watchdog_period(), std::nullopt) << none;
    }
}
