// What the tests of the running service rest on: nothing that it logged before it answered is missing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <string>

#include "isolation.h"
#include "service_events.h"

namespace {

constexpr int kLines = 2000;  // a listener that is behind at one of them is enough

// syslog() of a test program is captured by the program itself.
class SystemLog {
public:
    SystemLog() : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_un address{AF_UNIX, "/dev/log"};
        EXPECT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~SystemLog() { close(socket_); }
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;

    void write(const std::string& text) {
        const std::string line = "<" + std::to_string(LOG_USER | LOG_ERR) + ">Jan 05 13:04:59 Test: " + text;
        EXPECT_EQ(send(socket_, line.data(), line.size(), 0), static_cast<ssize_t>(line.size()));
    }

private:
    int socket_;
};

TEST(ServiceEvents, HoldAtOnceWhatWasLoggedAndForgetAllOfIt) {
    if (const std::string reason = qo_missing_isolation(); !reason.empty()) GTEST_SKIP() << reason;
    QoServiceEvents events;
    SystemLog log;
    for (int number = 0; number < kLines; ++number) {
        const std::string text = std::to_string(number);
        log.write(text);
        ASSERT_THAT(events.log(), testing::ElementsAre(QoLogLine{LOG_ERR, text}));
        log.write("forgotten");
        events.clear_log();
    }
}

}  // namespace
