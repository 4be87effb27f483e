/// A component in C that has more to wait for than the service: shows what is published below /system/status, and
/// publishes what it reads.
///
///     status_watch [INSTANCE]
///
/// A number on a line of its standard input is published as the system's temperature, in F. It ends with its input, or
/// with the service.
#include <math.h>
#include <poll.h>
#include <qo_pushpull_c.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { kMessages = 10, kMessageSize = 8192 };  // what an unprivileged user may make

static int failed(const char* what, int32_t status) {
    fprintf(stderr, "status_watch: %s: %s\n", what, qo_pushpull_c_status_text(status));
    return EXIT_FAILURE;
}

/// Shows a text; its context is an int that becomes 1 at the service's last one.
static bool show(const char* text, size_t length, void* context) {
    printf("%.*s\n", (int)length, text);
    fflush(stdout);
    if (strcmp(text, "exit") == 0) *(int*)context = 1;
    return true;
}

/// Publishes the next line of standard input. @return false at its end
static bool publish_line(qo_pushpull_c_client* client) {
    char line[64];
    if (fgets(line, sizeof line, stdin) == NULL) return false;
    char* behind = line;
    const double temperature = strtod(line, &behind);
    if (behind == line || !isfinite(temperature)) {
        fprintf(stderr, "status_watch: no number: %s", line);
        return true;
    }
    char json[128];
    snprintf(json, sizeof json, "{\"system\":{\"status\":{\"systemTemperature\":%g}}}", temperature);
    const int32_t status = qo_pushpull_c_publish(client, json);
    if (status != QO_PUSHPULL_C_OK) failed("cannot publish", status);
    return true;
}

/// Until the end of standard input or of the service.
static int attend(qo_pushpull_c_client* client) {
    // Lines that stdio has taken out of the descriptor could not be waited for.
    setvbuf(stdin, NULL, _IONBF, 0);
    int service_ends = 0;
    struct pollfd waiting[] = {{STDIN_FILENO, POLLIN, 0}, {qo_pushpull_c_descriptor(client), POLLIN, 0}};
    while (!service_ends) {
        if (poll(waiting, 2, -1) < 0) continue;  // a signal that did not end the program
        if (waiting[1].revents != 0) {
            const int32_t status = qo_pushpull_c_receive_each(client, 0, show, &service_ends);
            if (status != QO_PUSHPULL_C_OK && status != QO_PUSHPULL_C_TIMEOUT) return failed("cannot receive", status);
        }
        if (waiting[0].revents != 0 && !publish_line(client)) break;
    }
    return EXIT_SUCCESS;
}

int main(int argc, char** argv) {
    qo_pushpull_c_client* client = NULL;
    int32_t status = qo_pushpull_c_open(QO_CMPID_HVAC_SYSCON_PUB, argc > 1 ? argv[1] : "", &client);
    if (status != QO_PUSHPULL_C_OK) return failed("cannot reach the service", status);
    int result = EXIT_FAILURE;
    status = qo_pushpull_c_register(client, "/status_watch", kMessages, kMessageSize);
    if (status == QO_PUSHPULL_C_OK) status = qo_pushpull_c_subscribe(client, "/system/status", false);
    if (status == QO_PUSHPULL_C_OK)
        result = attend(client);
    else
        failed("cannot subscribe", status);
    qo_pushpull_c_close(client);
    return result;
}
