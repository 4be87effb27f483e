/// The built pushpullctl as a process of its own.
#ifndef QO_TEST_PUSHPULLCTL_RUN_H
#define QO_TEST_PUSHPULLCTL_RUN_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "service_process.h"

/// One run of the program.
class PushpullctlRun {
public:
    /// Whoever standard output goes to: one who reads all the time, one who never does, a disk that is full.
    enum class Reader { reads, stalls, full_device };
    explicit PushpullctlRun(std::vector<std::string> arguments, const std::string& input = "",
                            Reader reader = Reader::reads);
    /// Kills one that still runs.
    ~PushpullctlRun();
    PushpullctlRun(const PushpullctlRun&) = delete;
    PushpullctlRun& operator=(const PushpullctlRun&) = delete;

    /// Waits for the end. @return the exit status, or the number of the signal that ended it, negated. A test
    /// failure and -1000 when it does not end.
    int wait();
    /// Standard output and standard error so far; all of them once wait() has returned.
    std::string output() const;
    std::string messages() const;
    testing::AssertionResult wait_for_output(const std::string& text) const;
    testing::AssertionResult wait_for_messages(const std::string& text) const;

    pid_t pid() const { return process_; }
    /// The child that tidies up after it.
    pid_t guardian() const;
    void send_signal(int signal_number) const;
    /// Closes the reading end of a stalled reader.
    void close_output();

private:
    void spawn(std::vector<std::string> arguments, int input, int output, int messages);
    void read_all();
    testing::AssertionResult wait_for(const std::string& text, const std::string& where) const;

    pid_t process_ = -1;
    int output_ = -1;
    int messages_ = -1;
    int stop_ = -1;
    Reader kind_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::string output_text_;    // guarded by mutex_
    std::string messages_text_;  // guarded by mutex_
    std::thread reader_;
};

/// A finished run.
struct PushpullctlResult {
    int status;
    std::string output;
    std::string messages;
};
PushpullctlResult run_pushpullctl(const std::vector<std::string>& arguments, const std::string& input = "");

/// The queues that exist now, without the service's.
std::vector<std::string> queues_of_clients();

/// True when the service does not know the component any more.
testing::AssertionResult is_not_registered(QoServiceProcess& service, int32_t comp_id);

#endif
