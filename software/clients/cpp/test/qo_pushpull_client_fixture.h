/// A component on QoPushpullClient beside the real service.
#ifndef QO_TEST_CLIENT_FIXTURE_H
#define QO_TEST_CLIENT_FIXTURE_H

#include <gmock/gmock.h>
#include <poll.h>

#include <functional>
#include <string>
#include <vector>

#include "component.h"
#include "qo_pushpull_client.hpp"
#include "qo_scratch_queue.h"
#include "service_process.h"

inline constexpr char kClientQueue[] = "/client_under_test";
inline constexpr char kStatus[] = "/system/status";

/// Small queues, for there is one quota for all of a test, and answers that are given up soon.
inline QoPushpullClientSettings client_settings() {
    QoPushpullClientSettings settings;
    settings.id = QO_CMPID_DEMO;
    settings.queue_name = kClientQueue;
    settings.queue_messages = 8;
    settings.message_size = 4096;
    settings.look_interval = std::chrono::milliseconds(100);
    settings.retry = std::chrono::milliseconds(20);
    return settings;
}

inline std::string temperature(int degrees) {
    return R"({"system":{"status":{"systemTemperature":)" + std::to_string(degrees) + "}}}";
}

/// Lets the client work until the condition holds.
inline testing::AssertionResult dispatch_until(QoPushpullClient& client, const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kQoPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return testing::AssertionFailure() << "what was waited for has not come";
        pollfd work{client.descriptor(), POLLIN, 0};
        poll(&work, 1, 100);
        client.dispatch();
    }
    return testing::AssertionSuccess();
}

#endif
