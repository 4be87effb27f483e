// The queues that components receive from and send to, and the receiver thread.
#include "qo_pushpull_message_queue.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <new>

#include "qo_pushpull_cleared_umask.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_deadline.h"

namespace {

constexpr rlim_t kQueueMemory = 851968000;  // bytes, of RLIMIT_MSGQUEUE

// A deadline that has passed: a call with it does what it can at once and never waits.
constexpr timespec kNoWaiting{};

// Sent to an own receive queue to wake its thread, NUL included.
constexpr char kWakeUpText[] = "DESTRUCTOR CALLED";
constexpr unsigned kWakeUpPriority = 0;
constexpr std::chrono::milliseconds kWakeUpAgain{1000};

// Time for the receiver thread to take a message that is there, however busy the machine; it ends only when another
// process took the message.
constexpr std::chrono::milliseconds kHandOver{1000};

/// Validates the sizes and opens or creates the queue, in the words of both factories. @return -1 on failure, logged.
mqd_t open_sized_queue(const std::string& name, int32_t queue_size, int32_t message_size) {
    if (queue_size <= 0 || message_size <= 0) {
        syslog(LOG_ERR, "Unsupported queue or mesage size (queue = %s, queue_size = %d, message_size = %d)",
               name.c_str(), queue_size, message_size);
        return -1;
    }
    mq_attr attributes{};
    attributes.mq_maxmsg = queue_size;
    attributes.mq_msgsize = message_size;
    qo_set_mqueue_limits();
    const mqd_t descriptor = qo_mq_open(name.c_str(), O_RDWR | O_CREAT, QO_QUEUE_MODE, &attributes);
    if (descriptor == -1) syslog(LOG_ERR, "Unable to open message queue %s (error %d)", name.c_str(), errno);
    return descriptor;
}

int32_t messages_in(mqd_t descriptor) {
    mq_attr attributes{};
    if (mq_getattr(descriptor, &attributes) == -1) return -1;
    return static_cast<int32_t>(attributes.mq_curmsgs);
}

bool queue_is_full(mqd_t descriptor) {
    mq_attr attributes{};
    return mq_getattr(descriptor, &attributes) == 0 && attributes.mq_curmsgs >= attributes.mq_maxmsg;
}

/// How much of the wake-up text the queue takes: any message wakes the thread, and one that is too long none.
size_t wake_up_length(mqd_t descriptor) {
    mq_attr attributes{};
    if (mq_getattr(descriptor, &attributes) == -1) return sizeof(kWakeUpText);
    return std::min(sizeof(kWakeUpText), static_cast<size_t>(attributes.mq_msgsize));
}

/// Blocks the signals that are sent to the process while a thread is created, which inherits the mask. Signals that
/// a fault of the thread itself raises stay open, so that a crash handler still sees them.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS}) sigdelset(&blocked, fault);
        pthread_sigmask(SIG_SETMASK, &blocked, &old_mask_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t old_mask_;
};

}  // namespace

// ---- mutex ----

QoPushpullMutex::QoPushpullMutex() { pthread_mutex_init(&_mutex, nullptr); }
QoPushpullMutex::~QoPushpullMutex() { pthread_mutex_destroy(&_mutex); }
void QoPushpullMutex::lock() { pthread_mutex_lock(&_mutex); }
void QoPushpullMutex::unlock() { pthread_mutex_unlock(&_mutex); }
pthread_mutex_t* QoPushpullMutex::get_reference() { return &_mutex; }

// ---- free functions ----

void qo_set_mqueue_limits() {
    const rlimit limit{kQueueMemory, kQueueMemory};
    // Without the privilege the old limit stays, and creating too large a queue fails by itself.
    [[maybe_unused]] const int ignored = setrlimit(RLIMIT_MSGQUEUE, &limit);
}

mqd_t qo_mq_open(const char* name, int /*flags*/, mode_t mode, mq_attr* attributes) {
    const QoClearedUmask cleared;
    mqd_t descriptor = mq_open(name, O_RDWR);
    if (descriptor == -1 && errno == ENOENT) descriptor = mq_open(name, O_RDWR | O_CREAT, mode, attributes);
    return descriptor;
}

