/// A change watcher, such as a history recorder: wants to hear of a publish only when it changed the tree.
///
///     change_watcher [INSTANCE]
#include <stdlib.h>

#include "example_component.h"
#include "example_json.h"

namespace {

void record(const ExampleComponent& watcher, const std::string& text) {
    if (const auto temperature = value_at(text, {"system", "status", "systemTemperature"}))
        watcher.says("records " + *temperature + " F");
}

}  // namespace

int main(int argc, char** argv) {
    ExampleComponent watcher(QO_CMPID_HISTORY_MAINT, "change_watcher", instance_from(argc, argv));
    if (!watcher.start()) return EXIT_FAILURE;
    if (!watcher.subscribe("/system/status", true)) return EXIT_FAILURE;
    if (const auto now = watcher.ask("/system/status")) record(watcher, *now);
    while (watcher.running())
        if (const auto text = watcher.receive(std::chrono::milliseconds(200))) record(watcher, *text);
    return EXIT_SUCCESS;
}
