// get and tree.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <sstream>

#include "qo_ctl_commands.h"
#include "qo_ctl_dump.h"
#include "qo_ctl_text.h"
#include "qo_pushpull_json.h"

namespace {

constexpr std::string_view kTreeMembers[] = {"centerButton",
                                             "logs",
                                             "system",
                                             "privateNode",
                                             "parameterReset",
                                             "systemCommandRequest",
                                             "remoteStatus",
                                             "usb",
                                             "rgw",
                                             "nmDbusNotifications",
                                             "dlm",
                                             "version",
                                             "siblings",
                                             "kivoLog",
                                             "interfaces",
                                             "resetKivo",
                                             "ledErrorType",
                                             "errorRecovery",
                                             "userAccess",
                                             "serverAssigned",
                                             "fwm",
                                             "devices",
                                             "nmKivowifi",
                                             "command",
                                             "parameterUpdate",
                                             "error",
                                             "connectionManagement"};

/// The output and the status of a command that asks for several things: one that fails does not stop the others.
struct Result {
    QoCtlStatus status = QoCtlStatus::answered;
    std::string text;

    void fail(const std::string& why) {
        qo_ctl_say(why);
        status = QoCtlStatus::failed;
    }
};

std::string too_long(const std::string& pointer, const QoCtlSession& session) {
    return pointer + ": the answer is longer than the " + std::to_string(session.own_attributes().mq_msgsize) +
           " bytes that can be received here; ask for parts of it, or allow more by --message-size";
}

// ---- get ----

/// @param asked what was asked for: the pointer itself, or its size
void take_answer(const std::string& pointer, const std::string& asked, const std::string& body, QoCtlStyle style,
                 Result& result) {
    const QoCtlAnswer answer = qo_ctl_answer(asked, body);
    if (answer.kind == QoCtlAnswerKind::missing)
        result.fail(pointer + ": no such node");
    else if (answer.kind == QoCtlAnswerKind::size && answer.size < 0)
        result.fail(pointer + ": no array there whose size can be asked for");
    else if (answer.kind == QoCtlAnswerKind::size)
        result.text += std::to_string(answer.size) + "\n";
    else if (json_is_valid_n(body.data(), body.size()) == 0)
        result.fail(pointer + ": the answer is not valid JSON");
    else
        result.text += qo_ctl_render_text(body, style);
}

/// One request per pointer, so that each answer is known to be that pointer's.
void get_each(QoCtlSession& session, const QoCtlOptions& options, QoCtlStyle style, Result& result) {
    for (const std::string& pointer : options.pointers) {
        const std::string asked = options.size ? pointer + "/size" : pointer;
        const QoCtlExchange exchange = session.ask(asked, false);
        if (exchange.status != QoCtlStatus::answered) {
            result.status = exchange.status;
            return;
        }
        if (exchange.answers.empty())
            result.fail(too_long(pointer, session));
        else
            take_answer(pointer, asked, exchange.answers.front(), style, result);
    }
}

std::string joined(const std::vector<std::string>& pointers) {
    std::string list;
    for (const std::string& pointer : pointers) list += (list.empty() ? "" : ";") + pointer;
    return list;
}

void get_packed(QoCtlSession& session, const QoCtlOptions& options, QoCtlStyle style, Result& result) {
    const QoCtlExchange exchange = session.ask(joined(options.pointers), true);
    result.status = exchange.status;
    if (exchange.status != QoCtlStatus::answered) return;
    std::vector<QoJsonNode> packed;
    for (const std::string& answer : exchange.answers) {
        QoJsonNode node = qo_json_parse(answer);
        // {} comes when there was nothing to pack.
        if (json_empty(node.get()) == 1) continue;
        result.text += qo_ctl_render(node.get(), style);
        packed.push_back(std::move(node));
    }
    for (const std::string& pointer : options.pointers) {
        bool held = false;
        for (const QoJsonNode& node : packed) held = held || qo_ctl_packed_holds(node.get(), pointer);
        if (!held) result.fail(pointer + ": no such node, or longer than a message");
    }
}

// ---- tree ----

/// The tree from the service's dump; null when the dump cannot be seen from here or is none.
QoJsonNode tree_from_dump(QoCtlSession& session, Result& result) {
    const QoCtlDump dump = qo_ctl_request_dump(session);
    result.status = dump.status;
    if (dump.status != QoCtlStatus::answered || !dump.seen) return nullptr;
    std::ifstream file(dump.file, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return qo_json_parse(text.view());
}

/// Adds one known member of the tree, unless the service does not have it.
void add_member(QoCtlSession& session, const std::string& pointer, JSONNODE* tree, Result& result) {
    const QoCtlExchange exchange = session.ask(pointer, false);
    if (exchange.status != QoCtlStatus::answered) {
        result.status = exchange.status;
        return;
    }
    if (exchange.answers.empty()) {
        result.fail(too_long(pointer, session));
        return;
    }
    const std::string& body = exchange.answers.front();
    if (qo_ctl_answer(pointer, body).kind == QoCtlAnswerKind::missing) return;
    const QoJsonNode answer = qo_json_parse(body);
    qo_json_push_back(tree, QoJsonNode(json_pop_back_at(answer.get(), 0)));
}

QoJsonNode tree_from_members(QoCtlSession& session, Result& result) {
    QoJsonNode tree(json_new(JSON_NODE));
    for (const std::string_view member : kTreeMembers) {
        add_member(session, "/" + std::string(member), tree.get(), result);
        if (result.status != QoCtlStatus::answered && result.status != QoCtlStatus::failed) return nullptr;
    }
    qo_ctl_say("asked for the top-level members known here; the service may hold more");
    return tree;
}

QoJsonNode read_tree(QoCtlSession& session, bool ask_for_dump, Result& result) {
    if (ask_for_dump) {
        QoJsonNode tree = tree_from_dump(session, result);
        if (tree || result.status != QoCtlStatus::answered) return tree;
        qo_ctl_say("the service's dump cannot be read from here");
    }
    return tree_from_members(session, result);
}

}  // namespace

QoCtlStatus qo_ctl_get(const QoCtlOptions& options, QoCtlSignals& signals) {
    const QoCtlStyle style = qo_ctl_stdout_style(options);
    Result result;
    QoCtlSession session(qo_ctl_session_settings(options), signals);
    result.status = session.open();
    if (result.status != QoCtlStatus::answered) return result.status;
    if (options.pack)
        get_packed(session, options, style, result);
    else
        get_each(session, options, style, result);
    session.close();
    signals.release();
    return qo_ctl_print(result.text, result.status);
}

QoCtlStatus qo_ctl_tree(const QoCtlOptions& options, QoCtlSignals& signals) {
    Result result;
    QoCtlSession session(qo_ctl_session_settings(options), signals);
    result.status = session.open();
    if (result.status != QoCtlStatus::answered) return result.status;
    const QoJsonNode tree = read_tree(session, options.ask_for_dump, result);
    session.close();
    signals.release();
    if (!tree) return result.status;
    if (json_empty(tree.get()) == 1) {
        qo_ctl_say("the service holds none of the members known here");
        return QoCtlStatus::failed;
    }
    QoCtlStyle style = qo_ctl_stdout_style(options);
    // For people, in a pipe and a file too: the whole tree in one line is of use to nobody who did not ask for it.
    style.formatted = !options.json_lines;
    return qo_ctl_print(qo_ctl_render(tree.get(), style), result.status);
}

std::span<const std::string_view> qo_ctl_tree_members() { return kTreeMembers; }
