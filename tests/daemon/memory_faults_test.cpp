// The service when memory runs short and stays short.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "faults.h"
#include "service_process.h"

namespace {

class MemoryShortage : public ServiceProcess {
protected:
    void SetUp() override {
        if (!QoFaults::kReachAllocations) GTEST_SKIP() << "a sanitizer has an allocator of its own";
        ServiceProcess::SetUp();
    }
};

/// Allocations of a start that succeeds.
uint64_t allocations_of_start(QoServiceProcess& service, QoFaults& faults) {
    faults.add({.calls = kQoAllocate, .first = kQoAlways});
    faults.arm();
    EXPECT_TRUE(service.start_and_wait());
    EXPECT_EQ(service.stop(), 0);
    const uint64_t all = faults.seen();
    faults.clear();
    return all;
}

TEST_F(MemoryShortage, FromAnyPointOfTheStartOnEndsItAndCrashesNothing) {
    constexpr uint64_t kPoints = 40;
    QoFaults faults(service());
    service().make_queue();
    const uint64_t all = allocations_of_start(service(), faults);
    for (uint64_t point = 0; point < kPoints; ++point) {
        // Not the very last: those are of the answer to what the test asks.
        const uint64_t first = all * point * 9 / 10 / kPoints;
        SCOPED_TRACE("from allocation " + std::to_string(first) + " of " + std::to_string(all));
        faults.add({.calls = kQoAllocate, .first = first, .last = kQoAlways});
        faults.arm();
        service().start();
        const std::optional<int> status = service().wait_for_end();
        faults.clear();
        ASSERT_TRUE(status);
        EXPECT_TRUE(WIFEXITED(*status)) << "status " << *status;
    }
}

}  // namespace
