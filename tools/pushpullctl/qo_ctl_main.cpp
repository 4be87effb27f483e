// From the command line to the command.
#include "qo_ctl_main.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <exception>

#include "qo_ctl_commands.h"
#include "qo_ctl_options.h"

namespace {

struct CommandRow {
    QoCtlCommand command;
    QoCtlStatus (*run)(const QoCtlOptions&, QoCtlSignals&);
};

constexpr CommandRow kCommands[] = {
    {QoCtlCommand::get, qo_ctl_get},
    {QoCtlCommand::publish, qo_ctl_publish},
    {QoCtlCommand::subscribe, qo_ctl_subscribe},
    {QoCtlCommand::delete_node, qo_ctl_delete},
    {QoCtlCommand::clear, qo_ctl_clear},
    {QoCtlCommand::save, qo_ctl_save},
    {QoCtlCommand::dump, qo_ctl_dump},
    {QoCtlCommand::sync, qo_ctl_sync},
    {QoCtlCommand::init, qo_ctl_init},
    {QoCtlCommand::exit, qo_ctl_exit},
    {QoCtlCommand::tree, qo_ctl_tree},
    {QoCtlCommand::components, qo_ctl_list_components},
    {QoCtlCommand::queues, qo_ctl_list_queues},
    {QoCtlCommand::stats, qo_ctl_stats},
    {QoCtlCommand::check_saved, qo_ctl_check_saved},
    {QoCtlCommand::check_defaults, qo_ctl_check_defaults},
};

/// A queue that got the number of a missing standard descriptor would be written to as if it were the terminal.
void open_standard_descriptors() {
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = open("/dev/null", O_RDWR);
    if (descriptor >= 0) close(descriptor);
}

QoCtlStatus run(const QoCtlOptions& options, QoCtlSignals& signals) {
    for (const CommandRow& row : kCommands)
        if (row.command == options.command) return row.run(options, signals);
    return QoCtlStatus::usage;
}

}  // namespace

int qo_ctl_main(int argc, const char* const* argv) {
    open_standard_descriptors();
    // The client library logs what it does; it names us, and never the terminal.
    openlog("pushpullctl", LOG_PID, LOG_USER);
    try {
        int status = 0;
        const std::optional<QoCtlOptions> options = qo_ctl_parse(argc, argv, status);
        if (!options) return status;
        QoCtlSignals signals;
        const QoCtlStatus result = run(*options, signals);
        return result == QoCtlStatus::interrupted ? 128 + signals.caught() : static_cast<int>(result);
    } catch (const std::exception& exception) {
        qo_ctl_say(exception.what());
        return static_cast<int>(QoCtlStatus::failed);
    }
}
