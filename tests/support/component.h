/// A component of the device in a test: on the public client library, with a receive queue of its own.
#ifndef QO_TEST_COMPONENT_H
#define QO_TEST_COMPONENT_H

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "qo_pushpull_api.h"
#include "service_process.h"

class Component {
public:
    struct Queue {
        int32_t messages = 8;
        int32_t size = 8192;  // bytes; all queues of a test together may have 819200 less the service's own
    };

    /// Makes the receive queue, and registers it unless told not to.
    Component(QoServiceProcess& service, int32_t comp_id);
    Component(QoServiceProcess& service, int32_t comp_id, Queue queue, bool registered = true);
    /// Unregisters while the service runs, and removes the queue.
    ~Component();
    Component(const Component&) = delete;
    Component& operator=(const Component&) = delete;

    QoPushpullApi& api() { return api_; }
    eQO_CMP_IDs_ id() const { return comp_id_; }
    const std::string& queue_name() const { return queue_name_; }
    int32_t waiting_messages() const { return queue_->current_messages(); }

    /// The next message that the service sent. A test failure and "" when none comes in time.
    std::string next_message(std::chrono::milliseconds timeout = kQoPatience);
    /// Asks for a node and gives back the answer, which has to be the next message.
    std::string get(const std::string& pointer, const std::string& sender_id = "");
    /// Proves that the service has sent nothing since the last message taken: requests are handled in order, so
    /// the answer to a question asked now must be the first to come.
    testing::AssertionResult hears_nothing();
    /// Waits until the service has handled all requests sent so far, and drops the messages that came before.
    void fence();
    /// Drops what waits in the queue, and waits for nothing.
    void drain();

    /// The text of the whole tree, through the service's debug file.
    std::string active_tree();

private:
    QoServiceProcess& service_;
    eQO_CMP_IDs_ comp_id_;
    std::string queue_name_;
    QoPushpullApi api_;
    std::unique_ptr<QoPushpullReceiveQueue> queue_;
    bool registered_;
};

#endif
