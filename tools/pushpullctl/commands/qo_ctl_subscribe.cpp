// subscribe: follows what is published.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "qo_ctl_backlog.h"
#include "qo_ctl_commands.h"
#include "qo_ctl_components.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_text.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_json.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kQuiet{15000};         // without a notification, then the service is asked whether it is there
constexpr milliseconds kLastOutput{1000};     // for what waits to be written when Ctrl-C came
constexpr milliseconds kAnyTime{1000000000};  // for a reader who takes his time; Ctrl-C ends it
constexpr uint64_t kMostNotifications = 1000000000;
constexpr size_t kMostWaiting = 16777216;  // bytes of output that wait for the terminal or the pipe

/// Why the service will probably not take a subscription to this pointer: "" when nothing speaks against it. It
/// gives no answer to a subscription, and its default tree, which decides, cannot be read.
std::string doubt(const std::string& pointer, const std::string& body) {
    if (qo_ctl_answer(pointer, body).kind != QoCtlAnswerKind::json) return "there is no such node now";
    const QoJsonNode answer = qo_json_parse(body);
    bool passes_array = false;
    const JSONNODE* node = qo_ctl_addressed(answer.get(), pointer, &passes_array);
    if (passes_array) return "it leads into an element of an array";
    if (node != nullptr && !qo_json_is_container(node)) return "it is neither an object nor an array";
    return "";
}

QoCtlStatus warn_about(QoCtlSession& session, const std::string& pointer) {
    if (qo_ctl_segments(pointer).empty()) return QoCtlStatus::answered;
    const QoCtlExchange exchange = session.ask(pointer, false);
    if (exchange.status != QoCtlStatus::answered || exchange.answers.empty()) return exchange.status;
    const std::string why = doubt(pointer, exchange.answers.front());
    if (!why.empty()) qo_ctl_say("warning: " + pointer + " may never be notified: " + why);
    return QoCtlStatus::answered;
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
QoCtlStatus follow(QoCtlSession& session, QoCtlStyle style, uint64_t count, const QoCtlSignals& signals,
                   QoCtlBacklog& output) {
    uint64_t notifications = 0;
    while (true) {
        const std::optional<std::string> text = session.next_text(kQuiet);
        if (signals.caught() != 0) return QoCtlStatus::interrupted;
        if (output.broken()) return QoCtlStatus::failed;
        if (!text) {
            const QoCtlStatus status = check_service(session);
            if (status != QoCtlStatus::answered) return status;
            continue;
        }
        if (*text == QO_EXIT_NOTICE) {
            qo_ctl_say("the service has ended");
            return QoCtlStatus::unreachable;
        }
        output.push(qo_ctl_render_text(*text, style));
        if (++notifications == count) return QoCtlStatus::answered;
    }
}

void say_what_was_lost(const QoCtlBacklog& output) {
    if (output.broken() && output.error() != EPIPE)
        qo_ctl_say(std::string("cannot write to standard output: ") + std::strerror(output.error()));
    if (!output.broken() && output.dropped() > 0) {
        qo_ctl_say(qo_ctl_count(static_cast<long>(output.dropped()), "notification") +
                   " dropped: the output was not taken in time");
    }
}

class Subscribe : public QoCtlCommand {
public:
    Help help() const override {
        return {"subscribe", "Follow what is published below pointers",
                "Prints each published text until Ctrl-C, or until --count of them. A text that is not JSON,\n"
                "as \"NODE DELETED: /x\", is printed as a JSON string. / follows the whole tree; other pointers\n"
                "have to name an object or an array of the service's default tree, no value and no element.\n\n"
                "Example:\n  pushpullctl subscribe /system/status /devices\n"
                "  pushpullctl subscribe --changes --count 1 /logs"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.words("POINTER", pointers_, "JSON pointer, as /system/config");
        line.flag("--changes", on_change_only_, "only publishes that changed the tree");
        line.number("--count", count_, 1, kMostNotifications, "end after this many notifications");
    }
    std::string fault() override { return qo_ctl_pointers_fault(pointers_); }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::vector<std::string> pointers_;
    bool on_change_only_ = false;
    uint64_t count_ = 0;  // notifications after which it ends; 0: never
};

QoCtlStatus Subscribe::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    QoCtlStatus status = session.open();
    if (status == QoCtlStatus::answered) status = subscribe(session, pointers_, on_change_only_);
    if (status != QoCtlStatus::answered) return status;

    QoCtlBacklog output(STDOUT_FILENO, kMostWaiting, [&signals] { signals.wake(); });
    status = follow(session, qo_ctl_stdout_style(common), count_, signals, output);
    session.close(status == QoCtlStatus::unreachable);
    signals.release();
    output.finish(status == QoCtlStatus::interrupted ? kLastOutput : kAnyTime);
    say_what_was_lost(output);
    if (output.broken()) return QoCtlStatus::failed;
    // Ctrl-C is how following without --count ends.
    return status == QoCtlStatus::interrupted && count_ == 0 ? QoCtlStatus::answered : status;
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_subscribe() { return std::make_unique<Subscribe>(); }
