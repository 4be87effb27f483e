// Reading /proc about one process.
#include "qo_ctl_process.h"

#include <unistd.h>

#include <charconv>
#include <fstream>
#include <sstream>

namespace {

constexpr unsigned long kOfKernel = 0x00200000;  // the kernel's PF_KTHREAD among the flags of a process

std::string file_of(pid_t id, const char* name) {
    std::ifstream file(std::string(QO_CTL_PROC) + "/" + std::to_string(id) + "/" + name);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// When the machine started; 0 when that cannot be told.
time_t start_of_machine() {
    std::ifstream file(std::string(QO_CTL_PROC) + "/stat");
    for (std::string word; file >> word;) {
        time_t start = 0;
        if (word == "btime" && file >> start) return start;
    }
    return 0;
}

}  // namespace

std::optional<QoCtlProcess> qo_ctl_read_process_stat(std::string_view text) {
    // "7 (a) name) S 1 ...": the name ends at the last bracket.
    const size_t begin = text.find(" (");
    const size_t end = text.rfind(") ");
    if (begin == std::string_view::npos || end == std::string_view::npos || end < begin) return std::nullopt;
    QoCtlProcess process;
    const char* const number_end = text.data() + begin;
    if (std::from_chars(text.data(), number_end, process.id).ptr != number_end) return std::nullopt;
    process.program = text.substr(begin + 2, end - begin - 2);

    std::istringstream fields{std::string(text.substr(end + 2))};
    std::string passed_over;
    unsigned long flags = 0;
    fields >> process.state;
    constexpr int kBetweenStateAndFlags = 5;
    for (int i = 0; i < kBetweenStateAndFlags; ++i) fields >> passed_over;
    fields >> flags;
    constexpr int kBetweenFlagsAndStart = 12;
    for (int i = 0; i < kBetweenFlagsAndStart; ++i) fields >> passed_over;
    if (!(fields >> process.ticks)) return std::nullopt;
    process.of_kernel = (flags & kOfKernel) != 0;
    return process;
}

std::optional<QoCtlProcess> qo_ctl_look_at_process(pid_t id) {
    std::optional<QoCtlProcess> process = qo_ctl_read_process_stat(file_of(id, "stat"));
    if (!process) return std::nullopt;
    static const time_t machine = start_of_machine();
    process->started = machine + static_cast<time_t>(process->ticks / static_cast<uint64_t>(sysconf(_SC_CLK_TCK)));
    return process;
}

std::string_view qo_ctl_process_state(char state) {
    switch (state) {
        case 'T':
        case 't':
            return "stopped";
        case 'D':
            return "uninterruptible";
        case 'Z':
        case 'X':
            return "zombie";
        default:
            return "running";
    }
}

std::optional<uint64_t> qo_ctl_resident_kib(pid_t id) {
    std::istringstream fields(file_of(id, "statm"));
    uint64_t size = 0;
    uint64_t resident = 0;  // pages
    if (!(fields >> size >> resident)) return std::nullopt;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024;
}
