/// The real service, run by a tool that counts what it does. For programs that run in the namespaces of qo_isolated.
#ifndef QO_BENCH_COUNTED_SERVICE_H
#define QO_BENCH_COUNTED_SERVICE_H

#include <memory>

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

class QoCountedService {
public:
    /// Starts it. Its queue holds two messages of full size, on every machine.
    explicit QoCountedService(const QoCounter& counter);

    QoServiceProcess& process() { return process_; }
    /// Waits until it has nothing to do.
    void settle();
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
