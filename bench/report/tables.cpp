// Tables of medians and ratios, and doubts about them.
#include "tables.h"

#include <cmath>
#include <fstream>
#include <iomanip>
#include <sstream>

namespace {

// Above these the machine does other things as well.
constexpr double kMostLoad = 0.25;    // of each processor
constexpr double kMostSpread = 0.25;  // see qo_spread()

std::string number(double value) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(value < 10 ? 2 : value < 100 ? 1 : 0) << value;
    return text.str();
}

std::string percent(double part) { return std::to_string(std::lround(part * 100)) + " %"; }

/// @param cell what stands in the row, for each contender
template <typename Cell>
std::string table(const QoResults& results, const std::vector<std::string>& contenders, Cell cell) {
    std::string text = "| |";
    for (const std::string& contender : contenders) text += " " + contender + " |";
    text += "\n|---|";
    for (size_t column = 0; column < contenders.size(); ++column) text += "---:|";
    for (const QoRow& row : results.rows()) {
        text += "\n| " + row.measure + ", " + row.unit + " |";
        for (const std::string& contender : contenders) text += " " + cell(row, contender) + " |";
    }
    return text + "\n";
}

const std::vector<double>* values_of(const QoRow& row, const std::string& contender) {
    const auto found = row.values.find(contender);
    return found == row.values.end() ? nullptr : &found->second;
}

}  // namespace

std::string qo_table_of_medians(const QoResults& results, const std::vector<std::string>& contenders) {
    return table(
        results, contenders,
        [](const QoRow& row, const std::string& contender) -> std::string {
            const std::vector<double>* values = values_of(row, contender);
            if (values == nullptr) return "–";
            return number(qo_median(*values)) + (values->size() > 1 ? " ± " + percent(qo_spread(*values) / 2) : "");
        });
}

std::string qo_table_of_ratios(const QoResults& results, const std::vector<std::string>& contenders) {
    const std::string& ours = contenders.front();
    const std::vector<std::string> others(contenders.begin() + 1, contenders.end());
    return table(results, others, [&](const QoRow& row, const std::string& contender) -> std::string {
        const std::vector<double>* own = values_of(row, ours);
        const std::vector<double>* other = values_of(row, contender);
        if (own == nullptr || other == nullptr || own->size() != other->size()) return "–";
        std::vector<double> ratios;
        for (size_t round = 0; round < own->size(); ++round) ratios.push_back((*own)[round] / (*other)[round]);
        return number(qo_median(ratios));
    });
}

double qo_machine_load() {
    double load = 0;
    std::ifstream("/proc/loadavg") >> load;
    return load;
}

std::string qo_doubts(double load, unsigned processors, const std::vector<double>& steady) {
    std::string doubts;
    if (load > kMostLoad * processors) doubts += "the load was " + number(load) + " when it began; ";
    if (qo_spread(steady) > kMostSpread)
        doubts += "what should be steady has rounds that are " + percent(qo_spread(steady)) + " apart; ";
    return doubts;
}
