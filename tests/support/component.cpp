// A component's requests, and the answers that it waits for.
#include "component.h"

#include <string.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

// Patient with a busy service; quick to give up on one that has gone.
constexpr QoPushpullApiTimings kTimings{std::chrono::milliseconds(10), std::chrono::milliseconds(5000),
                                        std::chrono::milliseconds(1)};

constexpr char kFencePointer[] = "/usb";
constexpr char kFenceId[] = "fence";
constexpr char kFenceAnswer[] = "sender_id:fence;";

}  // namespace

Component::Component(QoServiceProcess& service, int32_t comp_id) : Component(service, comp_id, Queue()) {}

Component::Component(QoServiceProcess& service, int32_t comp_id, Queue queue, bool registered)
    : service_(service),
      comp_id_(static_cast<eQO_CMP_IDs_>(comp_id)),
      queue_name_("/component" + std::to_string(comp_id)),
      api_(service.queue_suffix(), kTimings),
      registered_(registered) {
    queue_.reset(api_.create_receive_queue(queue_name_, queue.messages, queue.size));
    if (queue_ == nullptr) throw std::runtime_error("cannot make " + queue_name_ + ": " + strerror(errno));
    if (api_.init(service.queue_suffix()) != 0) throw std::runtime_error("the service has no queue");
    mq_attr attributes{};
    attributes.mq_maxmsg = queue.messages;
    attributes.mq_msgsize = queue.size;
    if (registered_) EXPECT_EQ(api_.comp_register(comp_id_, queue_name_, &attributes), 0);
}

Component::~Component() {
    if (registered_ && service_.running()) EXPECT_EQ(api_.comp_unregister(comp_id_), 0);
    queue_.reset();
    mq_unlink(queue_name_.c_str());
}

std::string Component::next_message(std::chrono::milliseconds timeout) {
    const int32_t length = queue_->timed_receive(timeout);
    if (length > 0) return queue_->get_queue_buffer();
    ADD_FAILURE() << "component " << comp_id_ << " got no message: " << (length == 0 ? "timeout" : strerror(errno));
    return "";
}

std::string Component::get(const std::string& pointer, const std::string& sender_id) {
    EXPECT_EQ(api_.get(comp_id_, pointer, sender_id, false), 0);
    return next_message();
}

testing::AssertionResult Component::hears_nothing() {
    const std::string first = get(kFencePointer, kFenceId);
    if (first.starts_with(kFenceAnswer)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "component " << comp_id_ << " got: " << first;
}

void Component::fence() {
    EXPECT_EQ(api_.get(comp_id_, kFencePointer, kFenceId, false), 0);
    while (!testing::Test::HasFailure() && !next_message().starts_with(kFenceAnswer)) continue;
}

void Component::drain() {
    while (queue_->timed_receive(std::chrono::milliseconds(0)) > 0) continue;
}

std::string Component::active_tree() {
    EXPECT_EQ(api_.save_complete_tree(comp_id_), 0);
    fence();
    std::ostringstream tree;
    tree << std::ifstream("/kivo/data/active_tree.json").rdbuf();
    return tree.str();
}
