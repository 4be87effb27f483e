/// A status panel: prints the part of the tree that it shows whenever somebody has published into it, over every
/// restart of the service.
///
///     status_panel [--wait SECONDS] [INSTANCE]
///
/// With --wait it gives up when the service has not answered by then. Ends by SIGINT and SIGTERM.
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <qo_pushpull_client.hpp>

namespace {

constexpr char kShown[] = "/system/status";

QoPushpullClient* running = nullptr;  // for the signal handler alone

void stop_running(int) { running->stop(); }

void end_by_signals(QoPushpullClient& panel) {
    running = &panel;
    struct sigaction action = {};
    action.sa_handler = stop_running;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// A notification says what was published, not what the tree took of it: read the node.
void show(QoPushpullClient& panel) {
    if (const QoPushpullAnswer now = panel.get(kShown)) printf("%s\n", now.text.c_str());
}

struct Arguments {
    long wait = -1;  // seconds; below 0: for ever
    std::string instance;
};

Arguments arguments_from(int argc, char** argv) {
    Arguments arguments;
    for (int index = 1; index < argc; ++index)
        if (strcmp(argv[index], "--wait") == 0 && index + 1 < argc)
            arguments.wait = strtol(argv[++index], nullptr, 10);
        else
            arguments.instance = argv[index];
    return arguments;
}

}  // namespace

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const Arguments arguments = arguments_from(argc, argv);
    QoPushpullClientSettings settings;
    settings.id = QO_CMPID_DEMO;  // one that no other component of the device has
    settings.queue_name = "/status_panel" + arguments.instance;
    settings.instance = arguments.instance;

    QoPushpullClient panel(settings);
    panel.subscribe(
        kShown, [&panel](const std::string&) { show(panel); });
    panel.on_joined([&panel] { show(panel); });  // what was published before, or while the service was away
    panel.on_lost([] { fprintf(stderr, "status_panel: the service is away\n"); });
    if (panel.open() != 0) {
        fprintf(stderr, "status_panel: no queue %s: %s\n", settings.queue_name.c_str(), strerror(errno));
        return EXIT_FAILURE;
    }
    if (arguments.wait >= 0 && !panel.wait_until_joined(std::chrono::seconds(arguments.wait))) {
        fprintf(stderr, "status_panel: the service does not answer\n");
        return EXIT_FAILURE;
    }
    end_by_signals(panel);
    panel.run();
    return EXIT_SUCCESS;
}
