/// A limit for the lines that one piece of work may log: a message can name a hundred thousand nodes, and each may have
/// something to be said about it.
#ifndef QO_UTILITIES_LOG_BUDGET_H
#define QO_UTILITIES_LOG_BUDGET_H

#include <array>
#include <cstddef>

/// Lines of one kind, that is of one text as it stands at its syslog() call, that one piece of work may log.
inline constexpr unsigned QO_LINES_OF_A_KIND = 1000;
/// Bytes after which it may log no further line of that kind: a line may repeat a text of 200,000 bytes.
inline constexpr size_t QO_BYTES_OF_A_KIND = size_t{1024} * 1024;

/// While it lives, its thread logs so many lines and bytes of each kind and drops the others. At its end it logs for
/// each kind how many were dropped, at the level of the kind, in the order in which the kinds came. Where one is in
/// force already, the inner one takes over for its life.
///
/// It holds in a program whose syslog() asks take(), as the service's does. Other threads are not concerned. The
/// lines of a signal handler that interrupts these functions are not counted.
class QoLogBudget {
public:
    explicit QoLogBudget(unsigned limit = QO_LINES_OF_A_KIND);
    ~QoLogBudget();
    QoLogBudget(const QoLogBudget&) = delete;
    QoLogBudget& operator=(const QoLogBudget&) = delete;

    /// Whether the calling thread may log one more line of this kind. Counts it. True without a budget.
    /// @param format of the line; kept, not copied, until the budget ends
    static bool take(int priority, const char* format);
    /// Tells how long the line was that take() allowed last for this kind.
    static void spend(const char* format, size_t bytes);

private:
    struct Kind {
        const char* format;
        int priority;
        unsigned lines;    // that were allowed
        unsigned dropped;  // the others
        size_t bytes;      // of those allowed
    };
    // More than a request can come to; what comes beyond them counts as the last of them.
    static constexpr size_t kMaxKinds = 64;

    Kind* find(const char* format);
    Kind& kind_of(int priority, const char* format);

    const unsigned limit_;
    QoLogBudget* const outer_;
    std::array<Kind, kMaxKinds> kinds_;  // the first `count_` are in use
    size_t count_ = 0;
    Kind* taken_ = nullptr;  // by the last take() that allowed a line
};

#endif
