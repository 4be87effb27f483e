/// Faults of disk and memory in a running service, by a library that is preloaded into it.
///
///     QoFaults faults(service());                                   // before service().start...()
///     ASSERT_TRUE(service().start_and_wait());
///     faults.add({.calls = kQoSync, .path = "saved_tree.json"});    // the first such call fails with EIO
///     faults.arm();                                                 // counts from here on
///     ... one request ...
///     faults.disarm();
///     EXPECT_EQ(faults.hits(), 1U);
///
/// To meet the start as well, arm before it. Rules: `calls` one or more of QoFaultCall joined by |, `first` and `last`
/// the calls that are picked, counted from 0 (one: `.first = 3`; all: `.last = kQoAlways`), `error` an errno (0: the
/// usual one), `path` part of a path, `act` also kShort, kLie, kSlow or kHasten. seen() tells how many calls there
/// were, for "each of them once": run once with `.first = kQoAlways` and count. Allocations only where
/// kReachAllocations.
#ifndef QO_TEST_FAULTS_H
#define QO_TEST_FAULTS_H

#include <climits>
#include <string>
#include <vector>

#include "fault_plan.h"

class QoServiceProcess;

class QoFaults {
public:
    struct Rule {
        uint32_t calls = 0;
        std::string path = {};
        QoFaultAct act = QoFaultAct::kFail;
        int error = 0;
        uint64_t first = 0;
        uint64_t last = 0;  // less than first: the first one only
        QoFaultThreads threads = QoFaultThreads::kAny;
        unsigned milliseconds = 0;
    };
    /// False in a program built with a sanitizer, which has its own allocator.
#ifdef QO_SANITIZED
    static constexpr bool kReachAllocations = false;
#else
    static constexpr bool kReachAllocations = true;
#endif

    /// Makes the shared page in this folder, which ends in "/". Throws std::runtime_error when it cannot.
    explicit QoFaults(const std::string& folder);
    /// The same for a service that is started later.
    explicit QoFaults(QoServiceProcess& service);
    ~QoFaults();
    QoFaults(const QoFaults&) = delete;
    QoFaults& operator=(const QoFaults&) = delete;

    /// "NAME=value" each, for a process that is to be reached.
    std::vector<std::string> environment() const;
    /// Adds a rule, which holds at once when the plan is armed. @return its number. Throws when there are too many.
    size_t add(const Rule& rule);
    /// The rule picks nothing any more; its counts stay.
    void end(size_t rule);
    /// Disarms and forgets all rules.
    void clear();
    /// Sets all counts to 0; from now on calls are counted and fail.
    void arm();
    void disarm();
    /// Keep with each hit who called. Costs the calls that are picked some time.
    void want_stack();

    /// Calls that matched a rule since the plan was armed, and those of them that were picked.
    uint64_t seen(size_t rule = 0) const;
    uint64_t hits(size_t rule = 0) const;
    /// The last one that was picked, as "rename /kivo/data/saved_tree.json"; empty for none.
    std::string last_hit(size_t rule = 0) const;
    /// The callers of it, as "FILE+0xOFFSET" a line, innermost first, for addr2line.
    std::string last_stack(size_t rule = 0) const;
    /// The process that has loaded the injector last; 0 for none.
    pid_t attached() const;

private:
    std::string path_;
    QoFaultPlan* plan_ = nullptr;
    size_t rules_ = 0;
};

#endif
