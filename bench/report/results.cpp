// The values of all rounds, and their middle and spread.
#include "results.h"

#include <algorithm>
#include <cmath>

double qo_quantile(std::vector<double> values, double part) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const double place = part * static_cast<double>(values.size() - 1);
    const auto below = static_cast<size_t>(std::floor(place));
    const size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (values[above] - values[below]) * (place - std::floor(place));
}

double qo_median(std::vector<double> values) { return qo_quantile(std::move(values), 0.5); }

double qo_spread(const std::vector<double>& values) {
    const double median = qo_median(values);
    return median == 0 ? 0 : (qo_quantile(values, 0.75) - qo_quantile(values, 0.25)) / median;
}

void QoResults::add(const std::string& measure, const std::string& unit, const std::string& contender, double value) {
    auto row = std::find_if(rows_.begin(), rows_.end(), [&](const QoRow& one) { return one.measure == measure; });
    if (row == rows_.end()) row = rows_.insert(rows_.end(), {measure, unit, {}});
    row->values[contender].push_back(value);
}

const QoRow* QoResults::find(const std::string& measure) const {
    const auto row = std::find_if(rows_.begin(), rows_.end(), [&](const QoRow& one) { return one.measure == measure; });
    return row == rows_.end() ? nullptr : &*row;
}
