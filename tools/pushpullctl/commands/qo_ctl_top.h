/// The live screen, which two commands open.
#ifndef QO_CTL_TOP_H
#define QO_CTL_TOP_H

#include <string>

#include "qo_ctl_command.h"

/// Shows queues and service every second until q or Ctrl-C, on a screen or as JSON lines.
/// @param log a syslog file that is followed for requests and refusals; "" for none
QoCtlStatus qo_ctl_run_top(const std::string& log, const QoCtlCommon& common, QoCtlSignals& signals);

#endif
