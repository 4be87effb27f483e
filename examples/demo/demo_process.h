/// A child process whose output lines are awaited, and its end.
#ifndef DEMO_PROCESS_H
#define DEMO_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using DemoClock = std::chrono::steady_clock;

/// What the demo expected did not happen, in words; ends the scene.
struct NotSeen : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Ctrl-C and SIGTERM then end every wait of the demo with NotSeen, so that it tidies up.
void end_waits_on_signals();

/// True once one of the signals of end_waits_on_signals() has come.
bool interrupted();

/// poll() for reading until `deadline`. @return false when nothing came; throws NotSeen on a stop signal
bool readable(int descriptor, DemoClock::time_point deadline);

class DemoProcess {
public:
    /// Starts `command` with `environment` ("NAME=value") added to ours. Its standard output and error become
    /// the lines that next_line() gives. It is killed when this process or thread ends.
    explicit DemoProcess(const std::vector<std::string>& command, const std::vector<std::string>& environment = {});

    /// Kills the process if it still runs.
    ~DemoProcess();
    DemoProcess(const DemoProcess&) = delete;
    DemoProcess& operator=(const DemoProcess&) = delete;

    /// Writes a line to its standard input.
    void write_line(const std::string& line);

    /// Its next line; nothing when its output has ended or `deadline` has passed.
    std::optional<std::string> next_line(DemoClock::time_point deadline);

    /// Waits for its end. @return its wait status; nothing when it still runs at `deadline`
    std::optional<int> wait_for_end(DemoClock::time_point deadline);

private:
    std::optional<std::string> take_buffered_line();

    pid_t pid_ = -1;
    int end_watch_ = -1;  // readable once the process has ended
    int to_child_ = -1;
    int from_child_ = -1;
    std::string buffered_;
    std::optional<int> wait_status_;
};

#endif
