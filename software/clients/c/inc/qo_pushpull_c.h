/// The client library of the push-pull data service for C, and for languages that call C: what a component needs to
/// register, publish, subscribe, read and delete in the data tree. C99 and C++; compiles alone.
///
///     qo_pushpull_c_client* client = NULL;
///     int32_t status = qo_pushpull_c_open(QO_CMPID_DEMO, "", &client);
///     if (status == QO_PUSHPULL_C_OK) status = qo_pushpull_c_register(client, "/display", 10, 8192);
///     if (status == QO_PUSHPULL_C_OK) status = qo_pushpull_c_subscribe(client, "/system/status", false);
///     const char* text = NULL;
///     while (status == QO_PUSHPULL_C_OK) {
///         status = qo_pushpull_c_receive(client, QO_PUSHPULL_C_FOREVER, &text, NULL);
///         if (status == QO_PUSHPULL_C_OK) show(text);
///     }
///     if (status != QO_PUSHPULL_C_OK) fprintf(stderr, "%s\n", qo_pushpull_c_status_text(status));
///     qo_pushpull_c_close(client);
///
/// Threads: two clients are independent of each other; one client is used by one thread at a time. Nothing here may
/// be called by a signal handler. Texts are UTF-8 with a NUL behind them; those that are given are only read, and not
/// after the call. Failures are logged with syslog, in the caller's facility and ident.
///
/// Every operation sends one request and returns; it does not wait for the service to act on it, and the service
/// refuses silently, in the system log. Requests are handled in the order in which they were sent, so the answer to a
/// "get" with a tag of its own shows that everything sent before it is done. An operation takes some 10 seconds at
/// most, while the service's queue stays full.
#ifndef QO_PUSHPULL_C_H
#define QO_PUSHPULL_C_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "qo_component_ids.h"

// Programs that were built with one minor version run with every later one of the same major version.
#define QO_PUSHPULL_C_VERSION_MAJOR 1
#define QO_PUSHPULL_C_VERSION_MINOR 0
#define QO_PUSHPULL_C_VERSION (QO_PUSHPULL_C_VERSION_MAJOR * 1000 + QO_PUSHPULL_C_VERSION_MINOR)

#define QO_PUSHPULL_C_FOREVER (-1)  // a timeout that never ends

#define QO_PUSHPULL_C_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/// What a function returns, as int32_t. Only those marked so leave their reason in errno.
enum qo_pushpull_c_status {
    QO_PUSHPULL_C_OK = 0,
    QO_PUSHPULL_C_TIMEOUT = 1,         // no text came in time
    QO_PUSHPULL_C_INTERRUPTED = 2,     // a signal handler ran while a text was waited for
    QO_PUSHPULL_C_BAD_ARGUMENT = 3,    // null, a number out of range, or a text that is not UTF-8
    QO_PUSHPULL_C_NO_SERVICE = 4,      // errno: the service's queue cannot be opened (ENOENT: it does not run)
    QO_PUSHPULL_C_NOT_SENT = 5,        // the service's queue stayed full, or the request is longer than its messages
    QO_PUSHPULL_C_NOT_REGISTERED = 6,  // comes before register, or after unregister
    QO_PUSHPULL_C_NOT_ALLOWED = 7,     // only the system controller's own components delete
    QO_PUSHPULL_C_QUEUE_TAKEN = 8,     // another client receives from the queue of this name
    QO_PUSHPULL_C_QUEUE_FAILED = 9,    // errno: the receive queue cannot be made, or received from
    QO_PUSHPULL_C_NO_MEMORY = 10,
};

/// One component's way to the service. Made by open, released by close.
typedef struct qo_pushpull_c_client qo_pushpull_c_client;

/// QO_PUSHPULL_C_VERSION of the library that runs. Any thread.
QO_PUSHPULL_C_API uint32_t qo_pushpull_c_version(void);

/// A sentence on a status, without a full stop; "unknown status" for any other number. Never null; static, not to be
/// freed. Any thread.
QO_PUSHPULL_C_API const char* qo_pushpull_c_status_text(int32_t status);

// ---- coming and going ----

/// Opens the service's request queue, and never creates it.
/// @param component who the client is, of eQO_CMP_IDs_; above 0
/// @param instance  the service's instance suffix, as given to it with -m; "" for the default one
/// @param client    set to the new client, the caller's to close; to NULL on failure
/// @return OK; BAD_ARGUMENT, NO_SERVICE, NO_MEMORY, with nothing left open.
QO_PUSHPULL_C_API int32_t qo_pushpull_c_open(int32_t component, const char* instance, qo_pushpull_c_client** client);

/// Takes the registration back as unregister does, and releases the client with every text that it gave.
/// @param client may be NULL
QO_PUSHPULL_C_API void qo_pushpull_c_close(qo_pushpull_c_client* client);

/// Makes the receive queue and registers with it, which every operation below needs. A queue that an earlier run left
/// behind is taken over and drained, and made anew when its sizes are others. The kernel charges messages x
/// message_size bytes to the user at once; the service waits for a queue that is full, so read it. While the queue is
/// made the umask of the process is 0.
/// @param queue_name   POSIX name with a leading slash, the component's own
/// @param messages     that the queue holds, above 0; an unprivileged user is usually allowed 10
/// @param message_size bytes, above 0: the longest text with its NUL; an unprivileged user is usually allowed 8192
/// @return OK, also when registered already, and nothing is done then; BAD_ARGUMENT, NOT_SENT, QUEUE_TAKEN,
///         QUEUE_FAILED, NO_MEMORY, with nothing registered and no queue left.
QO_PUSHPULL_C_API int32_t qo_pushpull_c_register(qo_pushpull_c_client* client, const char* queue_name, int32_t messages,
                                                 int32_t message_size);

