/// A display: shows the temperature and the alarm of the device, and keeps them up to date.
///
///     display [INSTANCE]
///
/// The pattern to copy: subscribe first, then read. Whatever is published between the two is notified, so nothing
/// is missed. And a notification says what somebody sent, not what the tree took (write authority may have refused
/// a part of it): so on each one the display reads again and shows what the tree holds.
#include <stdlib.h>

#include "example_component.h"
#include "example_json.h"

namespace {

constexpr char kShown[] = "/system/status;/system/alarms/alertCmd";

// What the display would paint.
std::string picture(const std::string& answer) {
    const auto temperature = value_at(answer, {"system", "status", "systemTemperature"});
    const auto action = value_at(answer, {"system", "alarms", "alertCmd", "alert", "action"});
    const auto message = value_at(answer, {"system", "alarms", "alertCmd", "alert", "userMessage"});
    const bool alarm = action == "set" && message.has_value();
    return "shows " + temperature.value_or("--") + " F, " + (alarm ? "ALARM: " + *message : "no alarm");
}

void refresh(ExampleComponent& display) {
    if (const auto answer = display.ask(kShown)) display.says(picture(*answer));
}

}  // namespace

int main(int argc, char** argv) {
    ExampleComponent display(QO_CMPID_DEMO, "display", instance_from(argc, argv));
    if (!display.start()) return EXIT_FAILURE;
    if (!display.subscribe("/system/status", false)) return EXIT_FAILURE;
    if (!display.subscribe("/system/alarms", false)) return EXIT_FAILURE;
    refresh(display);
    while (display.running())
        if (display.receive(std::chrono::milliseconds(200))) refresh(display);
    return EXIT_SUCCESS;
}
