/// What a running service lets the outside see, collected as it happens: its log lines, its readiness messages and
/// the shell commands it runs. One thread reads all of them and never stops, unless a test wants a log reader that
/// does. What the service did before something that a test has seen of it, an answer or its end, is among what these
/// functions give back.
#ifndef QO_TEST_SERVICE_EVENTS_H
#define QO_TEST_SERVICE_EVENTS_H

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "log_capture.h"
#include "scratch_directory.h"

/// Longer than anything takes that works; reached by failing tests only.
constexpr std::chrono::seconds kQoPatience{30};

class QoServiceEvents {
public:
    /// Takes /dev/log, which must not exist yet. Throws std::runtime_error when that or a file cannot be made.
    QoServiceEvents();
    ~QoServiceEvents();
    QoServiceEvents(const QoServiceEvents&) = delete;
    QoServiceEvents& operator=(const QoServiceEvents&) = delete;

    /// The directory with recording stand-ins for systemctl, reboot, pkill, top, ps and pstree: first on PATH.
    std::string stand_in_directory() const;
    /// The socket for NOTIFY_SOCKET.
    std::string notify_socket() const;
    /// A directory for the test's own files, ending in "/".
    const std::string& scratch() const { return scratch_.path(); }

    /// All log lines since the last clear_log(), without "ident: ", as qo_log_line() makes them.
    std::vector<QoLogLine> log();
    void clear_log();
    /// The log reader stops: what is sent to it stays in its socket, which fills. Then it goes on.
    void pause_log();
    void resume_log();
    /// The log reader ends, whatever it was doing, and /dev/log goes with it: none, until one is started anew.
    void close_log();
    void open_log();
    /// systemd stops reading what the service notifies it of, and goes on.
    void pause_notifications();
    void resume_notifications();
    /// The idents and facilities that were seen, for tests of openlog().
    std::vector<std::string> idents();
    /// All readiness messages so far.
    std::vector<std::string> notifications();
    /// All commands that reached a stand-in, with their arguments: "reboot now".
    std::vector<std::string> commands();

    /// Wait for a line, a number of readiness messages, a command. Bounded; a failure shows what came instead.
    testing::AssertionResult wait_for_log(int level, const std::string& text,
                                          std::chrono::milliseconds timeout = kQoPatience);
    /// A line of the store, whichever of its operations logged it. @param text behind "PushPull:*@#: "
    testing::AssertionResult wait_for_store_log(int level, const std::string& text,
                                                std::chrono::milliseconds timeout = kQoPatience);
    testing::AssertionResult wait_for_notifications(size_t count, std::chrono::milliseconds timeout = kQoPatience);
    testing::AssertionResult wait_for_command(const std::string& command,
                                              std::chrono::milliseconds timeout = kQoPatience);
    testing::AssertionResult wait_for_commands(size_t count, std::chrono::milliseconds timeout = kQoPatience);
    /// Lets the stand-in of that name never end from now on.
    void stall_stand_in(const std::string& name) const;

private:
    void make_stand_ins();
    void listen();
    /// Has listen() look again at what it listens to.
    void wake_listener();
    /// Takes over all that has come. @return the lock under which that is read.
    std::unique_lock<std::mutex> collect();
    void take_log_line(const std::string& datagram);
    void take_commands(const std::string& bytes);
    testing::AssertionResult wait_for_line(const std::function<bool(const QoLogLine&)>& awaited,
                                           const std::string& description, std::chrono::milliseconds timeout);
    bool wait_until(const std::function<bool()>& condition, std::chrono::milliseconds timeout);
    std::string tail_of_log();

    QoScratchDirectory scratch_;
    int notify_socket_ = -1;
    int command_pipe_ = -1;
    int wake_event_ = -1;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool ending_ = false;                     // guarded by mutex_
    bool log_paused_ = false;                 // guarded by mutex_
    bool notifications_paused_ = false;       // guarded by mutex_
    int log_socket_ = -1;                     // guarded by mutex_
    std::vector<QoLogLine> log_;              // guarded by mutex_
    std::vector<std::string> idents_;         // guarded by mutex_
    std::vector<std::string> notifications_;  // guarded by mutex_
    std::vector<std::string> commands_;       // guarded by mutex_
    std::string unfinished_command_;          // guarded by mutex_
    std::string buffer_;                      // guarded by mutex_

    std::thread listener_;  // last: uses all of the above
};

#endif
