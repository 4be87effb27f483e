/// One visit to the service: an own receive queue, a registration that is known to be ours, and the way back.
#ifndef QO_CTL_SESSION_H
#define QO_CTL_SESSION_H

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qo_component_ids.h"
#include "qo_ctl_guardian.h"
#include "qo_ctl_own_queue.h"
#include "qo_ctl_service_queue.h"
#include "qo_ctl_signals.h"
#include "qo_ctl_status.h"
#include "qo_pushpull_api.h"

struct QoCtlSessionSettings {
    std::vector<eQO_CMP_IDs_> identities;  // tried in this order until one is free, again and again for the
                                           // timeout while others of this program have them all; not empty
    std::string instance;
    std::chrono::milliseconds timeout;  // for each answer
    long message_size = 0;              // bytes of a message of the own queue; 0: the largest possible
};

/// What an exchange with the service brought.
struct QoCtlExchange {
    QoCtlStatus status = QoCtlStatus::answered;
    std::vector<std::string> answers;  // without their "sender_id:...;"
};

/// Everything that is registered and made here is taken back by close() and by the destructor, and, should this
/// process be killed, by its guardian. Says on standard error why something failed. One thread only.
class QoCtlSession {
public:
    QoCtlSession(QoCtlSessionSettings settings, QoCtlSignals& signals);
    ~QoCtlSession();
    QoCtlSession(const QoCtlSession&) = delete;
    QoCtlSession& operator=(const QoCtlSession&) = delete;

    /// Finds the service, makes the queue, registers, and makes sure that the registration is this queue's: the
    /// service keeps the first queue of an identifier, so another component's answers must never be taken, and its
    /// registration never be given up, for ours.
    /// @return answered; failed, unreachable, no_answer or interrupted, and nothing is registered then.
    QoCtlStatus open();

    /// Whether a request that carries this text is short enough for the service's queue.
    bool fits(std::string_view text) const;

    /// Sends one request by `request`, which calls one operation of the API. `length` is that of the longest text
    /// in it, for which the service's queue has to have room.
    /// @return answered when it was sent.
    using Request = std::function<int32_t(QoPushpullApi&, eQO_CMP_IDs_)>;
    QoCtlStatus send(const Request& request, std::string_view longest_text);

    /// Asks for pointers, separated by ";", and waits until the service has dealt with them. An answer that is
    /// longer than a message of the own queue is lost, so there may be fewer answers than pointers.
    QoCtlExchange ask(const std::string& pointers, bool pack);

    /// Waits until the service has handled every request so far: it handles them in order, and so answers a "get"
    /// after them.
    QoCtlStatus fence();

    /// The next text that answers no request of ours, for at most `patience`. Nothing when none came or when it was
    /// woken; a text that is kept from an earlier exchange comes first.
    std::optional<std::string> next_text(std::chrono::milliseconds patience);

    /// Waits, and drops what comes meanwhile, so that the queue never fills. @return answered or interrupted
    QoCtlStatus wait_until(std::chrono::steady_clock::time_point moment);

    /// Registers again and waits for the service, for as long as the timeout: after a factory reset, which loses
    /// registrations and requests that are on their way.
    QoCtlStatus join_again();

    /// Unregisters and unlinks. With `service_has_ended` there is nobody to unregister from.
    void close(bool service_has_ended = false);

    eQO_CMP_IDs_ identity() const { return identity_; }
    /// The attributes of the own queue.
    const mq_attr& own_attributes() const { return own_queue_.attributes(); }

private:
    using Clock = std::chrono::steady_clock;

    QoCtlStatus find_service();
    enum class Taken { no, for_now, for_good };
    QoCtlStatus take_first_free(Taken& taken);
    QoCtlStatus take_identity(eQO_CMP_IDs_ id, Taken& taken);
    QoCtlStatus join(Taken& taken);
    QoCtlStatus send_register();
    QoCtlStatus send_fence(std::string& tag);
    QoCtlStatus wait_for_room();
    enum class Heed { signals, nothing };
    QoCtlExchange collect(const std::string& tag, const std::string& fence_tag, Clock::time_point deadline, Heed heed);
    std::optional<std::string> receive(Clock::time_point deadline);
    std::string next_tag();
    void say_no_answer() const;
    void leave_queue();

    const QoCtlSessionSettings settings_;
    QoCtlSignals& signals_;
    QoCtlServiceQueue service_queue_;
    QoCtlGuardian guardian_;
    QoPushpullApi api_;
    QoCtlOwnQueue own_queue_;
    std::unique_ptr<QoPushpullReceiveQueue> receive_queue_;
    eQO_CMP_IDs_ identity_ = QO_CMPID_RESERVED;
    std::string busy_;  // why the identifiers are taken for now
    bool api_open_ = false;
    bool registered_ = false;
    unsigned requests_ = 0;           // with a sender id, so far
    std::deque<std::string> others_;  // texts that came while an answer was waited for
};

#endif
