/// The message queues of the push-pull data service as components use them: the receive queue with its receiver
/// thread, the transmit queue, the two synchronisation classes they are built from, and free functions around
/// POSIX message queues. Part of the public client library; compiles alone.
///
/// One message is one text with its terminating NUL. A component gets its queues from
/// QoPushpullApi::create_receive_queue and QoPushpullApi::create_transmit_queue, owns them and deletes them.
#ifndef QO_PUSHPULL_MESSAGE_QUEUE_H
#define QO_PUSHPULL_MESSAGE_QUEUE_H

#include <mqueue.h>
#include <pthread.h>
#include <sys/types.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

/// A plain mutex that works with std::lock_guard<QoPushpullMutex>. Not recursive: locking it twice from one
/// thread never returns. Any thread; the thread that locked it unlocks it.
class QoPushpullMutex {
public:
    QoPushpullMutex();
    /// Nobody may hold the mutex any more.
    ~QoPushpullMutex();
    QoPushpullMutex(const QoPushpullMutex&) = delete;
    QoPushpullMutex& operator=(const QoPushpullMutex&) = delete;

    /// Waits until the mutex is free and takes it.
    void lock();
    void unlock();
    /// The mutex itself, for pthread_cond_wait; stays this object's.
    pthread_mutex_t* get_reference();

private:
    pthread_mutex_t _mutex;
};

/// Hands a value of a plain type `T` (used with int and with bool) from one thread to another. The value starts
/// at T(). All waits run on CLOCK_MONOTONIC, so changes of the wall clock do not touch them. Any thread, but only
/// one waits at a time (of several, one would be woken), and none may wait when the object is destroyed. A signal
/// handler may not use it.
///
/// Lock order: _condition_mutex, then _proceed_mutex.
template <typename T>
class QoPushpullSignal {
public:
    QoPushpullSignal() {
        pthread_condattr_init(&_attributes);
        pthread_condattr_setclock(&_attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&_condition, &_attributes);
    }
    ~QoPushpullSignal() {
        pthread_cond_destroy(&_condition);
        pthread_condattr_destroy(&_attributes);
    }
    QoPushpullSignal(const QoPushpullSignal&) = delete;
    QoPushpullSignal& operator=(const QoPushpullSignal&) = delete;

    /// Publishes `value`: stores it and wakes the waiting thread.
    void broadcast(T value) {
        const std::lock_guard<QoPushpullMutex> guard(_condition_mutex);
        _value = value;
        set_proceed(true);
        pthread_cond_broadcast(&_condition);
    }

    /// Waits for the next broadcast, whatever is stored already. @return the value then stored.
    T wait() {
        return conditionalwait([](const T&) { return false; });
    }

    /// Waits for the next broadcast unless `awaited(value)` already holds for the stored value.
    /// @param awaited called once, under the lock that broadcast takes: what a thread sets before it broadcasts
    ///                is seen here or wakes this wait. It may not use this object.
    /// @return the value then stored; after a wait it need not be an awaited one.
    template <typename Awaited>
    T conditionalwait(Awaited awaited) {
        const std::lock_guard<QoPushpullMutex> guard(_condition_mutex);
        set_proceed(false);
        if (awaited(static_cast<const T&>(_value))) return _value;
        while (!test_proceed()) pthread_cond_wait(&_condition, _condition_mutex.get_reference());
        set_proceed(false);
        return _value;
    }

    /// conditionalwait up to the absolute time `deadline` on CLOCK_MONOTONIC. Compiled with its caller, so the library
    /// does not depend on the width of time_t.
    /// @return the value, or nothing when the deadline passed without a broadcast; an awaited value that is
    ///         stored already is returned even when the deadline lies in the past.
    template <typename Awaited>
    std::optional<T> timedwait(const timespec& deadline, Awaited awaited) {
        const std::lock_guard<QoPushpullMutex> guard(_condition_mutex);
        set_proceed(false);
        if (awaited(static_cast<const T&>(_value))) return _value;
        int error = 0;
        while (!test_proceed() && error == 0)
            error = pthread_cond_timedwait(&_condition, _condition_mutex.get_reference(), &deadline);
        if (!test_proceed()) return std::nullopt;
        set_proceed(false);
        return _value;
    }

    /// The stored value.
    T get_value() {
        const std::lock_guard<QoPushpullMutex> guard(_condition_mutex);
        return _value;
    }

