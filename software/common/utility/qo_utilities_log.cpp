// The sender of log lines to the system log.
#include "qo_utilities_log.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <numeric>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

static_assert(sizeof(time_t) >= 8, "a 32-bit time ends in January 2038; see cmake/QoCompileOptions.cmake");
static_assert(std::atomic<uint64_t>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "a signal handler must not wait for a lock");

constexpr size_t kTextOnStack = 2048;       // bytes of a formatted line; longer ones are rare
constexpr size_t kUnsplitOnStream = 16384;  // bytes; the kernel takes as many of a stream whole or not at all
constexpr int kTurnPollMs = 1;
constexpr int kFirstOwnDescriptor = STDERR_FILENO + 1;

class ErrnoKeeper {
public:
    ~ErrnoKeeper() { errno = kept_; }
    int kept() const { return kept_; }

private:
    const int kept_ = errno;
};

/// Memory that is not the heap's: a signal may have interrupted the heap.
class Pages {
public:
    explicit Pages(size_t size)
        : size_(size), start_(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {}
    ~Pages() {
        if (start_ != MAP_FAILED) munmap(start_, size_);
    }
    Pages(const Pages&) = delete;
    Pages& operator=(const Pages&) = delete;

    /// Null when there are none.
    char* text() const { return start_ == MAP_FAILED ? nullptr : static_cast<char*>(start_); }

private:
    const size_t size_;
    void* const start_;
};

// ---- the header ----

// A second and what localtime_r() makes of it, in one word that can be read and written at once. Never 0: a day is not.
constexpr unsigned kFieldBits = 26;  // month 4, day 5, hour 5, minute 6, second 6

uint64_t pack(time_t second, const tm& local) {
    uint64_t packed = static_cast<uint64_t>(second);
    packed = packed << 4 | static_cast<unsigned>(local.tm_mon);
    packed = packed << 5 | static_cast<unsigned>(local.tm_mday);
    packed = packed << 5 | static_cast<unsigned>(local.tm_hour);
    packed = packed << 6 | static_cast<unsigned>(local.tm_min);
    return packed << 6 | static_cast<unsigned>(local.tm_sec);
}

bool is_of(uint64_t stamp, time_t second) {
    return stamp != 0 && stamp >> kFieldBits == static_cast<uint64_t>(second) << kFieldBits >> kFieldBits;
}

// "00", "01", ... "99"
constexpr auto kTwoDigits = [] {
    std::array<char, 200> digits{};
    for (size_t number = 0; number < digits.size() / 2; ++number) {
        digits[2 * number] = static_cast<char>('0' + number / 10);
        digits[2 * number + 1] = static_cast<char>('0' + number % 10);
    }
    return digits;
}();

// "Jan  5 13:04:59 "
char* put_stamp(char* out, uint64_t stamp) {
    static constexpr char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    static constexpr char kPattern[] = "mmm dd hh:mm:ss ";
    const auto field = [stamp](unsigned shift, unsigned bits) {
        return static_cast<size_t>(stamp >> shift) & ((size_t{1} << bits) - 1);
    };
    const auto put_two_digits = [](char* place, size_t number) { memcpy(place, &kTwoDigits[2 * number], 2); };
    constexpr size_t kLength = sizeof kPattern - 1;
    memcpy(out, kPattern, kLength);
    memcpy(out, kMonths + 3 * field(22, 4), 3);
    put_two_digits(out + 4, field(17, 5));
    if (out[4] == '0') out[4] = ' ';
    put_two_digits(out + 7, field(12, 5));
    put_two_digits(out + 10, field(6, 6));
    put_two_digits(out + 13, field(0, 6));
    return out + kLength;
}

// "<14>"
char* put_priority(char* out, unsigned priority) {
    *out++ = '<';
    if (priority >= 1000) *out++ = static_cast<char>('0' + priority / 1000);
    if (priority >= 100) *out++ = static_cast<char>('0' + priority / 100 % 10);
    if (priority >= 10) *out++ = static_cast<char>('0' + priority / 10 % 10);
    *out++ = static_cast<char>('0' + priority % 10);
    *out++ = '>';
    return out;
}

iovec piece(const void* start, size_t length) { return {const_cast<void*>(start), length}; }

iovec piece(const char* text) { return piece(text, strlen(text)); }

// Takes what was sent from the front of the pieces.
void drop_front(msghdr& message, size_t sent) {
    while (message.msg_iovlen > 0 && sent >= message.msg_iov->iov_len) {
        sent -= message.msg_iov->iov_len;
        ++message.msg_iov;
        --message.msg_iovlen;
    }
    if (sent == 0) return;
    message.msg_iov->iov_base = static_cast<char*>(message.msg_iov->iov_base) + sent;
    message.msg_iov->iov_len -= sent;
}

bool is_out_of_room(int error) { return error == EAGAIN || error == ENOBUFS || error == ENOMEM; }

}  // namespace

