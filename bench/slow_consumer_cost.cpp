// What a subscriber that does not read costs all others. The real service tells 1, 8 and 64 subscribers of each
// publish; all of them read, or one does not and its queue stays full. Reported: from the publish to the service's
// answer to a request sent behind it, which is how long every other component waits. To be run by qo_isolated.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "component.h"
#include "service_process.h"

namespace {

using Clock = std::chrono::steady_clock;
using Subscribers = std::vector<std::unique_ptr<Component>>;

constexpr int32_t kPublisher = QO_CMPID_TESTPUBLISHER;
constexpr int32_t kFirstSubscriber = 0x50000000;
constexpr Component::Queue kSmallQueue{1, 256};
constexpr char kPublished[] = R"({"version":{"schemaVersion":9}})";
constexpr int kPublishes = 3;

// How long one publish and the question behind it take.
double publish_once(Component& publisher) {
    const auto start = Clock::now();
    if (publisher.api().publish(publisher.id(), kPublished) != 0) std::abort();
    publisher.get("/version/schemaVersion");
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// @param stopped how many of the subscribers, the first ones, do not read
double median_of_publishes(Component& publisher, Subscribers& subscribers, size_t stopped) {
    for (auto& subscriber : subscribers) subscriber->drain();
    if (stopped > 0) publish_once(publisher);  // fills their queues of one message
    std::vector<double> seconds;
    for (int publish = 0; publish < kPublishes; ++publish) {
        for (size_t i = stopped; i < subscribers.size(); ++i) subscribers[i]->drain();
        seconds.push_back(publish_once(publisher));
    }
    std::sort(seconds.begin(), seconds.end());
    return seconds[seconds.size() / 2];
}

void measure(QoServiceProcess& service, size_t count) {
    Component publisher(service, kPublisher);
    Subscribers subscribers;
    for (size_t i = 0; i < count; ++i) {
        const int32_t id = kFirstSubscriber + static_cast<int32_t>(i);
        subscribers.push_back(std::make_unique<Component>(service, id, kSmallQueue));
        if (subscribers.back()->api().subscribe(subscribers.back()->id(), "/version", false) != 0) std::abort();
    }
    const double none = median_of_publishes(publisher, subscribers, 0);
    const double one = median_of_publishes(publisher, subscribers, 1);
    std::printf("%3zu subscribers: all read %.2f ms, one does not %.2f ms\n", count, none * 1e3, one * 1e3);
    std::fflush(stdout);
}

}  // namespace

int main() {
    QoServiceProcess service;
    if (!service.start_and_wait()) return 1;
    for (const size_t count : {1U, 8U, 64U}) measure(service, count);
    return service.stop();
}
