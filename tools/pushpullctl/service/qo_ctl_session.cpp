// Registering, asking, waiting for answers, and leaving.
#include "qo_ctl_session.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

#include "qo_ctl_components.h"
#include "qo_ctl_output.h"
#include "qo_ctl_text.h"
#include "qo_pushpull_json.h"

namespace {

using std::chrono::milliseconds;

// What is asked for to learn that the service has come this far: its answer is short, whatever was published, and the
// array has at most 16 elements. A tree without it answers too.
constexpr char kFencePointer[] = "/siblings/size";
// Bytes of a request besides its longest text and the NUL: member names, numbers, the layout, our sender id.
constexpr size_t kRequestFrame = 512;
constexpr milliseconds kLook{20};            // between two looks at a full service queue
constexpr milliseconds kLastWord{500};       // for the answer that settles whether an interrupted session is registered
constexpr milliseconds kJoinAgain{250};      // for the answer before registering once more
constexpr milliseconds kLongestWait{60000};  // at a time
constexpr size_t kMostOthers = 1000;         // texts kept; a command that does not follow needs none of them

std::string service_missing(const std::string& name, int error) {
    if (error == ENOENT) {
        return "the service is not reachable: there is no queue " + name +
               " (does qo_pushpull run, and in this IPC namespace?)";
    }
    std::string text = "the service is not reachable: queue " + name + ": " + std::strerror(error);
    if (error == EACCES) text += " (run as the user of the service, in its group, or as root)";
    return text;
}

/// Bytes of `text` as a JSON string, which is how a request carries it; 0 when it has no such form.
size_t length_in_request(std::string_view text) {
    const QoJsonNode node(json_new_a_n("", 0, text.data(), text.size()));
    return qo_json_write(node.get()).size();
}

}  // namespace

QoCtlSession::QoCtlSession(QoCtlSessionSettings settings, QoCtlSignals& signals)
    : settings_(std::move(settings)), signals_(signals), api_(settings_.instance) {}

QoCtlSession::~QoCtlSession() { close(); }

// ---- coming ----

QoCtlStatus QoCtlSession::open() {
    if (const QoCtlStatus status = find_service(); status != QoCtlStatus::answered) return status;
    const Clock::time_point deadline = Clock::now() + settings_.timeout;
    while (true) {
        Taken taken = Taken::no;
        const QoCtlStatus status = take_first_free(taken);
        if (status == QoCtlStatus::answered) return status;
        if (taken == Taken::for_now && signals_.caught() == 0 && Clock::now() < deadline) {
            std::this_thread::sleep_for(kLook);
            continue;
        }
        close();
        if (signals_.caught() != 0) return QoCtlStatus::interrupted;
        if (taken == Taken::for_now)
            qo_ctl_say(busy_ + "; wait longer by --timeout, or choose another component by --as");
        return status;
    }
}

/// @param taken for_now when one of the identifiers may become free
QoCtlStatus QoCtlSession::take_first_free(Taken& taken) {
    QoCtlStatus status = QoCtlStatus::failed;
    bool any_for_now = false;
    for (const eQO_CMP_IDs_ id : settings_.identities) {
        taken = Taken::no;
        status = take_identity(id, taken);
        if (status == QoCtlStatus::answered || taken == Taken::no) return status;
        any_for_now = any_for_now || taken == Taken::for_now;
        leave_queue();
    }
    if (any_for_now) taken = Taken::for_now;
    return status;
}

QoCtlStatus QoCtlSession::find_service() {
    if (const int error = service_queue_.open(settings_.instance); error != 0) {
        qo_ctl_say(service_missing(service_queue_.name(), error));
        return QoCtlStatus::unreachable;
    }
    guardian_.start(settings_.instance);
    if (api_.init(settings_.instance) != 0) {
        qo_ctl_say(service_missing(service_queue_.name(), errno));
        return QoCtlStatus::unreachable;
    }
    api_open_ = true;
    return QoCtlStatus::answered;
}

/// @param taken set when the identifier is another's, so that the next one may do
QoCtlStatus QoCtlSession::take_identity(eQO_CMP_IDs_ id, Taken& taken) {
    identity_ = id;
    const std::string name = qo_ctl_own_queue_name(settings_.instance, id);
    switch (own_queue_.open(name, settings_.message_size)) {
        case QoCtlOwnQueueResult::taken:
            taken = Taken::for_now;
            busy_ = settings_.identities.size() == 1
                        ? "another pushpullctl acts as " + qo_ctl_component_name(id)
                        : "other pushpullctl act as all " + std::to_string(settings_.identities.size()) +
                              " components that are meant for it";
            return QoCtlStatus::failed;
        case QoCtlOwnQueueResult::no_room:
            taken = Taken::for_now;
            busy_ = "cannot make the receive queue " + name + ": the quota of message queues is in use";
            return QoCtlStatus::failed;
        case QoCtlOwnQueueResult::failed:
            qo_ctl_say("cannot make the receive queue " + name + ": " + std::strerror(errno));
            return QoCtlStatus::failed;
        case QoCtlOwnQueueResult::opened:
            break;
    }
    guardian_.set_duty(name, QO_CMPID_RESERVED);
    signals_.watch(own_queue_.descriptor());
    const mq_attr& attributes = own_queue_.attributes();
    receive_queue_.reset(api_.create_receive_queue(name, static_cast<int32_t>(attributes.mq_maxmsg),
                                                   static_cast<int32_t>(attributes.mq_msgsize)));
    if (!receive_queue_) {
        qo_ctl_say("cannot open the receive queue " + name);
        return QoCtlStatus::failed;
    }
    return join(taken);
}

