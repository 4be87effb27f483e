// Arming the preloaded fault injector.
#include "faults.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <new>
#include <stdexcept>

#include "service_process.h"

namespace {

constexpr char kInjector[] = QO_FAULT_INJECTOR;

std::string with_option(const char* variable, const char* option) {
    const char* former = getenv(variable);
    return std::string(variable) + "=" + (former != nullptr ? std::string(former) + ":" : "") + option;
}

void start_counting(QoFaultRule& rule) {
    rule.seen = 0;
    rule.hits = 0;
    rule.depth = 0;
}

}  // namespace

QoFaults::QoFaults(const std::string& folder) : path_(folder + "faults") {
    const int file = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const bool sized = file >= 0 && ftruncate(file, sizeof(QoFaultPlan)) == 0;
    void* page = sized ? mmap(nullptr, sizeof(QoFaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0) : MAP_FAILED;
    if (file >= 0) close(file);
    if (page == MAP_FAILED) throw std::runtime_error("cannot make " + path_ + ": " + strerror(errno));
    plan_ = static_cast<QoFaultPlan*>(page);
}

QoFaults::QoFaults(QoServiceProcess& service) : QoFaults(service.events().scratch()) {
    service.add_to_environment(environment());
}

QoFaults::~QoFaults() { munmap(plan_, sizeof(QoFaultPlan)); }

std::vector<std::string> QoFaults::environment() const {
    return {
        std::string("LD_PRELOAD=") + kInjector,
        std::string(kQoFaultPageVariable) + "=" + path_,
        with_option("ASAN_OPTIONS", "verify_asan_link_order=0"),
    };
}

size_t QoFaults::add(const Rule& rule) {
    if (rules_ == std::size(plan_->rules) || rule.path.size() >= sizeof plan_->rules->path)
        throw std::runtime_error("a fault rule too many, or too long");
    QoFaultRule& shared = plan_->rules[rules_];
    shared.act = rule.act;
    shared.error = rule.error;
    shared.milliseconds = rule.milliseconds;
    shared.first = rule.first;
    shared.last = std::max(rule.first, rule.last);
    shared.threads = rule.threads;
    memcpy(shared.path, rule.path.c_str(), rule.path.size() + 1);
    start_counting(shared);
    shared.calls = rule.calls;
    return rules_++;
}

void QoFaults::end(size_t rule) { plan_->rules[rule].calls = 0; }

void QoFaults::clear() {
    disarm();
    for (QoFaultRule& rule : plan_->rules) rule.calls = 0;
    rules_ = 0;
}

void QoFaults::arm() {
    for (QoFaultRule& rule : plan_->rules) start_counting(rule);
    plan_->armed = 1;
}

void QoFaults::disarm() { plan_->armed = 0; }

void QoFaults::want_stack() { plan_->wants_stack = 1; }

uint64_t QoFaults::seen(size_t rule) const { return plan_->rules[rule].seen; }

uint64_t QoFaults::hits(size_t rule) const { return plan_->rules[rule].hits; }

std::string QoFaults::last_hit(size_t rule) const {
    if (hits(rule) == 0) return "";
    const QoFaultRule& hit = plan_->rules[rule];
    return hit.place[0] == '\0' ? hit.function : std::string(hit.function) + " " + hit.place;
}

std::string QoFaults::last_stack(size_t rule) const {
    std::string lines;
    for (int i = 0; i < plan_->rules[rule].depth; ++i) lines.append(plan_->rules[rule].stack[i]).append("\n");
    return lines;
}

pid_t QoFaults::attached() const { return static_cast<pid_t>(plan_->attached.load()); }