// ---- one line ----

/// "<14>Jan  5 13:04:59 PushPull: text", in pieces; on a stream with a NUL.
struct QoLogSender::Record {
    static constexpr size_t kFramePieces = 4;  // priority and time, ident, ": ", NUL

    Record(unsigned priority, uint64_t stamp, const char* ident, const iovec* text, size_t text_pieces) {
        char* end = put_priority(header, priority);
        if (stamp != 0) end = put_stamp(end, stamp);
        iovec* next = pieces;
        size_t bytes = 0;
        const auto add = [&](const iovec& added) {
            *next++ = added;
            bytes += added.iov_len;
        };
        add(piece(header, static_cast<size_t>(end - header)));
        if (stamp != 0) add(piece(ident));  // as the C library does when there is no time
        add(piece(": ", 2));
        frame_length = bytes;
        const iovec* const text_end = text + std::min(text_pieces, kMaxPieces);
        for (; text != text_end; ++text) add(*text);
        count = static_cast<size_t>(next - pieces);
        length = bytes;
    }

    char header[32];
    iovec pieces[kMaxPieces + kFramePieces];
    size_t count;
    size_t frame_length;  // bytes in front of the text
    size_t length;        // of all
};

/// When a line is given up, counted from when it first had to wait.
class QoLogSender::Deadline {
public:
    explicit Deadline(milliseconds patience) : patience_(patience) {}
    /// Milliseconds, rounded up; 0 when over.
    int left() {
        if (patience_.count() <= 0) return 0;
        const steady_clock::time_point now = steady_clock::now();
        if (!end_) end_ = now + patience_;
        if (now >= *end_) return 0;
        return static_cast<int>(std::chrono::ceil<milliseconds>(*end_ - now).count());
    }

private:
    const milliseconds patience_;
    std::optional<steady_clock::time_point> end_;
};

void QoLogSender::open(const char* ident, int options, int facility) {
    const ErrnoKeeper keeper;
    ident_ = ident;
    if (facility != 0 && (facility & ~LOG_FACMASK) == 0) facility_ = facility;
    stamp();  // the zone's file is read now, and not in a signal handler
    Deadline at_once{milliseconds(0)};
    if ((options & LOG_NDELAY) != 0) connect(connections_, at_once);
}

int QoLogSender::set_mask(int mask) { return mask == 0 ? mask_.load() : mask_.exchange(mask); }

size_t QoLogSender::write(int priority, const char* format, va_list arguments) {
    const ErrnoKeeper keeper;
    if ((LOG_MASK(LOG_PRI(priority)) & mask_) == 0) return 0;
    QoLogPieces line;
    if (!line.put(format, arguments)) return write_printed(priority, format, arguments);
    return send(priority, line.pieces(), line.count());
}

size_t QoLogSender::write_printed(int priority, const char* format, va_list arguments) {
    const ErrnoKeeper keeper;
    va_list again;
    va_copy(again, arguments);
    char on_stack[kTextOnStack];
    const int formatted = vsnprintf(on_stack, sizeof on_stack, format, arguments);
    if (formatted >= 0) {
        const size_t length = static_cast<size_t>(formatted);
        if (length < sizeof on_stack) {
            const iovec text = piece(on_stack, length);
            send(priority, &text, 1);
        } else {
            const Pages pages(length + 1);
            errno = keeper.kept();
            if (pages.text() != nullptr) vsnprintf(pages.text(), length + 1, format, again);
            const iovec text =
                pages.text() != nullptr ? piece(pages.text(), length) : piece(on_stack, sizeof on_stack - 1);
            send(priority, &text, 1);
        }
    }
    va_end(again);
    return static_cast<size_t>(std::max(formatted, 0));
}

