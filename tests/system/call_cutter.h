/// Kills a running service between two system calls of a save.
#ifndef QO_TEST_CALL_CUTTER_H
#define QO_TEST_CALL_CUTTER_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <set>

/// Which thread the save runs on.
enum class QoSaver {
    kMainThread,   // a save by request: from the receipt of the next message to the wait for the one after it
    kTimerThread,  // a save by the timer: all that the next new thread does
};

/// Follows the system calls of the saving thread. The service is a child of ours, idle, and has no other tracer. All
/// members are to be called by one thread.
class QoCallCutter {
public:
    static constexpr size_t kAtTheEnd = std::numeric_limits<size_t>::max();

    QoCallCutter(pid_t process, QoSaver saver);
    QoCallCutter(const QoCallCutter&) = delete;
    QoCallCutter& operator=(const QoCallCutter&) = delete;

    /// Calls `cause_save` and kills the service as its saving thread is about to make the call with this number,
    /// counted from 0: that call is not made, the ones before are complete. kAtTheEnd kills after the last one.
    /// The dead process is left to be waited for.
    /// @return the number of calls that were made
    /// Throws std::runtime_error when the service ends by itself or cannot be traced.
    size_t cut(size_t call, const std::function<void()>& cause_save);

private:
    void seize(pid_t thread);
    void interrupt_main_thread();
    /// @return whether the service was killed
    bool attend(pid_t thread, int status, size_t call);
    bool at_call_stop(pid_t thread, size_t call);
    void resume(pid_t thread, int signal_number = 0) const;
    void kill_all();

    pid_t process_;
    QoSaver saver_;
    std::set<pid_t> threads_;
    pid_t saving_thread_ = -1;   // -1: not known yet
    uint64_t current_call_ = 0;  // system call number of the saving thread's last entry
    bool counting_ = false;
    size_t calls_ = 0;
};

#endif
