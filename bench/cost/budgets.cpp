// Reading, comparing and rewriting the file of budgets.
#include "budgets.h"

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace {

constexpr int64_t kTolerance = 20;  // one part in as many
constexpr char kNoReason[] = "say why";
constexpr int kOperationWidth = 26;
constexpr int kQuantityWidth = 14;
constexpr int kNumberWidth = 10;

QoBudget budget_of(const std::string& line) {
    if (line.empty() || line[0] == '#') return {"", "", 0, line};
    QoBudget budget;
    std::istringstream fields(line);
    if (!(fields >> budget.operation >> budget.quantity >> budget.number))
        throw std::runtime_error("no budget: " + line);
    std::getline(fields >> std::ws, budget.reason);
    return budget;
}

}  // namespace

QoVerdict qo_judge(int64_t budget, int64_t counted) {
    const int64_t difference = (counted - budget) * kTolerance;
    if (difference > budget) return QoVerdict::kGrew;
    return difference < -budget ? QoVerdict::kFell : QoVerdict::kKept;
}

QoBudgets QoBudgets::read(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("cannot read " + path);
    QoBudgets budgets;
    for (std::string line; std::getline(file, line);) budgets.lines_.push_back(budget_of(line));
    return budgets;
}

void QoBudgets::write(const std::string& path) const {
    std::ofstream file(path);
    for (const QoBudget& line : lines_) {
        if (!line.operation.empty()) {
            file << std::left << std::setw(kOperationWidth) << line.operation << std::setw(kQuantityWidth)
                 << line.quantity << std::right << std::setw(kNumberWidth) << line.number << "  ";
        }
        file << line.reason << '\n';
    }
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

const QoBudget* QoBudgets::line_of(const std::string& operation, const std::string& quantity) const {
    const auto found = std::find_if(lines_.begin(), lines_.end(), [&](const QoBudget& line) {
        return line.operation == operation && line.quantity == quantity;
    });
    return found == lines_.end() ? nullptr : &*found;
}

std::optional<int64_t> QoBudgets::find(const std::string& operation, const std::string& quantity) const {
    const QoBudget* line = line_of(operation, quantity);
    return line == nullptr ? std::nullopt : std::optional(line->number);
}

void QoBudgets::set(const std::string& operation, const std::string& quantity, int64_t number) {
    if (const QoBudget* line = line_of(operation, quantity); line != nullptr)
        lines_[static_cast<size_t>(line - lines_.data())].number = number;
    else
        lines_.push_back({operation, quantity, number, kNoReason});
}
