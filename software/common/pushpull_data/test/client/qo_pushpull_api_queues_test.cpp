// Receive queues, transmit queues and the free functions around them, on real queues.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <future>
#include <set>
#include <stdexcept>
#include <thread>

#include "log_capture.h"
#include "qo_pushpull_api.h"
#include "qo_scratch_queue.h"
#include "shell_capture.h"

namespace {
int thread_creation_error = 0;
long messages_counted_too_many = 0;
int sends_lost = 0;
std::vector<rlimit> limits_asked_for;  // of the bytes in message queues
std::atomic<bool> wake_up_sent{false};
// Holds a receiver thread in front of its next lock until the tear-down has sent its wake-up text.
std::atomic<bool> hold_at_lock{false};
std::atomic<bool> held_at_lock{false};
}  // namespace

// What the kernel does not do on request: refuse a thread, stop one between two steps, let another reader in.
extern "C" {
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
    if (thread_creation_error != 0) return thread_creation_error;
    return __real_pthread_create(thread, attributes, start, argument);
}

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (hold_at_lock && gettid() != getpid()) {
        hold_at_lock = false;
        held_at_lock = true;
        while (!wake_up_sent) usleep(100);
    }
    return __real_pthread_mutex_lock(mutex);
}

// Its name where files have 64 bits beside a word of 32.
int __wrap_setrlimit64(__rlimit_resource_t resource, const rlimit* limit);
int __wrap_setrlimit64(__rlimit_resource_t resource, const rlimit* limit) {
    if (resource == RLIMIT_MSGQUEUE) limits_asked_for.push_back(*limit);
    errno = EPERM;
    return -1;
}
int __wrap_setrlimit(__rlimit_resource_t resource, const rlimit* limit);
int __wrap_setrlimit(__rlimit_resource_t resource, const rlimit* limit) { return __wrap_setrlimit64(resource, limit); }

int __real_mq_getattr(mqd_t descriptor, mq_attr* attributes);
int __wrap_mq_getattr(mqd_t descriptor, mq_attr* attributes) {
    const int result = __real_mq_getattr(descriptor, attributes);
    attributes->mq_curmsgs += messages_counted_too_many;
    return result;
}

int __real_mq_timedsend(mqd_t descriptor, const char* message, size_t length, unsigned priority, const timespec* end);
int __wrap_mq_timedsend(mqd_t descriptor, const char* message, size_t length, unsigned priority, const timespec* end) {
    wake_up_sent = true;
    if (sends_lost > 0) return --sends_lost, 0;
    return __real_mq_timedsend(descriptor, message, length, priority, end);
}
}

namespace {

using Lines = std::vector<QoLogLine>;
using std::chrono::milliseconds;
using Message = QoScratchQueue::Message;
using ReceiveQueue = std::unique_ptr<QoPushpullReceiveQueue>;
using TransmitQueue = std::unique_ptr<QoPushpullTransmitQueue>;

constexpr char kName[] = "/own";
constexpr int32_t kMessages = 4;
constexpr int32_t kMessageSize = 256;
const Message kWakeUp{std::string("DESTRUCTOR CALLED\0", 18), 0};

class Queues : public testing::Test {
protected:
    ~Queues() override {
        thread_creation_error = 0;
        messages_counted_too_many = 0;
        sends_lost = 0;
        mq_unlink(kName);
    }

    ReceiveQueue receive_queue(int32_t messages = kMessages, int32_t message_size = kMessageSize) {
        return ReceiveQueue(api_.create_receive_queue(kName, messages, message_size));
    }
    TransmitQueue transmit_queue(int32_t messages = kMessages, int32_t message_size = kMessageSize) {
        return TransmitQueue(api_.create_transmit_queue(kName, messages, message_size));
    }
    static bool exists() {
        const mqd_t descriptor = mq_open(kName, O_RDWR);
        if (descriptor == -1) return false;
        mq_close(descriptor);
        return true;
    }

