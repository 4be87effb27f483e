// The operations of the client library: building a request and sending it, and making a component's queues.
#include "qo_pushpull_api.h"

#include <errno.h>
#include <syslog.h>
#include <unistd.h>

#include <limits>
#include <memory>
#include <utility>

#include "qo_pushpull_cleared_umask.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_deadline.h"
#include "qo_pushpull_descriptor.h"
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_request_text.h"

namespace {

constexpr int kReopenAttempts = 5;  // to open the service's queue

/// Sends a request unless it is empty and says in the operation's own words what went wrong.
template <typename ReportNotSent, typename ReportEmpty>
int32_t post_or_report(QoPushpullApi& api, const std::string& post_msg, ReportNotSent report_not_sent,
                       ReportEmpty report_empty) {
    if (post_msg.empty()) {
        report_empty(static_cast<int>(post_msg.size()));
        return -1;
    }
    const int32_t result = api.post_msg_to_pushpull_data(post_msg);
    if (result != 0) report_not_sent();
    return result;
}

void pause_for(std::chrono::milliseconds pause) {
    usleep(static_cast<useconds_t>(std::chrono::microseconds(pause).count()));
}

/// A queue attribute as the request carries it; 0 for one that no queue can have.
int32_t as_request_value(int64_t attribute) {
    if (attribute < std::numeric_limits<int32_t>::min() || attribute > std::numeric_limits<int32_t>::max()) return 0;
    return static_cast<int32_t>(attribute);
}

QoRequestFields::Queue as_request_queue(const mq_attr* attributes) {
    if (attributes == nullptr) return {};
    return {.flags = as_request_value(attributes->mq_flags),
            .maxmsg = as_request_value(attributes->mq_maxmsg),
            .msgsize = as_request_value(attributes->mq_msgsize),
            .curmsgs = as_request_value(attributes->mq_curmsgs)};
}

}  // namespace

QoPushpullApi::QoPushpullApi(std::string suffix, QoPushpullApiTimings timings)
    : queue_descriptor(0), subq_name(std::move(suffix)), timings_(timings) {}

QoPushpullApi::~QoPushpullApi() {
    if (queue_descriptor > 0) mq_close(queue_descriptor);
}

// ---- set-up and tear-down ----

int32_t QoPushpullApi::init(std::string suffix) {
    const mqd_t descriptor = mq_open((QO_SERVICE_QUEUE_NAME + suffix).c_str(), O_RDWR);
    const int error = errno;
    syslog(LOG_DEBUG, "QoPushpullApi MessageQueue: mq_open: MQ: %x", static_cast<unsigned>(descriptor));
    if (descriptor == -1) {
        // The base name even when a suffix was asked for: whoever reads the log searches for this text.
        syslog(LOG_ERR, "QoPushpullApi MessageQueue:mq_open: \"%s\" -failed:, ERR_CODE : %d", QO_SERVICE_QUEUE_NAME,
               error);
    }
    if (queue_descriptor > 0) mq_close(queue_descriptor);
    queue_descriptor = descriptor;
    errno = error;
    return descriptor == -1 ? -1 : 0;
}

int32_t QoPushpullApi::terminate() {
    if (queue_descriptor == 0) return 0;
    // A descriptor of -1 is closed as well, so that a failed open is reported here once more.
    if (mq_close(queue_descriptor) == -1) {
        syslog(LOG_ERR, "QoPushpullApi : terminate: mq_close: failed:");
        return -1;
    }
    queue_descriptor = 0;
    return 0;
}

mqd_t QoPushpullApi::message_queue_create_and_error_handling(const char* name, int flags, mode_t mode,
                                                             mq_attr* attributes) {
    qo_set_mqueue_limits();
    const QoClearedUmask cleared;
    QoDescriptor descriptor(mq_open(name, flags, mode, attributes));
    const int error = errno;
    // An error line on success too: the service's start is looked up by it.
    syslog(LOG_ERR, " message_queue_create_and_error_handling: open ::%d", descriptor.get());
    errno = error;
    qo_handle_error_and_flush(descriptor.get());
    return descriptor.release();
}

int32_t QoPushpullApi::check_delete_authority(eQO_CMP_IDs_ comp_id) {
    return comp_id >= QO_CMPID_HVAC_SYSCON_SUB && comp_id <= QO_CMPID_HVAC_SYSCON_END ? 0 : -1;
}

// ---- operations ----

int32_t QoPushpullApi::comp_register(eQO_CMP_IDs_ comp_id, std::string queue_name, const mq_attr* attributes) {
    return post_or_report(
        *this,
        request_text({.function = QO_REQUEST_REGISTER,
                      .comp_id = comp_id,
                      .buffer = queue_name,
                      .queue = as_request_queue(attributes)}),
        [] { syslog(LOG_ERR, "QoPushpullApi: register : mq_send: failed:"); },
        [](int size) { syslog(LOG_ERR, "QoPushpullApi:comp_register : post_msg.size() = %d", size); });
}

