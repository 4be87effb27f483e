// The commands that ask the service to do something: most get no answer, so that a "get" behind them has to tell
// that they were handled.
#include "qo_ctl_commands.h"
#include "qo_ctl_dump.h"
#include "qo_ctl_text.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_json.h"

namespace {

/// Opens a session, sends one request and waits until it was handled.
QoCtlStatus handle(const QoCtlOptions& options, QoCtlSignals& signals, const QoCtlSession::Request& request,
                   const std::string& longest_text) {
    QoCtlSession session(qo_ctl_session_settings(options), signals);
    QoCtlStatus status = session.open();
    if (status == QoCtlStatus::answered) status = session.send(request, longest_text);
    if (status == QoCtlStatus::answered) status = session.fence();
    return status;
}

// ---- delete and clear ----

/// What stands at a pointer now.
struct Look {
    QoCtlStatus status = QoCtlStatus::answered;
    bool there = false;
    bool placeholder = false;  // of a deleted array element
};

Look look_at(QoCtlSession& session, const std::string& pointer) {
    const QoCtlExchange exchange = session.ask(pointer, false);
    Look look;
    look.status = exchange.status;
    if (exchange.status != QoCtlStatus::answered) return look;
    // An answer that is too long to be received is one all the same.
    const std::string body = exchange.answers.empty() ? "" : exchange.answers.front();
    look.there = exchange.answers.empty() || qo_ctl_answer(pointer, body).kind == QoCtlAnswerKind::json;
    const QoJsonNode answer = qo_json_parse(body);
    bool passes_array = false;
    JSONNODE* node = qo_ctl_addressed(answer.get(), pointer, &passes_array);
    look.placeholder = passes_array && qo_ctl_is_placeholder(node);
    return look;
}

/// Sends one request about a node that has to be there, and looks at what has become of the node.
/// @return with a status other than answered when that could not be learned, or the node was not there before
Look change_node(QoCtlSession& session, const std::string& pointer, const QoCtlSession::Request& request) {
    Look look = look_at(session, pointer);
    if (look.status == QoCtlStatus::answered && !look.there) {
        qo_ctl_say(pointer + ": no such node");
        look.status = QoCtlStatus::failed;
    }
    if (look.status == QoCtlStatus::answered) look.status = session.send(request, pointer);
    return look.status == QoCtlStatus::answered ? look_at(session, pointer) : look;
}

// ---- init and exit ----

/// Waits for one text from the service; others are passed over.
QoCtlStatus wait_for_text(QoCtlSession& session, const QoCtlSignals& signals, const std::string& awaited,
                          std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (signals.caught() == 0) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            qo_ctl_say("no answer from the service in time");
            return QoCtlStatus::no_answer;
        }
        if (session.next_text(left) == awaited) return QoCtlStatus::answered;
    }
    return QoCtlStatus::interrupted;
}

}  // namespace

QoCtlStatus qo_ctl_publish(const QoCtlOptions& options, QoCtlSignals& signals) {
    const auto publish = [&options](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.publish(id, options.text); };
    const QoCtlStatus status = handle(options, signals, publish, options.text);
    if (status == QoCtlStatus::answered) qo_ctl_tell_person("handled; if the service refused any of it, its log tells");
    return status;
}

QoCtlStatus qo_ctl_save(const QoCtlOptions& options, QoCtlSignals& signals) {
    const QoCtlStatus status = handle(
        options, signals, [](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.flush(id); }, "");
    if (status == QoCtlStatus::answered)
        qo_ctl_tell_person("handled; if the file could not be written, the service's log tells");
    return status;
}

QoCtlStatus qo_ctl_sync(const QoCtlOptions& options, QoCtlSignals& signals) {
    const auto forward = [&options](QoPushpullApi& api, eQO_CMP_IDs_ id) {
        return api.comp_sync(id, options.destination, options.text);
    };
    const QoCtlStatus status = handle(options, signals, forward, options.text);
    if (status == QoCtlStatus::answered)
        qo_ctl_tell_person("handled; if the component could not be reached, the service's log tells");
    return status;
}

