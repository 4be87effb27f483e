// The C functions over the client library: they check what they are given, let no exception out, and tell failures
// apart.
#include "qo_pushpull_c.h"

#include <errno.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "qo_pushpull_api.h"
#include "qo_pushpull_own_queue.h"

struct qo_pushpull_c_client {
    qo_pushpull_c_client(eQO_CMP_IDs_ id, const std::string& instance) : component(id), api(instance) {}

    const eQO_CMP_IDs_ component;
    QoPushpullApi api;
    std::unique_ptr<QoPushpullOwnQueue> queue;  // null while not registered
    std::string text;                           // the last one received
    bool service_has_ended = false;             // it said so
};

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kServiceEnds = "exit";  // the text by which it says so

/// @param function returns a status; what it throws can only be std::bad_alloc
template <typename Function>
int32_t without_exceptions(Function function) {
    try {
        return function();
    } catch (const std::bad_alloc&) {
        return QO_PUSHPULL_C_NO_MEMORY;
    }
}

/// The status of a request that carries `texts`. The library fails alike for a text that is none.
int32_t status_of(int32_t result, QoPushpullApi& api, std::initializer_list<const char*> texts) {
    if (result == 0) return QO_PUSHPULL_C_OK;
    for (const char* text : texts)
        if (api.build_json_post_msg(QO_CMPID_RESERVED, text, "").empty()) return QO_PUSHPULL_C_BAD_ARGUMENT;
    return QO_PUSHPULL_C_NOT_SENT;
}

/// Sends a request by `operation`, which calls one of the library's.
template <typename Operation>
int32_t request(qo_pushpull_c_client* client, std::initializer_list<const char*> texts, Operation operation) {
    if (client == nullptr) return QO_PUSHPULL_C_BAD_ARGUMENT;
    for (const char* text : texts)
        if (text == nullptr) return QO_PUSHPULL_C_BAD_ARGUMENT;
    if (!client->queue) return QO_PUSHPULL_C_NOT_REGISTERED;
    return without_exceptions([&] { return status_of(operation(client->api, client->component), client->api, texts); });
}

/// Milliseconds until the deadline, as poll wants them; -1 without one.
int patience(const std::optional<Clock::time_point>& deadline) {
    if (!deadline) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));  // at most the timeout, an int32_t
}

/// @return OK once `queue` has something; TIMEOUT, INTERRUPTED, QUEUE_FAILED
int32_t wait_for_text(const QoPushpullOwnQueue& queue, const std::optional<Clock::time_point>& deadline) {
    pollfd arrival{queue.descriptor(), POLLIN, 0};
    const int ready = poll(&arrival, 1, patience(deadline));
    if (ready > 0) return QO_PUSHPULL_C_OK;
    if (ready == 0) return QO_PUSHPULL_C_TIMEOUT;
    return errno == EINTR ? QO_PUSHPULL_C_INTERRUPTED : QO_PUSHPULL_C_QUEUE_FAILED;
}

/// Takes the next text into client.text; an empty one is no text of the service's.
int32_t receive(qo_pushpull_c_client& client, int32_t timeout_ms) {
    std::optional<Clock::time_point> deadline;
    if (timeout_ms != QO_PUSHPULL_C_FOREVER) deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    while (true) {
        std::optional<std::string> text = client.queue->take();
        if (!text) {
            if (errno != EAGAIN) return QO_PUSHPULL_C_QUEUE_FAILED;
            const int32_t status = wait_for_text(*client.queue, deadline);
            if (status != QO_PUSHPULL_C_OK) return status;
        } else if (!text->empty()) {
            client.text = std::move(*text);
            client.service_has_ended = client.service_has_ended || client.text == kServiceEnds;
            return QO_PUSHPULL_C_OK;
        }
    }
}

