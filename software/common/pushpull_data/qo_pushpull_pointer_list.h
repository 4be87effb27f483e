/// The list of JSON pointers that a request carries. Header only.
#ifndef QO_PUSHPULL_POINTER_LIST_H
#define QO_PUSHPULL_POINTER_LIST_H

#include <algorithm>
#include <cstddef>
#include <string>

#include "qo_utilities_time.h"

/// Seconds that the walk over one request's list may take. Components give up posting after about ten seconds on a full
/// service queue, so no request may hold the service longer than half of that.
inline constexpr double QO_WALK_LIMIT_S = 5;

/// The pieces of a text "a;b;c" in order, up to its end or its first empty piece, and how long the walk over them
/// has taken: one message can hold 130,000 pointers, each of which may cost a wait for a full queue.
///
///     for (QoPointerList list(text); list.next();) handle(list.pointer());
class QoPointerList {
public:
    /// `list` must outlive this object.
    explicit QoPointerList(const std::string& list, QoMonotonicClock clock = qo_pushpull_get_timestamp)
        : list_(list), clock_(clock), started_at_(clock_()) {}

    /// Goes on to the next piece, at first to the first. @return false when there is none.
    bool next() {
        if (begin_ >= list_.length()) return false;
        const size_t end = std::min(list_.find(';', begin_), list_.length());
        piece_.assign(list_, begin_, end - begin_);
        begin_ = end + 1;
        return !piece_.empty();
    }

    /// The piece that the last successful next went to; valid until the following next.
    const std::string& pointer() const { return piece_; }

    /// True when the walk has taken longer than one request may.
    bool overdue() const { return clock_() - started_at_ > QO_WALK_LIMIT_S; }

private:
    const std::string& list_;
    QoMonotonicClock clock_;
    double started_at_;  // monotonic seconds
    size_t begin_ = 0;   // of the next piece
    std::string piece_;
};

#endif
