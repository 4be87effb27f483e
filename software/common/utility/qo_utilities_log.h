/// The service's way to the system log: what syslog(3) writes, byte for byte, but without its lock and without waiting
/// for a reader that has stopped.
#ifndef QO_UTILITIES_LOG_H
#define QO_UTILITIES_LOG_H

#include <stdarg.h>
#include <stdint.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <syslog.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>

#include "qo_utilities_log_pieces.h"

/// How long one line waits for room in the log's socket.
inline constexpr std::chrono::milliseconds QO_LOG_PATIENCE{100};

/// Sends lines to the socket of the system log, one datagram each, or on a stream socket ended by a NUL.
///
/// A line that finds no room waits for `patience`; then it is lost, and so is at once every line after it that finds
/// none. The first line that may get through again is preceded by one that says how many were lost. Lines longer than
/// the socket takes (about 212,000 bytes), and all while nobody listens, are dropped and not counted, as by syslog(3).
///
/// All functions may be called by any thread, and by a signal handler whatever it interrupted: nothing takes a lock or
/// allocates from the heap. Only write() changes the time stamp, by localtime_r(), which no two of them do at once. The
/// lines of one thread keep their order. errno is left as it was. An instance ends with the process: its descriptors,
/// which are never 0 to 2 and not inherited, are not closed.
class QoLogSender {
public:
    static constexpr size_t kMaxPieces = QoLogPieces::kMaxPieces;

    /// @param path of the socket; kept, not copied
    constexpr explicit QoLogSender(const char* path = "/dev/log", std::chrono::milliseconds patience = QO_LOG_PATIENCE)
        : path_(path), patience_(patience) {}
    QoLogSender(const QoLogSender&) = delete;
    QoLogSender& operator=(const QoLogSender&) = delete;

    /// What the lines from now on carry. Without it they carry the program's name and LOG_USER.
    /// @param ident kept, not copied; null for the program's name
    /// @param options LOG_NDELAY connects now; LOG_ODELAY is the default, others are ignored
    /// @param facility 0 for the one before
    void open(const char* ident, int options, int facility);
    /// Lines of levels that are not in the mask are dropped (LOG_MASK, LOG_UPTO). @param mask 0 changes nothing
    /// @return the mask before
    int set_mask(int mask);

    /// One line, formatted as by printf, "%m" included. What a simple format (qo_utilities_log_pieces.h) names is sent
    /// from where it lies; another line that is longer than a few kilobytes is put together in pages from the kernel,
    /// and cut when it has none.
    /// @param priority a level, and a facility unless that of open() is meant
    /// @return bytes of the text; 0 when its level is not in the mask
    size_t write(int priority, const char* format, va_list arguments) __attribute__((format(printf, 3, 0)));
    /// One line whose text is ready, in pieces that follow each other. Nothing is copied.
    /// @param count kMaxPieces at most; more are left out
    void write(int priority, const iovec* pieces, size_t count);

private:
    enum Kind { kDatagram, kStream };
    enum class Outcome {
        kTaken,
        kFull,     // there is a reader, who does not take it
        kTooLong,  // for the socket, ever
        kBroken,   // the connection has ended
        kNobody    // there is nobody to connect to
    };
    struct Record;
    class Deadline;

    /// By printf(), whatever the format is. errno is that of the caller of write(). @return as write()
    size_t write_printed(int priority, const char* format, va_list arguments) __attribute__((format(printf, 3, 0)));
    /// @return bytes of the text
    size_t send(int priority, const iovec* pieces, size_t count);
    /// Tells of lost lines before the next one. @return how long that may wait; nothing when it is lost too.
    std::optional<std::chrono::milliseconds> catch_up();
    Outcome transmit(const Record& record, std::chrono::milliseconds patience);
    Outcome transmit_on(Kind kind, const Record& record, Deadline& deadline);
    static Outcome transmit_all(int descriptor, msghdr& message, size_t length, Deadline& deadline);
    bool take_turn(bool alone, Deadline& deadline);
    void give_turn(bool alone);
    /// @param seen connections_ when the connection that is to be replaced was tried
    /// @return 0; EAGAIN when there is a reader who takes no connection yet; another errno.
    int connect(unsigned seen, Deadline& deadline);
    int connect(Kind kind, unsigned seen, Deadline& deadline);
    /// @return one that was kept, or a new one; -1 with errno
    int take_unconnected(Kind kind);
    void keep_unconnected(Kind kind, int descriptor);
    void adopt(Kind kind, int connected, unsigned seen);
    uint64_t stamp();

    const char* const path_;
    const std::chrono::milliseconds patience_;
    std::atomic<const char*> ident_{nullptr};
    std::atomic<int> facility_{LOG_USER};
    std::atomic<int> mask_{LOG_UPTO(LOG_DEBUG)};
    std::atomic<int> sockets_[2] = {-1, -1};      // by kind; once set a number stays, and is connected anew by dup3()
    std::atomic<int> unconnected_[2] = {-1, -1};  // by kind; kept for the next line while nobody listens
    std::atomic<Kind> kind_{kDatagram};           // of the last connection
    std::atomic<unsigned> connections_{0};        // made so far
    std::atomic<int> stream_turns_{0};            // lines under way on the stream; -1 for one that must not be split
    std::atomic<unsigned> lost_{0};               // lines that nobody was told of yet
    std::atomic_flag reporting_;                  // somebody is about to tell
    std::atomic<uint64_t> stamp_{0};              // the last second and its local time; 0 before the first
    std::atomic_flag stamping_;                   // somebody is in localtime_r()
};

/// The one that syslog(3) means in the service.
QoLogSender& qo_log();

#endif