QoCtlStatus qo_ctl_dump(const QoCtlOptions& options, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(options), signals);
    if (const QoCtlStatus status = session.open(); status != QoCtlStatus::answered) return status;
    const QoCtlDump dump = qo_ctl_request_dump(session);
    session.close();
    signals.release();
    if (dump.status != QoCtlStatus::answered) return dump.status;
    if (!dump.seen) qo_ctl_say("the file cannot be seen from here; if it was not written, the service's log tells");
    const QoJsonNode answer(json_new(JSON_NODE));
    json_push_back(answer.get(), json_new_a("file", dump.file.c_str()));
    json_push_back(answer.get(), json_new_b("seen", dump.seen ? 1 : 0));
    if (dump.seen) json_push_back(answer.get(), json_new_i("bytes", dump.bytes));
    return qo_ctl_print(qo_ctl_render(answer.get(), qo_ctl_stdout_style(options)), QoCtlStatus::answered);
}

QoCtlStatus qo_ctl_delete(const QoCtlOptions& options, QoCtlSignals& signals) {
    const std::string& pointer = options.pointers.front();
    const QoCtlSessionSettings settings = qo_ctl_session_settings(options);
    if (QoPushpullApi(options.instance).check_delete_authority(settings.identities.front()) != 0) {
        qo_ctl_say("only HVAC_SYSCON_SUB to HVAC_SYSCON_END may delete; leave --as away, or choose one of them");
        return QoCtlStatus::failed;
    }
    QoCtlSession session(settings, signals);
    if (const QoCtlStatus status = session.open(); status != QoCtlStatus::answered) return status;
    const auto request = [&pointer](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.delete_node(id, pointer); };
    const Look after = change_node(session, pointer, request);
    if (after.status != QoCtlStatus::answered) return after.status;
    if (!after.there || after.placeholder) return QoCtlStatus::answered;
    qo_ctl_say(pointer + ": still there; the service's log tells why");
    return QoCtlStatus::failed;
}

QoCtlStatus qo_ctl_clear(const QoCtlOptions& options, QoCtlSignals& signals) {
    const std::string& pointer = options.pointers.front();
    QoCtlSession session(qo_ctl_session_settings(options), signals);
    if (const QoCtlStatus status = session.open(); status != QoCtlStatus::answered) return status;
    const auto request = [&pointer](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.clear(id, pointer); };
    const Look after = change_node(session, pointer, request);
    if (after.status != QoCtlStatus::answered) return after.status;
    if (after.there) return QoCtlStatus::answered;
    qo_ctl_say(pointer + ": not in the default tree, so it was deleted and not restored");
    return QoCtlStatus::failed;
}

QoCtlStatus qo_ctl_init(const QoCtlOptions& options, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(options), signals);
    QoCtlStatus status = session.open();
    if (status != QoCtlStatus::answered) return status;
    status =
        session.send([](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.init_request(id, QO_REQUEST_CONFIRMATION); },
                     QO_REQUEST_CONFIRMATION);
    if (status == QoCtlStatus::answered) status = wait_for_text(session, signals, QO_INIT_ANSWER, options.timeout);
    if (status == QoCtlStatus::answered) status = session.join_again();
    if (status == QoCtlStatus::answered) qo_ctl_tell_person("the service is back with its default tree");
    return status;
}

QoCtlStatus qo_ctl_exit(const QoCtlOptions& options, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(options), signals);
    QoCtlStatus status = session.open();
    if (status != QoCtlStatus::answered) return status;
    status =
        session.send([](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.exit_request(id, QO_REQUEST_CONFIRMATION); },
                     QO_REQUEST_CONFIRMATION);
    if (status == QoCtlStatus::answered) status = wait_for_text(session, signals, QO_EXIT_ANSWER, options.timeout);
    if (status != QoCtlStatus::answered) return status;
    // The service sends this to every component, without a limit in time, before it ends: to ours too.
    status = wait_for_text(session, signals, QO_EXIT_NOTICE, options.timeout);
    if (status == QoCtlStatus::no_answer)
        qo_ctl_say("it said that it exits, but cannot tell every component: the queue of one may be full");
    session.close(true);
    return status;
}
