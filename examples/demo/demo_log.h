/// What the service writes to syslog, where the demo has a /dev of its own.
#ifndef DEMO_LOG_H
#define DEMO_LOG_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "demo_process.h"

/// The reader at /dev/log. It reads all the time: a full log socket would block the service.
class DemoLog {
public:
    /// @param copy path of a file that gets every line as it comes; "" for none
    explicit DemoLog(const std::string& copy);
    ~DemoLog();
    DemoLog(const DemoLog&) = delete;
    DemoLog& operator=(const DemoLog&) = delete;

    /// Waits for a line that contains `text`, also one that has come already. @return the line; "" at `deadline`
    std::string wait_for(const std::string& text, DemoClock::time_point deadline);

    /// The lines so far, oldest first, each as "level: text".
    std::vector<std::string> lines();

private:
    void read_until_stopped(const std::string& copy);

    int socket_ = -1;
    int stop_pipe_[2] = {-1, -1};
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<std::string> lines_;  // guarded by mutex_
    std::thread reader_;
};

#endif
