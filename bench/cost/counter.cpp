// Reading what the counting tools wrote.
#include "counter.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace {

constexpr std::string_view kTotal = "totals: ";
constexpr std::string_view kCallee = "cfn=";
constexpr std::string_view kCalls = "calls=";
constexpr std::string_view kAllocators[] = {"malloc", "calloc", "realloc"};

int64_t number_behind(std::string_view label, const std::string& line) { return std::stoll(line.substr(label.size())); }

bool allocates(std::string_view function) {
    return std::find(std::begin(kAllocators), std::end(kAllocators), function) != std::end(kAllocators);
}

/// One part of callgrind's output: functions with the calls that they make, and at the end the total.
QoCost read_part(const std::string& path) {
    std::ifstream part(path);
    QoCost cost;
    bool allocation = false;
    bool complete = false;
    for (std::string line; std::getline(part, line);) {
        if (line.starts_with(kCallee)) {
            allocation = allocates(std::string_view(line).substr(kCallee.size()));
        } else if (line.starts_with(kCalls) && allocation) {
            cost.allocations += number_behind(kCalls, line);
        } else if (line.starts_with(kTotal)) {
            cost.instructions = number_behind(kTotal, line);
            complete = true;
        }
    }
    if (!complete) throw std::runtime_error("callgrind has not written " + path);
    return cost;
}

/// A signal or an end is no call.
bool is_call(std::string_view line) { return !line.starts_with("---") && !line.starts_with("+++"); }

}  // namespace

QoCost qo_cost_of_one(const QoCost& all, const QoCost& marks, int64_t count) {
    const auto one = [count](int64_t of_all, int64_t of_marks) { return (of_all - of_marks + count / 2) / count; };
    return {one(all.instructions, marks.instructions), one(all.allocations, marks.allocations),
            one(all.system_calls, marks.system_calls)};
}

// ---- callgrind ----

QoCallgrind::QoCallgrind(std::string folder) : folder_(std::move(folder)) {}

std::vector<std::string> QoCallgrind::command() const {
    return {"valgrind",
            "--tool=callgrind",
            "--quiet",
            "--separate-threads=yes",
            "--compress-strings=no",
            "--compress-pos=no",
            "--dump-before=mq_open*",
            "--callgrind-out-file=" + folder_ + "part"};
}

std::string QoCallgrind::part(size_t number) const { return folder_ + "part." + std::to_string(number) + "-01"; }

size_t QoCallgrind::position() const {
    size_t parts = 0;
    while (access(part(parts + 1).c_str(), F_OK) == 0) ++parts;
    return parts;
}

QoCost QoCallgrind::between(size_t begin, size_t end) const {
    QoCost sum;
    for (size_t number = begin + 1; number <= end; ++number) {
        const QoCost cost = read_part(part(number));
        sum.instructions += cost.instructions;
        sum.allocations += cost.allocations;
    }
    return sum;
}

// ---- strace ----

QoStrace::QoStrace(const std::string& folder) : trace_(folder + "trace") {}

// The tracer as a grandchild (-D): the program stays our own child.
std::vector<std::string> QoStrace::command() const { return {"strace", "-D", "-qq", "-o", trace_}; }

size_t QoStrace::position() const {
    std::ifstream trace(trace_);
    size_t lines = 0;
    for (std::string line; std::getline(trace, line) && !trace.eof();) ++lines;
    return lines;
}

QoCost QoStrace::between(size_t begin, size_t end) const {
    std::ifstream trace(trace_);
    QoCost sum;
    std::string line;
    for (size_t number = 0; number < end && std::getline(trace, line); ++number)
        if (number >= begin && is_call(line)) ++sum.system_calls;
    return sum;
}
