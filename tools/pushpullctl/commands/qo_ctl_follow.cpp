// Following what is published, without ever holding up the service.
#include "qo_ctl_follow.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "qo_ctl_backlog.h"
#include "qo_ctl_components.h"
#include "qo_ctl_fragment.h"
#include "qo_ctl_positions.h"
#include "qo_ctl_text.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_json.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kQuiet{15000};         // without a notification, then the service is asked whether it is there
constexpr milliseconds kLastOutput{1000};     // for what waits to be written when Ctrl-C came
constexpr milliseconds kAnyTime{1000000000};  // for a reader who takes his time; Ctrl-C ends it
constexpr std::chrono::duration<double> kEver{365 * 86400.0};
constexpr uint64_t kMostNotifications = 1000000000;
constexpr size_t kMostWaiting = 16777216;  // bytes of output that wait for the terminal or the pipe

/// Why the service will probably not take a subscription: "" when nothing speaks against it. It gives no answer to a
/// subscription, and its default tree, which decides, cannot be read; there an array stands for its elements, so that
/// their members follow its name without a position.
std::string doubt(QoCtlSession& session, const std::string& pointer, QoCtlStatus& status) {
    QoCtlPath place;  // with the position of the first element behind each array
    for (const std::string_view segment : qo_ctl_segments(pointer)) {
        const bool in_array = !place.empty() && qo_ctl_is_array(session, qo_ctl_pointer(place), status);
        if (status != QoCtlStatus::answered) return "";
        if (in_array && qo_ctl_may_be_position(segment))
            return "positions in arrays are refused; leave " + std::string(segment) + " out to follow every element";
        if (in_array) place.emplace_back("0");
        place.emplace_back(segment);
    }
    const QoCtlExchange exchange = session.ask(qo_ctl_pointer(place), false);
    status = exchange.status;
    if (exchange.status != QoCtlStatus::answered || exchange.answers.empty()) return "";
    const std::string& body = exchange.answers.front();
    if (qo_ctl_answer(qo_ctl_pointer(place), body).kind != QoCtlAnswerKind::json) return "there is no such node now";
    const QoJsonNode answer = qo_json_parse(body);
    const JSONNODE* node = qo_ctl_addressed(answer.get(), qo_ctl_pointer(place), nullptr);
    return node != nullptr && !qo_json_is_container(node) ? "it is neither an object nor an array" : "";
}

QoCtlStatus warn_about(QoCtlSession& session, const std::string& pointer) {
    if (qo_ctl_segments(pointer).empty()) return QoCtlStatus::answered;
    QoCtlStatus status = QoCtlStatus::answered;
    const std::string why = doubt(session, pointer, status);
    if (!why.empty()) qo_ctl_say("warning: " + pointer + " may never be notified: " + why);
    return status;
}

QoCtlStatus subscribe(QoCtlSession& session, const std::vector<std::string>& pointers, bool on_change_only) {
    std::string list;
    for (const std::string& pointer : pointers) {
        if (const QoCtlStatus status = warn_about(session, pointer); status != QoCtlStatus::answered) return status;
        const auto request = [&](QoPushpullApi& api, eQO_CMP_IDs_ id) {
            return api.subscribe(id, pointer, on_change_only);
        };
        if (const QoCtlStatus status = session.send(request, pointer); status != QoCtlStatus::answered) return status;
        list += " " + pointer;
    }
    const QoCtlStatus status = session.fence();
    if (status == QoCtlStatus::answered)
        qo_ctl_say("following" + list + " as " + qo_ctl_component_name(session.identity()));
    return status;
}

/// After a quiet time. A service that was reset or restarted does not know its subscribers any more.
QoCtlStatus check_service(QoCtlSession& session) {
    const QoCtlStatus status = session.fence();
    if (status == QoCtlStatus::no_answer) qo_ctl_say("the subscription is lost: was the service reset or restarted?");
    return status;
}

/// @return why it ended; interrupted after Ctrl-C
QoCtlStatus follow(QoCtlSession& session, const QoCtlFollowing& following, const QoCtlSignals& signals,
                   QoCtlBacklog& output, const std::function<std::string(const std::string& text)>& render) {
    using Clock = std::chrono::steady_clock;
    const double seconds = following.seconds > 0 ? following.seconds : kEver.count();
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    uint64_t notifications = 0;
    while (true) {
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        if (left.count() <= 0) return QoCtlStatus::answered;
        const std::optional<std::string> text = session.next_text(std::min(left, kQuiet));
        if (signals.caught() != 0) return QoCtlStatus::interrupted;
        if (output.broken()) return QoCtlStatus::failed;
        if (!text) {
            const QoCtlStatus status = left < kQuiet ? QoCtlStatus::answered : check_service(session);
            if (status != QoCtlStatus::answered) return status;
            continue;
        }
        if (*text == QO_EXIT_NOTICE) {
            qo_ctl_say("the service has ended");
            return QoCtlStatus::unreachable;
        }
        output.push(render(*text));
        if (++notifications == following.count) return QoCtlStatus::answered;
    }
}

void say_what_was_lost(const QoCtlBacklog& output, const std::string& name) {
    if (output.broken() && output.error() != EPIPE)
        qo_ctl_say("cannot write to " + name + ": " + std::strerror(output.error()));
    if (!output.broken() && output.dropped() > 0) {
        qo_ctl_say(qo_ctl_count(static_cast<long>(output.dropped()), "notification") +
                   " dropped: the output was not taken in time");
    }
}

}  // namespace

void QoCtlFollowing::declare(QoCtlCommandLine& line) {
    line.words("POINTER", pointers, "JSON pointer, as /system/config");
    line.flag("--changes", changes_only, "only publishes that changed the tree");
    line.number("--count", count, 1, kMostNotifications, "end after this many notifications");
    line.seconds("--for", seconds, "end after this time");
}

QoCtlStatus qo_ctl_follow(const QoCtlFollowing& following, const QoCtlCommon& common, QoCtlSignals& signals, int output,
                          const std::string& output_name,
                          const std::function<std::string(const std::string& text)>& render) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    QoCtlStatus status = session.open();
    if (status == QoCtlStatus::answered) status = subscribe(session, following.pointers, following.changes_only);
    if (status != QoCtlStatus::answered) return status;

    QoCtlBacklog backlog(output, kMostWaiting, [&signals] { signals.wake(); });
    status = follow(session, following, signals, backlog, render);
    session.close(status == QoCtlStatus::unreachable);
    signals.release();
    backlog.finish(status == QoCtlStatus::interrupted ? kLastOutput : kAnyTime);
    say_what_was_lost(backlog, output_name);
    if (backlog.broken()) return QoCtlStatus::failed;
    // Ctrl-C is how following without a limit ends.
    const bool limited = following.count != 0 || following.seconds > 0;
    return status == QoCtlStatus::interrupted && !limited ? QoCtlStatus::answered : status;
}
