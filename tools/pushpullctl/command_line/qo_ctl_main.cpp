// From the command line to the command.
#include "qo_ctl_main.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <exception>

#include "qo_ctl_commands.h"
#include "qo_ctl_options.h"
#include "qo_ctl_output.h"

namespace {

/// A queue that got the number of a missing standard descriptor would be written to as if it were the terminal.
void open_standard_descriptors() {
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = open("/dev/null", O_RDWR);
    if (descriptor >= 0) close(descriptor);
}

}  // namespace

int qo_ctl_main(int argc, const char* const* argv) {
    open_standard_descriptors();
    // The client library logs what it does; it names us, and never the terminal.
    openlog("pushpullctl", LOG_PID, LOG_USER);
    try {
        int status = 0;
        const std::vector<std::unique_ptr<QoCtlCommand>> commands = qo_ctl_commands();
        const std::optional<QoCtlOptions> options = qo_ctl_parse(argc, argv, commands, status);
        if (!options) return status;
        QoCtlSignals signals;
        const QoCtlStatus result = options->command->run(options->common, signals);
        return result == QoCtlStatus::interrupted ? 128 + signals.caught() : static_cast<int>(result);
    } catch (const std::exception& exception) {
        qo_ctl_say(exception.what());
        return static_cast<int>(QoCtlStatus::failed);
    }
}