mode_t set_umask_to_all() { return umask(0); }

void set_umask_value(mode_t mask) { umask(mask); }

int systemx(const char* command) {
    const std::string text(command);
    return system(text.c_str());
}

void qo_handle_error_and_flush(mqd_t descriptor) {
    if (descriptor == -1) {
        syslog(LOG_ERR, "Error in creating the queue. Error: %d", errno);
        return;
    }
    mq_attr attributes{};
    if (mq_getattr(descriptor, &attributes) == -1) {
        syslog(LOG_ERR, "Unable to get queue attributes for descriptor: %d", descriptor);
        return;
    }
    const size_t size = static_cast<size_t>(attributes.mq_msgsize);
    const std::unique_ptr<char[]> buffer = std::make_unique_for_overwrite<char[]>(size);
    int flushed = 0;
    // Without waiting: another process may have taken messages since they were counted.
    while (flushed < attributes.mq_curmsgs &&
           mq_timedreceive(descriptor, buffer.get(), size, nullptr, &kNoWaiting) != -1)
        ++flushed;
    if (flushed > 0) syslog(LOG_DEBUG, "Flushed %d stale messages from queue %d", flushed, descriptor);
}

// ---- receive queue ----

bool QoPushpullReceiveQueue::open(const std::string& name, int32_t queue_size, int32_t message_size) {
    _mqueue = open_sized_queue(name, queue_size, message_size);
    if (_mqueue == -1) return false;
    qo_handle_error_and_flush(_mqueue);

    _queue_size = queue_size;
    _queue_buffer_size = static_cast<size_t>(message_size);
    _queue_buffer.reset(new (std::nothrow) char[_queue_buffer_size + 1]);
    if (!_queue_buffer) {
        syslog(LOG_ERR, "Unable to open message queue %s (error %d)", name.c_str(), ENOMEM);
        return false;
    }
    _queue_buffer[0] = '\0';
    _message_received_signal.set_value(0);
    _start_reception_signal.set_value(false);
    _initialized = start_receiver_thread(name);
    return _initialized;
}

bool QoPushpullReceiveQueue::start_receiver_thread(const std::string& name) {
    _run_receiver_thread = true;
    const SignalsBlocked signals_blocked;
    const int error = pthread_create(&_receiver_thread_handle, nullptr, receiver_thread_entry, this);
    if (error == 0) return true;
    _run_receiver_thread = false;  // nobody to wake and join
    syslog(LOG_ERR, "Unable to create receiver thread for message queue %s (error %d)", name.c_str(), error);
    return false;
}

QoPushpullReceiveQueue::~QoPushpullReceiveQueue() {
    const std::lock_guard<QoPushpullMutex> guard(_access_mutex);
    if (_run_receiver_thread) stop_receiver_thread();
    if (_mqueue != -1) mq_close(_mqueue);
    _queue_buffer.reset();
}

void QoPushpullReceiveQueue::stop_receiver_thread() {
    _run_receiver_thread = false;
    _start_reception_signal.broadcast(false);
    const size_t length = wake_up_length(_mqueue);
    timespec wake_up_again{};
    do {
        // Without waiting: a full queue wakes a thread in mq_receive by what is in it. The text is sent again for
        // the case that another process reads this queue and took it.
        mq_timedsend(_mqueue, kWakeUpText, length, kWakeUpPriority, &kNoWaiting);
        wake_up_again = qo_deadline_after(CLOCK_REALTIME, kWakeUpAgain);
    } while (pthread_timedjoin_np(_receiver_thread_handle, nullptr, &wake_up_again) == ETIMEDOUT);
}

void* QoPushpullReceiveQueue::receiver_thread_entry(void* queue) {
    static_cast<QoPushpullReceiveQueue*>(queue)->receiver_thread();
    return nullptr;
}

void QoPushpullReceiveQueue::receiver_thread() {
    while (_run_receiver_thread) {
        // The run flag is looked at under the signal's lock: cleared just before the wait, it would else not be seen
        // and the wake-up of the tear-down be missed.
        const bool requested =
            _start_reception_signal.conditionalwait([this](bool start) { return start || !_run_receiver_thread; });
        if (!requested) continue;
        _start_reception_signal.set_value(false);
        int result = _message_received_signal.get_value();
        if (result == 0) result = receive_one_message();
        _message_received_signal.broadcast(result);
    }
}