    /// Stores `value` without waking anybody.
    void set_value(T value) {
        const std::lock_guard<QoPushpullMutex> guard(_condition_mutex);
        _value = value;
    }

    /// True when a value was broadcast and no wait has begun or ended since.
    bool test_proceed() {
        const std::lock_guard<QoPushpullMutex> guard(_proceed_mutex);
        return _proceed;
    }

private:
    void set_proceed(bool proceed) {
        const std::lock_guard<QoPushpullMutex> guard(_proceed_mutex);
        _proceed = proceed;
    }

    pthread_condattr_t _attributes;
    QoPushpullMutex _condition_mutex;
    QoPushpullMutex _proceed_mutex;
    pthread_cond_t _condition;
    T _value = T();         // guarded by _condition_mutex
    bool _proceed = false;  // guarded by _proceed_mutex
};

/// A component's own queue, on which the service's answers and notifications arrive, with the thread that takes
/// one message out of it for each request to receive. Nothing is taken out unasked, and there is no callback.
///
///     std::unique_ptr<QoPushpullReceiveQueue> queue(api.create_receive_queue("/display", 10, 8192));
///     while (queue->receive() > 0) handle(queue->get_queue_buffer());
///
/// receive, timed_receive and get_queue_buffer belong to one component thread; current_messages, is_full and
/// initialized may be called from any. The receiver thread blocks every signal that is sent to the process, so
/// that no handler of the component ever runs on it.
class QoPushpullReceiveQueue {
public:
    /// Ends the receiver thread, also one that is blocked on an empty queue, and closes the queue; the queue
    /// itself and what is in it stay in the system (mq_unlink removes it). No thread may be inside receive or
    /// timed_receive. Leaves the text "DESTRUCTOR CALLED" in the queue when the receiver thread was idle; the
    /// next creation of a receive queue on it drains that.
    ~QoPushpullReceiveQueue();
    QoPushpullReceiveQueue(const QoPushpullReceiveQueue&) = delete;
    QoPushpullReceiveQueue& operator=(const QoPushpullReceiveQueue&) = delete;

    /// True once the queue is open and its receiver thread runs: for every queue that a factory returned.
    bool initialized() const;

    /// Waits for one message, without a limit in time; a signal does not end the wait.
    /// Takes over the reception that an earlier timed_receive left pending.
    /// @return the message's length in bytes as it was sent, so with the NUL of a text; the message is in
    ///         get_queue_buffer. -1 when the reception failed, with its reason in errno: EMSGSIZE when the
    ///         queue was created elsewhere with larger messages than this object was made for. Such a failure
    ///         lasts, so do not simply call again. Messages without a single byte are skipped.
    int32_t receive();

    /// Waits for one message, at most `timeout` from now on the monotonic clock; zero or less does not wait. A
    /// message that is in the queue at the call is returned whatever the timeout.
    /// When none came, the reception stays pending: the receiver thread goes on waiting in the queue, and the
    /// next receive or timed_receive, on whichever message it gets, takes over its result. No message is lost.
    /// @return as receive; 0 when no message came in time.
    int32_t timed_receive(std::chrono::milliseconds timeout);

    /// The message that the last receive or timed_receive returned, always NUL-terminated even if its sender
    /// sent no NUL; "" before the first message and after a failed reception. Stays this object's, which writes
    /// the next message to the same place: valid until the next receive or timed_receive, whatever it returns.
    const char* get_queue_buffer() const;

    /// Messages that wait in the queue now; -1 with errno when its attributes cannot be read.
    int32_t current_messages() const;

    /// True when the queue holds as many messages as it can; false also when its attributes cannot be read.
    bool is_full() const;

private:
    friend class QoPushpullApi;

    QoPushpullReceiveQueue() = default;
    bool open(const std::string& name, int32_t queue_size, int32_t message_size);
    bool start_receiver_thread(const std::string& name);
    void stop_receiver_thread();
    void request_reception();
    int32_t consume(int result);
    void receiver_thread();
    static void* receiver_thread_entry(void* queue);
    int receive_one_message();

