// The operations that are counted, each with the components that it needs.
#include "operations.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

constexpr int32_t kFirstSubscriber = 0x50000000;
constexpr int32_t kMessages = 2;  // one is waited for; a full queue would be reported, if that is when it is looked at
constexpr Component::Queue kSmallQueue{kMessages, 64};
constexpr int kFewPlays = 10;
constexpr int kPlays = 50;

constexpr char kSubscribed[] = "/system";
constexpr char kLeaf[] = "/system/status/systemTemperature";
constexpr int32_t kLargestAnswer = 32768;  // bytes

Component::Queue queue_for(const std::string& body) { return {kMessages, static_cast<int32_t>(body.size() + 1)}; }

/// One component reads.
class Reading : public QoScene {
public:
    Reading(QoCountedService& service, std::string pointer)
        : service_(service),
          pointer_(std::move(pointer)),
          reader_(service.process(), QO_CMPID_DEMO, {kMessages, kLargestAnswer}) {}
    void play(int) override {
        const std::string answer = reader_.get(pointer_);
        if (!answer.starts_with("{")) throw std::runtime_error(pointer_ + " was not read: " + answer);
        service_.settle();
    }

private:
    QoCountedService& service_;
    std::string pointer_;
    Component reader_;
};

/// One component subscribes and unsubscribes.
class Subscribing : public QoScene {
public:
    explicit Subscribing(QoCountedService& service)
        : service_(service), subscriber_(service.process(), QO_CMPID_DEMO, kSmallQueue) {}
    void play(int) override {
        qo_require_sent(subscriber_.api().subscribe(subscriber_.id(), kSubscribed, false));
        service_.settle();
        qo_require_sent(subscriber_.api().un_subscribe(subscriber_.id(), kSubscribed));
        service_.settle();
    }

private:
    QoCountedService& service_;
    Component subscriber_;
};

/// One component registers and unregisters.
class Registering : public QoScene {
public:
    explicit Registering(QoCountedService& service)
        : service_(service), component_(service.process(), QO_CMPID_DEMO, kSmallQueue, false) {}
    void play(int) override {
        qo_require_sent(component_.api().comp_register(component_.id(), component_.queue_name(), nullptr));
        service_.settle();
        qo_require_sent(component_.api().comp_unregister(component_.id()));
        service_.settle();
    }

private:
    QoCountedService& service_;
    Component component_;
};

using MakeScene = std::function<std::unique_ptr<QoScene>(QoCountedService&)>;

MakeScene publishing(std::string body, QoPublishing::Subscribers subscribers = {},
                     eQO_CMP_IDs_ publisher = QO_CMPID_TESTPUBLISHER) {
    return [=](QoCountedService& service) {
        return std::make_unique<QoPublishing>(service, publisher, body, subscribers);
    };
}

MakeScene reading(std::string pointer) {
    return [=](QoCountedService& service) { return std::make_unique<Reading>(service, pointer); };
}

template <typename Scene>
std::unique_ptr<QoScene> simple(QoCountedService& service) {
    return std::make_unique<Scene>(service);
}

/// Passes the checker of published objects, which looks at the clock.
constexpr char kClockBody[] =
    R"({"system":{"clock":{"tz":"CST","format":"12hour","dstOffset":3600,"offset":-2160#,"enableDst":true}}})";

}  // namespace

const std::vector<QoOperation>& qo_operations() {
    static const std::vector<QoOperation> operations = {
        {"publish_small", kPlays, publishing(qo_small_body())},
        {"publish_small_to_16", kPlays, publishing(qo_small_body(), {.count = 16})},
        {"publish_small_on_change", kPlays, publishing(qo_small_body(), {.on_change_only = true})},
        {"publish_small_checked", kPlays, publishing(kClockBody, {}, QO_CMPID_WEBSERVER_GATEWAY_C0)},
        {"publish_4k_string", kPlays, publishing(qo_string_body(4096))},
        {"publish_4k_members", kPlays, publishing(qo_members_body(4096))},
        {"publish_64k_members", kFewPlays, publishing(qo_members_body(65536))},
        {"get_leaf", kPlays, reading(kLeaf)},
        {"get_system", kPlays, reading(kSubscribed)},
        {"subscribe_unsubscribe", kPlays, simple<Subscribing>},
        {"register_unregister", kPlays, simple<Registering>},
    };
    return operations;
}

// ---- bodies ----

std::string qo_with_turn(std::string text, int turn) {
    std::replace(text.begin(), text.end(), '#', static_cast<char>('0' + turn % 10));
    return text;
}

std::string qo_small_body() {
    return R"({"system":{"status":{"numberOfDevices":1#,"productLoadTimer":10#,"primaryHumidityValue":4#,)"
           R"("systemTemperatureC":25.#,"systemTemperature":7#,"defrostCycles":100#,"screenLock":"UNLOCK#"}}})";
}

std::string qo_string_body(size_t size) {
    const std::string head = R"({"system":{"status":{"subState":")";
    const std::string tail = R"(#"}}})";
    return head + std::string(size - head.size() - tail.size(), 's') + tail;
}

std::string qo_members_body(size_t size) {
    constexpr size_t kMemberSize = sizeof(R"("mem0000":100000#,)") - 1;
    const std::string head = R"({"system":{"status":{)";
    const std::string tail = "}}}";
    const size_t count = (size - head.size() - tail.size()) / kMemberSize;
    std::string body = head;
    for (size_t index = 0; index < count; ++index) {
        const std::string number = std::to_string(10000 + index).substr(1);
        body.append(index == 0 ? "" : ",")
            .append(R"("mem)")
            .append(number)
            .append(R"(":10)")
            .append(number)
            .append("#");
    }
    return body + tail;
}

// ---- publishing ----

QoPublishing::QoPublishing(QoCountedService& service, eQO_CMP_IDs_ publisher, std::string body, Subscribers subscribers)
    : service_(service), body_(std::move(body)), publisher_(service.process(), publisher, kSmallQueue) {
    for (int i = 0; i < subscribers.count; ++i) {
        subscribers_.push_back(service.make_subscriber(kFirstSubscriber + i, queue_for(body_), subscribers.pointer,
                                                       subscribers.on_change_only));
    }
}

// Each is told before the next publish is sent.
void QoPublishing::play(int turn) {
    const std::string body = qo_with_turn(body_, turn);
    qo_require_sent(publisher_.api().publish(publisher_.id(), body));
    for (const std::unique_ptr<Component>& subscriber : subscribers_)
        if (subscriber->next_message() != body) throw std::runtime_error("a subscriber was told something else");
    service_.settle();
}