/// @return OK when the client may receive.
int32_t check_receive(const qo_pushpull_c_client* client, int32_t timeout_ms) {
    if (client == nullptr || timeout_ms < QO_PUSHPULL_C_FOREVER) return QO_PUSHPULL_C_BAD_ARGUMENT;
    return client->queue ? QO_PUSHPULL_C_OK : QO_PUSHPULL_C_NOT_REGISTERED;
}

}  // namespace

uint32_t qo_pushpull_c_version(void) { return QO_PUSHPULL_C_VERSION; }

const char* qo_pushpull_c_status_text(int32_t status) {
    switch (status) {
        case QO_PUSHPULL_C_OK:
            return "done";
        case QO_PUSHPULL_C_TIMEOUT:
            return "no text came in time";
        case QO_PUSHPULL_C_INTERRUPTED:
            return "a signal ended the wait";
        case QO_PUSHPULL_C_BAD_ARGUMENT:
            return "an argument is null, out of range or not UTF-8";
        case QO_PUSHPULL_C_NO_SERVICE:
            return "the service's queue cannot be opened";
        case QO_PUSHPULL_C_NOT_SENT:
            return "the request was not sent: the service's queue stayed full, or the request is too long for it";
        case QO_PUSHPULL_C_NOT_REGISTERED:
            return "the client is not registered";
        case QO_PUSHPULL_C_NOT_ALLOWED:
            return "only the system controller's own components may delete";
        case QO_PUSHPULL_C_QUEUE_TAKEN:
            return "another client uses the receive queue of this name";
        case QO_PUSHPULL_C_QUEUE_FAILED:
            return "the receive queue cannot be made or received from";
        case QO_PUSHPULL_C_NO_MEMORY:
            return "out of memory";
        default:
            return "unknown status";
    }
}

// ---- coming and going ----

int32_t qo_pushpull_c_open(int32_t component, const char* instance, qo_pushpull_c_client** client) {
    if (client == nullptr) return QO_PUSHPULL_C_BAD_ARGUMENT;
    *client = nullptr;
    if (component <= 0 || instance == nullptr) return QO_PUSHPULL_C_BAD_ARGUMENT;
    return without_exceptions([&]() -> int32_t {
        auto opened = std::make_unique<qo_pushpull_c_client>(static_cast<eQO_CMP_IDs_>(component), instance);
        if (opened->api.init(instance) != 0) return QO_PUSHPULL_C_NO_SERVICE;
        *client = opened.release();
        return QO_PUSHPULL_C_OK;
    });
}

void qo_pushpull_c_close(qo_pushpull_c_client* client) {
    if (client == nullptr) return;
    qo_pushpull_c_unregister(client);
    delete client;
}

int32_t qo_pushpull_c_register(qo_pushpull_c_client* client, const char* queue_name, int32_t messages,
                               int32_t message_size) {
    if (client == nullptr || queue_name == nullptr || messages <= 0 || message_size <= 0)
        return QO_PUSHPULL_C_BAD_ARGUMENT;
    if (client->queue) return QO_PUSHPULL_C_OK;
    return without_exceptions([&]() -> int32_t {
        qo_set_mqueue_limits();
        auto queue = std::make_unique<QoPushpullOwnQueue>();
        if (queue->open(queue_name, messages, message_size) != 0)
            return errno == EBUSY ? QO_PUSHPULL_C_QUEUE_TAKEN : QO_PUSHPULL_C_QUEUE_FAILED;
        const int32_t result = client->api.comp_register(client->component, queue_name, &queue->attributes());
        const int32_t status = status_of(result, client->api, {queue_name});
        if (status == QO_PUSHPULL_C_OK) client->queue = std::move(queue);
        return status;
    });
}

int32_t qo_pushpull_c_unregister(qo_pushpull_c_client* client) {
    if (client == nullptr) return QO_PUSHPULL_C_BAD_ARGUMENT;
    const std::unique_ptr<QoPushpullOwnQueue> queue = std::move(client->queue);
    if (!queue || client->service_has_ended) return QO_PUSHPULL_C_OK;
    return without_exceptions(
        [client] { return status_of(client->api.comp_unregister(client->component), client->api, {}); });
}