    bool _initialized = false;                       // fixed after creation
    mqd_t _mqueue = -1;                              // fixed after creation; -1 when not open
    QoPushpullSignal<int> _message_received_signal;  // length, -1 on error, 0 when no result is pending
    QoPushpullSignal<bool> _start_reception_signal;  // true asks for one message
    QoPushpullMutex _access_mutex;                   // held by the tear-down
    int32_t _queue_size = 0;                         // messages; fixed after creation
    size_t _queue_buffer_size = 0;                   // bytes; fixed after creation
    // One byte longer than _queue_buffer_size, for the terminating NUL. The receiver thread's from the request
    // to the result, the component's otherwise.
    std::unique_ptr<char[]> _queue_buffer;
    pthread_t _receiver_thread_handle{};
    std::atomic<bool> _run_receiver_thread{false};
    int _receive_errno = 0;           // handed over with a result of -1 on _message_received_signal
    bool _reception_pending = false;  // the component's thread only: requested, result not taken yet
};

/// An open queue into which a component sends. Sends are atomic per message; any thread may use the object.
/// Deadlines run on the wall clock, as the kernel has it for message queues.
class QoPushpullTransmitQueue {
public:
    /// Closes the queue; the queue itself and what is in it stay in the system. No thread may be inside a send.
    ~QoPushpullTransmitQueue();
    QoPushpullTransmitQueue(const QoPushpullTransmitQueue&) = delete;
    QoPushpullTransmitQueue& operator=(const QoPushpullTransmitQueue&) = delete;

    /// True once the queue is open: for every queue that a factory returned.
    bool initialized() const;

    /// Sends a text and its NUL with priority 1; waits without a limit in time while the queue is full.
    /// @return 0; -1 with errno: EMSGSIZE when the text with its NUL is longer than the message size of this
    ///         object or of the queue, EINTR when a signal handler ran meanwhile. Nothing is sent on failure.
    int32_t send(const std::string& text);

    /// Sends `length` bytes as they are; no NUL is added.
    /// @param message  not null, even for a `length` of 0
    /// @param priority 0 to 31 on every system (Linux: to 32767); higher ones are received first
    /// @return as the other send; EINVAL for a priority out of range.
    int32_t send(const char* message, size_t length, unsigned priority);

    /// The two sends with a limit in time: wait at most `timeout` from now while the queue is full.
    /// @param timeout zero or less does not wait at all
    /// @return as send; -1 with ETIMEDOUT when the queue stayed full.
    int32_t timedsend(const std::string& text, std::chrono::milliseconds timeout);
    int32_t timedsend(const char* message, size_t length, unsigned priority, std::chrono::milliseconds timeout);

    /// Messages that wait in the queue now; -1 with errno when its attributes cannot be read.
    int32_t current_messages() const;

    /// True when the queue holds as many messages as it can; false also when its attributes cannot be read.
    bool is_full() const;

private:
    friend class QoPushpullApi;

    QoPushpullTransmitQueue() = default;
    bool open(const std::string& name, int32_t queue_size, int32_t message_size);
    bool fits(size_t length) const;

    bool _initialized = false;      // fixed after creation
    mqd_t _mqueue = -1;             // fixed after creation; -1 when not open
    QoPushpullMutex _access_mutex;  // held by the tear-down
    int32_t _queue_size = 0;        // messages; fixed after creation
    int32_t _message_size = 0;      // bytes; fixed after creation
};

/// Raises the limit of this process for the bytes in its message queues (RLIMIT_MSGQUEUE, soft and hard) to
/// 851968000. Needs CAP_SYS_RESOURCE; a failure is ignored, and creating too large a queue then fails by itself.
void qo_set_mqueue_limits();

/// Opens an existing queue for reading and writing, with the attributes that it has, or creates it.
/// @param name       POSIX queue name, with a leading slash
/// @param flags      not used; an existing queue is always opened read-write
/// @param mode       of a queue created here, as given: the umask of the process is 0 meanwhile, so another
///                   thread that creates files at that moment has umask 0 too
/// @param attributes of a queue created here; may be null, the system's defaults then hold
/// @return the descriptor, to be closed with mq_close; -1 with errno.
mqd_t qo_mq_open(const char* name, int flags, mode_t mode, mq_attr* attributes);

/// Sets the umask of the process to 0. @return the mask before.
mode_t set_umask_to_all();

/// Sets the umask of the process.
void set_umask_value(mode_t mask);

/// Runs a command with the shell, as system() does, and returns what system() returns.
/// @param command not null; a null throws std::logic_error
int systemx(const char* command);

/// Takes the stale messages out of a queue that was just opened: as many as it holds at the call, at most. Never
/// waits for a message. Logs what it removed (LOG_DEBUG); for a descriptor of -1 logs errno, which then still has
/// to be that of the failed open (LOG_ERR).
void qo_handle_error_and_flush(mqd_t descriptor);

#endif
