/// When a signal may act on the main thread. Header only.
///
/// The handler of SIGTERM posts to a queue, logs and ends the process, so it may only run where its thread holds no
/// lock. That is the main thread while it waits for a request. To let SIGTERM in there alone by the signal mask would
/// cost each request two system calls, so the handler looks at a flag instead and, where it must not act, leaves a
/// note. Whoever sets the flag then looks for the note, and a handler that came in between has seen the flag.
#ifndef QO_PUSHPULL_SIGNAL_GATE_H
#define QO_PUSHPULL_SIGNAL_GATE_H

#include <signal.h>

#include <atomic>

/// What the main thread does, for its handlers to know. Created and destroyed by the main thread only.
class QoSignalGate {
public:
    enum class State {
        kNoRequests,  // before and after the life of the loop
        kWorking,     // it may hold a lock
        kWaiting      // for a request
    };

    /// For the life of this object that is the state, then again the one before. A SIGTERM that had to wait is raised
    /// as soon as it may act.
    explicit QoSignalGate(State state) : former_(enter(state)) {}
    ~QoSignalGate() { enter(former_); }
    QoSignalGate(const QoSignalGate&) = delete;
    QoSignalGate& operator=(const QoSignalGate&) = delete;

    static bool is_waiting() noexcept { return state_ == State::kWaiting; }
    /// For the handler of SIGTERM, on the main thread: whether it may act. When not, it is called again when it may.
    static bool may_sigterm_act() noexcept {
        if (state_ != State::kWorking) return true;
        sigterm_noted_ = true;
        return false;
    }

private:
    static State enter(State state) {
        const State former = state_.exchange(state);
        if (state != State::kWorking && sigterm_noted_ && sigterm_noted_.exchange(false)) raise(SIGTERM);
        return former;
    }

    inline static std::atomic<State> state_{State::kNoRequests};
    inline static std::atomic<bool> sigterm_noted_{false};
    static_assert(std::atomic<State>::is_always_lock_free, "a signal handler must not wait for a lock");

    const State former_;
};

#endif