QoCtlStatus QoCtlSession::join(Taken& taken) {
    std::string tag;
    if (const QoCtlStatus status = send_register(); status != QoCtlStatus::answered) return status;
    if (const QoCtlStatus status = send_fence(tag); status != QoCtlStatus::answered) return status;
    const Clock::time_point deadline = Clock::now() + settings_.timeout;
    QoCtlStatus status = collect("", tag, deadline, Heed::signals).status;
    const bool interrupted = status == QoCtlStatus::interrupted;
    // The registration is on its way: what becomes of it has to be known before it can be taken back.
    if (interrupted) status = collect("", tag, std::min(deadline, Clock::now() + kLastWord), Heed::nothing).status;
    if (status == QoCtlStatus::answered) {
        registered_ = true;
        guardian_.set_duty(own_queue_.name(), identity_);
    }
    if (interrupted) return QoCtlStatus::interrupted;
    if (status == QoCtlStatus::answered) return status;
    if (service_queue_.attributes().mq_curmsgs > 0) {
        say_no_answer();
        return status;
    }
    // The service took the requests, but what it answered went elsewhere. Whoever got it stays registered.
    taken = Taken::for_good;
    qo_ctl_say("no answer to " + qo_ctl_component_name(identity_) +
               ": another component is registered under this identifier, or the service could not open " +
               own_queue_.name() + " (its log tells); choose one by --as");
    return status;
}

QoCtlStatus QoCtlSession::join_again() {
    registered_ = false;
    const Clock::time_point deadline = Clock::now() + settings_.timeout;
    while (Clock::now() < deadline) {
        std::string tag;
        if (const QoCtlStatus status = send_register(); status != QoCtlStatus::answered) return status;
        if (const QoCtlStatus status = send_fence(tag); status != QoCtlStatus::answered) return status;
        const QoCtlStatus status =
            collect("", tag, std::min(deadline, Clock::now() + kJoinAgain), Heed::signals).status;
        registered_ = status == QoCtlStatus::answered;
        if (status != QoCtlStatus::no_answer) return status;
    }
    say_no_answer();
    return QoCtlStatus::no_answer;
}

QoCtlStatus QoCtlSession::send_register() {
    return send(
        [this](QoPushpullApi& api, eQO_CMP_IDs_ id) {
            mq_attr attributes = own_queue_.attributes();
            attributes.mq_curmsgs = 0;
            return api.comp_register(id, own_queue_.name(), &attributes);
        },
        own_queue_.name());
}

// ---- asking ----

bool QoCtlSession::fits(std::string_view text) const {
    const auto limit = static_cast<size_t>(service_queue_.attributes().mq_msgsize);
    return length_in_request(text) + kRequestFrame <= limit;
}

QoCtlStatus QoCtlSession::send(const Request& request, std::string_view longest_text) {
    if (!fits(longest_text)) {
        const size_t length = length_in_request(longest_text) + kRequestFrame;
        qo_ctl_say("the request is too long: about " + std::to_string(length) + " bytes, and the service takes " +
                   std::to_string(service_queue_.attributes().mq_msgsize));
        return QoCtlStatus::failed;
    }
    if (const QoCtlStatus status = wait_for_room(); status != QoCtlStatus::answered) return status;
    if (request(api_, identity_) == 0) return QoCtlStatus::answered;
    qo_ctl_say("the request could not be sent to " + service_queue_.name());
    return QoCtlStatus::no_answer;
}

/// The library would wait in a full queue for some ten seconds, whatever the timeout, and not be interrupted.
QoCtlStatus QoCtlSession::wait_for_room() {
    const Clock::time_point deadline = Clock::now() + settings_.timeout;
    while (service_queue_.is_full()) {
        if (signals_.caught() != 0) return QoCtlStatus::interrupted;
        if (Clock::now() >= deadline) {
            say_no_answer();
            return QoCtlStatus::no_answer;
        }
        std::this_thread::sleep_for(kLook);
    }
    return QoCtlStatus::answered;
}

QoCtlStatus QoCtlSession::send_fence(std::string& tag) {
    tag = next_tag();
    return send([&tag](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.get(id, kFencePointer, tag, false); },
                kFencePointer);
}

