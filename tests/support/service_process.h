/// The real service, qo_pushpull, as a process of its own that is driven and watched from outside only. For programs
/// that run in the namespaces of qo_isolated.
#ifndef QO_TEST_SERVICE_PROCESS_H
#define QO_TEST_SERVICE_PROCESS_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "service_events.h"

class QoServiceProcess {
public:
    QoServiceProcess() = default;
    /// Kills a service that still runs.
    ~QoServiceProcess();
    QoServiceProcess(const QoServiceProcess&) = delete;
    QoServiceProcess& operator=(const QoServiceProcess&) = delete;

    /// Makes the service's queue with a few messages of full size, which the service then finds and takes.
    /// @param suffix of the queue's name, as given with -m
    void make_queue(const std::string& suffix = "", long messages = 2);
    /// Whether the machine's quota allows the queue that the service makes for itself, of 64 messages.
    static bool may_make_full_queue();
    /// "NAME=value" each, for the program when it is started. What it had under these names is replaced.
    void add_to_environment(const std::vector<std::string>& variables);
    /// The program is started by this command, which is given its path and its arguments and has to become it: such a
    /// tool as counts what it does.
    void run_by(std::vector<std::string> command) { run_by_ = std::move(command); }
    enum class StandardFiles { kOpen, kClosed };
    /// Starts the program and returns at once. Its standard output goes to a file, see standard_output().
    void start(const std::vector<std::string>& arguments = {}, StandardFiles files = StandardFiles::kOpen);
    /// Starts the program and waits until it is ready and serves requests. Where the quota forbids the full queue, and
    /// none was made yet, makes a small one before and says so.
    testing::AssertionResult start_and_wait(const std::vector<std::string>& arguments = {});
    /// Starts the program once more, beside the one that runs, and waits for the end of that second one.
    /// @return its status as waitpid() gives it; nothing when it does not end, and is then killed.
    std::optional<int> run_another(const std::vector<std::string>& arguments = {});
    /// Waits until all requests sent so far are handled and the service waits for the next one. A signal meets it
    /// there, and not in the allocator, whose lock the signal's handler needs.
    testing::AssertionResult wait_until_idle();
    /// Waits until the service waits for a request: after an answer, until what came with it is done too.
    testing::AssertionResult wait_until_receiving();

    /// Waits until its queue is empty and it waits for the next request, without asking for its log: memory may be
    /// short there. @return false when it has ended, or is busy for longer
    bool settles(std::chrono::milliseconds timeout = kQoPatience);

    bool running() const;
    pid_t pid() const { return process_; }
    void send_signal(int signal_number) const;
    /// Waits for the end. @return the status as waitpid() gives it; nothing when it still runs.
    std::optional<int> wait_for_end(std::chrono::milliseconds timeout = kQoPatience);
    /// Ends it by an "exit" request, by SIGKILL only when that does not help, which is a failure of the test.
    /// @return the exit status; -1 when it did not end by itself.
    int stop();

    /// Sends bytes to the service's queue as they are, which may be no text at all. Bounded.
    testing::AssertionResult post_bytes(const std::string& bytes);
    /// Sends a text with its NUL.
    testing::AssertionResult post(const std::string& text);
    /// Messages that wait in the service's queue, and how many it can hold.
    long waiting_requests();
    long capacity();
    /// The oldest of them, taken out of the queue; nothing when it is empty.
    std::optional<std::string> take_request();

    std::string standard_output() const;
    /// Memory in use now.
    size_t resident_kib() const;
    /// Processor time that it has used so far.
    std::chrono::nanoseconds processor_time() const;
    size_t open_descriptors() const;
    size_t threads() const;
    /// The processes that it started: those that run and those that have ended and were not reaped.
    std::vector<pid_t> children() const;

    QoServiceEvents& events() { return events_; }
    const std::string& queue_suffix() const { return suffix_; }

private:
    pid_t spawn(const std::vector<std::string>& arguments, StandardFiles files);
    mqd_t queue();
    bool waits_for_request() const;

    QoServiceEvents events_;
    std::vector<std::string> environment_;  // beyond our own
    std::vector<std::string> run_by_;       // before the program's own command
    std::string suffix_;
    mqd_t queue_ = -1;
    pid_t process_ = -1;
    int fences_ = 0;  // requests of wait_until_idle() so far
};

/// Base of tests of the real service: skips where it cannot be isolated, and ends the service after each test.
class ServiceProcess : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    QoServiceProcess& service() { return *service_; }
    QoServiceEvents& events() { return service_->events(); }

private:
    std::optional<QoServiceProcess> service_;
};

/// The same with a service that is ready.
class RunningService : public ServiceProcess {
protected:
    void SetUp() override;
};

#endif
