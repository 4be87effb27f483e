// Reads the whole tree that the service holds.
#include "qo_ctl_live_tree.h"

#include "qo_ctl_output.h"
#include "qo_ctl_text.h"
#include "qo_ctl_tree_file.h"
#include "qo_ctl_written_file.h"

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

/// The tree from the service's dump; null when the dump cannot be seen from here or is none.
QoJsonNode tree_from_dump(QoCtlSession& session, QoCtlStatus& status) {
    const QoCtlWritten dump = qo_ctl_request_dump(session);
    status = dump.status;
    if (dump.status != QoCtlStatus::answered || !dump.seen) return nullptr;
    return qo_ctl_read_tree_file(dump.file).tree;
}

/// Adds one known member of the tree, unless the service does not have it.
void add_member(QoCtlSession& session, const std::string& pointer, JSONNODE* tree, QoCtlStatus& status) {
    const QoCtlExchange exchange = session.ask(pointer, false);
    if (exchange.status != QoCtlStatus::answered) {
        status = exchange.status;
        return;
    }
    if (exchange.answers.empty()) {
        qo_ctl_say(qo_ctl_too_long(pointer, session));
        status = QoCtlStatus::failed;
        return;
    }
    const std::string& body = exchange.answers.front();
    if (qo_ctl_answer(pointer, body).kind == QoCtlAnswerKind::missing) return;
    const QoJsonNode answer = qo_json_parse(body);
    qo_json_push_back(tree, QoJsonNode(json_pop_back_at(answer.get(), 0)));
}

QoJsonNode tree_from_members(QoCtlSession& session, QoCtlStatus& status) {
    QoJsonNode tree(json_new(JSON_NODE));
    for (const std::string_view member : kTreeMembers) {
        add_member(session, "/" + std::string(member), tree.get(), status);
        if (status != QoCtlStatus::answered && status != QoCtlStatus::failed) return nullptr;
    }
    qo_ctl_say("asked for the top-level members known here; the service may hold more");
    return tree;
}

}  // namespace

QoJsonNode qo_ctl_read_live_tree(QoCtlSession& session, bool ask_for_dump, QoCtlStatus& status) {
    if (ask_for_dump) {
        QoJsonNode tree = tree_from_dump(session, status);
        if (tree || status != QoCtlStatus::answered) return tree;
        qo_ctl_say("the service's dump cannot be read from here");
    }
    return tree_from_members(session, status);
}

std::span<const std::string_view> qo_ctl_tree_members() { return kTreeMembers; }

std::string qo_ctl_too_long(const std::string& pointer, const QoCtlSession& session) {
    return pointer + ": the answer is longer than the " + std::to_string(session.own_attributes().mq_msgsize) +
           " bytes that can be received here; ask for parts of it, or allow more by --message-size";
}
