/// The service object: the handlers of every request kind, and the loop that receives and dispatches requests.
#ifndef QO_PUSHPULL_H
#define QO_PUSHPULL_H

#include <mqueue.h>
#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "qo_component_ids.h"
#include "qo_json.h"
#include "qo_utilities_time.h"

class DataMgr;
class QoJsonDocument;
class QoProcessApi;
class QoPushPullStats;
class QoPushpullApi;
class QoRequestWait;
class QoServiceQueueClaim;
class QoServiceWatchdog;
class ResourceMgr;

/// The service: owns the store, the registry and the service queue, and answers one request at a time. Main thread
/// only, which also is the one that systemd's watchdog watches. Every handler logs its failures and returns 0 for
/// success, -1 or an error code 5000x, and what one leaves changed on failure is said with it. None throws for a
/// request, unless memory is short; execute() then ends that request.
class PushPullData {
public:
    /// Creates the store and the registry, and the statistics when they are wanted. Opens nothing yet.
    explicit PushPullData(bool statistics, QoMonotonicClock clock = qo_pushpull_get_timestamp);
    /// Closes the service queue, which stays in the system, and releases the members.
    ~PushPullData();
    PushPullData(const PushPullData&) = delete;
    PushPullData& operator=(const PushPullData&) = delete;

    /// Starts up: opens the queue "/pushpull" followed by `suffix`, empties it, builds the data tree and reports
    /// readiness. Failures are logged and stop nothing, but for those after which the service has to end: then
    /// exit_status() is not 0, no readiness is reported and execute() serves no request.
    void init(std::string suffix);
    /// Serves requests until an "exit" request is accepted or the service has to end. SIGTERM acts while it waits for a
    /// request, and nowhere else when the caller holds it back (qo_pushpull_signal_gate.h).
    /// @return the exit handler's result; exit_status() when the service has to end.
    int execute();
    /// What the process has to end with: 0, unless something has demanded that the service ends, so that systemd
    /// starts it anew.
    int exit_status() const;
    /// Ends the store, without saving, and closes every component's queue.
    void terminate();
    /// The SIGTERM handler: posts "save" and "exit" to "/pushpull" and ends the process with status 0; while the main
    /// thread works it does so when the work is done, and on any other thread it passes the signal on to that. Other
    /// signals only log. Does not touch the service object.
    static void SignalHandler(int signal_number);

    /// Runs the handler of a request, counts it when statistics are on and logs a failure. Unknown kinds are
    /// ignored, as are "init" and "exit" whose buffer is not exactly "true".
    /// @param started_at when the request was received, in seconds of the service's clock
    /// @return the exit handler's result after an accepted "exit"; nothing when the loop goes on.
    std::optional<int> dispatch(const QoProcessApi& request, double started_at);

    // ---- delivery ----

    /// Sends a text to the queue of each component, waiting at most a second for each that is full; a message that
    /// does not get through is lost. A failed send to the remote gateway unregisters the gateway's components and
    /// restarts its system service, once until a send to it succeeds again.
    /// The text and its NUL are sent as they are; a receiver that reads up to the first NUL misses what lies behind
    /// a NUL inside the text.
    /// @param comp_ids `count` identifiers, the caller's
    /// @return the result of the last send; 0 when none was tried.
    int comp_notify(int count, const eQO_CMP_IDs_* comp_ids, const std::string& text);
    /// Sends a text to every registered component. Waits without a limit on a full queue.
    /// @return the last send's result; -1 when nothing was sent.
    int comp_notify_all(const std::string& text);

    // ---- handlers ----

    /// `attributes` may be null, see ResourceMgr::comp_register for it and the results. The service's own queue is
    /// nobody's receive queue: QO_ERR_QUEUE_OPEN.
    int comp_register(eQO_CMP_IDs_ comp_id, std::string queue_name, const mq_attr* attributes);
    /// Drops all subscriptions of a component and takes it out of the registry.
    /// @return 0, also when it is not registered.
    int comp_unregister(eQO_CMP_IDs_ comp_id);
    /// Subscribes to every pointer of a list "a;b;c" up to its end or first empty piece; a pointer that fails does
    /// not stop the others. A walk that takes too long (QO_WALK_LIMIT_S) fails at the pointer it has reached.
    /// @return the last pointer's result; -1 for an unregistered component and for an empty list.
    int comp_subscribe(eQO_CMP_IDs_ comp_id, const std::string& pointers, bool notify_on_change_only);
    /// The same for unsubscribing.
    int comp_unsubscribe(eQO_CMP_IDs_ comp_id, const std::string& pointers);
    /// Merges a JSON text into the data tree under the publisher's write authority and sends it, byte for byte as
    /// published, to the subscribers of the published paths but the publisher itself. A failed merge may leave
    /// members before the faulty one updated.
    int comp_publish(eQO_CMP_IDs_ comp_id, const std::string& json);
    /// Answers with the nodes at the pointers of a list "a;b;c", up to its end or first empty piece: one message for
    /// each, or as few as the requester's queue allows when packing. Every message begins with
    /// "sender_id:", the sender id and ";" unless `sender_id` is empty. A pointer that cannot be read is answered by
    /// the pointer and ":{}", one that asks for a size by the pointer, ":" and the size or -1; neither can be
    /// packed, and what cannot is logged and not sent.
    /// A walk that takes too long (QO_WALK_LIMIT_S) ends with a failure.
    /// @param internal true after a clear: the texts go to the pointers' subscribers instead
    /// @return the last send's result; -1 for an unregistered component, an empty list and a walk that ended early.
    int comp_get(eQO_CMP_IDs_ comp_id, const std::string& pointers, bool internal, const std::string& sender_id,
                 bool pack_and_send);
    /// Writes the data tree to its file at once.
    int comp_save(eQO_CMP_IDs_ comp_id);
    /// Writes the whole live tree to the debug file.
    int comp_save_debug(eQO_CMP_IDs_ comp_id);
    /// Removes a node and tells its subscribers; with `clear` restores it from the default tree and republishes it.
    int comp_delete(eQO_CMP_IDs_ comp_id, const std::string& pointer, bool clear);
    /// Resets to factory data: removes the saved tree and starts again in place. All registrations and
    /// subscriptions are gone. Done whatever the result: 0 when the requester was told, else -1.
    int comp_init(eQO_CMP_IDs_ comp_id);
    /// Tells the requester and then every component that the service ends. An unregistered requester gets -1, and
    /// nobody is told.
    int comp_exit(eQO_CMP_IDs_ comp_id);
    /// Forwards "sync:", the requester's number, ":" and the buffer to another component's queue.
    int comp_sync(eQO_CMP_IDs_ comp_id, eQO_CMP_IDs_ destination, const std::string& buffer);