QoCtlExchange QoCtlSession::ask(const std::string& pointers, bool pack) {
    const std::string tag = next_tag();
    const QoCtlStatus sent =
        send([&](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.get(id, pointers, tag, pack); }, pointers);
    if (sent != QoCtlStatus::answered) return {sent, {}};
    std::string fence_tag;
    if (const QoCtlStatus status = send_fence(fence_tag); status != QoCtlStatus::answered) return {status, {}};
    QoCtlExchange exchange = collect(tag, fence_tag, Clock::now() + settings_.timeout, Heed::signals);
    if (exchange.status == QoCtlStatus::no_answer) say_no_answer();
    return exchange;
}

QoCtlStatus QoCtlSession::fence() {
    std::string tag;
    if (const QoCtlStatus status = send_fence(tag); status != QoCtlStatus::answered) return status;
    const QoCtlStatus status = collect("", tag, Clock::now() + settings_.timeout, Heed::signals).status;
    if (status == QoCtlStatus::no_answer) say_no_answer();
    return status;
}

/// Keeps the answers to `tag` until that to `fence_tag` comes, or the deadline.
QoCtlExchange QoCtlSession::collect(const std::string& tag, const std::string& fence_tag, Clock::time_point deadline,
                                    Heed heed) {
    QoCtlExchange exchange;
    while (true) {
        if (heed == Heed::signals && signals_.caught() != 0) {
            exchange.status = QoCtlStatus::interrupted;
            return exchange;
        }
        const std::optional<std::string> text = receive(deadline);
        if (!text) {
            if (Clock::now() < deadline) continue;
            exchange.status = QoCtlStatus::no_answer;
            return exchange;
        }
        const QoCtlReceived received = qo_ctl_received(*text);
        if (!received.sender_id) {
            if (others_.size() < kMostOthers) others_.push_back(*text);
        } else if (*received.sender_id == fence_tag) {
            return exchange;
        } else if (*received.sender_id == tag) {
            exchange.answers.emplace_back(received.body);
        }
    }
}

std::optional<std::string> QoCtlSession::next_text(milliseconds patience) {
    const Clock::time_point deadline = Clock::now() + patience;
    while (others_.empty()) {
        std::optional<std::string> text = receive(deadline);
        if (!text) return std::nullopt;
        // An answer that comes late, or was meant for another with this identifier, is not for us.
        if (!qo_ctl_received(*text).sender_id) return text;
    }
    std::string text = std::move(others_.front());
    others_.pop_front();
    return text;
}

QoCtlStatus QoCtlSession::wait_until(Clock::time_point moment) {
    while (signals_.caught() == 0) {
        const auto left = std::chrono::ceil<milliseconds>(moment - Clock::now());
        if (left.count() <= 0) return QoCtlStatus::answered;
        [[maybe_unused]] const std::optional<std::string> dropped = next_text(std::min(left, kLongestWait));
    }
    return QoCtlStatus::interrupted;
}

/// @return nothing at the deadline, and before it when woken or when a reception failed
std::optional<std::string> QoCtlSession::receive(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    const int32_t length = receive_queue_->timed_receive(std::max(left, milliseconds(0)));
    // A reception that fails will fail again; nobody is helped by trying without a pause.
    if (length < 0) std::this_thread::sleep_for(kLook);
    if (length <= 0) return std::nullopt;
    std::string text = receive_queue_->get_queue_buffer();
    if (text == QoCtlSignals::kWakeUpText) return std::nullopt;
    return text;
}

std::string QoCtlSession::next_tag() { return "ctl-" + std::to_string(getpid()) + "-" + std::to_string(++requests_); }

void QoCtlSession::say_no_answer() const {
    const mq_attr now = service_queue_.attributes();
    std::string text = "no answer from the service in time";
    if (now.mq_curmsgs > 0) {
        text += ": it does not read its queue " + service_queue_.name() + ", where " +
                qo_ctl_count(now.mq_curmsgs, "request") + " of at most " + std::to_string(now.mq_maxmsg) +
                (now.mq_curmsgs == 1 ? " waits" : " wait") + "; does it run?";
    }
    qo_ctl_say(text);
}

// ---- going ----

void QoCtlSession::close(bool service_has_ended) {
    if (registered_ && !service_has_ended && api_.comp_unregister(identity_) != 0) {
        qo_ctl_say("could not unregister: " + qo_ctl_component_name(identity_) +
                   " stays registered until the next pushpullctl acts as it, or the service ends");
    }
    registered_ = false;
    leave_queue();
    if (api_open_) api_.terminate();
    api_open_ = false;
}

/// The queue goes last: until then nobody else takes the identifier.
void QoCtlSession::leave_queue() {
    signals_.unwatch();
    receive_queue_.reset();
    own_queue_.remove();
    guardian_.set_duty("", QO_CMPID_RESERVED);
}
