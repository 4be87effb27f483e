/// What a program does, counted by a tool that runs it: instructions and allocations by callgrind, system calls by
/// strace. Both count the main thread only, which handles the requests; what other threads do depends on the clock.
#ifndef QO_BENCH_COUNTER_H
#define QO_BENCH_COUNTER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct QoCost {
    int64_t instructions = 0;  // outside the kernel
    int64_t allocations = 0;   // calls of malloc, calloc and realloc, whoever makes them
    int64_t system_calls = 0;
};

/// What one of several equal things costs, rounded.
/// @param all   what was counted from one mark to the next while they were done
/// @param marks the same with nothing done
QoCost qo_cost_of_one(const QoCost& all, const QoCost& marks, int64_t count);

/// A running count. Positions are places in it; those of a counted program that waits stand still.
class QoCounter {
public:
    virtual ~QoCounter() = default;
    /// What runs the program: its own command is to follow.
    virtual std::vector<std::string> command() const = 0;
    /// How far the count has come.
    virtual size_t position() const = 0;
    /// What was counted from one position to another. Zero for what this counter does not count.
    virtual QoCost between(size_t begin, size_t end) const = 0;
};

/// Closes a part of its count each time the main thread opens a message queue, before it does. A position is the number
/// of parts.
class QoCallgrind : public QoCounter {
public:
    /// @param folder for the parts, ending in "/"; callgrind_annotate reads them
    explicit QoCallgrind(std::string folder);
    std::vector<std::string> command() const override;
    size_t position() const override;
    QoCost between(size_t begin, size_t end) const override;

private:
    std::string part(size_t number) const;

    std::string folder_;
};

/// A position is a number of lines: strace writes one for each call that has returned.
class QoStrace : public QoCounter {
public:
    /// @param folder for the trace, ending in "/"
    explicit QoStrace(const std::string& folder);
    std::vector<std::string> command() const override;
    size_t position() const override;
    QoCost between(size_t begin, size_t end) const override;

private:
    std::string trace_;
};

#endif