    // ---- steps of the handlers ----

    /// Collects the identifiers of a subscriber list, in order, without the publisher.
    /// @param subscribers stays the caller's
    /// @param comp_ids QO_MAX_SUBSCRIBERS places; those not used are QO_CMPID_RESERVED
    /// @param include_on_change_only also those that only want publishes which changed something
    /// @return how many were collected.
    int parse_and_get_cmpIDs(JSONNODE* subscribers, eQO_CMP_IDs_ publisher, eQO_CMP_IDs_* comp_ids,
                             bool include_on_change_only);
    /// The class that decides what a component may write.
    eQO_COMPONENT_CLASS_ get_comp_class(eQO_CMP_IDs_ comp_id);
    /// Reads one node, or the size of one array, and builds its answer, see comp_get.
    /// @return 0; -1 when the answer in `text` is one of failure.
    int get_node(const std::string& pointer, std::string* text, const std::string& sender_id);

private:
    struct PackedAnswer;

    /// Demands the end with a failure status. Takes effect before the next request.
    void end_with_failure();
    void start_up(const std::string& suffix);
    bool open_service_queue(const std::string& suffix);
    void close_service_queue();
    void leave_lost_queue();
    std::optional<int> handle_message(const char* message, ssize_t received, std::string& text, QoProcessApi& request,
                                      double started_at);
    bool parse_message(const char* message, ssize_t received, std::string& text, QoProcessApi& request);
    void reset();
    int announce_reset(eQO_CMP_IDs_ comp_id);
    void restart_remote_gateway();
    int merge_and_notify(eQO_CMP_IDs_ comp_id, const std::string& json, JSONNODE* published,
                         eQO_COMPONENT_CLASS_ component_class);
    int notify_subscribers(eQO_CMP_IDs_ comp_id, const std::string& json);
    std::string read_node(const std::string& pointer);
    std::string read_array_size(const std::string& pointer, const std::string& path);
    int republish(eQO_CMP_IDs_ comp_id, const std::string& pointer, const std::string& text);
    int send_answer(eQO_CMP_IDs_ comp_id, const std::string& text);
    bool pack_answer(const std::string& text, PackedAnswer& packed, int& result);
    int notify_deletion(eQO_CMP_IDs_ comp_id, const std::string& pointer);

    std::shared_ptr<DataMgr> data_mgr;
    std::shared_ptr<ResourceMgr> resource_mgr;
    std::shared_ptr<QoPushpullApi> pushpull_api;
    std::shared_ptr<QoPushPullStats> pushpull_stats;    // null when statistics are off
    mqd_t mq_pushpull_queue_hndl;                       // the service queue; 0 when not open, -1 after a failed open
    bool rgw_restart_state;                             // a restart of the remote gateway is pending
    bool must_end_;                                     // with a failure status, before the next request
    std::shared_ptr<QoServiceQueueClaim> queue_claim_;  // held from the first start-up to the end
    std::shared_ptr<QoServiceWatchdog> watchdog_;       // of the thread that created this object
    std::shared_ptr<QoRequestWait> request_wait_;
    const QoMonotonicClock clock_;  // of the statistics, and of what one request may take
    std::shared_ptr<QoJsonDocument> published_document_;
    std::string notified_queues_;  // of one notification, for the log

public:
    /// The instance suffix, set before init and used again when the service resets itself.
    std::string queue_suffix_name;
};

/// True when a pointer asks for the size of an array: it has a segment "size" behind another one that is not a
/// position in an array. `out` is then the pointer to read: all before the first "/size", which is not necessarily
/// that segment. A refusal is logged; `out` is then left as it was. Time is linear in the pointer's length.
bool CheckSizeRequested(const std::string& path, std::string& out);

/// Whether there is a queue that answers are packed for; logged when not.
bool qo_has_answer_queue(mqd_t descriptor);

/// True when a message of both lengths together, in bytes without NUL, is below the message size of a queue. False
/// also when the queue's attributes cannot be read.
bool qo_check_mqueue_limit(mqd_t descriptor, long packed_length, long new_length);

#endif
