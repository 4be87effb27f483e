// The service, as it is shipped. Its clients write requests into its queue and read their own, as those of the relay
// do; or they leave both to the client library, as components do.
#include <sys/stat.h>

#include <algorithm>

#include "child_process.h"
#include "contender.h"
#include "message_queue.h"
#include "qo_pushpull_api.h"
#include "readiness_socket.h"

namespace {

constexpr char kQueue[] = "/pushpull";
constexpr char kReadiness[] = "/kivo/readiness";
constexpr eQO_CMP_IDs_ kPublisher = QO_CMPID_TESTPUBLISHER;
constexpr int kFirstSubscriber = 0x50000000;
constexpr int kFirstOther = 0x51000000;
constexpr char kSubscribed[] = "/system/status";
constexpr size_t kEnvelope = 512;  // bytes, more than a request has beside its text
constexpr int kAnswers = 2;        // that wait to be read
constexpr size_t kAnswer = 65536;  // bytes

std::string queue_name(int comp_id) { return "/component" + std::to_string(comp_id); }

std::string escaped(const std::string& text) {
    std::string result;
    result.reserve(text.size() + 64);
    for (const char character : text) {
        if (character == '"' || character == '\\') result += '\\';
        result += character;
    }
    return result;
}

std::string request(const char* function, int comp_id, const std::string& buffer) {
    return std::string(R"({"function":")") + function + R"(","arg":{"comp_id":)" + std::to_string(comp_id) +
           R"(,"buffer":")" + buffer + R"("}})";
}

/// The service with its publisher, which also reads. How subscribers read their queues is left open.
class Service : public QoContender {
public:
    explicit Service(const QoSetting& setting)
        : messages_(setting.in_flight + 1),
          largest_(setting.largest),
          requests_(kQueue, messages_, setting.largest + kEnvelope),
          answers_(queue_name(kPublisher), kAnswers, kAnswer) {
        const QoReadinessSocket readiness(kReadiness);
        service_ = std::make_unique<QoChildProcess>(std::vector<std::string>{QO_PUSHPULL_PROGRAM},
                                                    std::vector<std::string>{readiness.variable()});
        readiness.wait_until_ready();
        register_component(kPublisher, answers_.name());
        read(QoExtent::kLeaf);
    }

    pid_t process() const override { return service_->id(); }
    void publish(const std::string& text) override { requests_.send(request("publish", kPublisher, escaped(text))); }

    bool stores() const override { return true; }
    // It has them; they tell what its tree consists of.
    void store(const std::vector<QoLeaf>& leaves) override {
        for (const QoLeaf& leaf : leaves) {
            const std::string member = "/" + leaf.path.substr(0, leaf.path.find('/'));
            if (members_.empty() || members_.back() != member) members_.push_back(member);
        }
        for (const std::string& member : members_) everything_.append(everything_.empty() ? "" : ";").append(member);
    }
    void read(QoExtent extent) final {
        const bool everything = extent == QoExtent::kEverything;
        const std::string pointer = extent == QoExtent::kLeaf ? kQoReadLeaf : kQoReadSubtree;
        requests_.send(request("get", kPublisher, everything ? everything_ : "/" + pointer));
        for (size_t answer = 0; answer < (everything ? members_.size() : 1); ++answer)
            if (!answers_.receive().starts_with('{')) throw std::runtime_error("the service does not know a node");
    }

protected:
    void register_component(int comp_id, const std::string& queue) {
        requests_.send(request("register", comp_id, queue));
    }
    /// Registers the components of the setting, whose queues exist.
    void connect(const QoSetting& setting) {
        for (int i = 0; i < setting.subscribers; ++i) {
            register_component(kFirstSubscriber + i, queue_name(kFirstSubscriber + i));
            requests_.send(request("subscribe", kFirstSubscriber + i, kSubscribed));
        }
        for (int i = 0; i < setting.others; ++i) {
            others_.push_back(std::make_unique<QoMessageQueue>(queue_name(kFirstOther + i), 1, 1));
            register_component(kFirstOther + i, others_.back()->name());
        }
        read(QoExtent::kLeaf);
    }

    int messages_;
    size_t largest_;

private:
    QoMessageQueue requests_;
    QoMessageQueue answers_;
    std::vector<std::unique_ptr<QoMessageQueue>> others_;
    std::unique_ptr<QoChildProcess> service_;
    std::vector<std::string> members_;  // pointers of the tree's top level
    std::string everything_;            // the same in one text
};

class PlainService final : public Service {
public:
    explicit PlainService(const QoSetting& setting) : Service(setting) {
        for (int i = 0; i < setting.subscribers; ++i)
            queues_.push_back(
                std::make_unique<QoMessageQueue>(queue_name(kFirstSubscriber + i), messages_, largest_ + 1));
        connect(setting);
    }
    void await_told(int subscriber, size_t size) override {
        qo_require_size(queues_[static_cast<size_t>(subscriber)]->receive().size(), size);
    }

private:
    std::vector<std::unique_ptr<QoMessageQueue>> queues_;
};

class ServiceWithLibrary final : public Service {
public:
    explicit ServiceWithLibrary(const QoSetting& setting) : Service(setting) {
        if (api_.init("") != 0) throw std::runtime_error("the client library does not find the service");
        for (int i = 0; i < setting.subscribers; ++i) {
            queues_.emplace_back(api_.create_receive_queue(queue_name(kFirstSubscriber + i), messages_,
                                                           static_cast<int32_t>(largest_) + 1));
            if (!queues_.back()) throw std::runtime_error("the client library cannot make a queue");
        }
        connect(setting);
    }
    ~ServiceWithLibrary() override {
        for (size_t i = 0; i < queues_.size(); ++i) {
            queues_[i].reset();
            mq_unlink(queue_name(kFirstSubscriber + static_cast<int>(i)).c_str());
        }
    }
    void publish(const std::string& text) override {
        if (api_.publish(kPublisher, text) != 0) throw std::runtime_error("the client library cannot publish");
    }
    void await_told(int subscriber, size_t size) override {
        const int32_t length = queues_[static_cast<size_t>(subscriber)]->timed_receive(kPatience);
        qo_require_size(static_cast<size_t>(length) - 1, size);
    }

private:
    static constexpr std::chrono::seconds kPatience{kQoPatience_s};

    QoPushpullApi api_;
    std::vector<std::unique_ptr<QoPushpullReceiveQueue>> queues_;
};

}  // namespace

std::unique_ptr<QoContender> qo_start_service(const QoSetting& setting) {
    return std::make_unique<PlainService>(setting);
}

std::unique_ptr<QoContender> qo_start_service_with_library(const QoSetting& setting) {
    return std::make_unique<ServiceWithLibrary>(setting);
}
