// What is measured of each contender.
#include "measures.h"

#include <chrono>
#include <fstream>

#include "qo_pushpull_initializer.h"
#include "qo_pushpull_json.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kSizes[] = {64, 200, 4096, 7680};  // bytes
constexpr size_t kLargest = 7680;
constexpr size_t kHuge = 65536;
constexpr size_t kFanOutSize = 200;
constexpr int kFanOuts[] = {1, 8, 32};
constexpr int kInFlight = 8;
constexpr int kComponents = 16;
constexpr int kWarmUps = 20;
constexpr double kKilo = 1e3;
constexpr char kMicroseconds[] = "µs";
constexpr char kMilliseconds[] = "ms";
constexpr char kThousands[] = "k/s";
constexpr char kMegabytes[] = "MB";

double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

std::string size_name(size_t size) {
    if (size < 1024) return std::to_string(size) + " B";
    return std::to_string(size / 1024) + (size % 1024 == 512 ? ".5" : "") + " KiB";
}

/// A text of that size to publish, another one each time.
std::string text_of(size_t size, int turn) {
    const std::string head = R"({"system":{"status":{"subState":")";
    const std::string tail = std::to_string(10000 + turn % 10000) + R"("}}})";
    return head + std::string(size - head.size() - tail.size(), 's') + tail;
}

/// Seconds from each publish until its last subscriber is told.
std::vector<double> times_until_told(QoContender& contender, size_t size, int subscribers, int publishes) {
    std::vector<double> times;
    for (int turn = -kWarmUps; turn < publishes; ++turn) {
        const std::string text = text_of(size, turn + kWarmUps);
        const Clock::time_point start = Clock::now();
        contender.publish(text);
        for (int subscriber = 0; subscriber < subscribers; ++subscriber) contender.await_told(subscriber, size);
        const double time = seconds_since(start);
        contender.finish_publish();
        if (turn >= 0) times.push_back(time);
    }
    return times;
}

/// Publishes a second, while as many as the setting allows are on their way.
double rate(QoContender& contender, size_t size, int publishes) {
    for (int turn = 0; turn < kInFlight; ++turn) contender.publish(text_of(size, turn));
    const Clock::time_point start = Clock::now();
    for (int turn = 0; turn < publishes; ++turn) {
        contender.await_told(0, size);
        contender.finish_publish();
        contender.publish(text_of(size, turn));
    }
    const double time = seconds_since(start);
    for (int turn = 0; turn < kInFlight; ++turn) {
        contender.await_told(0, size);
        contender.finish_publish();
    }
    return publishes / time;
}

double time_of_read(QoContender& contender, QoExtent extent, int reads) {
    std::vector<double> times;
    for (int turn = 0; turn < reads; ++turn) {
        const Clock::time_point start = Clock::now();
        contender.read(extent);
        times.push_back(seconds_since(start));
    }
    return qo_median(times);
}

struct Memory {
    double resident = 0;      // MB
    double proportional = 0;  // MB, with its share of what others have too
};

Memory memory_of(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
    Memory memory;
    for (std::string word; file >> word;) {
        if (word == "Rss:") file >> memory.resident;
        if (word == "Pss:") file >> memory.proportional;
    }
    constexpr double kKibibytes = 1024 / 1e6;
    return {memory.resident * kKibibytes, memory.proportional * kKibibytes};
}

void add_leaves(const JSONNODE* node, const std::string& path, std::vector<QoLeaf>& leaves) {
    const bool array = json_type(node) == JSON_ARRAY;
    if (!array && json_type(node) != JSON_NODE) {
        leaves.push_back({path, std::string(qo_json_string(node))});
        return;
    }
    size_t index = 0;
    for (const JSONNODE* child : QoJsonChildren(const_cast<JSONNODE*>(node))) {
        std::string child_path = path.empty() ? "" : path + "/";
        child_path.append(array ? std::to_string(index++) : std::string(qo_json_name(child)));
        add_leaves(child, child_path, leaves);
    }
}

}  // namespace

std::string qo_told_row(size_t size) { return "told, " + size_name(size) + ", p50"; }
std::string qo_rate_row(size_t size) { return "8 in flight, " + size_name(size); }
std::string qo_fan_out_row(int subscribers) { return "all of " + std::to_string(subscribers) + " told, 200 B"; }

void qo_measure_publishes(const QoContenderKind& kind, const QoPlan& plan, QoResults& results) {
    const auto add_told = [&](QoContender& contender, size_t size) {
        const std::vector<double> times = times_until_told(contender, size, 1, plan.publishes);
        results.add(qo_told_row(size), kMicroseconds, kind.name, qo_median(times) * 1e6);
        results.add("told, " + size_name(size) + ", p99", kMicroseconds, kind.name, qo_quantile(times, 0.99) * 1e6);
    };
    {
        const auto contender = kind.start({.largest = kLargest, .in_flight = kInFlight});
        for (const size_t size : kSizes) {
            add_told(*contender, size);
            results.add(qo_rate_row(size), kThousands, kind.name, rate(*contender, size, plan.publishes) / kKilo);
        }
    }
    // The quota of message queues leaves no room for more of these.
    const auto contender = kind.start({.largest = kHuge});
    add_told(*contender, kHuge);
}

void qo_measure_others(const QoContenderKind& kind, const QoPlan& plan, const std::vector<QoLeaf>& leaves,
                       QoResults& results) {
    for (const int subscribers : kFanOuts) {
        const auto contender = kind.start({.subscribers = subscribers, .largest = kFanOutSize});
        results.add(qo_fan_out_row(subscribers), kMicroseconds, kind.name,
                    qo_median(times_until_told(*contender, kFanOutSize, subscribers, plan.fan_outs)) * 1e6);
    }
    const Clock::time_point start = Clock::now();
    const auto contender = kind.start({.largest = kLargest});
    results.add("start until ready", kMilliseconds, kind.name, seconds_since(start) * 1e3);
    if (!contender->stores()) return;
    contender->store(leaves);
    const std::pair<const char*, QoExtent> extents[] = {{"read a leaf", QoExtent::kLeaf},
                                                        {kQoReadSubtreeRow, QoExtent::kSubtree},
                                                        {"read everything", QoExtent::kEverything}};
    for (const auto& [measure, extent] : extents)
        results.add(measure, kMicroseconds, kind.name, time_of_read(*contender, extent, plan.reads) * 1e6);
}

void qo_measure_memory(const QoContenderKind& kind, const QoPlan& plan, QoResults& results) {
    const auto contender = kind.start({.others = kComponents - 1, .largest = kFanOutSize, .in_flight = kInFlight});
    const Memory idle = memory_of(contender->process());
    rate(*contender, kFanOutSize, plan.memory_publishes);
    const Memory used = memory_of(contender->process());
    results.add("memory idle, RSS", kMegabytes, kind.name, idle.resident);
    results.add("memory idle, PSS", kMegabytes, kind.name, idle.proportional);
    results.add(kQoMemoryRow, kMegabytes, kind.name, used.resident);
    results.add("memory after publishes, PSS", kMegabytes, kind.name, used.proportional);
}

std::vector<QoLeaf> qo_built_in_leaves() {
    std::string text;
    getDefaultTree(text);
    const QoJsonNode tree = qo_json_parse(text);
    std::vector<QoLeaf> leaves;
    add_leaves(tree.get(), "", leaves);
    return leaves;
}
