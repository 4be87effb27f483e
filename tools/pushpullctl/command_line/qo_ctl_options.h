/// The command line of pushpullctl.
#ifndef QO_CTL_OPTIONS_H
#define QO_CTL_OPTIONS_H

#include <memory>
#include <optional>
#include <span>

#include "qo_ctl_command.h"

/// A command line that can be carried out.
struct QoCtlOptions {
    QoCtlCommand* command = nullptr;
    QoCtlCommon common;
};

/// Reads the command line into one of the commands. Says on standard error what is wrong with it; prints help and the
/// version on standard output.
/// @param status set when there is nothing to carry out: 0 after help or the version, 2 after a fault
/// @return nothing when there is nothing to carry out
std::optional<QoCtlOptions> qo_ctl_parse(int argc, const char* const* argv,
                                         std::span<const std::unique_ptr<QoCtlCommand>> commands, int& status);

#endif