void QoLogSender::write(int priority, const iovec* pieces, size_t count) {
    const ErrnoKeeper keeper;
    if ((LOG_MASK(LOG_PRI(priority)) & mask_) != 0) send(priority, pieces, count);
}

size_t QoLogSender::send(int priority, const iovec* pieces, size_t count) {
    unsigned number = static_cast<unsigned>(priority) & (LOG_PRIMASK | LOG_FACMASK);
    if ((number & LOG_FACMASK) == 0) number |= static_cast<unsigned>(facility_);
    const char* ident = ident_;
    const Record record(number, stamp(), ident != nullptr ? ident : program_invocation_short_name, pieces, count);
    const std::optional<milliseconds> patience = catch_up();
    if (!patience || transmit(record, *patience) == Outcome::kFull) ++lost_;
    return record.length - record.frame_length;
}

// Of several that come here at once one tells, and the others only try: they must not wait for it, least of all when
// they interrupted it.
std::optional<milliseconds> QoLogSender::catch_up() {
    if (lost_ == 0) return patience_;
    if (reporting_.test_and_set()) return milliseconds(0);
    const unsigned lost = lost_;
    bool told = true;
    if (lost > 0) {
        char text[96];
        const int length =
            snprintf(text, sizeof text, "QoLogSender: %u lines are lost: the system log did not take them", lost);
        const iovec line = piece(text, static_cast<size_t>(length));
        const char* ident = ident_;
        const Record record(static_cast<unsigned>(facility_ | LOG_WARNING), stamp(),
                            ident != nullptr ? ident : program_invocation_short_name, &line, 1);
        told = transmit(record, milliseconds(0)) == Outcome::kTaken;
        if (told) lost_ -= lost;
    }
    reporting_.clear();
    return told ? std::optional(patience_) : std::nullopt;
}

// The time stamp of this second. Who finds another at it, perhaps because it interrupted it, takes the one before.
uint64_t QoLogSender::stamp() {
    const time_t now = time(nullptr);
    uint64_t known = stamp_;
    if (is_of(known, now) || stamping_.test_and_set()) return known;
    tm local{};
    if (localtime_r(&now, &local) != nullptr) {
        known = pack(now, local);
        stamp_ = known;
    }
    stamping_.clear();
    return known;
}

// ---- the connection ----

// On the connection that there is, and on a new one, as syslog(3) does; once more because another thread may be
// replacing it meanwhile.
QoLogSender::Outcome QoLogSender::transmit(const Record& record, milliseconds patience) {
    constexpr int kAttempts = 3;
    Deadline deadline(patience);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const unsigned seen = connections_;
        const Kind kind = kind_;
        if (sockets_[kind] >= 0) {
            const Outcome outcome = transmit_on(kind, record, deadline);
            if (outcome != Outcome::kBroken) return outcome;
        }
        const int error = connect(seen, deadline);
        if (error != 0) return error == EAGAIN ? Outcome::kFull : Outcome::kNobody;
    }
    return Outcome::kFull;  // somebody takes connections, but no line
}

QoLogSender::Outcome QoLogSender::transmit_on(Kind kind, const Record& record, Deadline& deadline) {
    msghdr message{};
    message.msg_iov = const_cast<iovec*>(record.pieces);  // a datagram goes as a whole, so they stay as they are
    message.msg_iovlen = record.count;
    if (kind == kDatagram) return transmit_all(sockets_[kind], message, record.length, deadline);

    iovec pieces[kMaxPieces + Record::kFramePieces];
    std::copy_n(record.pieces, record.count, pieces);
    message.msg_iov = pieces;
    pieces[message.msg_iovlen++] = piece("", 1);
    const bool alone = record.length >= kUnsplitOnStream;
    if (!take_turn(alone, deadline)) return Outcome::kFull;
    const Outcome outcome = transmit_all(sockets_[kind], message, record.length + 1, deadline);
    give_turn(alone);
    return outcome;
}

