// Running the service under a counting tool, and where its parts begin.
#include "counted_service.h"

#include <syslog.h>

#include <stdexcept>

namespace {

constexpr Component::Queue kMarkersQueue{1, 64};

void require(const testing::AssertionResult& result) {
    if (!result) throw std::runtime_error(result.message());
}

}  // namespace

void qo_require_sent(int32_t result) {
    if (result != 0) throw std::runtime_error("a request could not be sent");
}

QoCountedService::QoCountedService(const QoCounter& counter) : counter_(counter) {
    process_.run_by(counter.command());
    process_.make_queue();
    require(process_.start_and_wait());
    marker_ = std::make_unique<Component>(process_, QO_CMPID_CS_SIMULATOR, kMarkersQueue, false);
    process_.events().clear_log();
}

std::unique_ptr<Component> QoCountedService::make_subscriber(int32_t comp_id, Component::Queue queue,
                                                             const std::string& pointer, bool on_change_only) {
    auto subscriber = std::make_unique<Component>(process_, comp_id, queue);
    settle();
    qo_require_sent(subscriber->api().subscribe(subscriber->id(), pointer, on_change_only));
    settle();
    return subscriber;
}

void QoCountedService::settle() {
    if (!process_.settles()) throw std::runtime_error("the service has ended or is stuck");
}

// What was refused costs something else.
void QoCountedService::require_accepted() {
    for (const QoLogLine& line : process_.events().log())
        if (line.level <= LOG_WARNING || line.text.starts_with("PushPull DENY:"))
            throw std::runtime_error("the service refused: " + line.text);
    process_.events().clear_log();
}

// The service opens the queue of whoever registers, which ends a part of callgrind's count.
size_t QoCountedService::mark() {
    marker_->api().comp_register(marker_->id(), marker_->queue_name(), nullptr);
    settle();
    marker_->api().comp_unregister(marker_->id());
    settle();
    return counter_.position();
}

QoCost QoCountedService::cost_of(QoScene& scene, int plays) {
    int turn = 0;
    while (turn < plays) scene.play(turn++);
    const size_t begin = mark();
    while (turn < 2 * plays) scene.play(turn++);
    const size_t end = mark();
    const QoCost counted = counter_.between(begin, end);
    const QoCost marks = counter_.between(end, mark());
    require_accepted();
    return qo_cost_of_one(counted, marks, plays);
}
