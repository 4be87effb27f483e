/// The commands, each in a source of its own.
#ifndef QO_CTL_COMMANDS_H
#define QO_CTL_COMMANDS_H

#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "qo_ctl_command.h"

/// All of them, in the order of the help.
std::vector<std::unique_ptr<QoCtlCommand>> qo_ctl_commands();

std::unique_ptr<QoCtlCommand> qo_ctl_make_check_defaults();
std::unique_ptr<QoCtlCommand> qo_ctl_make_check_saved();
std::unique_ptr<QoCtlCommand> qo_ctl_make_clear();
std::unique_ptr<QoCtlCommand> qo_ctl_make_components();
std::unique_ptr<QoCtlCommand> qo_ctl_make_defaults();
std::unique_ptr<QoCtlCommand> qo_ctl_make_delete();
std::unique_ptr<QoCtlCommand> qo_ctl_make_diff();
std::unique_ptr<QoCtlCommand> qo_ctl_make_dump();
std::unique_ptr<QoCtlCommand> qo_ctl_make_exit();
std::unique_ptr<QoCtlCommand> qo_ctl_make_explain();
std::unique_ptr<QoCtlCommand> qo_ctl_make_get();
std::unique_ptr<QoCtlCommand> qo_ctl_make_init();
std::unique_ptr<QoCtlCommand> qo_ctl_make_latency();
std::unique_ptr<QoCtlCommand> qo_ctl_make_monitor();
std::unique_ptr<QoCtlCommand> qo_ctl_make_publish();
std::unique_ptr<QoCtlCommand> qo_ctl_make_queues();
std::unique_ptr<QoCtlCommand> qo_ctl_make_record();
std::unique_ptr<QoCtlCommand> qo_ctl_make_replay();
std::unique_ptr<QoCtlCommand> qo_ctl_make_restore();
std::unique_ptr<QoCtlCommand> qo_ctl_make_save();
std::unique_ptr<QoCtlCommand> qo_ctl_make_set();
std::unique_ptr<QoCtlCommand> qo_ctl_make_snapshot();
std::unique_ptr<QoCtlCommand> qo_ctl_make_stats();
std::unique_ptr<QoCtlCommand> qo_ctl_make_subscribe();
std::unique_ptr<QoCtlCommand> qo_ctl_make_sync();
std::unique_ptr<QoCtlCommand> qo_ctl_make_top();
std::unique_ptr<QoCtlCommand> qo_ctl_make_tree();
std::unique_ptr<QoCtlCommand> qo_ctl_make_who();

#endif
