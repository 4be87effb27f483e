/// What several commands share.
#ifndef QO_CTL_SHARED_H
#define QO_CTL_SHARED_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qo_ctl_command.h"
#include "qo_ctl_output.h"
#include "qo_ctl_session.h"

// ---- the command line ----

/// What is wrong with pointers that name a node each; "" when nothing is.
std::string qo_ctl_pointers_fault(const std::vector<std::string>& pointers);

/// The same for nodes that are to be deleted or set back: the whole tree is none.
std::string qo_ctl_node_fault(const std::string& pointer);

/// The text that a JSON object for the service is read from: `text`, standard input when that is "-", or the file
/// unless its name is "" ("-" is standard input too).
/// @return what is wrong, with the text or with what it is read from; "" and `text` set when it can be sent
std::string qo_ctl_take_object(std::string& text, const std::string& file);

// ---- the session ----

/// Identifiers that no component of a device in service has: those of simulators and testers.
std::span<const eQO_CMP_IDs_> qo_ctl_identities();

/// The same of those that may delete: the system controller's end marker and its tester are no component's.
std::span<const eQO_CMP_IDs_> qo_ctl_deleting_identities();

/// The session that the options ask for. Without --as it acts as the first free one of `identities`.
QoCtlSessionSettings qo_ctl_session_settings(const QoCtlCommon& common,
                                             std::span<const eQO_CMP_IDs_> identities = qo_ctl_identities());

/// Opens a session, sends one request and waits until it was handled.
QoCtlStatus qo_ctl_handle(const QoCtlCommon& common, QoCtlSignals& signals, const QoCtlSession::Request& request,
                          const std::string& longest_text);

/// Waits for one text from the service; others are passed over.
QoCtlStatus qo_ctl_wait_for_text(QoCtlSession& session, const QoCtlSignals& signals, const std::string& awaited,
                                 std::chrono::milliseconds timeout);

/// What stands at a pointer.
struct QoCtlLook {
    QoCtlStatus status = QoCtlStatus::answered;
    bool there = false;
    bool placeholder = false;  // of a deleted array element
};

/// Sends one request about a node that has to be there, and looks at what has become of the node.
/// @return with a status other than answered when that could not be learned, or the node was not there before
QoCtlLook qo_ctl_change_node(QoCtlSession& session, const std::string& pointer, const QoCtlSession::Request& request);

// ---- the output ----

/// How standard output is to be written.
QoCtlStyle qo_ctl_stdout_style(const QoCtlCommon& common);

/// Writes `text` to standard output. @return failed, with a word about it unless the reader is gone, when it
/// could not be; `status` otherwise.
QoCtlStatus qo_ctl_print(const std::string& text, QoCtlStatus status);

/// The output and the status of a command that asks for several things: one that fails does not stop the others.
struct QoCtlResult {
    QoCtlStatus status = QoCtlStatus::answered;
    std::string text;

    void fail(const std::string& why) {
        qo_ctl_say(why);
        status = QoCtlStatus::failed;
    }
};

#endif
