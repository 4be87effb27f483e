/// How the service sends a text to a component's queue. Header only; any thread.
#ifndef QO_PUSHPULL_SEND_H
#define QO_PUSHPULL_SEND_H

#include <mqueue.h>
#include <syslog.h>
#include <time.h>

#include <chrono>
#include <string>

#include "qo_pushpull_constants.h"
#include "qo_pushpull_deadline.h"
#include "qo_pushpull_life.h"

inline constexpr time_t QO_SEND_DEADLINE_S = 1;  // seconds

/// Whether there is a queue to send to; logged when not.
inline bool qo_is_queue(mqd_t descriptor, const std::string& queue_name) {
    if (descriptor != -1) return true;
    syslog(LOG_ERR, "pushpull : MessageQueue: POST:Invalid Descriptor: %x ,\"%s\" ", static_cast<unsigned>(descriptor),
           queue_name.c_str());
    return false;
}

/// Sends the text with its NUL, waiting at most about QO_SEND_DEADLINE_S while the queue is full.
/// @return 0; -1 with errno, ETIMEDOUT when the queue stayed full. Nothing is sent on failure.
inline int qo_send_text(mqd_t descriptor, const std::string& text) {
    const timespec deadline = qo_deadline_after(CLOCK_REALTIME, std::chrono::seconds(QO_SEND_DEADLINE_S));
    const int result = mq_timedsend(descriptor, text.c_str(), text.length() + 1, QO_MESSAGE_PRIORITY, &deadline);
    qo_report_life();
    return result;
}

#endif
