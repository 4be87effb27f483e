/// What bench/compare compares: programs that take a text from one component and give it to others, each behind the
/// same interface, driven by clients in C or C++. Everything throws std::runtime_error when it does not work.
#ifndef QO_BENCH_CONTENDER_H
#define QO_BENCH_CONTENDER_H

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

/// One value of the built-in tree.
struct QoLeaf {
    std::string path;  // "system/status/door"
    std::string value;
};

/// How much of the tree is read at once.
enum class QoExtent { kLeaf, kSubtree, kEverything };

inline constexpr char kQoReadLeaf[] = "system/status/systemTemperature";
inline constexpr char kQoReadSubtree[] = "system";
inline constexpr char kQoPublishedLeaf[] = "system/status/subState";

/// What a contender has to hold.
struct QoSetting {
    int subscribers = 1;  // each is told of every publish
    int others = 0;       // connected, and told of nothing
    size_t largest = 0;   // bytes of a published text
    int in_flight = 1;    // publishes on their way at once
};

/// A contender that runs, with its clients connected. Its end is that of the object. One thread drives all clients, so
/// that no contender's figures have changes of thread in them that another's have not.
class QoContender {
public:
    QoContender() = default;
    virtual ~QoContender() = default;
    QoContender(const QoContender&) = delete;
    QoContender& operator=(const QoContender&) = delete;

    virtual pid_t process() const = 0;
    /// Publishes a text that is a JSON object with the leaf kQoPublishedLeaf.
    virtual void publish(const std::string& text) = 0;
    /// Waits until a subscriber, from 0, has the next text. It has to have this many bytes.
    virtual void await_told(int subscriber, size_t size) = 0;
    /// What the publisher still has to do for one publish once its subscribers were told.
    virtual void finish_publish() {}

    /// Whether it keeps what was published, to be read.
    virtual bool stores() const { return false; }
    /// Lets it keep these, unless it has them anyway.
    virtual void store(const std::vector<QoLeaf>&) {}
    virtual void read(QoExtent) {}
};

/// What a subscriber was given has to be what was published.
inline void qo_require_size(size_t given, size_t published) {
    if (given != published)
        throw std::runtime_error("told " + std::to_string(given) + " bytes of " + std::to_string(published));
}

struct QoContenderKind {
    const char* name;
    /// Starts it. Returns when it has answered its first request.
    std::function<std::unique_ptr<QoContender>(const QoSetting&)> start;
};

std::unique_ptr<QoContender> qo_start_relay(const QoSetting& setting);
std::unique_ptr<QoContender> qo_start_logging_relay(const QoSetting& setting);
std::unique_ptr<QoContender> qo_start_service(const QoSetting& setting);
std::unique_ptr<QoContender> qo_start_service_with_library(const QoSetting& setting);
std::unique_ptr<QoContender> qo_start_mosquitto(const QoSetting& setting);
std::unique_ptr<QoContender> qo_start_mosquitto_by_tcp(const QoSetting& setting);
std::unique_ptr<QoContender> qo_start_redis(const QoSetting& setting);
std::unique_ptr<QoContender> qo_start_redis_by_tcp(const QoSetting& setting);
std::unique_ptr<QoContender> qo_start_dbus(const QoSetting& setting);

#endif