int32_t QoPushpullApi::comp_unregister(eQO_CMP_IDs_ comp_id) {
    return post_or_report(
        *this, request_text({.function = QO_REQUEST_UNREGISTER, .comp_id = comp_id}),
        [] { syslog(LOG_ERR, "QoPushpullApi: unregister : mq_send: failed:"); },
        [](int size) { syslog(LOG_ERR, "QoPushpullApi:comp_unregister:post_msg.size() = %d", size); });
}

int32_t QoPushpullApi::subscribe(eQO_CMP_IDs_ comp_id, std::string pointer, bool notify_on_change_only) {
    return post_or_report(
        *this,
        request_text({.function = QO_REQUEST_SUBSCRIBE,
                      .comp_id = comp_id,
                      .buffer = pointer,
                      .notify_on_change_only = notify_on_change_only}),
        [] { syslog(LOG_ERR, "QoPushpullApi: subscribe : mq_send: failed:"); },
        [](int size) { syslog(LOG_ERR, "QoPushpullApi :subscribe : post_msg.size() = %d", size); });
}

int32_t QoPushpullApi::un_subscribe(eQO_CMP_IDs_ comp_id, std::string pointer) {
    return post_or_report(
        *this, request_text({.function = QO_REQUEST_UNSUBSCRIBE, .comp_id = comp_id, .buffer = pointer}),
        [] { syslog(LOG_ERR, "QoPushpullApi: un_subscribe : mq_send: failed:"); },
        [](int size) { syslog(LOG_ERR, "QoPushpullApi :un_subscribe : post_msg.size() = %d", size); });
}

int32_t QoPushpullApi::publish(eQO_CMP_IDs_ comp_id, std::string json) {
    return post_or_report(
        *this, request_text({.function = QO_REQUEST_PUBLISH, .comp_id = comp_id, .buffer = json}),
        [] { syslog(LOG_ERR, "QoPushpullApi: publish : mq_send: failed:"); },
        [](int size) { syslog(LOG_ERR, "QoPushpullApi :publish : post_msg.size() = %d", size); });
}

int32_t QoPushpullApi::get(eQO_CMP_IDs_ comp_id, std::string pointer, std::string sender_id, bool pack_and_send) {
    return post_or_report(
        *this,
        request_text({.function = QO_REQUEST_GET,
                      .comp_id = comp_id,
                      .buffer = pointer,
                      .sender_id = sender_id,
                      .pack_and_send = pack_and_send}),
        [] { syslog(LOG_ERR, "QoPushpullApi: get : mq_send: failed:"); },
        [](int size) { syslog(LOG_ERR, "QoPushpullApi :get : post_msg.size() = %d", size); });
}

int32_t QoPushpullApi::flush(eQO_CMP_IDs_ comp_id) {
    return post_or_report(
        *this, request_text({.function = QO_REQUEST_SAVE, .comp_id = comp_id}),
        [] { syslog(LOG_ERR, "QoPushpullApi: flush : mq_send: failed:"); },
        [](int size) { syslog(LOG_ERR, "QoPushpullApi :flush : post_msg.size() = %d", size); });
}

int32_t QoPushpullApi::save_complete_tree(eQO_CMP_IDs_ comp_id) {
    return post_or_report(
        *this, request_text({.function = QO_REQUEST_SAVE_DEBUG, .comp_id = comp_id}),
        [] { syslog(LOG_ERR, "QoPushpullApi: save_complete_tree : mq_send: failed:"); },
        [](int size) { syslog(LOG_ERR, "QoPushpullApi :save_complete_tree : post_msg.size() = %d", size); });
}

int32_t QoPushpullApi::clear(eQO_CMP_IDs_ comp_id, std::string pointer) {
    return post_or_report(
        *this, request_text({.function = QO_REQUEST_CLEAR, .comp_id = comp_id, .buffer = pointer}),
        [] { syslog(LOG_ERR, "QoPushpullApi: clear : mq_send: failed:"); },
        [](int size) { syslog(LOG_ERR, "QoPushpullApi :clear : post_msg.size() = %d", size); });
}

int32_t QoPushpullApi::delete_node(eQO_CMP_IDs_ comp_id, std::string pointer) {
    if (check_delete_authority(comp_id) != 0) {
        syslog(LOG_ERR, "QoPushpullApi: delete_node : Component %d does not have permission to delete this node.",
               comp_id);
        return -1;
    }
    return post_or_report(
        *this, request_text({.function = QO_REQUEST_DELETE, .comp_id = comp_id, .buffer = pointer}),
        [] { syslog(LOG_ERR, "QoPushpullApi: delete_node : mq_send: failed:"); },
        [](int size) { syslog(LOG_ERR, "QoPushpullApi :delete_node : post_msg.size() = %d", size); });
}

int32_t QoPushpullApi::init_request(eQO_CMP_IDs_ comp_id, std::string text) {
    return post_or_report(
        *this, request_text({.function = QO_REQUEST_INIT, .comp_id = comp_id, .buffer = text}),
        [&text] { syslog(LOG_ERR, "QoPushpullApi: %s init_request:mq_send: failed:", text.c_str()); },
        [&text](int size) {
            syslog(LOG_ERR, "QoPushpullApi :%s init_request:post_msg.size() = %d", text.c_str(), size);
        });
}