QoLogSender::Outcome QoLogSender::transmit_all(int descriptor, msghdr& message, size_t length, Deadline& deadline) {
    size_t left = length;
    for (;;) {
        const ssize_t sent = sendmsg(descriptor, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            left -= static_cast<size_t>(sent);
            if (left == 0) return Outcome::kTaken;
            drop_front(message, static_cast<size_t>(sent));
            continue;
        }
        const int error = errno;
        if (error == EMSGSIZE) return Outcome::kTooLong;
        if (!is_out_of_room(error)) return Outcome::kBroken;
        if (const int patience = deadline.left(); error == EAGAIN && patience > 0) {
            pollfd room{descriptor, POLLOUT, 0};
            poll(&room, 1, patience);
            continue;
        }
        // What has come of the line must not be the beginning of the next one.
        if (left < length) shutdown(descriptor, SHUT_RDWR);
        return Outcome::kFull;
    }
}

// On a stream the kernel takes a short line at once, and a long one in parts, between which no other may come.
bool QoLogSender::take_turn(bool alone, Deadline& deadline) {
    int turns = stream_turns_;
    for (;;) {
        if (alone ? turns == 0 : turns >= 0) {
            if (stream_turns_.compare_exchange_weak(turns, alone ? -1 : turns + 1)) return true;
            continue;
        }
        if (deadline.left() == 0) return false;
        poll(nullptr, 0, kTurnPollMs);
        turns = stream_turns_;
    }
}

void QoLogSender::give_turn(bool alone) { stream_turns_ += alone ? 1 : -1; }

int QoLogSender::connect(unsigned seen, Deadline& deadline) {
    const Kind kind = kind_;
    const int error = connect(kind, seen, deadline);
    return error == EPROTOTYPE ? connect(kind == kDatagram ? kStream : kDatagram, seen, deadline) : error;
}

int QoLogSender::connect(Kind kind, unsigned seen, Deadline& deadline) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path_, sizeof address.sun_path - 1);
    const int made = take_unconnected(kind);
    if (made < 0) return errno;
    while (::connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        if (error == EAGAIN && deadline.left() > 0) {
            poll(nullptr, 0, kTurnPollMs);  // the reader has yet to accept others
            continue;
        }
        if (error == ENOENT || error == ECONNREFUSED)
            keep_unconnected(kind, made);
        else
            close(made);
        return error;
    }
    adopt(kind, made, seen);
    return 0;
}

int QoLogSender::take_unconnected(Kind kind) {
    const int kept = unconnected_[kind].exchange(-1);
    if (kept >= 0) return kept;
    const int made = socket(AF_UNIX, (kind == kStream ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (made < 0 || made >= kFirstOwnDescriptor) return made;
    const int moved = fcntl(made, F_DUPFD_CLOEXEC, kFirstOwnDescriptor);
    close(made);
    return moved;
}

// While nobody listens each line tries to connect, and a socket is most of what that costs.
void QoLogSender::keep_unconnected(Kind kind, int descriptor) {
    int none = -1;
    if (!unconnected_[kind].compare_exchange_strong(none, descriptor)) close(descriptor);
}

// Another thread may be sending: the number that it uses stays open, and is of the new connection from one moment to
// the next. One that works is not replaced.
void QoLogSender::adopt(Kind kind, int connected, unsigned seen) {
    if (!connections_.compare_exchange_strong(seen, seen + 1)) {
        close(connected);  // another thread was faster
        return;
    }
    int stable = -1;
    if (!sockets_[kind].compare_exchange_strong(stable, connected)) {
        while (dup3(connected, stable, O_CLOEXEC) < 0 && (errno == EBUSY || errno == EINTR)) continue;
        close(connected);
    }
    kind_ = kind;
}

QoLogSender& qo_log() {
    static constinit QoLogSender sender;
    return sender;
}
