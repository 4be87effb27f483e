// A shortage of memory at every point of every kind of request: the request ends, and the service goes on.
#include <unistd.h>

#include "failing_new.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_json.h"
#include "qo_service_fixture.h"

namespace {

using testing::Contains;

constexpr char kExit[] = R"({"function":"exit","arg":{"comp_id":1351,"buffer":"true"}})";
constexpr char kOtherQueue[] = "/another_queue_with_a_long_name";
constexpr size_t kNever = static_cast<size_t>(-1);

size_t failing = kNever;                      // operator new of the first request that is served
int receives = 0;                             // since the start of execute()
std::optional<QoFailingNew> short_of_memory;  // while that request is served

auto open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

}  // namespace

extern "C" {
int __wrap_nanosleep(const timespec* duration, timespec* left);
ssize_t __real_mq_receive(mqd_t descriptor, char* buffer, size_t length, unsigned* priority);
ssize_t __wrap_mq_receive(mqd_t descriptor, char* buffer, size_t length, unsigned* priority);
int __real_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority, const timespec* deadline);
int __wrap_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority, const timespec* deadline);

int __wrap_nanosleep(const timespec*, timespec*) { return 0; }

ssize_t __wrap_mq_receive(mqd_t descriptor, char* buffer, size_t length, unsigned* priority) {
    short_of_memory.reset();
    if (receives == 1)  // not before: an "init" request discards what waits behind it
        EXPECT_EQ(mq_send(descriptor, kExit, sizeof kExit, 1), 0);
    const ssize_t received = __real_mq_receive(descriptor, buffer, length, priority);
    if (receives++ == 0 && failing != kNever) short_of_memory.emplace(failing);
    return received;
}

int __wrap_mq_timedsend(mqd_t descriptor, const char* text, size_t length, unsigned priority, const timespec*) {
    const timespec long_ago{};
    return __real_mq_timedsend(descriptor, text, length, priority, &long_ago);
}
}

namespace {

struct Request {
    const char* function;
    const char* arguments;
};

class ShortOfMemory : public QoServiceFixture, public testing::WithParamInterface<Request> {
protected:
    ShortOfMemory() : QoServiceFixture(true) { populate(); }
    ~ShortOfMemory() override { failing = kNever; }

    void populate() {
        std::string members = R"("first of many":{"a":1})";
        for (int number = 0; number < 40; ++number) {
            members += R"(,"member of many )";
            members += std::to_string(number);
            members += R"(":{"a":1})";
        }
        members.insert(0, R"({"system":{"config":{)");
        members += R"(}},"devices":[{"id":4,"temp":1}]})";
        enter();
        ASSERT_EQ(service_->comp_publish(QO_CMPID_ALERTS, members), 0);
    }

    void enter() {
        ASSERT_EQ(service_->comp_register(QO_CMPID_DEMO, "/display", nullptr), 0);
        ASSERT_EQ(service_->comp_register(QO_CMPID_ALERTS, "/writer", nullptr), 0);
        ASSERT_EQ(service_->comp_subscribe(QO_CMPID_DEMO, "/system;/devices;/version", false), 0);
        ASSERT_EQ(service_->comp_subscribe(QO_CMPID_DEMO, "/system/config", true), 0);
    }

    /// So that each request finds again what it changes.
    void undo() {
        enter();
        ASSERT_EQ(service_->comp_unregister(QO_CMPID_SCHEDULER), 0);
        mq_unlink(kOtherQueue);
        service_->comp_unsubscribe(QO_CMPID_ALERTS, "/");
        service_->comp_delete(QO_CMPID_DEMO, "/system/config/a new member", false);
        service_->comp_delete(QO_CMPID_DEMO, "/devices/7", false);
    }

    void post(const std::string& text) { ASSERT_TRUE(service_queue_.put(text + '\0')); }

    /// Serves the request with its operator new number `number` failing, and an exit behind it.
    void serve(const Request& request, size_t number) {
        undo();
        while (display_.take() || writer_.take()) continue;
        log_.clear();
        std::ostringstream text;
        text << R"({"function":")" << request.function << R"(","arg":{)" << request.arguments << "}}";
        post(text.str());
        failing = number;
        receives = 0;
        status_ = service_->execute();
        short_of_memory.reset();
        failing = kNever;
        while (service_queue_.take()) continue;
    }

    /// Starts it anew, as systemd does after a failure status.
    void restart() {
        end_service();
        service_ = std::make_unique<PushPullData>(true);
        service_->init("");
        ASSERT_EQ(service_->exit_status(), 0);
        populate();
    }

    /// What the tree looks like on disk; null when that is no JSON.
    QoJsonNode active_tree() {
        if (service_->comp_save_debug(QO_CMPID_DEMO) != 0 && service_->comp_save_debug(QO_CMPID_ALERTS) != 0)
            return nullptr;
        std::ostringstream text;
        text << std::ifstream(std::string(QO_DATA_DIRECTORY) + QO_ACTIVE_TREE_FILE).rdbuf();
        return qo_json_parse(text.view());
    }

    const QoScratchQueue display_{"/display", 8, 8192};
    const QoScratchQueue writer_{"/writer", 8, 8192};
    int status_ = 0;
};

}  // namespace

