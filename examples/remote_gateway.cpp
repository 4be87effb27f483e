/// The remote gateway: writes for users far away, and so may not write everything.
///
///     remote_gateway [INSTANCE]
///
/// Its identifier makes it a remote client. Which nodes a client may write stands in the tree itself, in the
/// "writeAccess" members: "local" closes a node to remote clients, "openAll" opens it. A refused publish is
/// neither an error nor answered; who needs to know reads the node again, as this component does.
/// Ends with status 0 when the closed node refused it and the open one took its value.
#include <stdlib.h>

#include <utility>

#include "example_component.h"
#include "example_json.h"

namespace {

// What `pointer` holds at `path` now; "" when the service does not answer.
std::string held(ExampleComponent& gateway, const char* pointer, std::initializer_list<const char*> path) {
    const auto answer = gateway.ask(pointer);
    return answer ? value_at(*answer, path).value_or("") : "";
}

// Tries to set the temperature, which only the device itself may.
bool is_refused(ExampleComponent& gateway) {
    const std::string before = held(gateway, "/system/status", {"system", "status", "systemTemperature"});
    if (!gateway.publish(R"({"system":{"status":{"systemTemperature":-40}}})")) return false;
    const std::string after = held(gateway, "/system/status", {"system", "status", "systemTemperature"});
    const bool refused = !after.empty() && after == before;
    gateway.says("the temperature is " + after +
                 (refused ? ": /system/status took nothing from a remote client" : ": /system/status was written"));
    return refused;
}

// Gives the system a name, which anybody may.
bool is_accepted(ExampleComponent& gateway) {
    const char name[] = "North cold room";
    ExampleJson value(json_new_a("name", name));
    if (!gateway.publish(text_inside({"system", "config"}, std::move(value)))) return false;
    const std::string after = held(gateway, "/system/config", {"system", "config", "name"});
    const bool accepted = after == name;
    gateway.says("the name is \"" + after + "\": /system/config " + (accepted ? "is open to it" : "took nothing"));
    return accepted;
}

}  // namespace

int main(int argc, char** argv) {
    ExampleComponent gateway(QO_CMPID_REMOTE_GATEWAY_DM, "remote_gateway", instance_from(argc, argv));
    if (!gateway.start()) return EXIT_FAILURE;
    const bool refused = is_refused(gateway);
    const bool accepted = is_accepted(gateway);
    return refused && accepted ? EXIT_SUCCESS : EXIT_FAILURE;
}
