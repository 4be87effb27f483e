/// The client library of the push-pull data service: what a component calls to register, publish, subscribe, read
/// and delete in the data tree. Part of the public client library; compiles alone.
///
///     QoPushpullApi api;
///     if (api.init("") != 0) log_that_the_service_is_late();  // the first operation opens the queue again
///     std::unique_ptr<QoPushpullReceiveQueue> queue(api.create_receive_queue("/display", 10, 8192));
///     mq_attr attributes{};
///     attributes.mq_maxmsg = 10;
///     attributes.mq_msgsize = 8192;
///     api.comp_register(QO_CMPID_DEMO, "/display", &attributes);
///     api.subscribe(QO_CMPID_DEMO, "/system/status", false);
///     while (queue->receive() > 0) show(queue->get_queue_buffer());
///     api.comp_unregister(QO_CMPID_DEMO);
///     api.terminate();
///
/// An operation sends one request to the service and returns; it never waits for the service to act on it. What
/// the service has to say arrives as texts on the receive queue that the component registered:
/// - after a "publish", to every other subscriber of what it reached: the published text, byte for byte as it was
///   sent, whatever of it was accepted into the tree;
/// - after a "get": a text for each pointer, see get();
/// - after a "delete", to the other subscribers: "NODE DELETED: " and the pointer;
/// - after a "clear", to the other subscribers: the node with its default values, like an answer to "get";
/// - after a "sync", to its receiver: "sync:", the requester's identifier in decimal, ":" and the text;
/// - after an "init": "pushpull init success"; after an "exit": "pushpull exiting", then "exit" to every component.
/// Requests are handled in the order in which they were sent. A request that the service refuses (an unregistered
/// sender, a bad JSON text, missing write authority) is not answered; the refusal stands in the system log.
#ifndef QO_PUSHPULL_API_H
#define QO_PUSHPULL_API_H

#include <fcntl.h>
#include <mqueue.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "qo_component_ids.h"
#include "qo_pushpull_message_queue.h"

struct QoRequestFields;

/// How long an operation waits for the service's queue. The defaults are those of the system.
struct QoPushpullApiTimings {
    std::chrono::milliseconds reopen_pause{1000};   // before each of the 5 attempts to open a missing queue
    std::chrono::milliseconds send_deadline{1000};  // of each of the 5 attempts to send into a full queue
    std::chrono::milliseconds retry_pause{1000};    // after each failed attempt to send
};

/// One component's way to the service. It holds no lock: one object is used by one thread at a time; two threads
/// take two objects. The queues that it creates are independent of it and may outlive it. Not async-signal-safe.
///
/// An operation takes at most about 15 seconds: when the queue is missing, 5 seconds until it is given up; when
/// it stays full, 10. A request that could not be sent is dropped and logged. Every failure is logged
/// (facility and ident are those of the component's own openlog) and returned as -1; nothing throws but the
/// standard library's std::bad_alloc.
class QoPushpullApi {
public:
    /// @param suffix the service's instance suffix, as given to it with -m; empty for the default queue
    ///               "/pushpull". Every reopening uses it, so give init the same.
    explicit QoPushpullApi(std::string suffix = "", QoPushpullApiTimings timings = {});
    /// Closes the queue when terminate has not.
    ~QoPushpullApi();
    QoPushpullApi(const QoPushpullApi&) = delete;
    QoPushpullApi& operator=(const QoPushpullApi&) = delete;

    // ---- set-up and tear-down ----

    /// Opens the service's request queue "/pushpull" plus `suffix`; never creates it. Called before the first
    /// operation. After a failure the object is usable all the same: the next operation reopens the queue.
    /// @return 0; -1 with errno when the queue could not be opened (ENOENT: the service has not started yet).
    int32_t init(std::string suffix);

    /// Closes the service's queue; the component stays registered. Nothing to do before init and after a
    /// terminate that returned 0.
    /// @return 0; -1 when closing failed, so also after an init that failed.
    int32_t terminate();