// ---- operations ----

int32_t qo_pushpull_c_publish(qo_pushpull_c_client* client, const char* json) {
    return request(
        client, {json}, [=](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.publish(id, json); });
}

int32_t qo_pushpull_c_get(qo_pushpull_c_client* client, const char* pointers, const char* tag, bool packed) {
    return request(
        client, {pointers, tag},
        [=](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.get(id, pointers, tag, packed); });
}

int32_t qo_pushpull_c_subscribe(qo_pushpull_c_client* client, const char* pointers, bool changes_only) {
    return request(
        client, {pointers},
        [=](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.subscribe(id, pointers, changes_only); });
}

int32_t qo_pushpull_c_unsubscribe(qo_pushpull_c_client* client, const char* pointers) {
    return request(
        client, {pointers}, [=](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.un_subscribe(id, pointers); });
}

int32_t qo_pushpull_c_delete(qo_pushpull_c_client* client, const char* pointer) {
    if (client != nullptr && client->api.check_delete_authority(client->component) != 0)
        return QO_PUSHPULL_C_NOT_ALLOWED;
    return request(client, {pointer},
                   [=](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.delete_node(id, pointer); });
}

int32_t qo_pushpull_c_clear(qo_pushpull_c_client* client, const char* pointer) {
    return request(
        client, {pointer}, [=](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.clear(id, pointer); });
}

int32_t qo_pushpull_c_save(qo_pushpull_c_client* client) {
    return request(
        client, {}, [](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.flush(id); });
}

int32_t qo_pushpull_c_sync(qo_pushpull_c_client* client, int32_t receiver, const char* text) {
    if (receiver <= 0) return QO_PUSHPULL_C_BAD_ARGUMENT;
    return request(client, {text}, [=](QoPushpullApi& api, eQO_CMP_IDs_ id) {
        return api.comp_sync(id, static_cast<eQO_CMP_IDs_>(receiver), text);
    });
}

// ---- what the service says ----

int32_t qo_pushpull_c_receive(qo_pushpull_c_client* client, int32_t timeout_ms, const char** text, size_t* length) {
    if (text == nullptr) return QO_PUSHPULL_C_BAD_ARGUMENT;
    *text = nullptr;
    if (const int32_t status = check_receive(client, timeout_ms); status != QO_PUSHPULL_C_OK) return status;
    return without_exceptions([=]() -> int32_t {
        if (const int32_t status = receive(*client, timeout_ms); status != QO_PUSHPULL_C_OK) return status;
        *text = client->text.c_str();
        if (length != nullptr) *length = client->text.size();
        return QO_PUSHPULL_C_OK;
    });
}

int32_t qo_pushpull_c_receive_each(qo_pushpull_c_client* client, int32_t timeout_ms, qo_pushpull_c_on_text on_text,
                                   void* context) {
    if (on_text == nullptr) return QO_PUSHPULL_C_BAD_ARGUMENT;
    if (const int32_t status = check_receive(client, timeout_ms); status != QO_PUSHPULL_C_OK) return status;
    return without_exceptions([=]() -> int32_t {
        if (const int32_t status = receive(*client, timeout_ms); status != QO_PUSHPULL_C_OK) return status;
        // A bound, for others may put texts into the queue faster than they are handled.
        long left = client->queue->attributes().mq_maxmsg;
        while (on_text(client->text.c_str(), client->text.size(), context) && --left > 0)
            if (receive(*client, 0) != QO_PUSHPULL_C_OK) break;
        return QO_PUSHPULL_C_OK;
    });
}

int32_t qo_pushpull_c_descriptor(const qo_pushpull_c_client* client) {
    return client != nullptr && client->queue ? client->queue->descriptor() : -1;
}
