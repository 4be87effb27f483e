/// A thermometer: publishes each number that it reads on standard input as the temperature of the system, in a loop of
/// its own beside that of the service.
///
///     thermometer [INSTANCE] < NUMBERS
///
/// Ends at the end of its input, with status 0 when the service has handled all that was published.
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <cmath>
#include <optional>
#include <qo_pushpull_client.hpp>

namespace {

// The component's own JSON library would stand here.
struct Json {
    using Value = double;  // a temperature
    static std::optional<Value> parse(const std::string& text) {
        const size_t name = text.find("\"systemTemperature\":");
        if (name == std::string::npos) return std::nullopt;
        return strtod(text.c_str() + text.find(':', name) + 1, nullptr);
    }
    static std::string print(const Value& value) {
        char text[96];
        snprintf(text, sizeof text, R"({"system":{"status":{"systemTemperature":%.6g}}})", value);
        return text;
    }
};

// One reading for each line; whatever is no number is left out.
class Sensor {
public:
    // Takes what has arrived. @return false at the end
    bool take() {
        char bytes[512];
        const ssize_t length = read(STDIN_FILENO, bytes, sizeof bytes);
        if (length > 0) buffered_.append(bytes, static_cast<size_t>(length));
        return length > 0 || (length < 0 && errno == EINTR);
    }
    std::optional<double> next() {
        for (size_t end = 0; (end = buffered_.find('\n')) != std::string::npos;) {
            const std::string line = buffered_.substr(0, end);
            buffered_.erase(0, end + 1);
            char* behind = nullptr;
            const double number = strtod(line.c_str(), &behind);
            if (behind != line.c_str() && *behind == '\0' && std::isfinite(number)) return number;
        }
        return std::nullopt;
    }

private:
    std::string buffered_;
};

}  // namespace

int main(int argc, char** argv) {
    QoPushpullClientSettings settings;
    settings.id = QO_CMPID_HVAC_SYSCON_PUB;  // one that no other component of the device has
    settings.instance = argc > 1 ? argv[1] : "";
    settings.queue_name = "/thermometer" + settings.instance;
    QoPushpullClient thermometer(settings);
    QoPushpullJsonClient<Json> json(thermometer);

    if (thermometer.open() != 0 || !thermometer.wait_until_joined(settings.answer_timeout)) {
        fprintf(stderr, "thermometer: the service does not answer\n");
        return EXIT_FAILURE;
    }
    Sensor sensor;
    for (bool more = true; more;) {
        pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {thermometer.descriptor(), POLLIN, 0}};
        if (poll(sources, 2, -1) < 0 && errno != EINTR) break;
        if (sources[1].revents != 0) thermometer.dispatch();
        if (sources[0].revents == 0) continue;
        more = sensor.take();
        // What cannot be sent now is old when the service is back.
        while (const std::optional<double> reading = sensor.next()) json.publish(*reading);
    }
    return thermometer.wait_until_handled() ? EXIT_SUCCESS : EXIT_FAILURE;
}