    /// Opens or creates a queue exactly as asked, with the limit for message queues raised and umask 0 meanwhile,
    /// and drains it. The service makes its own request queue with it; components take create_receive_queue.
    /// @param attributes of a queue created here; may be null, the system's defaults then hold
    /// @return the descriptor, the caller's to close; -1 on failure, logged.
    mqd_t message_queue_create_and_error_handling(const char* name, int flags, mode_t mode, mq_attr* attributes);

    /// Whether a component may delete nodes: the system controller's own (QO_CMPID_HVAC_SYSCON_SUB to
    /// QO_CMPID_HVAC_SYSCON_END) only.
    /// @return 0 allowed, -1 not.
    int32_t check_delete_authority(eQO_CMP_IDs_ comp_id);

    // ---- operations ----
    // `comp_id` is the component that asks. Texts are UTF-8. A JSON pointer is a path of member names in the data
    // tree ("/system/status"); below an array a segment is a position ("/devices/3"), which equals the element's
    // "id". Each operation returns 0 when the request is in the service's queue, and -1 when it could not be sent
    // or when a text is not valid UTF-8. The request with its NUL may have up to 262144 bytes, of which the
    // envelope takes about 150 and JSON escapes ("\"" for every quote of a published text) the rest; a longer
    // one is tried five times like any other and then fails.

    /// Registers the component with its receive queue, which every other operation needs. Registering again
    /// changes nothing; another queue name is not taken over.
    /// @param queue_name the queue's POSIX name, with a leading slash; the service creates it when it is missing
    /// @param attributes for a queue that the service creates, of which mq_maxmsg (messages) and mq_msgsize (bytes)
    ///                   count; null, or either not above 0: 64 messages of 262144 bytes. Only read.
    int32_t comp_register(eQO_CMP_IDs_ comp_id, std::string queue_name, const mq_attr* attributes);

    /// Ends the registration, all subscriptions, and so all that the service sends. The receive queue stays in the
    /// system.
    int32_t comp_unregister(eQO_CMP_IDs_ comp_id);

    /// Asks to be told of every publish of other components that reaches a node or goes through it to one below.
    /// @param pointer of an object or array of the default tree, not past an array's position; "/" for every
    ///                publish; several separated by ";"
    /// @param notify_on_change_only only of publishes that changed a value of the tree
    int32_t subscribe(eQO_CMP_IDs_ comp_id, std::string pointer, bool notify_on_change_only);

    /// Ends the component's subscriptions of a node and of every node below it. (Its request kind is
    /// "unsubscribe".)
    /// @param pointer as for subscribe
    int32_t un_subscribe(eQO_CMP_IDs_ comp_id, std::string pointer);

    /// Merges a JSON text into the data tree, where the component's class may write.
    /// @param json an object that starts at the root of the tree: {"devices":[{"id":3,"name":"hall"}]}
    int32_t publish(eQO_CMP_IDs_ comp_id, std::string json);

    /// Asks for nodes of the data tree. Each pointer is answered with one text: the node in the objects of its path,
    /// formatted JSON; for an array's pointer with "/size" behind it the pointer as given, ":" and the number of
    /// elements; on failure the pointer, ":" and "{}", for a size "-1".
    /// @param pointer       one, or several separated by ";"; the whole tree ("/") is not read
    /// @param sender_id     a tag of the component's own without ";": every answer then begins with "sender_id:", the
    ///                      tag and ";". Empty for none
    /// @param pack_and_send the answers joined in as few compact JSON objects as fit the component's queue, by the
    ///                      rules of a publish: "writeAccess" and "doNotPersist" are lost, and array elements stand at
    ///                      the position of their "id", behind placeholders {"id":n}. Sizes and failures
    ///                      cannot be joined and are not sent; {} when nothing could
    int32_t get(eQO_CMP_IDs_ comp_id, std::string pointer, std::string sender_id, bool pack_and_send);

