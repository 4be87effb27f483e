// A queue stays full while memory is short: each allocation of the monitor's threads fails once, one after the other.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <new>
#include <optional>
#include <string>
#include <thread>

#include "log_capture.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_scratch_queue.h"
#include "scratch_directory.h"
#include "shell_capture.h"

namespace {

constexpr int kNone = -1;
thread_local bool is_tests_thread = false;
std::atomic<int> allocations_until_failure{kNone};
std::atomic<bool> signalled{false};

}  // namespace

__attribute__((noinline)) void* operator new(size_t size) {
    if (!is_tests_thread && allocations_until_failure != kNone && allocations_until_failure-- == 0)
        throw std::bad_alloc();
    void* memory = malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
__attribute__((noinline)) void operator delete(void* memory) noexcept { free(memory); }
__attribute__((noinline)) void operator delete(void* memory, size_t) noexcept { free(memory); }

namespace {

class ShortOfMemory : public testing::Test {
protected:
    ShortOfMemory() {
        is_tests_thread = true;
        settings_.poll = std::chrono::milliseconds(1);
        settings_.full_for = std::chrono::seconds(0);
        settings_.restart_grace = std::chrono::minutes(10);  // ended by the destructor
        settings_.command_output = files_.file("a name that is long enough to be allocated");
        settings_.restart_script = files_.file("restart.sh, with a name of some length");
        signal(SIGUSR1, [](int) { signalled = true; });
    }
    ~ShortOfMemory() override {
        allocations_until_failure = kNone;
        signal(SIGUSR1, SIG_DFL);
    }

    bool script_was_run() const {
        const std::vector<std::string> commands = shell_.commands();
        return !commands.empty() && commands.back() == settings_.restart_script + " &";
    }
    // Whether the monitor gets to the end of its road, by the script or without.
    bool restarts() const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!signalled && !script_was_run()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }

    const QoShellCapture shell_;
    const QoScratchDirectory files_;
    const QoScratchQueue queue_{"/a", 2, 16};
    QoQueueMonitorSettings settings_;
};

}  // namespace

TEST_F(ShortOfMemory, AQueueThatStaysFullLeadsToTheRestartAllTheSame) {
    queue_.fill();
    int allocation = 0;
    int without_script = 0;
    for (bool met = true; met; ++allocation) {
        const QoShellCapture shell;
        const QoLogCapture log;
        signalled = false;
        QoPushPullQueueMonitor monitor(settings_);
        monitor.addQueue("/a", QO_CMPID_TESTPUBLISHER, queue_.descriptor());
        files_.write("a name that is long enough to be allocated", "output\n");
        allocations_until_failure = allocation;
        ASSERT_TRUE(restarts()) << "allocation " << allocation << " failed";
        met = allocations_until_failure < 0;
        without_script += signalled ? 1 : 0;
        allocations_until_failure = kNone;
    }
    std::cout << allocation - 1 << " allocations failed, " << without_script << " restarts without the script\n";
    EXPECT_GT(allocation, 10);
    EXPECT_GT(without_script, 0);
}
