/// The service as the demo runs it.
#ifndef DEMO_SERVICE_H
#define DEMO_SERVICE_H

#include <memory>
#include <optional>
#include <string>

#include "demo_process.h"

/// Where the demo runs.
struct DemoPlace {
    bool is_private;        // namespaces of its own; else the machine's queues, files and log
    std::string programs;   // folder of the built programs
    std::string stand_ins;  // folder of harmless programs named like those that the service may run
    std::string instance;   // suffix of the service's queue: "" where it is private
};

class DemoService {
public:
    enum class Statistics { off, on };

    /// Makes the service's queue, with the full size where this machine allows it, and starts the service.
    explicit DemoService(const DemoPlace& place, Statistics statistics = Statistics::off);

    /// Ends the service if it still runs, and removes its queue.
    ~DemoService();
    DemoService(const DemoService&) = delete;
    DemoService& operator=(const DemoService&) = delete;

    /// The queue's size, in words.
    const std::string& queue_size() const { return queue_size_; }

    /// Waits until the service has told systemd, whose part the demo plays, that it is ready.
    bool wait_until_ready(DemoClock::time_point deadline);

    /// Waits for its end. @return its exit status; nothing when it still runs at `deadline` or died by a signal
    std::optional<int> wait_for_end(DemoClock::time_point deadline);

    /// Asks it to exit, which it tells every component.
    void ask_to_exit();

private:
    const std::string instance_;
    const std::string queue_name_;
    std::string queue_size_;
    int ready_socket_ = -1;
    std::unique_ptr<DemoProcess> process_;
};

#endif