TEST_P(ShortOfMemory, EndsTheRequestAndNoOther) {
    const Request& request = GetParam();
    serve(request, kNever);
    if (request.function == std::string("init")) populate();
    const auto descriptors = open_descriptors();
    size_t number = 0;
    size_t exceptions = 0;
    for (bool failed = true; failed; ++number) {
        serve(request, number);
        failed = QoFailingNew::has_failed();
        const std::vector<QoLogLine> lines = log_.lines();
        const auto is_exception = [&](const QoLogLine& line) {
            return line.level == LOG_CRIT && line.text.starts_with("exception std::bad_alloc");
        };
        for (const QoLogLine& line : lines)
            if (is_exception(line)) ++exceptions;
        if (service_->exit_status() != 0) {
            ASSERT_STREQ(request.function, "init");
            ASSERT_THAT(lines, Contains(testing::Field(&QoLogLine::level, LOG_CRIT)));
            restart();
            continue;
        }
        ASSERT_TRUE(status_ == -1 || request.function == std::string("exit")) << "the request behind it, at " << number;
        const QoJsonNode tree = active_tree();
        if (std::string(request.function) == "init") {
            populate();
            continue;
        }
        ASSERT_TRUE(tree) << "at " << number;
        ASSERT_NE(qo_json_find(tree.get(), "system"), nullptr) << "at " << number;
    }
    EXPECT_GT(exceptions, 0U) << number << " allocations";
    EXPECT_EQ(open_descriptors(), descriptors);
    std::cout << number - 1 << " allocations, " << exceptions << " exceptions\n";
}

INSTANTIATE_TEST_SUITE_P(
    EveryKind, ShortOfMemory,
    testing::Values(
        Request{"register",
                R"("comp_id":1352,"buffer":"/another_queue_with_a_long_name"},"que":{"maxmsg":1,"msgsize":16)"},
        Request{"subscribe", R"("comp_id":1073741835,"buffer":"/system/config;/version;/devices")"},
        Request{"unsubscribe", R"("comp_id":1073741852,"buffer":"/system/config;/version")"},
        Request{
            "publish",
            R"("comp_id":1073741835,"buffer":"{\"system\":{\"config\":{\"name\":\"a value of some length\",)"
            R"(\"a new member\":[{\"id\":2,\"x\":{\"y\":\"a value of some length\"}}]}},\"devices\":[{\"id\":7}]}")"},
        Request{"get",
                R"("comp_id":1073741852,"buffer":"/system/config;/devices/size;/devices/0","sender_id":"the one",)"
                R"("pack_and_send":true)"},
        Request{"save", R"("comp_id":1073741852)"}, Request{"save_debug", R"("comp_id":1073741852)"},
        Request{"delete", R"("comp_id":1073741827,"buffer":"/devices/1")"},
        Request{"clear", R"("comp_id":1073741852,"buffer":"/system/config")"},
        Request{"unregister", R"("comp_id":1073741852)"}, Request{"init", R"("comp_id":1073741852,"buffer":"true")"},
        Request{"exit", R"("comp_id":1073741852,"buffer":"true")"},
        Request{"sync", R"("comp_id":1073741835,"dst_comp_id":1073741852,"buffer":"/a pointer of some length")"}),
    [](const auto& test) { return std::string(test.param.function); });
