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
        if (kind.lines <= limit_) continue;
        syslog(kind.priority, "PushPull: %u more lines of this request: %s", kind.lines - limit_, kind.format);
    }
}

bool QoLogBudget::take(int priority, const char* format) {
    QoLogBudget* const budget = budget_in_force;
    if (budget == nullptr) return true;
    Kind& kind = budget->kind_of(priority, format);
    if (kind.lines < std::numeric_limits<unsigned>::max()) ++kind.lines;
    return kind.lines <= budget->limit_;
}

QoLogBudget::Kind& QoLogBudget::kind_of(int priority, const char* format) {
    const auto used = kinds_.begin() + static_cast<std::ptrdiff_t>(count_);
    const auto known = std::find_if(kinds_.begin(), used, [format](const Kind& kind) {
        return kind.format == format || strcmp(kind.format, format) == 0;
    });
    if (known != used) return *known;
    if (count_ == kMaxKinds) return kinds_.back();
    kinds_[count_] = {format, priority, 0};
    return kinds_[count_++];
}
