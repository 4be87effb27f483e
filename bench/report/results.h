/// What was measured, for each contender once a round.
#ifndef QO_BENCH_RESULTS_H
#define QO_BENCH_RESULTS_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

double qo_median(std::vector<double> values);
/// The value below which this part of the values lies, from 0 to 1. Of no values it is 0.
double qo_quantile(std::vector<double> values, double part);
/// How far the middle half of the values is apart, against their median.
double qo_spread(const std::vector<double>& values);

/// One row of the table: values of the same thing, such as "told, 200 B, p50" in µs.
struct QoRow {
    std::string measure;
    std::string unit;
    std::map<std::string, std::vector<double>> values;  // by contender, one each round
};

class QoResults {
public:
    /// Adds to the row of that measure, which is made behind the others when there is none.
    void add(const std::string& measure, const std::string& unit, const std::string& contender, double value);
    const std::vector<QoRow>& rows() const { return rows_; }
    /// Null when nothing of that name was measured.
    const QoRow* find(const std::string& measure) const;

private:
    std::vector<QoRow> rows_;
};

#endif
