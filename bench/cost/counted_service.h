/// The real service, run by a tool that counts what it does. For programs that run in the namespaces of qo_isolated.
#ifndef QO_BENCH_COUNTED_SERVICE_H
#define QO_BENCH_COUNTED_SERVICE_H

#include <cstdint>
#include <memory>
#include <string>

#include "component.h"
#include "counter.h"
#include "service_process.h"

/// What is done to the service again and again. Throws std::runtime_error when the service does not answer as it
/// should.
class QoScene {
public:
    virtual ~QoScene() = default;
    /// Once more. Returns when the service waits for its next request.
    /// @param turn 0, 1, 2, ...: two in a row publish different values
    virtual void play(int turn) = 0;
};

/// Throws std::runtime_error unless an operation of the client library returned 0.
void qo_require_sent(int32_t result);

class QoCountedService {
public:
    /// Starts it. Its queue holds two messages of full size, on every machine.
    explicit QoCountedService(const QoCounter& counter);

    QoServiceProcess& process() { return process_; }
    /// A component that has subscribed. One request at a time: the service's queue is never full.
    std::unique_ptr<Component> make_subscriber(int32_t comp_id, Component::Queue queue, const std::string& pointer,
                                               bool on_change_only);
    /// Waits until it has nothing to do.
    void settle();
    /// Throws std::runtime_error when its log since the last call tells that something was refused.
    void require_accepted();
    /// What one play costs: plays it as often to warm up, then as often counted.
    QoCost cost_of(QoScene& scene, int plays);

private:
    /// Ends a part of the count. @return its position
    size_t mark();

    const QoCounter& counter_;
    QoServiceProcess process_;
    std::unique_ptr<Component> marker_;
};

#endif
