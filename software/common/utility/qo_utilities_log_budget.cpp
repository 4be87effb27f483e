#include "qo_utilities_log_budget.h"

#include <syslog.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

constinit thread_local QoLogBudget* budget_in_force = nullptr;

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
    if (budget_in_force == nullptr) return true;
    Kind& kind = budget_in_force->kind_of(priority, format);
    if (kind.lines < budget_in_force->limit_ && kind.bytes < QO_BYTES_OF_A_KIND) {
        ++kind.lines;
        return true;
    }
    if (kind.dropped < std::numeric_limits<unsigned>::max()) ++kind.dropped;
    return false;
}

void QoLogBudget::spend(const char* format, size_t bytes) {
    Kind* const kind = budget_in_force == nullptr ? nullptr : budget_in_force->find(format);
    if (kind != nullptr) kind->bytes += bytes;
}

// What is beyond the table is the last kind of it.
QoLogBudget::Kind* QoLogBudget::find(const char* format) {
    const auto used = kinds_.begin() + static_cast<std::ptrdiff_t>(count_);
    const auto known = std::find_if(kinds_.begin(), used, [format](const Kind& kind) {
        return kind.format == format || strcmp(kind.format, format) == 0;
    });
    if (known != used) return &*known;
    return count_ == kMaxKinds ? &kinds_.back() : nullptr;
}

QoLogBudget::Kind& QoLogBudget::kind_of(int priority, const char* format) {
    if (Kind* const known = find(format); known != nullptr) return *known;
    kinds_[count_] = {format, priority, 0, 0, 0};
    return kinds_[count_++];
}
