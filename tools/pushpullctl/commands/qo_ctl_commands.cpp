// Which commands there are.
#include "qo_ctl_commands.h"

namespace {

// clang-format off
constexpr std::unique_ptr<QoCtlCommand> (*kMakers[])() = {
    qo_ctl_make_get,
    qo_ctl_make_publish,
    qo_ctl_make_set,
    qo_ctl_make_subscribe,
    qo_ctl_make_delete,
    qo_ctl_make_clear,
    qo_ctl_make_save,
    qo_ctl_make_dump,
    qo_ctl_make_sync,
    qo_ctl_make_init,
    qo_ctl_make_exit,
    qo_ctl_make_tree,
    qo_ctl_make_explain,
    qo_ctl_make_snapshot,
    qo_ctl_make_restore,
    qo_ctl_make_diff,
    qo_ctl_make_components,
    qo_ctl_make_queues,
    qo_ctl_make_who,
    qo_ctl_make_top,
    qo_ctl_make_monitor,
    qo_ctl_make_record,
    qo_ctl_make_replay,
    qo_ctl_make_latency,
    qo_ctl_make_stats,
    qo_ctl_make_check_saved,
    qo_ctl_make_check_defaults,
    qo_ctl_make_defaults,
};
// clang-format on

}  // namespace

std::vector<std::unique_ptr<QoCtlCommand>> qo_ctl_commands() {
    std::vector<std::unique_ptr<QoCtlCommand>> commands;
    for (const auto make : kMakers) commands.push_back(make());
    return commands;
}
