// A component that publishes and does nothing else, for the count of what the client library does.
//   publishing_component BYTES PUBLISHES
// It opens the service's queue again, which ends a part of callgrind's count, behind PUBLISHES to warm up, and twice
// behind as many more. Nobody has to take them: the queue /pushpull has to hold all.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "qo_pushpull_api.h"

namespace {

std::string body_of(size_t size) {
    const std::string head = R"({"system":{"status":{"subState":")";
    const std::string tail = R"("}}})";
    return head + std::string(size - head.size() - tail.size(), 's') + tail;
}

bool publish(QoPushpullApi& api, const std::string& body, int publishes) {
    for (int publish = 0; publish < publishes; ++publish)
        if (api.publish(QO_CMPID_DEMO, body) != 0) return false;
    return true;
}

bool mark() { return QoPushpullApi().init("") == 0; }

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: publishing_component BYTES PUBLISHES\n", stderr);
        return EXIT_FAILURE;
    }
    const std::string body = body_of(std::strtoul(argv[1], nullptr, 10));
    const int publishes = static_cast<int>(std::strtol(argv[2], nullptr, 10));
    QoPushpullApi api;
    const bool sent = api.init("") == 0 && publish(api, body, publishes) && mark() && publish(api, body, publishes) &&
                      mark() && mark();
    return sent ? EXIT_SUCCESS : EXIT_FAILURE;
}
