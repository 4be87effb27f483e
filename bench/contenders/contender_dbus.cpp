// dbus-daemon, a bus: signals, by a local socket. It keeps nothing, so nothing can be read.
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "child_process.h"
#include "contender.h"

namespace {

constexpr char kProgram[] = "/usr/bin/dbus-daemon";
constexpr char kAddress[] = "unix:path=/kivo/dbus.socket";
constexpr char kSocket[] = "/kivo/dbus.socket";
constexpr char kConfiguration[] = "/kivo/dbus.conf";
constexpr char kObject[] = "/system/status";
constexpr char kInterface[] = "com.example.Tree";
constexpr char kSignal[] = "Changed";
constexpr char kMatch[] = "type='signal',interface='com.example.Tree',member='Changed'";

// Everyone may do everything, as on the bus of a session. The user of qo_isolated has no name, without which the daemon
// would not take his word for who he is.
constexpr char kPolicy[] =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN" )"
    R"("http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">)"
    "\n<busconfig><type>session</type><listen>unix:path=/kivo/dbus.socket</listen><auth>ANONYMOUS</auth>"
    "<allow_anonymous/>"
    R"(<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>)"
    R"(<allow own="*"/></policy></busconfig>)";

void require_success(int result) {
    if (result < 0) throw std::runtime_error(std::string("dbus: ") + strerror(-result));
}

/// One connection to the bus. What arrives is counted.
class Client {
public:
    Client() = default;
    ~Client() { sd_bus_unref(bus_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Returns true once the bus has given us a name.
    bool try_to_connect() {
        bus_ = sd_bus_unref(bus_);
        require_success(sd_bus_new(&bus_));
        require_success(sd_bus_set_address(bus_, kAddress));
        require_success(sd_bus_set_bus_client(bus_, 1));
        require_success(sd_bus_set_anonymous(bus_, 1));
        const char* name = nullptr;
        return sd_bus_start(bus_) >= 0 && sd_bus_get_unique_name(bus_, &name) >= 0;
    }
    void connect() {
        if (!try_to_connect()) throw std::runtime_error("dbus: no connection");
    }
    void subscribe() { require_success(sd_bus_add_match(bus_, nullptr, kMatch, take, this)); }
    void publish(const std::string& text) {
        require_success(sd_bus_emit_signal(bus_, kObject, kInterface, kSignal, "s", text.c_str()));
        require_success(sd_bus_flush(bus_));
    }
    /// Waits until one signal more has arrived. @return the size of its text
    size_t take_one() {
        while (arrived_ == taken_) {
            const int handled = sd_bus_process(bus_, nullptr);
            require_success(handled);
            if (handled == 0) require_success(sd_bus_wait(bus_, kPatience_us));
        }
        ++taken_;
        return last_size_;
    }

private:
    static constexpr uint64_t kPatience_us = kQoPatience_s * uint64_t{1000000};

    static int take(sd_bus_message* message, void* self, sd_bus_error*) {
        const char* text = nullptr;
        if (sd_bus_message_read(message, "s", &text) < 0) return 0;
        Client& client = *static_cast<Client*>(self);
        ++client.arrived_;
        client.last_size_ = strlen(text);
        return 0;
    }

    sd_bus* bus_ = nullptr;
    size_t arrived_ = 0;
    size_t taken_ = 0;
    size_t last_size_ = 0;
};

class DBus final : public QoContender {
public:
    explicit DBus(const QoSetting& setting) {
        unlink(kSocket);
        std::ofstream(kConfiguration) << kPolicy;
        daemon_ = std::make_unique<QoChildProcess>(
            std::vector<std::string>{kProgram, std::string("--config-file=") + kConfiguration, "--nofork"});
        qo_retry("dbus-daemon", [this] { return publisher_.try_to_connect(); });
        for (int i = 0; i < setting.subscribers; ++i) {
            subscribers_.push_back(std::make_unique<Client>());
            subscribers_.back()->connect();
            subscribers_.back()->subscribe();
        }
        for (int i = 0; i < setting.others; ++i) {
            others_.push_back(std::make_unique<Client>());
            others_.back()->connect();
        }
    }

    pid_t process() const override { return daemon_->id(); }
    void publish(const std::string& text) override { publisher_.publish(text); }
    void await_told(int subscriber, size_t size) override {
        qo_require_size(subscribers_[static_cast<size_t>(subscriber)]->take_one(), size);
    }

private:
    Client publisher_;
    std::vector<std::unique_ptr<Client>> subscribers_;
    std::vector<std::unique_ptr<Client>> others_;
    std::unique_ptr<QoChildProcess> daemon_;
};

}  // namespace

std::unique_ptr<QoContender> qo_start_dbus(const QoSetting& setting) { return std::make_unique<DBus>(setting); }
