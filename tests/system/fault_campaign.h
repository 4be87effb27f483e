/// A campaign of faults against the real service: one call fails, once or from then on, in a given situation; the
/// service is used again or killed, started without faults, and judged by the tree that it has and by how it went on or
/// ended.
#ifndef QO_TEST_FAULT_CAMPAIGN_H
#define QO_TEST_FAULT_CAMPAIGN_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "component.h"
#include "faults.h"
#include "service_process.h"

/// What can fail, and how.
struct QoFaultKind {
    const char* name;
    uint32_t calls;  // of QoFaultCall
    QoFaultAct act;
    std::vector<int> errors;  // errno; 0: the usual one of the function
};

/// Files and what else the system gives, short reads and writes, allocations.
const std::vector<QoFaultKind>& qo_fault_kinds();

struct QoFault {
    size_t kind = 0;           // of qo_fault_kinds()
    uint64_t call = 0;         // which one of the situation, counted from 0
    bool stays = false;        // all calls from that one on, until the end of what was asked
    int error = 0;             // errno
    bool saves_after = false;  // a further save without faults comes before the kill

    /// "KIND,CALL,STAYS,ERRNO,SAVES"
    std::string text() const;
};

/// Of QoFault::text(). Throws std::exception when it is not that.
QoFault qo_parsed_fault(const std::string& text);

/// What lies in the data directory. Good are those that are called a tree.
enum class QoFaultDisk {
    kSaved,       // tree 2, and tree 1 as backup
    kDamaged,     // a saved file that is no JSON, and tree 1 as backup
    kDiscarded,   // a saved file with a wrong CRC, and tree 1 as backup
    kBackupOnly,  // tree 1 as backup
    kEmpty,
    kStray,     // as kSaved, and what a process that died left of a save
    kDefaults,  // as kSaved, at a site with a default tree of its own
};

enum class QoFaultPhase {
    kStart,
    kForcedSave,
    kTimerSave,   // with the timers' times cut to milliseconds
    kStatistics,  // rows, and a rotation before the first one
    kRequest,
};

struct QoFaultSituation {
    const char* name;
    QoFaultDisk disk;
    QoFaultPhase phase;
    const char* request = "";  // of kRequest

    friend void PrintTo(const QoFaultSituation& situation, std::ostream* stream);
};

struct QoFaultFigures {
    size_t faults = 0;  // that were met
    size_t starts = 0;  // without faults, after them
    size_t with_last = 0;
    size_t with_previous = 0;
    size_t worse = 0;
    size_t wrong_exits = 0;

    friend std::ostream& operator<<(std::ostream& stream, const QoFaultFigures& all);
};

class QoFaultCampaign : public ServiceProcess {
protected:
    /// Learns what the saved file of each tree looks like. To be called once, before all else.
    void prepare(QoFaultDisk disk);
    /// One fault, or none, what it leads to, a kill, and a start without faults. What is not as it should be is a
    /// failure of the test, and counted.
    /// @return without a fault: the calls of each kind that were made
    std::vector<uint64_t> try_fault(const QoFaultSituation& situation, const std::optional<QoFault>& fault);
    /// The same with harm that the test does to a service that serves. What comes of it is no failure of the test.
    /// @param last   number of the tree that was reported as saved last when that is over
    /// @param used   whether the service is used afterwards
    void try_harm(const std::function<void()>& harm, int last, bool used);
    const QoFaultFigures& figures() const { return figures_; }

    static constexpr eQO_CMP_IDs_ kPublisher = QO_CMPID_DEMO;
    QoFaults& faults() { return *faults_; }
    /// @return whether it came true in time
    bool await(const std::function<bool()>& condition);
    /// Whether a save was reported since the log was cleared last.
    bool was_saved();

private:
    struct Actors;

    // ---- what is known beforehand ----
    /// The texts of the saved file for a tree without any publish and with the numbers 1 to 4.
    void make_texts();
    /// The built-in default tree, with one member called differently.
    void make_defaults();
    void prepare_disk(QoFaultDisk disk);
    std::string saved_text(QoFaultDisk disk) const;
    /// The number of the tree that a start on this disk finds.
    static int on_disk(QoFaultDisk disk);
    void begin(const QoFaultSituation& situation, const std::optional<QoFault>& fault);

    // ---- the phases ----
    void run_phase();
    /// From here on the fault may come.
    void arm(QoFaultThreads threads);
    void end_faults();
    /// And from here on none.
    void forget_faults();
    bool was_hit() const;
    /// Starts the service and waits until it is ready or has ended.
    void launch(const std::vector<std::string>& arguments = {});
    /// For the report: what was met, by whom, and what was logged.
    void note_fault();
    /// Waits until all is done that was asked, or the service has ended. No fault comes after that.
    void settle();
    void forced_save();
    void timer_save();
    /// A save of tree 3 was tried.
    void note_save();
    void statistics();
    /// Of the file that has a row now and then, without its header and the one that is being written.
    static std::vector<std::string> rows();
    /// A row that was cut short must not have another one glued to it.
    void expect_whole_rows();
    void request();
    void make_request(Actors& actors);

    // ---- afterwards, without faults ----
    /// The service either has ended as it may, or serves, and saves when it is asked.
    void go_on();
    void take_end();
    bool asked_to_be_restarted();
    void end_by_request();
    bool serves(Component& prober);
    /// What could not be read is not removed: each good tree that was there is still there in some file.
    void expect_files_kept();
    /// Starts the service, and adds to the figures. @param hit whether the fault was met
    void judge(bool hit);
    /// Of the tree in a saved file; -1 for none. A request that failed half-way may have left something in it beside
    /// the number.
    int number_of(const std::string& text) const;

    // ---- tools ----
    static bool await(const std::function<bool()>& condition, std::chrono::milliseconds patience);
    std::string tail_of_log();
    testing::AssertionResult save(Component& component);
    void kill_service();
    void wrong(const std::string& what);
    void lost(const std::string& what);
    void report(const std::string& what);

    std::vector<std::string> texts_;
    std::string defaults_;
    std::optional<QoFaults> faults_;
    QoFaultFigures figures_;
    std::chrono::milliseconds patience_ = kQoPatience;

    // Of the fault that is being tried.
    bool harmed_ = false;       // by try_harm()
    size_t notifications_ = 0;  // those before the start
    const QoFaultSituation* situation_ = nullptr;
    std::optional<QoFault> fault_;
    std::vector<size_t> fault_rules_;
    std::string hit_;
    std::string stack_;
    std::string log_;
    int last_ = 0;           // number of the tree that was saved last, or was to be
    std::set<int> allowed_;  // those with which the service may start
    bool was_worse_ = false;
    bool was_wrong_ = false;
    bool told_to_end_ = false;
    bool may_fail_ = false;
    bool saved_after_ = false;
};

#endif