int QoPushpullReceiveQueue::receive_one_message() {
    ssize_t length = 0;
    do {
        length = mq_receive(_mqueue, _queue_buffer.get(), _queue_buffer_size, nullptr);
    } while (length == 0);  // 0 says "no result yet" to the component, which would wait for ever
    if (length < 0) _receive_errno = errno;
    _queue_buffer[length > 0 ? static_cast<size_t>(length) : 0] = '\0';
    return static_cast<int>(length);
}

void QoPushpullReceiveQueue::request_reception() {
    if (_reception_pending) return;
    _reception_pending = true;
    _start_reception_signal.broadcast(true);
}

int32_t QoPushpullReceiveQueue::consume(int result) {
    _message_received_signal.set_value(0);
    _reception_pending = false;
    if (result < 0) errno = _receive_errno;
    return result;
}

int32_t QoPushpullReceiveQueue::receive() {
    request_reception();
    return consume(_message_received_signal.conditionalwait([](int result) { return result != 0; }));
}

int32_t QoPushpullReceiveQueue::timed_receive(std::chrono::milliseconds timeout) {
    // What is in the queue already needs the receiver thread's turn, not the caller's patience.
    if (current_messages() > 0) timeout = std::max(timeout, kHandOver);
    const timespec deadline = qo_deadline_after(CLOCK_MONOTONIC, timeout);
    request_reception();
    const std::optional<int> result =
        _message_received_signal.timedwait(deadline, [](int received) { return received != 0; });
    return result ? consume(*result) : 0;
}

bool QoPushpullReceiveQueue::initialized() const { return _initialized; }
const char* QoPushpullReceiveQueue::get_queue_buffer() const { return _queue_buffer.get(); }
int32_t QoPushpullReceiveQueue::current_messages() const { return messages_in(_mqueue); }
bool QoPushpullReceiveQueue::is_full() const { return queue_is_full(_mqueue); }

// ---- transmit queue ----

bool QoPushpullTransmitQueue::open(const std::string& name, int32_t queue_size, int32_t message_size) {
    _queue_size = queue_size;
    _message_size = message_size;
    _mqueue = open_sized_queue(name, queue_size, message_size);
    _initialized = _mqueue != -1;
    return _initialized;
}

QoPushpullTransmitQueue::~QoPushpullTransmitQueue() {
    const std::lock_guard<QoPushpullMutex> guard(_access_mutex);
    if (_mqueue != -1) mq_close(_mqueue);
}

bool QoPushpullTransmitQueue::fits(size_t length) const {
    if (length <= static_cast<size_t>(_message_size)) return true;
    errno = EMSGSIZE;
    return false;
}

int32_t QoPushpullTransmitQueue::send(const std::string& text) {
    return send(text.c_str(), text.size() + 1, QO_MESSAGE_PRIORITY);
}

int32_t QoPushpullTransmitQueue::send(const char* message, size_t length, unsigned priority) {
    return fits(length) ? mq_send(_mqueue, message, length, priority) : -1;
}

int32_t QoPushpullTransmitQueue::timedsend(const std::string& text, std::chrono::milliseconds timeout) {
    return timedsend(text.c_str(), text.size() + 1, QO_MESSAGE_PRIORITY, timeout);
}

int32_t QoPushpullTransmitQueue::timedsend(const char* message, size_t length, unsigned priority,
                                           std::chrono::milliseconds timeout) {
    if (!fits(length)) return -1;
    const timespec deadline = qo_deadline_after(CLOCK_REALTIME, timeout);
    return mq_timedsend(_mqueue, message, length, priority, &deadline);
}

bool QoPushpullTransmitQueue::initialized() const { return _initialized; }
int32_t QoPushpullTransmitQueue::current_messages() const { return messages_in(_mqueue); }
bool QoPushpullTransmitQueue::is_full() const { return queue_is_full(_mqueue); }