    QoPushpullApi api_;
    QoLogCapture log_;
};
using ReceiveQueueTest = Queues;
using TransmitQueueTest = Queues;
using FreeFunction = Queues;

int open_descriptors() {
    int count = 0;
    DIR* directory = opendir("/proc/self/fd");
    while (readdir(directory) != nullptr) ++count;
    closedir(directory);
    return count;
}

std::set<pid_t> threads() {
    std::set<pid_t> ids;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
        ids.insert(std::stoi(entry.path().filename()));
    return ids;
}

/// Returns once there are no more than that; false after 10 seconds. One that was joined may be seen a little longer.
bool threads_fall_to(size_t count) {
    for (int tries = 0; tries < 10000; ++tries) {
        if (threads().size() <= count) return true;
        usleep(1000);
    }
    return false;
}

std::string read_of_thread(pid_t thread, const char* file) {
    std::ostringstream text;
    text << std::ifstream("/proc/self/task/" + std::to_string(thread) + "/" + file).rdbuf();
    return text.str();
}

/// The thread that `make` started.
template <typename Make>
pid_t new_thread(Make make) {
    const std::set<pid_t> before = threads();
    make();
    for (const pid_t thread : threads())
        if (before.count(thread) == 0) return thread;
    return 0;
}

/// Returns once the thread sleeps in the system call; false after 10 seconds.
bool sleeps_in(pid_t thread, long system_call) {
    const std::string number = std::to_string(system_call) + " ";
    for (int tries = 0; tries < 10000; ++tries) {
        if (read_of_thread(thread, "syscall").starts_with(number)) return true;
        usleep(1000);
    }
    return false;
}
bool sleeps_in_mq_receive(pid_t thread) { return sleeps_in(thread, SYS_mq_timedreceive); }
bool waits_for_a_request(pid_t thread) { return sleeps_in(thread, SYS_futex); }

// ---- creating a receive queue ----

TEST_F(ReceiveQueueTest, IsOpenAndEmptyAndLogsNothing) {
    const ReceiveQueue queue = receive_queue();
    ASSERT_TRUE(queue);
    EXPECT_TRUE(queue->initialized());
    EXPECT_EQ(queue->current_messages(), 0);
    EXPECT_FALSE(queue->is_full());
    EXPECT_STREQ(queue->get_queue_buffer(), "");
    EXPECT_EQ(log_.lines(), Lines{});
}

TEST_F(ReceiveQueueTest, IsCreatedWithMode0660WhateverTheUmask) {
    const mode_t old_mask = umask(0777);
    const ReceiveQueue queue = receive_queue();
    EXPECT_EQ(umask(old_mask), 0777U);  // restored
    ASSERT_TRUE(queue);
    const QoScratchQueue look(kName);
    struct stat status {};
    ASSERT_EQ(fstat(look.descriptor(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0660U);
    EXPECT_EQ(look.attributes().mq_maxmsg, kMessages);
    EXPECT_EQ(look.attributes().mq_msgsize, kMessageSize);
}

struct Sizes {
    int32_t queue_size;
    int32_t message_size;
    const char* logged;
};
class UnsupportedSizes : public testing::TestWithParam<Sizes> {};

TEST_P(UnsupportedSizes, YieldNullAndOneLine) {
    QoPushpullApi api;
    const Lines expected{
        {LOG_ERR, std::string("Unsupported queue or mesage size (queue = /own, ") + GetParam().logged}};
    {
        const QoLogCapture log;
        EXPECT_EQ(api.create_receive_queue(kName, GetParam().queue_size, GetParam().message_size), nullptr);
        EXPECT_EQ(log.lines(), expected);
    }
    const QoLogCapture log;
    EXPECT_EQ(api.create_transmit_queue(kName, GetParam().queue_size, GetParam().message_size), nullptr);
    EXPECT_EQ(log.lines(), expected);
    EXPECT_EQ(mq_open(kName, O_RDWR), -1);
}

INSTANTIATE_TEST_SUITE_P(OfZeroOrBelow, UnsupportedSizes,
                         testing::Values(Sizes{0, 256, "queue_size = 0, message_size = 256)"},
                                         Sizes{-1, 256, "queue_size = -1, message_size = 256)"},
                                         Sizes{4, 0, "queue_size = 4, message_size = 0)"},
                                         Sizes{4, -2147483647, "queue_size = 4, message_size = -2147483647)"}));

TEST_F(ReceiveQueueTest, ThatCannotBeOpenedIsNullWithNothingLeftOpen) {
    const int before = open_descriptors();
    EXPECT_EQ(api_.create_receive_queue("/not/allowed", kMessages, kMessageSize), nullptr);
    EXPECT_EQ(log_.lines(),
              (Lines{{LOG_ERR, "Unable to open message queue /not/allowed (error " + std::to_string(EACCES) + ")"}}));
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(ReceiveQueueTest, LargerThanTheLimitIsNullWithTheErrorOfTheOpen) {
    EXPECT_EQ(api_.create_receive_queue(kName, 2147483647, 2147483647), nullptr);
    EXPECT_EQ(log_.lines(),
              (Lines{{LOG_ERR, "Unable to open message queue /own (error " + std::to_string(EINVAL) + ")"}}));
}

TEST_F(ReceiveQueueTest, WithoutAThreadIsNullWithNothingLeftOpen) {
    const int before = open_descriptors();
    thread_creation_error = EAGAIN;
    EXPECT_EQ(receive_queue(), nullptr);
    EXPECT_EQ(log_.lines(), (Lines{{LOG_ERR, "Unable to create receiver thread for message queue /own (error " +
                                                 std::to_string(EAGAIN) + ")"}}));
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(ReceiveQueueTest, DrainsMessagesOfAnEarlierRunAndCountsThemInOneDebugLine) {
    const QoScratchQueue earlier(kName, 3, 64);
    earlier.fill();
    const ReceiveQueue queue = receive_queue(3, 64);
    ASSERT_TRUE(queue);
    EXPECT_EQ(earlier.count(), 0);
    ASSERT_EQ(log_.lines().size(), 1U);
    EXPECT_EQ(log_.lines()[0].level, LOG_DEBUG);
    EXPECT_THAT(log_.lines()[0].text, testing::MatchesRegex("Flushed 3 stale messages from queue [0-9]+"));
}

TEST_F(ReceiveQueueTest, KeepsTheAttributesOfAnExistingQueue) {
    const QoScratchQueue existing(kName, 2, 64);
    const ReceiveQueue queue = receive_queue(5, 512);
    ASSERT_TRUE(queue);
    EXPECT_EQ(existing.attributes().mq_maxmsg, 2);
    EXPECT_EQ(existing.attributes().mq_msgsize, 64);
    ASSERT_TRUE(existing.put(std::string("fits\0", 5)));
    EXPECT_EQ(queue->receive(), 5);
}

TEST_F(ReceiveQueueTest, FailsToReceiveFromAQueueThatWasCreatedWithLargerMessages) {
    const QoScratchQueue existing(kName, 2, 512);
    const ReceiveQueue queue = receive_queue(2, 256);
    ASSERT_TRUE(queue);
    ASSERT_TRUE(existing.put("short"));
    errno = 0;
    EXPECT_EQ(queue->receive(), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    EXPECT_STREQ(queue->get_queue_buffer(), "");
    errno = 0;
    EXPECT_EQ(queue->timed_receive(std::chrono::minutes(1)), -1);  // the thread goes on
    EXPECT_EQ(errno, EMSGSIZE);
    EXPECT_EQ(existing.count(), 1);
}

// ---- receiving ----

TEST_F(ReceiveQueueTest, ReceivesTextsWithTheirLengthInTheOrderOfSending) {
    const ReceiveQueue queue = receive_queue();
    const TransmitQueue sender = transmit_queue();
    ASSERT_EQ(sender->send("first"), 0);
    ASSERT_EQ(sender->send("second!"), 0);
    EXPECT_EQ(queue->receive(), 6);
    EXPECT_STREQ(queue->get_queue_buffer(), "first");
    EXPECT_EQ(queue->current_messages(), 1);
    EXPECT_EQ(queue->receive(), 8);
    EXPECT_STREQ(queue->get_queue_buffer(), "second!");
    EXPECT_EQ(queue->current_messages(), 0);
}

TEST_F(ReceiveQueueTest, TakesNothingOutUnasked) {
    const ReceiveQueue queue = receive_queue();
    const TransmitQueue sender = transmit_queue();
    for (int i = 0; i < kMessages; ++i) ASSERT_EQ(sender->send("text"), 0);
    EXPECT_TRUE(queue->is_full());
    EXPECT_EQ(queue->receive(), 5);
    EXPECT_EQ(queue->current_messages(), kMessages - 1);
    EXPECT_FALSE(queue->is_full());
}

TEST_F(ReceiveQueueTest, WaitsUntilAMessageComes) {
    const ReceiveQueue queue = receive_queue();
    const TransmitQueue sender = transmit_queue();
    std::future<int32_t> received = std::async(std::launch::async, [&queue] { return queue->receive(); });
    EXPECT_EQ(received.wait_for(milliseconds(30)), std::future_status::timeout);
    ASSERT_EQ(sender->send("text"), 0);
    EXPECT_EQ(received.get(), 5);
}

TEST_F(ReceiveQueueTest, TerminatesAMessageWithoutNulThatFillsTheWholeBuffer) {
    const ReceiveQueue queue = receive_queue();
    const QoScratchQueue foreign(kName);
    const std::string bytes(static_cast<size_t>(kMessageSize), 'x');
    ASSERT_TRUE(foreign.put(bytes));
    EXPECT_EQ(queue->receive(), kMessageSize);
    EXPECT_EQ(std::string(queue->get_queue_buffer()), bytes);
    ASSERT_TRUE(foreign.put("y"));
    EXPECT_EQ(queue->receive(), 1);
    EXPECT_STREQ(queue->get_queue_buffer(), "y");
}

TEST_F(ReceiveQueueTest, SkipsMessagesWithoutASingleByte) {
    const ReceiveQueue queue = receive_queue();
    const QoScratchQueue foreign(kName);
    ASSERT_TRUE(foreign.put(""));
    ASSERT_TRUE(foreign.put(""));
    ASSERT_TRUE(foreign.put("text"));
    EXPECT_EQ(queue->receive(), 4);
    EXPECT_EQ(queue->current_messages(), 0);
}

TEST_F(ReceiveQueueTest, GivesUpAtTheTimeoutWithZero) {
    const ReceiveQueue queue = receive_queue();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(queue->timed_receive(milliseconds(40)), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(40));
    EXPECT_EQ(queue->timed_receive(milliseconds(0)), 0);
    EXPECT_EQ(queue->timed_receive(milliseconds(-5)), 0);
}

TEST_F(ReceiveQueueTest, ReturnsAMessageThatIsInTheQueueWhateverTheTimeout) {
    const ReceiveQueue queue = receive_queue();
    const TransmitQueue sender = transmit_queue();
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(sender->send("text"), 0);
        ASSERT_EQ(queue->timed_receive(milliseconds(0)), 5);
    }
}

TEST_F(ReceiveQueueTest, GivesUpWhenAnotherReaderTookTheMessageThatWasInTheQueue) {
    const ReceiveQueue queue = receive_queue();
    messages_counted_too_many = 1;
    EXPECT_EQ(queue->timed_receive(milliseconds(0)), 0);
}

TEST_F(ReceiveQueueTest, LetsTheNextReceiveTakeOverTheReceptionLeftByATimeout) {
    const ReceiveQueue queue = receive_queue();
    const TransmitQueue sender = transmit_queue();
    ASSERT_EQ(queue->timed_receive(milliseconds(1)), 0);
    ASSERT_EQ(sender->send("one"), 0);
    ASSERT_EQ(sender->send("second"), 0);
    EXPECT_EQ(queue->receive(), 4);
    EXPECT_STREQ(queue->get_queue_buffer(), "one");
    EXPECT_EQ(queue->current_messages(), 1);  // the reception left behind was not doubled
    EXPECT_EQ(queue->timed_receive(std::chrono::minutes(1)), 7);
    EXPECT_STREQ(queue->get_queue_buffer(), "second");
}

TEST_F(ReceiveQueueTest, KeepsTheMessageInTheBufferWhileMoreArrive) {
    ReceiveQueue queue;
    const pid_t thread = new_thread([&] { queue = receive_queue(); });
    const TransmitQueue sender = transmit_queue();
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(queue->timed_receive(milliseconds(0)), 0);
        ASSERT_EQ(sender->send("mine"), 0);
        ASSERT_TRUE(waits_for_a_request(thread));  // the reception left behind has its result
        ASSERT_EQ(queue->receive(), 5);
        ASSERT_EQ(sender->send("next"), 0);
        usleep(1000);  // time for a thread that takes messages unasked
        ASSERT_STREQ(queue->get_queue_buffer(), "mine");
        ASSERT_EQ(queue->current_messages(), 1);
        ASSERT_EQ(queue->receive(), 5);
        ASSERT_STREQ(queue->get_queue_buffer(), "next");
    }
}

TEST_F(ReceiveQueueTest, LosesAndDoublesNothingWhenTimeoutsAndMessagesMeet) {
    const ReceiveQueue queue = receive_queue();
    constexpr int kLast = 2000;
    std::thread sending([this] {
        const TransmitQueue sender = transmit_queue();
        for (int number = 1; number <= kLast; ++number) {
            usleep(static_cast<useconds_t>(number % 7 * 20));
            sender->timedsend(std::to_string(number), std::chrono::seconds(5));
        }
    });
    for (int expected = 1; expected <= kLast; ++expected) {
        int32_t length = 0;
        while (length == 0) length = expected % 5 == 0 ? queue->receive() : queue->timed_receive(milliseconds(0));
        const std::string received = queue->get_queue_buffer();
        EXPECT_EQ(received, std::to_string(expected));
        if (HasFailure()) break;
    }
    sending.join();
}

// ---- tear-down ----

TEST_F(ReceiveQueueTest, TornDownWhileItsThreadWaitsForARequestLeavesTheWakeUpTextForTheNextCreationToDrain) {
    ReceiveQueue queue;
    const pid_t thread = new_thread([&] { queue = receive_queue(); });
    ASSERT_TRUE(waits_for_a_request(thread));
    queue.reset();
    {
        const QoScratchQueue look(kName);
        EXPECT_EQ(look.take(), kWakeUp);
        EXPECT_EQ(look.count(), 0);
        ASSERT_TRUE(look.put(kWakeUp.bytes, kWakeUp.priority));
        queue = receive_queue();
    }
    EXPECT_EQ(queue->current_messages(), 0);
    ASSERT_EQ(log_.lines().size(), 1U);
    EXPECT_THAT(log_.lines()[0].text, testing::MatchesRegex("Flushed 1 stale messages from queue [0-9]+"));
}

TEST_F(ReceiveQueueTest, TornDownWhileItsThreadIsBlockedInTheQueueEndsItThroughTheWakeUpText) {
    ReceiveQueue queue;
    const pid_t thread = new_thread([&] { queue = receive_queue(); });
    ASSERT_EQ(queue->timed_receive(milliseconds(1)), 0);
    ASSERT_TRUE(sleeps_in_mq_receive(thread));
    queue.reset();
    const QoScratchQueue look(kName);
    EXPECT_EQ(look.count(), 0);
}

TEST_F(ReceiveQueueTest, TornDownWhileTheQueueIsFullDoesNotHang) {
    ReceiveQueue queue = receive_queue();
    const QoScratchQueue foreign(kName);
    foreign.fill();
    queue.reset();
    EXPECT_EQ(foreign.count(), kMessages);
    while (const std::optional<Message> left = foreign.take()) EXPECT_EQ(left->bytes, "f");
}

TEST_F(ReceiveQueueTest, TornDownWithMessagesThatAreTooLongDoesNotHang) {
    const QoScratchQueue existing(kName, 2, 512);
    ReceiveQueue queue = receive_queue(2, 256);
    existing.fill();
    ASSERT_EQ(queue->receive(), -1);
    queue.reset();
    EXPECT_EQ(existing.count(), 2);
}

// In a process of its own, which the alarm ends when the tear-down hangs.
TEST_F(ReceiveQueueTest, TornDownWhileBlockedInAQueueOfSmallMessagesEndsItsThreadWithAsMuchOfTheTextAsFits) {
    for (const int32_t size : {1, 17, 18}) {
        const QoScratchQueue existing(kName, 2, size);
        const auto tear_down = [&] {
            alarm(30);
            ReceiveQueue queue;
            const pid_t thread = new_thread([&] { queue = receive_queue(2, size); });
            if (queue->timed_receive(milliseconds(1)) != 0 || !sleeps_in_mq_receive(thread)) _exit(1);
            queue.reset();
            _exit(0);
        };
        EXPECT_EXIT(tear_down(), testing::ExitedWithCode(0), "") << size;
    }
}

TEST_F(ReceiveQueueTest, TornDownBeforeItsThreadReceivesLeavesAsMuchOfTheWakeUpTextAsFits) {
    const QoScratchQueue existing(kName, 2, 10);
    ReceiveQueue queue;
    const pid_t thread = new_thread([&] { queue = receive_queue(2, 10); });
    ASSERT_TRUE(waits_for_a_request(thread));
    queue.reset();
    EXPECT_EQ(existing.take(), (Message{"DESTRUCTOR", 0}));
    EXPECT_EQ(existing.count(), 0);
}

TEST_F(ReceiveQueueTest, TornDownWhileAnotherReaderTakesTheWakeUpTextDoesNotHang) {
    ReceiveQueue queue;
    const pid_t thread = new_thread([&] { queue = receive_queue(); });
    ASSERT_EQ(queue->timed_receive(milliseconds(1)), 0);
    ASSERT_TRUE(sleeps_in_mq_receive(thread));
    sends_lost = 1;
    queue.reset();
    EXPECT_EQ(sends_lost, 0);
    EXPECT_EQ(threads().count(thread), 0U);
}

TEST_F(ReceiveQueueTest, TornDownBetweenItsThreadsLookAtTheRunFlagAndItsWaitEndsTheThread) {
    wake_up_sent = held_at_lock = false;
    hold_at_lock = true;
    ReceiveQueue queue = receive_queue();
    while (!held_at_lock) usleep(100);
    queue.reset();
    EXPECT_TRUE(wake_up_sent);
}

// The thread may be anywhere between two steps when the tear-down comes.
TEST_F(ReceiveQueueTest, TornDownAtAnyMomentEndsItsThread) {
    const size_t threads_before = threads().size();
    const int descriptors_before = open_descriptors();
    for (int round = 0; round < 1000; ++round) {
        const ReceiveQueue queue = receive_queue();
        ASSERT_TRUE(queue);
        if (round % 3 == 0) queue->timed_receive(milliseconds(0));
    }
    EXPECT_TRUE(threads_fall_to(threads_before));
    EXPECT_EQ(open_descriptors(), descriptors_before);
}

// ---- signals ----

uint64_t blocked_signals(pid_t thread) {
    const std::string status = read_of_thread(thread, "status");
    const std::string::size_type at = status.find("SigBlk:\t");
    return at == std::string::npos ? 0 : std::stoull(status.substr(at + 8, 16), nullptr, 16);
}
bool blocks(uint64_t mask, int number) { return (mask >> (number - 1) & 1) != 0; }

TEST_F(ReceiveQueueTest, BlocksInItsThreadEverySignalButThoseOfAFault) {
    ReceiveQueue queue;
    const pid_t thread = new_thread([&] { queue = receive_queue(); });
    ASSERT_TRUE(waits_for_a_request(thread));  // it is created with every signal blocked
    const uint64_t mask = blocked_signals(thread);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGCHLD, SIGPIPE, SIGRTMAX})
        EXPECT_TRUE(blocks(mask, number)) << number;
    for (const int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS})
        EXPECT_FALSE(blocks(mask, number)) << number;
}

TEST_F(ReceiveQueueTest, LeavesTheSignalsOfItsCreatorAsTheyWere) {
    const uint64_t before = blocked_signals(gettid());
    const ReceiveQueue queue = receive_queue();
    EXPECT_EQ(blocked_signals(gettid()), before);
    EXPECT_FALSE(blocks(before, SIGTERM));
}

// ---- transmit queue ----

TEST_F(TransmitQueueTest, IsOpenWithMode0660AndLogsNothing) {
    const mode_t old_mask = umask(0777);
    const TransmitQueue queue = transmit_queue();
    umask(old_mask);
    ASSERT_TRUE(queue);
    EXPECT_TRUE(queue->initialized());
    EXPECT_EQ(queue->current_messages(), 0);
    EXPECT_FALSE(queue->is_full());
    const QoScratchQueue look(kName);
    struct stat status {};
    ASSERT_EQ(fstat(look.descriptor(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0660U);
    EXPECT_EQ(log_.lines(), Lines{});
}

TEST_F(TransmitQueueTest, ThatCannotBeOpenedIsNull) {
    EXPECT_EQ(api_.create_transmit_queue("/not/allowed", kMessages, kMessageSize), nullptr);
    EXPECT_EQ(log_.lines(),
              (Lines{{LOG_ERR, "Unable to open message queue /not/allowed (error " + std::to_string(EACCES) + ")"}}));
}

TEST_F(TransmitQueueTest, DoesNotDrainAnExistingQueue) {
    const QoScratchQueue existing(kName, 2, 64);
    existing.fill();
    const TransmitQueue queue = transmit_queue(2, 64);
    ASSERT_TRUE(queue);
    EXPECT_EQ(queue->current_messages(), 2);
    EXPECT_TRUE(queue->is_full());
    EXPECT_EQ(log_.lines(), Lines{});
}

TEST_F(TransmitQueueTest, ClosesItsQueueAndLeavesItInTheSystem) {
    const int before = open_descriptors();
    TransmitQueue queue = transmit_queue();
    queue.reset();
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_TRUE(exists());
}

TEST_F(TransmitQueueTest, SendsATextWithItsNulAndPriority1) {
    const TransmitQueue queue = transmit_queue();
    const QoScratchQueue look(kName);
    EXPECT_EQ(queue->send("text"), 0);
    EXPECT_EQ(queue->timedsend("timed", milliseconds(1000)), 0);
    EXPECT_EQ(look.take(), (Message{std::string("text\0", 5), 1}));
    EXPECT_EQ(look.take(), (Message{std::string("timed\0", 6), 1}));
}

TEST_F(TransmitQueueTest, SendsBytesAsTheyAreWithTheirPriority) {
    const TransmitQueue queue = transmit_queue();
    const QoScratchQueue look(kName);
    EXPECT_EQ(queue->send("a\0b", 3, 0), 0);
    EXPECT_EQ(queue->timedsend("urgent", 3, 7, milliseconds(1000)), 0);
    EXPECT_EQ(queue->send("", 0, 0), 0);
    EXPECT_EQ(look.take(), (Message{"urg", 7}));
    EXPECT_EQ(look.take(), (Message{std::string("a\0b", 3), 0}));
    EXPECT_EQ(look.take(), (Message{"", 0}));
}

TEST_F(TransmitQueueTest, RefusesAMessageLongerThanItsMessageSize) {
    const QoScratchQueue existing(kName, kMessages, 512);
    const TransmitQueue queue = transmit_queue(kMessages, 256);
    const std::string fits(255, 'x');  // and its NUL
    const std::string too_long(256, 'x');
    EXPECT_EQ(queue->send(fits), 0);
    EXPECT_EQ(queue->timedsend(fits, milliseconds(0)), 0);
    errno = 0;
    EXPECT_EQ(queue->send(too_long), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    errno = 0;
    EXPECT_EQ(queue->timedsend(too_long, milliseconds(0)), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    errno = 0;
    EXPECT_EQ(queue->send(too_long.data(), 257, 1), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    errno = 0;
    EXPECT_EQ(queue->timedsend(too_long.data(), 257, 1, milliseconds(0)), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    EXPECT_EQ(queue->current_messages(), 2);
}

TEST_F(TransmitQueueTest, RefusesAMessageLongerThanTheExistingQueueTakes) {
    const QoScratchQueue existing(kName, kMessages, 8);
    const TransmitQueue queue = transmit_queue();
    errno = 0;
    EXPECT_EQ(queue->send("12345678"), -1);
    EXPECT_EQ(errno, EMSGSIZE);
}

TEST_F(TransmitQueueTest, GivesUpATimedSendIntoAFullQueue) {
    const TransmitQueue queue = transmit_queue(1, 64);
    ASSERT_EQ(queue->send("text"), 0);
    EXPECT_TRUE(queue->is_full());
    errno = 0;
    EXPECT_EQ(queue->timedsend("text", milliseconds(20)), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    errno = 0;
    EXPECT_EQ(queue->timedsend("text", 5, 1, milliseconds(0)), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
}

TEST_F(TransmitQueueTest, WaitsWithASendUntilThereIsRoom) {
    const TransmitQueue queue = transmit_queue(1, 64);
    const QoScratchQueue look(kName);
    ASSERT_EQ(queue->send("first"), 0);
    std::future<int32_t> sent = std::async(std::launch::async, [&queue] { return queue->send("second"); });
    EXPECT_EQ(sent.wait_for(milliseconds(30)), std::future_status::timeout);
    ASSERT_TRUE(look.take().has_value());
    EXPECT_EQ(sent.get(), 0);
}

// ---- free functions ----

TEST_F(FreeFunction, QueueOpenTakesAnExistingQueueReadWriteWithItsAttributesWhateverTheFlags) {
    const QoScratchQueue existing(kName, 2, 64);
    mq_attr attributes{};
    attributes.mq_maxmsg = 3;
    attributes.mq_msgsize = 128;
    const mqd_t descriptor = qo_mq_open(kName, O_WRONLY | O_CREAT | O_EXCL | O_NONBLOCK, 0600, &attributes);
    ASSERT_NE(descriptor, -1);
    EXPECT_EQ(fcntl(descriptor, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR);
    EXPECT_EQ(mq_getattr(descriptor, &attributes), 0);
    EXPECT_EQ(attributes.mq_maxmsg, 2);
    EXPECT_EQ(attributes.mq_msgsize, 64);
    mq_close(descriptor);
}

TEST_F(FreeFunction, QueueOpenCreatesAMissingQueueWithItsModeAndAttributes) {
    mq_attr attributes{};
    attributes.mq_maxmsg = 3;
    attributes.mq_msgsize = 128;
    const mode_t old_mask = umask(0777);
    const mqd_t descriptor = qo_mq_open(kName, O_RDONLY, 0640, &attributes);
    EXPECT_EQ(umask(old_mask), 0777U);
    ASSERT_NE(descriptor, -1);
    struct stat status {};
    EXPECT_EQ(fstat(descriptor, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640U);
    EXPECT_EQ(mq_getattr(descriptor, &attributes), 0);
    EXPECT_EQ(attributes.mq_maxmsg, 3);
    mq_close(descriptor);
}

TEST_F(FreeFunction, QueueOpenCreatesNothingAfterAnotherErrorThanAMissingQueue) {
    errno = 0;
    EXPECT_EQ(qo_mq_open("/not/allowed", O_RDWR | O_CREAT, 0660, nullptr), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(FreeFunction, QueueOpenByTwoThreadsAtOnceLeavesTheUmaskAsItWas) {
    constexpr int kTurns = 50000;
    const QoScratchQueue existing(kName, 2, 64);
    const mode_t original = umask(027);
    const auto open_and_close = [] {
        for (int turn = 0; turn < kTurns; ++turn) mq_close(qo_mq_open(kName, O_RDWR, 0660, nullptr));
    };
    std::thread other(open_and_close);
    open_and_close();
    other.join();
    EXPECT_EQ(umask(original), 027U);
}

TEST_F(FreeFunction, UmaskFunctionsClearAndRestoreTheMask) {
    const mode_t original = umask(027);
    EXPECT_EQ(set_umask_to_all(), 027U);
    set_umask_value(0137);
    EXPECT_EQ(umask(original), 0137U);
}

TEST_F(FreeFunction, QueueLimitOf851968000BytesIsAskedForAndItsRefusalIgnored) {
    limits_asked_for.clear();
    qo_set_mqueue_limits();
    ASSERT_EQ(limits_asked_for.size(), 1U);
    EXPECT_EQ(limits_asked_for[0].rlim_cur, 851968000U);
    EXPECT_EQ(limits_asked_for[0].rlim_max, 851968000U);
    EXPECT_EQ(log_.lines(), Lines{});
}

TEST_F(FreeFunction, QueueLimitIsAskedForBeforeEveryQueueIsMade) {
    limits_asked_for.clear();
    ReceiveQueue received = receive_queue();
    EXPECT_EQ(limits_asked_for.size(), 1U);
    const TransmitQueue transmitted = transmit_queue();
    EXPECT_EQ(limits_asked_for.size(), 2U);
    mq_close(api_.message_queue_create_and_error_handling(kName, O_RDWR, 0660, nullptr));
    EXPECT_EQ(limits_asked_for.size(), 3U);
}

TEST_F(FreeFunction, SystemxRunsTheCommandAndGivesTheResultOfSystem) {
    QoShellCapture shell;
    shell.set_result(0x0300);
    EXPECT_EQ(systemx("reboot now"), 0x0300);
    EXPECT_EQ(shell.commands(), std::vector<std::string>{"reboot now"});
}

TEST_F(FreeFunction, SystemxOfANullTextIsAnErrorOfTheCaller) {
    const QoShellCapture shell;
    const char* volatile null_text = nullptr;
    EXPECT_THROW(systemx(null_text), std::logic_error);
    EXPECT_EQ(shell.commands(), std::vector<std::string>{});
}

TEST_F(FreeFunction, FlushOfAFailedOpenLogsItsError) {
    errno = ENOSPC;
    qo_handle_error_and_flush(-1);
    EXPECT_EQ(log_.lines(), (Lines{{LOG_ERR, "Error in creating the queue. Error: " + std::to_string(ENOSPC)}}));
}

TEST_F(FreeFunction, FlushWithoutAttributesLogsTheDescriptor) {
    const int no_queue = open("/dev/null", O_RDWR);
    qo_handle_error_and_flush(no_queue);
    EXPECT_EQ(log_.lines(),
              (Lines{{LOG_ERR, "Unable to get queue attributes for descriptor: " + std::to_string(no_queue)}}));
    close(no_queue);
}

TEST_F(FreeFunction, FlushOfAnEmptyQueueLogsNothing) {
    const QoScratchQueue empty(kName, 2, 64);
    qo_handle_error_and_flush(empty.descriptor());
    EXPECT_EQ(log_.lines(), Lines{});
}

TEST_F(FreeFunction, FlushDoesNotWaitForMessagesThatSomebodyElseTookMeanwhile) {
    mq_attr attributes{};
    attributes.mq_maxmsg = 3;
    attributes.mq_msgsize = 64;
    const mqd_t blocking = qo_mq_open(kName, O_RDWR | O_CREAT, 0660, &attributes);
    ASSERT_NE(blocking, -1);
    ASSERT_EQ(mq_send(blocking, "a", 1, 1), 0);
    messages_counted_too_many = 2;
    qo_handle_error_and_flush(blocking);
    EXPECT_EQ(log_.lines(), (Lines{{LOG_DEBUG, "Flushed 1 stale messages from queue " + std::to_string(blocking)}}));
    mq_close(blocking);
}

TEST_F(FreeFunction, FlushLeavesWhatItCannotReceive) {
    const QoScratchQueue queue(kName, 3, 64);
    queue.fill();
    const int write_only = mq_open(kName, O_WRONLY);
    qo_handle_error_and_flush(write_only);
    EXPECT_EQ(queue.count(), 3);
    EXPECT_EQ(log_.lines(), Lines{});
    mq_close(write_only);
}

}  // namespace
