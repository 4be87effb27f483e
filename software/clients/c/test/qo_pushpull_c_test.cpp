// The C functions, with the real service behind them.
#include "qo_pushpull_c.h"

#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <poll.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include "component.h"

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::StartsWith;

constexpr int32_t kPatienceMs = 10000;
constexpr char kQueue[] = "/c_client";
constexpr char kPublished[] = R"({"system":{"status":{"systemTemperature":71}}})";

bool queue_exists(const char* name) {
    const mqd_t queue = mq_open(name, O_RDONLY);
    if (queue == -1) return false;
    mq_close(queue);
    return true;
}

/// A client of the C library, closed in the end.
class Client {
public:
    explicit Client(const QoServiceProcess& service, int32_t component = QO_CMPID_HVAC_SYSCON_PUB) {
        EXPECT_EQ(qo_pushpull_c_open(component, service.queue_suffix().c_str(), &client_), QO_PUSHPULL_C_OK);
    }
    ~Client() { qo_pushpull_c_close(client_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    operator qo_pushpull_c_client*() const { return client_; }

    void join(const char* queue = kQueue) const {
        ASSERT_EQ(qo_pushpull_c_register(client_, queue, 8, 8192), QO_PUSHPULL_C_OK);
    }
    /// The next text; "" and a failure of the test when none comes.
    std::string next() const {
        const char* text = nullptr;
        size_t length = 0;
        const int32_t status = qo_pushpull_c_receive(client_, kPatienceMs, &text, &length);
        EXPECT_EQ(status, QO_PUSHPULL_C_OK) << qo_pushpull_c_status_text(status);
        return text == nullptr ? "" : std::string(text, length);
    }
    /// Proves that nothing was sent before the answer to a question asked now.
    void expect_silence() const {
        EXPECT_EQ(qo_pushpull_c_get(client_, "/siblings/size", "fence", false), QO_PUSHPULL_C_OK);
        EXPECT_THAT(next(), StartsWith("sender_id:fence;"));
    }

private:
    qo_pushpull_c_client* client_ = nullptr;
};

class CClient : public RunningService {};
class CClientAlone : public ServiceProcess {};

}  // namespace

// ---- coming and going ----

TEST_F(CClientAlone, IsNotOpenedWithoutAService) {
    int no_client = 0;
    auto* client = reinterpret_cast<qo_pushpull_c_client*>(&no_client);
    errno = 0;
    EXPECT_EQ(qo_pushpull_c_open(QO_CMPID_DEMO, "_nobody", &client), QO_PUSHPULL_C_NO_SERVICE);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(client, nullptr);
}

TEST_F(CClient, GoesWithItsRegistrationAndItsQueue) {
    Component watcher(service(), QO_CMPID_DEMO);
    {
        const Client client(service());
        client.join();
        client.expect_silence();
        EXPECT_TRUE(queue_exists(kQueue));
    }
    EXPECT_FALSE(queue_exists(kQueue));
    watcher.fence();
    // The identifier is free: another queue is taken over, which it is not while one is registered.
    const Client next(service());
    next.join("/another_queue");
    next.expect_silence();
}

TEST_F(CClient, RegistersOnce) {
    const Client client(service());
    client.join();
    EXPECT_EQ(qo_pushpull_c_register(client, "/another_queue", 8, 8192), QO_PUSHPULL_C_OK);
    EXPECT_FALSE(queue_exists("/another_queue"));
    client.expect_silence();
}

TEST_F(CClient, UnregistersAndRegistersAgain) {
    const Client client(service());
    client.join();
    EXPECT_EQ(qo_pushpull_c_unregister(client), QO_PUSHPULL_C_OK);
    EXPECT_FALSE(queue_exists(kQueue));
    EXPECT_EQ(qo_pushpull_c_unregister(client), QO_PUSHPULL_C_OK);
    client.join();
    client.expect_silence();
}

TEST_F(CClient, LeavesAQueueAloneThatAnotherClientReceivesFrom) {
    const Client first(service());
    first.join();
    const Client second(service(), QO_CMPID_DEMO);
    EXPECT_EQ(qo_pushpull_c_register(second, kQueue, 8, 8192), QO_PUSHPULL_C_QUEUE_TAKEN);
    EXPECT_EQ(qo_pushpull_c_save(second), QO_PUSHPULL_C_NOT_REGISTERED);
    first.expect_silence();
}

TEST_F(CClient, TakesOverAQueueThatWasLeftBehind) {
    for (const long message_size : {8192L, 16384L}) {  // as the client asks for, and not
        mq_attr attributes{};
        attributes.mq_maxmsg = 8;
        attributes.mq_msgsize = message_size;
        const mqd_t left_behind = mq_open(kQueue, O_RDWR | O_CREAT, 0660, &attributes);
        ASSERT_NE(left_behind, -1);
        ASSERT_EQ(mq_send(left_behind, "stale", 6, 1), 0);
        ASSERT_EQ(mq_close(left_behind), 0);
        const Client client(service());
        client.join();
        client.expect_silence();
    }
}

TEST_F(CClient, SaysWhyAQueueCannotBeMade) {
    const Client client(service());
    errno = 0;
    EXPECT_EQ(qo_pushpull_c_register(client, "no_slash", 8, 8192), QO_PUSHPULL_C_QUEUE_FAILED);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(CClient, SendsNothingToAServiceThatHasGone) {
    const Client client(service());
    client.join();
    client.expect_silence();
    Component other(service(), QO_CMPID_DEMO);
    EXPECT_EQ(other.api().exit_request(other.id(), "true"), 0);
    EXPECT_TRUE(service().wait_for_end());
    EXPECT_EQ(client.next(), "exit");
    EXPECT_EQ(qo_pushpull_c_unregister(client), QO_PUSHPULL_C_OK);
    EXPECT_EQ(service().waiting_requests(), 0);
    EXPECT_FALSE(queue_exists(kQueue));
}

// ---- operations ----

TEST_F(CClient, OperatesOnlyWhileRegistered) {
    const Client client(service());
    const char* text = "";
    const auto no_more = [](const char*, size_t, void*) { return false; };
    EXPECT_EQ(qo_pushpull_c_publish(client, kPublished), QO_PUSHPULL_C_NOT_REGISTERED);
    EXPECT_EQ(qo_pushpull_c_get(client, "/system", "", false), QO_PUSHPULL_C_NOT_REGISTERED);
    EXPECT_EQ(qo_pushpull_c_subscribe(client, "/system", false), QO_PUSHPULL_C_NOT_REGISTERED);
    EXPECT_EQ(qo_pushpull_c_unsubscribe(client, "/system"), QO_PUSHPULL_C_NOT_REGISTERED);
    EXPECT_EQ(qo_pushpull_c_delete(client, "/devices/0"), QO_PUSHPULL_C_NOT_REGISTERED);
    EXPECT_EQ(qo_pushpull_c_clear(client, "/system"), QO_PUSHPULL_C_NOT_REGISTERED);
    EXPECT_EQ(qo_pushpull_c_save(client), QO_PUSHPULL_C_NOT_REGISTERED);
    EXPECT_EQ(qo_pushpull_c_sync(client, QO_CMPID_DEMO, ""), QO_PUSHPULL_C_NOT_REGISTERED);
    EXPECT_EQ(qo_pushpull_c_receive(client, 0, &text, nullptr), QO_PUSHPULL_C_NOT_REGISTERED);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(qo_pushpull_c_receive_each(client, 0, no_more, nullptr), QO_PUSHPULL_C_NOT_REGISTERED);
    EXPECT_EQ(qo_pushpull_c_descriptor(client), -1);
}

TEST_F(CClient, RefusesArgumentsThatAreNone) {
    const Client client(service());
    client.join();
    qo_pushpull_c_client* other = nullptr;
    EXPECT_EQ(qo_pushpull_c_open(QO_CMPID_RESERVED, "", &other), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_open(QO_CMPID_DEMO, nullptr, &other), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_open(QO_CMPID_DEMO, "", nullptr), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_register(client, nullptr, 8, 8192), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_register(client, kQueue, 0, 8192), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_register(client, kQueue, 8, -1), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_publish(nullptr, kPublished), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_publish(client, nullptr), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_publish(client, "{\"a\":\"\xff\"}"), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_get(client, "/system", nullptr, false), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_get(client, "/system", "\xff", false), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_delete(nullptr, "/system"), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_sync(client, QO_CMPID_RESERVED, ""), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_receive(client, 0, nullptr, nullptr), QO_PUSHPULL_C_BAD_ARGUMENT);
    const char* text = nullptr;
    EXPECT_EQ(qo_pushpull_c_receive(client, -2, &text, nullptr), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_receive_each(client, 0, nullptr, nullptr), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_unregister(nullptr), QO_PUSHPULL_C_BAD_ARGUMENT);
    EXPECT_EQ(qo_pushpull_c_descriptor(nullptr), -1);
    qo_pushpull_c_close(nullptr);
    client.expect_silence();
}

TEST_F(CClient, PublishesAndIsToldOfPublishes) {
    const Client client(service());
    client.join();
    Component other(service(), QO_CMPID_TCOMP);
    ASSERT_EQ(other.api().subscribe(other.id(), "/system/status", false), 0);
    ASSERT_EQ(qo_pushpull_c_subscribe(client, "/system/status", false), QO_PUSHPULL_C_OK);
    ASSERT_EQ(qo_pushpull_c_publish(client, kPublished), QO_PUSHPULL_C_OK);
    EXPECT_EQ(other.next_message(), kPublished);
    ASSERT_EQ(other.api().publish(other.id(), kPublished), 0);
    EXPECT_EQ(client.next(), kPublished);
}

TEST_F(CClient, IsToldOfChangesOnlyWhenItAskedSo) {
    const Client client(service());
    client.join();
    Component other(service(), QO_CMPID_TCOMP);
    ASSERT_EQ(qo_pushpull_c_subscribe(client, "/system/status", true), QO_PUSHPULL_C_OK);
    ASSERT_EQ(qo_pushpull_c_publish(client, kPublished), QO_PUSHPULL_C_OK);
    client.expect_silence();
    ASSERT_EQ(other.api().publish(other.id(), kPublished), 0);
    other.fence();
    client.expect_silence();
}

TEST_F(CClient, IsToldNothingAfterItUnsubscribed) {
    const Client client(service());
    client.join();
    Component other(service(), QO_CMPID_TCOMP);
    ASSERT_EQ(qo_pushpull_c_subscribe(client, "/system/status", false), QO_PUSHPULL_C_OK);
    ASSERT_EQ(qo_pushpull_c_unsubscribe(client, "/system"), QO_PUSHPULL_C_OK);
    client.expect_silence();
    ASSERT_EQ(other.api().publish(other.id(), kPublished), 0);
    other.fence();
    client.expect_silence();
}

TEST_F(CClient, GetsNodesWithItsTag) {
    const Client client(service());
    client.join();
    ASSERT_EQ(qo_pushpull_c_publish(client, kPublished), QO_PUSHPULL_C_OK);
    ASSERT_EQ(qo_pushpull_c_get(client, "/system/status/systemTemperature;/version", "mine", true), QO_PUSHPULL_C_OK);
    const std::string answer = client.next();
    EXPECT_THAT(answer, StartsWith("sender_id:mine;{"));
    EXPECT_THAT(answer, HasSubstr("\"systemTemperature\":71"));
    EXPECT_THAT(answer, HasSubstr("\"version\""));
    client.expect_silence();
}

TEST_F(CClient, DeletesAsTheSystemControllerOnly) {
    const Client client(service());
    client.join();
    const Client other(service(), QO_CMPID_DEMO);
    other.join("/c_other");
    ASSERT_EQ(qo_pushpull_c_subscribe(other, "/devices", false), QO_PUSHPULL_C_OK);
    other.expect_silence();
    EXPECT_EQ(qo_pushpull_c_delete(other, "/devices/0"), QO_PUSHPULL_C_NOT_ALLOWED);
    EXPECT_EQ(qo_pushpull_c_delete(client, "/devices/0"), QO_PUSHPULL_C_OK);
    EXPECT_EQ(other.next(), "NODE DELETED: /devices/0");
}

TEST_F(CClient, ClearsToTheDefault) {
    const Client client(service());
    client.join();
    ASSERT_EQ(qo_pushpull_c_publish(client, kPublished), QO_PUSHPULL_C_OK);
    ASSERT_EQ(qo_pushpull_c_clear(client, "/system/status"), QO_PUSHPULL_C_OK);
    ASSERT_EQ(qo_pushpull_c_get(client, "/system/status/systemTemperature", "", true), QO_PUSHPULL_C_OK);
    EXPECT_THAT(client.next(), testing::Not(HasSubstr("71")));
}

TEST_F(CClient, SavesTheTree) {
    const Client client(service());
    client.join();
    ASSERT_EQ(qo_pushpull_c_publish(client, R"({"system":{"config":{"name":"by C"}}})"), QO_PUSHPULL_C_OK);
    ASSERT_EQ(qo_pushpull_c_save(client), QO_PUSHPULL_C_OK);
    client.expect_silence();
    bool saved = false;
    for (const auto& file : std::filesystem::directory_iterator("/kivo/data")) {
        std::stringstream text;
        if (file.is_regular_file()) text << std::ifstream(file.path()).rdbuf();
        saved = saved || text.str().find("by C") != std::string::npos;
    }
    EXPECT_TRUE(saved);
}

TEST_F(CClient, PassesATextOn) {
    const Client client(service());
    client.join();
    const Client other(service(), QO_CMPID_DEMO);
    other.join("/c_other");
    other.expect_silence();
    ASSERT_EQ(qo_pushpull_c_sync(client, QO_CMPID_DEMO, "hello"), QO_PUSHPULL_C_OK);
    EXPECT_EQ(other.next(), "sync:" + std::to_string(QO_CMPID_HVAC_SYSCON_PUB) + ":hello");
}

// ---- receiving ----

TEST_F(CClient, ReceivesNothingInTime) {
    const Client client(service());
    client.join();
    const char* text = "";
    EXPECT_EQ(qo_pushpull_c_receive(client, 0, &text, nullptr), QO_PUSHPULL_C_TIMEOUT);
    EXPECT_EQ(text, nullptr);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(qo_pushpull_c_receive(client, 30, &text, nullptr), QO_PUSHPULL_C_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(30));
}

TEST_F(CClient, ReceivesATextWithANulInside) {
    const Client client(service());
    client.join();
    const mqd_t queue = mq_open(kQueue, O_WRONLY);
    ASSERT_EQ(mq_send(queue, "", 0, 1), 0);  // without even a NUL: skipped
    ASSERT_EQ(mq_send(queue, "one\0two", 8, 1), 0);
    ASSERT_EQ(mq_send(queue, "bare", 4, 1), 0);
    mq_close(queue);
    EXPECT_EQ(client.next(), std::string("one\0two", 7));
    EXPECT_EQ(client.next(), "bare");
}

TEST_F(CClient, ShowsByItsDescriptorThatATextWaits) {
    const Client client(service());
    client.join();
    client.expect_silence();
    pollfd waiting{qo_pushpull_c_descriptor(client), POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, 0), 0);
    ASSERT_EQ(qo_pushpull_c_get(client, "/version", "", false), QO_PUSHPULL_C_OK);
    EXPECT_EQ(poll(&waiting, 1, kPatienceMs), 1);
    EXPECT_THAT(client.next(), HasSubstr("version"));
    EXPECT_EQ(poll(&waiting, 1, 0), 0);
}

TEST_F(CClient, IsInterruptedByASignalHandler) {
    const Client client(service());
    client.join();
    client.expect_silence();
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    // Again and again: the first one may come before the wait has begun.
    timer_t timer{};
    ASSERT_EQ(timer_create(CLOCK_MONOTONIC, nullptr, &timer), 0);
    const itimerspec soon{{0, 10000000}, {0, 10000000}};
    ASSERT_EQ(timer_settime(timer, 0, &soon, nullptr), 0);
    const char* text = nullptr;
    EXPECT_EQ(qo_pushpull_c_receive(client, QO_PUSHPULL_C_FOREVER, &text, nullptr), QO_PUSHPULL_C_INTERRUPTED);
    timer_delete(timer);
    sigaction(SIGALRM, &before, nullptr);
}

namespace {

struct Heard {
    std::vector<std::string> texts;
    size_t enough;
};

bool hear(const char* text, size_t length, void* context) {
    auto& heard = *static_cast<Heard*>(context);
    heard.texts.emplace_back(text, length);
    return heard.texts.size() < heard.enough;
}

void put_into_queue(const std::vector<std::string>& texts) {
    const mqd_t queue = mq_open(kQueue, O_WRONLY);
    for (const std::string& text : texts) EXPECT_EQ(mq_send(queue, text.c_str(), text.size() + 1, 1), 0);
    mq_close(queue);
}

}  // namespace

TEST_F(CClient, HandsOverEachTextThatIsThere) {
    const Client client(service());
    client.join();
    put_into_queue({"one", "two", "three"});
    Heard heard{{}, 100};
    EXPECT_EQ(qo_pushpull_c_receive_each(client, 0, hear, &heard), QO_PUSHPULL_C_OK);
    EXPECT_THAT(heard.texts, testing::ElementsAre("one", "two", "three"));
    EXPECT_EQ(qo_pushpull_c_receive_each(client, 0, hear, &heard), QO_PUSHPULL_C_TIMEOUT);
}

TEST_F(CClient, HandsOverNoMoreThanWasWanted) {
    const Client client(service());
    client.join();
    put_into_queue({"one", "two", "three"});
    Heard heard{{}, 2};
    EXPECT_EQ(qo_pushpull_c_receive_each(client, 0, hear, &heard), QO_PUSHPULL_C_OK);
    EXPECT_THAT(heard.texts, testing::ElementsAre("one", "two"));
    EXPECT_EQ(client.next(), "three");
}

TEST_F(CClient, HandsOverAQueueFullAtMost) {
    const Client client(service());
    client.join();
    put_into_queue({"a text"});
    size_t calls = 0;
    const auto refill = [](const char*, size_t, void* context) {
        ++*static_cast<size_t*>(context);
        put_into_queue({"a text"});
        return true;
    };
    EXPECT_EQ(qo_pushpull_c_receive_each(client, 0, refill, &calls), QO_PUSHPULL_C_OK);
    EXPECT_EQ(calls, 8U);
}

// ---- what needs no service ----

TEST(CClientStatus, HasATextEach) {
    std::vector<std::string> texts;
    for (int32_t status = QO_PUSHPULL_C_OK; status <= QO_PUSHPULL_C_NO_MEMORY; ++status)
        texts.emplace_back(qo_pushpull_c_status_text(status));
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(std::adjacent_find(texts.begin(), texts.end()), texts.end());
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "unknown status"), 0);
    EXPECT_STREQ(qo_pushpull_c_status_text(QO_PUSHPULL_C_NO_MEMORY + 1), "unknown status");
    EXPECT_STREQ(qo_pushpull_c_status_text(-1), "unknown status");
}

TEST(CClientVersion, IsThatOfTheHeader) { EXPECT_EQ(qo_pushpull_c_version(), uint32_t{QO_PUSHPULL_C_VERSION}); }
