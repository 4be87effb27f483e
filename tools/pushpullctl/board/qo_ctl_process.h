/// One process as /proc shows it. Any thread.
#ifndef QO_CTL_PROCESS_H
#define QO_CTL_PROCESS_H

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

inline constexpr char QO_CTL_PROC[] = "/proc";

struct QoCtlProcess {
    pid_t id = 0;
    std::string program;     // as the kernel names it: 15 bytes at most, any of them
    char state = '?';        // as /proc has it: 'R', 'S', 'T', ...
    bool of_kernel = false;  // a thread of the kernel, which has no files
    uint64_t ticks = 0;      // from the start of the machine to that of the process
    time_t started = 0;      // UTC
};

/// Reads the text of a process's "stat". A program's name may hold blanks and brackets. `started` stays 0.
/// @return nothing when the text is none
std::optional<QoCtlProcess> qo_ctl_read_process_stat(std::string_view text);

/// @return nothing when there is no such process
std::optional<QoCtlProcess> qo_ctl_look_at_process(pid_t id);

/// "running", "stopped", "uninterruptible", "zombie": what its state means for one who waits for it.
std::string_view qo_ctl_process_state(char state);

/// Memory of the process in RAM; nothing when it cannot be told.
std::optional<uint64_t> qo_ctl_resident_kib(pid_t id);

#endif
