// Mosquitto, an MQTT broker: retained messages with quality of service 0, by a local socket or by TCP.
#include <mosquitto.h>
#include <unistd.h>

#include <fstream>

#include "child_process.h"
#include "contender.h"

namespace {

constexpr char kProgram[] = "/usr/sbin/mosquitto";
constexpr char kSocket[] = "/kivo/mosquitto.socket";
constexpr char kConfiguration[] = "/kivo/mosquitto.conf";
constexpr char kStored[] = "tree/";  // before the path of a leaf

void require_success(int result) {
    if (result != MOSQ_ERR_SUCCESS) throw std::runtime_error(std::string("mosquitto: ") + mosquitto_strerror(result));
}

struct Address {
    std::string host;  // or a local socket, and 0
    int port;
};

/// One connection to the broker. What arrives is counted.
class Client {
public:
    explicit Client(Address address) : address_(std::move(address)), client_(mosquitto_new(nullptr, true, this)) {
        if (client_ == nullptr) throw std::runtime_error("mosquitto: no client");
        mosquitto_message_callback_set(
            client_, [](mosquitto*, void* self,
                        const mosquitto_message* message) { static_cast<Client*>(self)->take(*message); });
        mosquitto_connect_callback_set(
            client_, [](mosquitto*, void* self, int) { static_cast<Client*>(self)->connected_ = true; });
        mosquitto_subscribe_callback_set(client_, [](mosquitto*, void* self, int, int, const int*) {
            static_cast<Client*>(self)->subscribed_ = true;
        });
    }
    ~Client() { mosquitto_destroy(client_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool try_to_connect() {
        return mosquitto_connect(client_, address_.host.c_str(), address_.port, 0) == MOSQ_ERR_SUCCESS;
    }
    void wait_until_connected() {
        while (!connected_) loop();
    }
    void connect() {
        if (!try_to_connect()) throw std::runtime_error("mosquitto: no connection");
        wait_until_connected();
    }
    void publish(const std::string& topic, const std::string& text) {
        require_success(
            mosquitto_publish(client_, nullptr, topic.c_str(), static_cast<int>(text.size()), text.data(), 0, true));
    }
    void subscribe(const std::string& pattern) {
        subscribed_ = false;
        require_success(mosquitto_subscribe(client_, nullptr, pattern.c_str(), 0));
        while (!subscribed_) loop();
    }
    void unsubscribe(const std::string& pattern) {
        require_success(mosquitto_unsubscribe(client_, nullptr, pattern.c_str()));
    }
    /// Waits until one message more has arrived. @return its size
    size_t take_one() {
        while (arrived_ == taken_) loop();
        ++taken_;
        return last_size_;
    }
    /// Sends what could not be sent at once.
    void flush() {
        while (mosquitto_want_write(client_)) loop();
    }

private:
    void take(const mosquitto_message& message) {
        ++arrived_;
        last_size_ = static_cast<size_t>(message.payloadlen);
    }
    void loop() { require_success(mosquitto_loop(client_, kQoPatience_s * 1000, 1)); }

    Address address_;
    mosquitto* client_;
    bool connected_ = false;
    bool subscribed_ = false;
    size_t arrived_ = 0;
    size_t taken_ = 0;
    size_t last_size_ = 0;
};

class Mosquitto final : public QoContender {
public:
    Mosquitto(const QoSetting& setting, const Address& address) : publisher_(address), reader_(address) {
        mosquitto_lib_init();
        unlink(kSocket);
        std::ofstream(kConfiguration)
            << "listener " << address.port << " " << address.host
            << "\nset_tcp_nodelay true\nallow_anonymous true\npersistence false\nsys_interval 0\n"
               "log_dest none\nmax_queued_messages 0\n"
            << (geteuid() == 0 ? "user root\n" : "");
        broker_ = std::make_unique<QoChildProcess>(std::vector<std::string>{kProgram, "-c", kConfiguration});
        qo_retry("mosquitto", [this] { return publisher_.try_to_connect(); });
        publisher_.wait_until_connected();
        reader_.connect();
        for (int i = 0; i < setting.subscribers; ++i) {
            subscribers_.push_back(std::make_unique<Client>(address));
            subscribers_.back()->connect();
            subscribers_.back()->subscribe(kQoPublishedLeaf);
        }
        for (int i = 0; i < setting.others; ++i) {
            others_.push_back(std::make_unique<Client>(address));
            others_.back()->connect();
        }
    }
    ~Mosquitto() override { mosquitto_lib_cleanup(); }

    pid_t process() const override { return broker_->id(); }
    void publish(const std::string& text) override {
        publisher_.publish(kQoPublishedLeaf, text);
        publisher_.flush();
    }
    void await_told(int subscriber, size_t size) override {
        qo_require_size(subscribers_[static_cast<size_t>(subscriber)]->take_one(), size);
    }

    bool stores() const override { return true; }
    void store(const std::vector<QoLeaf>& leaves) override {
        for (const QoLeaf& leaf : leaves) {
            // An empty retained message would remove the topic.
            publisher_.publish(kStored + leaf.path, leaf.value.empty() ? " " : leaf.value);
            publisher_.flush();
            if (leaf.path.starts_with(kQoReadSubtree + std::string("/"))) ++leaves_of_subtree_;
        }
        leaves_ = leaves.size();
    }
    // Whoever subscribes is given what is retained.
    void read(QoExtent extent) override {
        const bool everything = extent == QoExtent::kEverything;
        const std::string pattern =
            extent == QoExtent::kLeaf ? std::string(kStored) + kQoReadLeaf
                                      : kStored + (everything ? std::string("#") : kQoReadSubtree + std::string("/#"));
        reader_.subscribe(pattern);
        const size_t count = extent == QoExtent::kLeaf ? 1 : everything ? leaves_ : leaves_of_subtree_;
        for (size_t leaf = 0; leaf < count; ++leaf) reader_.take_one();
        reader_.unsubscribe(pattern);
    }

private:
    Client publisher_;
    Client reader_;
    std::vector<std::unique_ptr<Client>> subscribers_;
    std::vector<std::unique_ptr<Client>> others_;
    std::unique_ptr<QoChildProcess> broker_;
    size_t leaves_ = 0;
    size_t leaves_of_subtree_ = 0;
};

}  // namespace

std::unique_ptr<QoContender> qo_start_mosquitto(const QoSetting& setting) {
    return std::make_unique<Mosquitto>(setting, Address{kSocket, 0});
}

std::unique_ptr<QoContender> qo_start_mosquitto_by_tcp(const QoSetting& setting) {
    return std::make_unique<Mosquitto>(setting, Address{"127.0.0.1", qo_free_port()});
}
