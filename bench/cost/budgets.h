/// The file of budgets: what each operation may cost, and why it costs that.
#ifndef QO_BENCH_BUDGETS_H
#define QO_BENCH_BUDGETS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// A line of the file: an operation, what is counted, the budget and its reason; or, with an empty operation, a comment
/// in `reason`.
struct QoBudget {
    std::string operation;
    std::string quantity;
    int64_t number = 0;
    std::string reason;
};

enum class QoVerdict { kKept, kGrew, kFell };

/// More than a twentieth away from its budget a count has grown or fallen.
QoVerdict qo_judge(int64_t budget, int64_t counted);

class QoBudgets {
public:
    /// Throws std::runtime_error when it cannot be read or a line is no budget.
    static QoBudgets read(const std::string& path);
    void write(const std::string& path) const;

    std::optional<int64_t> find(const std::string& operation, const std::string& quantity) const;
    /// Keeps the reason that is there.
    void set(const std::string& operation, const std::string& quantity, int64_t number);
    const std::vector<QoBudget>& lines() const { return lines_; }

private:
    const QoBudget* line_of(const std::string& operation, const std::string& quantity) const;

    std::vector<QoBudget> lines_;
};

#endif