/// Ends the registration and with it all subscriptions, closes the receive queue and removes it. Once the text "exit"
/// was received the service has gone, and nothing is sent to it.
/// @return OK, also when not registered; BAD_ARGUMENT, NOT_SENT, NO_MEMORY, and the queue has gone all the same.
QO_PUSHPULL_C_API int32_t qo_pushpull_c_unregister(qo_pushpull_c_client* client);

// ---- operations ----
// A pointer is a path of member names in the data tree ("/system/status"); below an array a segment is a position
// ("/devices/3"). Each returns OK when the request is in the service's queue; BAD_ARGUMENT, NOT_REGISTERED, NOT_SENT,
// NO_MEMORY.

/// Merges a JSON text into the data tree, where the component may write.
/// @param json an object that starts at the root of the tree: {"system":{"status":{"systemTemperature":78}}}
QO_PUSHPULL_C_API int32_t qo_pushpull_c_publish(qo_pushpull_c_client* client, const char* json);

/// Asks for nodes. Each pointer is answered with a text to receive: the node in the objects of its path, as JSON; on
/// failure the pointer, ":" and "{}". For an array's pointer with "/size" behind it: the pointer, ":" and a number.
/// @param pointers one, or several separated by ";"; the whole tree ("/") is not read
/// @param tag      a text without ";": every answer then begins with "sender_id:", the tag and ";". "" for none
/// @param packed   the answers joined in as few compact objects as fit the receive queue's messages
QO_PUSHPULL_C_API int32_t qo_pushpull_c_get(qo_pushpull_c_client* client, const char* pointers, const char* tag,
                                            bool packed);

/// Asks to be told of every publish of others that reaches a node or goes through it: the published text is received,
/// byte for byte, whatever of it the tree took.
/// @param pointers     one, or several separated by ";"; "/" for every publish
/// @param changes_only only of publishes that changed a value
QO_PUSHPULL_C_API int32_t qo_pushpull_c_subscribe(qo_pushpull_c_client* client, const char* pointers,
                                                  bool changes_only);

/// Ends the subscriptions of a node and of every node below it.
/// @param pointers as for subscribe
QO_PUSHPULL_C_API int32_t qo_pushpull_c_unsubscribe(qo_pushpull_c_client* client, const char* pointers);

/// Deletes a node. Subscribers receive "NODE DELETED: " and the pointer.
/// @return also NOT_ALLOWED, and nothing is sent then.
QO_PUSHPULL_C_API int32_t qo_pushpull_c_delete(qo_pushpull_c_client* client, const char* pointer);

/// Gives a node its default values back, or deletes it when the default tree lacks it. Subscribers receive the node.
QO_PUSHPULL_C_API int32_t qo_pushpull_c_clear(qo_pushpull_c_client* client, const char* pointer);

/// Saves the data tree to its file now, instead of some seconds after the last change.
QO_PUSHPULL_C_API int32_t qo_pushpull_c_save(qo_pushpull_c_client* client);

/// Has the service pass a text on: the receiver gets "sync:", the sender's identifier in decimal, ":" and the text.
/// @param receiver of eQO_CMP_IDs_, above 0; it has to be registered
QO_PUSHPULL_C_API int32_t qo_pushpull_c_sync(qo_pushpull_c_client* client, int32_t receiver, const char* text);

// ---- what the service says ----

/// Takes the next text out of the receive queue.
/// @param timeout_ms milliseconds to wait for one, which no change of the wall clock touches; 0 does not wait,
///                   QO_PUSHPULL_C_FOREVER waits without a limit. A text that is there is taken whatever the timeout
/// @param text       set to the text, which is the client's: valid until its next receive, unregister or close. To NULL
///                   on failure
/// @param length     set to its length in bytes, without the NUL; may be NULL. A text may have a NUL inside
/// @return OK; TIMEOUT, INTERRUPTED, BAD_ARGUMENT, NOT_REGISTERED, QUEUE_FAILED, NO_MEMORY.
QO_PUSHPULL_C_API int32_t qo_pushpull_c_receive(qo_pushpull_c_client* client, int32_t timeout_ms, const char** text,
                                                size_t* length);

/// Is given one text, valid during the call. It may call any operation of the client, but not its receive, unregister
/// or close, and throws nothing.
/// @param context as given to receive_each
/// @return false to be given no more.
typedef bool (*qo_pushpull_c_on_text)(const char* text, size_t length, void* context);

/// Waits for a text as receive does, then hands over that one and those that are there behind it, at most as many as
/// the queue holds. Runs the function on the calling thread.
/// @param on_text not null
/// @return as receive; OK once on_text was called.
QO_PUSHPULL_C_API int32_t qo_pushpull_c_receive_each(qo_pushpull_c_client* client, int32_t timeout_ms,
                                                     qo_pushpull_c_on_text on_text, void* context);

/// A descriptor for poll, select or epoll, readable while a text waits. It stays the client's, until unregister or
/// close: neither read from it nor close it.
/// @return -1 when not registered.
QO_PUSHPULL_C_API int32_t qo_pushpull_c_descriptor(const qo_pushpull_c_client* client);

#ifdef __cplusplus
}
#endif

#endif