int32_t QoPushpullApi::exit_request(eQO_CMP_IDs_ comp_id, std::string text) {
    return post_or_report(
        *this, request_text({.function = QO_REQUEST_EXIT, .comp_id = comp_id, .buffer = text}),
        [&text] { syslog(LOG_ERR, "QoPushpullApi: %s exit_request:mq_send: failed:", text.c_str()); },
        [&text](int size) {
            syslog(LOG_ERR, "QoPushpullApi :%s exit_request:post_msg.size() = %d", text.c_str(), size);
        });
}

// Deliberate: a failed "sync" is logged in the words of a failed registration, by which logs are searched.
// Test: ApiOperation.FailsAfterItsSendFailedInItsOwnWords
int32_t QoPushpullApi::comp_sync(eQO_CMP_IDs_ comp_id, eQO_CMP_IDs_ destination, std::string pointer) {
    return post_or_report(
        *this,
        request_text({.function = QO_REQUEST_SYNC, .comp_id = comp_id, .buffer = pointer, .dst_comp_id = destination}),
        [] { syslog(LOG_ERR, "QoPushpullApi: register : mq_send: failed:"); },
        [](int size) { syslog(LOG_ERR, "QoPushpullApi:comp_register : post_msg.size() = %d", size); });
}

// ---- a component's queues ----

QoPushpullReceiveQueue* QoPushpullApi::create_receive_queue(std::string name, int32_t queue_size,
                                                            int32_t message_size) {
    std::unique_ptr<QoPushpullReceiveQueue> queue(new QoPushpullReceiveQueue);
    return queue->open(name, queue_size, message_size) ? queue.release() : nullptr;
}

QoPushpullTransmitQueue* QoPushpullApi::create_transmit_queue(std::string name, int32_t queue_size,
                                                              int32_t message_size) {
    std::unique_ptr<QoPushpullTransmitQueue> queue(new QoPushpullTransmitQueue);
    return queue->open(name, queue_size, message_size) ? queue.release() : nullptr;
}

// ---- building and sending ----

std::string QoPushpullApi::build_json_post_msg(eQO_CMP_IDs_ cmpID, const std::string& data, const std::string& action,
                                               const mq_attr* que_attr, bool notify_flag, const std::string& senderId,
                                               eQO_CMP_IDs_ dstcmpID, bool pack_and_send) {
    return qo_request_text({.function = action,
                            .comp_id = cmpID,
                            .buffer = data,
                            .queue = as_request_queue(que_attr),
                            .notify_on_change_only = notify_flag,
                            .sender_id = senderId,
                            .dst_comp_id = dstcmpID,
                            .pack_and_send = pack_and_send},
                           {});
}

const std::string& QoPushpullApi::request_text(const QoRequestFields& request) {
    request_text_ = qo_request_text(request, std::move(request_text_));
    return request_text_;
}

bool QoPushpullApi::reopen_queue() {
    for (int attempt = 1; attempt <= kReopenAttempts; ++attempt) {
        syslog(LOG_ERR, "QoPushpullApi : MsgQueue: Invalid Descriptor: %x, Retry Attempt %d",
               static_cast<unsigned>(queue_descriptor), attempt);
        pause_for(timings_.reopen_pause);
        if (init(subq_name) == 0) return true;
    }
    // Despite the word nothing is aborted: the caller is told.
    syslog(LOG_CRIT, "QoPushpullApi : Fatal Error: Can not open msg que to push pull after %d retries.  Aborting!",
           kReopenAttempts);
    return false;
}

int32_t QoPushpullApi::post_msg_to_pushpull_data(const std::string& post_msg) {
    if (queue_descriptor == -1 && !reopen_queue()) return -1;

    const size_t length = post_msg.size() + 1;
    for (int attempt = 0; attempt < QO_SEND_ATTEMPTS; ++attempt) {
        const timespec deadline = qo_deadline_after(CLOCK_REALTIME, timings_.send_deadline);
        if (mq_timedsend(queue_descriptor, post_msg.c_str(), length, QO_MESSAGE_PRIORITY, &deadline) == 0) return 0;
        const int error = errno;
        mq_attr attributes{};
        mq_getattr(queue_descriptor, &attributes);
        syslog(LOG_ERR, "QoPushPullApi: mq_timedsend failed with errnum %d, Msgs in que = %ld, Retry Attempt %d", error,
               static_cast<long>(attributes.mq_curmsgs), attempt);
        pause_for(timings_.retry_pause);
    }
    syslog(LOG_CRIT, "QoPushpullApi: mq_send FAILED all tries: Descriptor: %x, ERR_CODE: %d, Message Length = %d",
           static_cast<unsigned>(queue_descriptor), QO_ERR_QUEUE_SEND, static_cast<int>(length));
    return -1;
}
