// The bare relay over message queues, and the one that logs: queue_relay.cpp.
#include "child_process.h"
#include "contender.h"
#include "message_queue.h"

namespace {

constexpr char kQueue[] = "/relay";

class Relay final : public QoContender {
public:
    Relay(const QoSetting& setting, bool log)
        : messages_(setting.in_flight + 1), size_(setting.largest + 1), source_(kQueue, messages_, size_) {
        std::vector<std::string> command{QO_QUEUE_RELAY};
        if (log) command.emplace_back("--log");
        command.push_back(source_.name());
        for (int i = 0; i < setting.subscribers; ++i) {
            const std::string name = kQueue + std::string(".") + std::to_string(i);
            subscribers_.push_back(std::make_unique<QoMessageQueue>(name, messages_, size_));
            command.push_back(name);
        }
        relay_ = std::make_unique<QoChildProcess>(command);
        publish("?");
        for (int i = 0; i < setting.subscribers; ++i) await_told(i, 1);
    }

    pid_t process() const override { return relay_->id(); }
    void publish(const std::string& text) override { source_.send(text); }
    void await_told(int subscriber, size_t size) override {
        qo_require_size(subscribers_[static_cast<size_t>(subscriber)]->receive().size(), size);
    }

private:
    int messages_;
    size_t size_;
    QoMessageQueue source_;
    std::vector<std::unique_ptr<QoMessageQueue>> subscribers_;
    std::unique_ptr<QoChildProcess> relay_;
};

}  // namespace

std::unique_ptr<QoContender> qo_start_relay(const QoSetting& setting) {
    return std::make_unique<Relay>(setting, false);
}

std::unique_ptr<QoContender> qo_start_logging_relay(const QoSetting& setting) {
    return std::make_unique<Relay>(setting, true);
}
