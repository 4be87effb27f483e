// The injector in the real service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include "component.h"
#include "faults.h"
#include "service_process.h"

namespace {

class FaultsInService : public ServiceProcess {};

TEST_F(FaultsInService, FailOneSaveOfARunningServiceAndNotTheNext) {
    QoFaults faults(service());
    ASSERT_TRUE(service().start_and_wait());
    EXPECT_EQ(faults.attached(), service().pid());
    Component component(service(), QO_CMPID_DEMO);

    faults.add({.calls = kQoSync, .path = "saved_tree.json"});
    faults.arm();
    ASSERT_EQ(component.api().flush(QO_CMPID_DEMO), 0);
    EXPECT_TRUE(events().wait_for_store_log(LOG_ERR, "Couldn't write file to save the data tree: Input/output error"));
    EXPECT_EQ(faults.hits(), 1U);

    ASSERT_EQ(component.api().flush(QO_CMPID_DEMO), 0);
    EXPECT_TRUE(events().wait_for_store_log(LOG_INFO, "Saved the data tree"));
}

TEST_F(FaultsInService, CountTheAllocationsOfARequest) {
    if (!QoFaults::kReachAllocations) GTEST_SKIP() << "a sanitizer has an allocator of its own";
    QoFaults faults(service());
    ASSERT_TRUE(service().start_and_wait());
    Component component(service(), QO_CMPID_DEMO);
    faults.add({.calls = kQoAllocate, .first = kQoAlways, .threads = QoFaultThreads::kMain});
    faults.arm();
    component.fence();
    faults.disarm();
    EXPECT_GT(faults.seen(), 10U);
    EXPECT_EQ(faults.hits(), 0U);
}

}  // namespace
