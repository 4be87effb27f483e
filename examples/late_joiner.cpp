/// A late joiner, such as an uploader that starts when the network is up: fetches the parts of the tree that it
/// needs, although nobody publishes them now.
///
///     late_joiner [INSTANCE]
///
/// The service packs the answers into as few messages as fit in this component's queue, so their number is not
/// known beforehand. A second, last question with a tag of its own marks the end: requests are answered in order.
/// Ends with status 0 when it has all parts.
#include <stdlib.h>

#include <chrono>
#include <set>
#include <string>

#include "example_component.h"
#include "example_json.h"

namespace {

// Pointers and, for each, a path that its answer has.
struct Part {
    const char* pointer;
    std::initializer_list<const char*> path;
};
const Part kParts[] = {
    {"/system/config", {"system", "config", "name"}},
    {"/system/status", {"system", "status", "systemTemperature"}},
    {"/rgw/configSec", {"rgw", "configSec", "pingInterval"}},
    {"/serverAssigned", {"serverAssigned", "claimStatus"}},
    {"/devices", {"devices"}},
    {"/interfaces", {"interfaces"}},
    {"/fwm", {"fwm", "fwmAutoOn"}},
};
constexpr char kPartsPrefix[] = "sender_id:parts;";
constexpr char kEndPrefix[] = "sender_id:end;";
constexpr std::chrono::seconds kPatience{3};

bool begins_with(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

std::string pointer_list() {
    std::string list;
    for (const Part& part : kParts) list += (list.empty() ? "" : ";") + std::string(part.pointer);
    return list;
}

// What has arrived so far.
struct Fetched {
    int messages = 0;
    std::set<std::string> pointers;
    std::string system_name;
};

void take_over(Fetched& fetched, const std::string& answer) {
    ++fetched.messages;
    for (const Part& part : kParts)
        if (value_at(answer, part.path)) fetched.pointers.insert(part.pointer);
    if (const auto name = value_at(answer, {"system", "config", "name"})) fetched.system_name = *name;
}

// Takes the messages of the first question until the answer to the second comes.
Fetched fetch(ExampleComponent& joiner) {
    Fetched fetched;
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (joiner.running() && std::chrono::steady_clock::now() < deadline) {
        const auto text = joiner.receive(std::chrono::milliseconds(100));
        if (!text) continue;
        if (begins_with(*text, kEndPrefix)) break;
        if (begins_with(*text, kPartsPrefix)) take_over(fetched, text->substr(sizeof kPartsPrefix - 1));
    }
    return fetched;
}

}  // namespace

int main(int argc, char** argv) {
    ExampleComponent joiner(QO_CMPID_SERVER_SYNCH, "late_joiner", instance_from(argc, argv));
    if (!joiner.start()) return EXIT_FAILURE;
    if (!joiner.get(pointer_list(), "parts") || !joiner.get("/version", "end")) return EXIT_FAILURE;
    const Fetched fetched = fetch(joiner);
    joiner.says("the system's name is \"" + fetched.system_name + "\"");
    joiner.says("has " + std::to_string(fetched.pointers.size()) + " of " + std::to_string(std::size(kParts)) +
                " parts of the tree; messages: " + std::to_string(fetched.messages));
    return fetched.pointers.size() == std::size(kParts) ? EXIT_SUCCESS : EXIT_FAILURE;
}
