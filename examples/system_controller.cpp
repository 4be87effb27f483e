/// The system controller: publishes what it measures. Its sensors are the lines of its standard input.
///
///     system_controller [INSTANCE]
///
///     temperature NUMBER   publishes a temperature in F
///     alarm TEXT           publishes an alarm
///     stop-service         asks the service to end
///
/// At the end of its input it leaves. It is an internal component: write authority does not bind it.
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <utility>

#include "example_component.h"
#include "example_json.h"

namespace {

// Lines of standard input without ever blocking the component, which has a queue to look at too.
class Input {
public:
    // The next whole line; nothing when none has come within `timeout`.
    std::optional<std::string> next_line(std::chrono::milliseconds timeout) {
        if (buffered_.find('\n') == std::string::npos) fill(timeout);
        const size_t end = buffered_.find('\n');
        if (end == std::string::npos) return std::nullopt;
        std::string line = buffered_.substr(0, end);
        buffered_.erase(0, end + 1);
        return line;
    }
    bool at_end() const { return at_end_ && buffered_.find('\n') == std::string::npos; }

private:
    void fill(std::chrono::milliseconds timeout) {
        pollfd waiting = {STDIN_FILENO, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(timeout.count())) <= 0) return;
        char bytes[512];
        const ssize_t length = read(STDIN_FILENO, bytes, sizeof bytes);
        if (length > 0) buffered_.append(bytes, static_cast<size_t>(length));
        at_end_ = length == 0 || (length < 0 && errno != EINTR);
    }

    std::string buffered_;
    bool at_end_ = false;
};

void publish_temperature(ExampleComponent& controller, const std::string& number) {
    ExampleJson value(json_parse(number.c_str()));
    if (json_type(value.get()) != JSON_NUMBER) {
        fprintf(stderr, "system_controller: \"%s\" is no number\n", number.c_str());
        return;
    }
    json_set_name(value.get(), "systemTemperature");
    controller.publish(text_inside({"system", "status"}, std::move(value)));
}

void publish_alarm(ExampleComponent& controller, const std::string& message) {
    ExampleJson alert(json_new(JSON_NODE));
    json_set_name(alert.get(), "alert");
    json_push_back(alert.get(), json_new_a("action", "set"));
    json_push_back(alert.get(), json_new_a("priority", "critical"));
    json_push_back(alert.get(), json_new_a("userMessage", message.c_str()));
    controller.publish(text_inside({"system", "alarms", "alertCmd"}, std::move(alert)));
}

void obey(ExampleComponent& controller, const std::string& line) {
    const size_t blank = line.find(' ');
    const std::string command = line.substr(0, blank);
    const std::string argument = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (command == "temperature")
        publish_temperature(controller, argument);
    else if (command == "alarm")
        publish_alarm(controller, argument);
    else if (command == "stop-service")
        controller.ask_service_to_exit();
    else if (!command.empty())
        fprintf(stderr, "system_controller: \"%s\" is none of temperature, alarm, stop-service\n", command.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    ExampleComponent controller(QO_CMPID_HVAC_SYSCON_PUB, "system_controller", instance_from(argc, argv));
    if (!controller.start()) return EXIT_FAILURE;
    Input input;
    while (controller.running() && !input.at_end()) {
        if (const auto line = input.next_line(std::chrono::milliseconds(100))) obey(controller, *line);
        // It subscribes to nothing, but the service's "exit" arrives here too.
        controller.receive(std::chrono::milliseconds(0));
    }
    return EXIT_SUCCESS;
}
