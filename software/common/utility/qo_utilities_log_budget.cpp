// How many log lines of each kind one request may write.
#include "qo_utilities_log_budget.h"

#include <syslog.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>

namespace {

constinit thread_local QoLogBudget* budget_in_force = nullptr;

// Puts the budget out of force while its table is in use: a signal handler that logs then leaves the table alone.
class Use {
public:
    Use() : budget_(budget_in_force) {
        budget_in_force = nullptr;
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    ~Use() {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        budget_in_force = budget_;
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    /// Null when there is none.
    QoLogBudget* budget() const { return budget_; }

private:
    QoLogBudget* const budget_;
};

}  // namespace

// The kinds are not cleared: there is a budget for every request, and most log a handful of lines.
QoLogBudget::QoLogBudget(unsigned limit) : limit_(limit), outer_(budget_in_force) {  // NOLINT(*-member-init)
    budget_in_force = this;
}

QoLogBudget::~QoLogBudget() {
    budget_in_force = outer_;
    for (size_t i = 0; i < count_; ++i) {
        const Kind& kind = kinds_[i];
        if (kind.dropped == 0) continue;
        syslog(kind.priority, "PushPull: %u more lines of this request: %s", kind.dropped, kind.format);
    }
}

bool QoLogBudget::take(int priority, const char* format) {
    const Use use;
    if (use.budget() == nullptr) return true;
    Kind& kind = use.budget()->kind_of(priority, format);
    if (kind.lines < use.budget()->limit_ && kind.bytes < QO_BYTES_OF_A_KIND) {
        ++kind.lines;
        use.budget()->taken_ = &kind;
        return true;
    }
    if (kind.dropped < std::numeric_limits<unsigned>::max()) ++kind.dropped;
    return false;
}

void QoLogBudget::spend(const char* format, size_t bytes) {
    const Use use;
    if (use.budget() == nullptr) return;
    Kind* const taken = use.budget()->taken_;
    Kind* const kind = taken != nullptr && taken->format == format ? taken : use.budget()->find(format);
    if (kind != nullptr) kind->bytes += bytes;
}

// The same text at the same place is most likely. What is beyond the table is the last kind of it.
QoLogBudget::Kind* QoLogBudget::find(const char* format) {
    const auto used = kinds_.begin() + static_cast<std::ptrdiff_t>(count_);
    const auto find_kind = [&](auto is_it) { return std::find_if(kinds_.begin(), used, is_it); };
    auto known = find_kind([format](const Kind& kind) { return kind.format == format; });
    if (known == used) known = find_kind([format](const Kind& kind) { return strcmp(kind.format, format) == 0; });
    if (known != used) return &*known;
    return count_ == kMaxKinds ? &kinds_.back() : nullptr;
}

QoLogBudget::Kind& QoLogBudget::kind_of(int priority, const char* format) {
    if (Kind* const known = find(format); known != nullptr) return *known;
    kinds_[count_] = {format, priority, 0, 0, 0};
    return kinds_[count_++];
}