    /// Saves the data tree to its file now, instead of some seconds after the last change. (Kind "save".)
    int32_t flush(eQO_CMP_IDs_ comp_id);

    /// Writes the whole tree, nodes that do not persist included, to the debug file "active_tree.json", which is
    /// never loaded. (Kind "save_debug".)
    int32_t save_complete_tree(eQO_CMP_IDs_ comp_id);

    /// Gives a node its default values back, or deletes it when the default tree lacks it.
    int32_t clear(eQO_CMP_IDs_ comp_id, std::string pointer);

    /// Deletes a node. An array element that is not the last leaves the placeholder {"id":n}.
    /// @return also -1 when check_delete_authority refuses; nothing is sent then.
    int32_t delete_node(eQO_CMP_IDs_ comp_id, std::string pointer);

    /// Resets the data tree to its defaults and starts the service anew in place: all registrations and
    /// subscriptions are gone.
    /// @param text "true" to do it; anything else is ignored by the service
    int32_t init_request(eQO_CMP_IDs_ comp_id, std::string text);

    /// Ends the service.
    /// @param text "true" to do it; anything else is ignored by the service
    int32_t exit_request(eQO_CMP_IDs_ comp_id, std::string text);

    /// Has the service pass a text on to another component.
    /// @param destination the receiver, which has to be registered
    /// @param pointer     any text
    int32_t comp_sync(eQO_CMP_IDs_ comp_id, eQO_CMP_IDs_ destination, std::string pointer);

    // ---- queues ----

    /// Opens or creates a receive queue (mode 0660), drains what an earlier run left in it, and starts its receiver
    /// thread. An existing queue keeps its attributes.
    /// @param name         POSIX queue name, with a leading slash
    /// @param queue_size   messages, above 0
    /// @param message_size bytes, above 0, the NUL included; give the size of the existing queue: a queue with
    ///                     larger messages cannot be received from
    /// @return the queue, the caller's to delete; null on failure, logged, with nothing left open.
    QoPushpullReceiveQueue* create_receive_queue(std::string name, int32_t queue_size, int32_t message_size);

    /// Opens or creates a queue (mode 0660) for sending. It is not drained; an existing queue keeps its attributes.
    /// Arguments and result as create_receive_queue.
    QoPushpullTransmitQueue* create_transmit_queue(std::string name, int32_t queue_size, int32_t message_size);

    // ---- below the operations; components rarely need these ----

    /// Builds the text of one request. Note that the payload comes before the kind.
    /// @param data     the payload, "buffer"
    /// @param action   the kind, "function"
    /// @param que_attr attributes of the sender's receive queue; may be null
    /// @param dstcmpID receiver of a "sync", QO_CMPID_RESERVED for none
    /// @return a JSON text; "" when a text is not valid UTF-8.
    std::string build_json_post_msg(eQO_CMP_IDs_ cmpID, const std::string& data, const std::string& action,
                                    const mq_attr* que_attr = nullptr, bool notify_flag = false,
                                    const std::string& senderId = "", eQO_CMP_IDs_ dstcmpID = QO_CMPID_RESERVED,
                                    bool pack_and_send = false);

    /// Sends one request text and its NUL with priority 1: reopens the queue when it is not open (5 attempts), then
    /// sends (5 attempts).
    /// @return 0 sent; -1 given up, logged.
    int32_t post_msg_to_pushpull_data(const std::string& post_msg);

private:
    bool reopen_queue();
    /// The text of one request, in request_text_.
    const std::string& request_text(const QoRequestFields& request);

    mqd_t queue_descriptor;  // 0 before init and after terminate, -1 after a failed open
    std::string subq_name;   // fixed after construction
    QoPushpullApiTimings timings_;
    std::string request_text_;  // of the last operation; its memory serves the next one
};

#endif
