// queues: how full the message queues are.
#include <algorithm>

#include "qo_ctl_commands.h"
#include "qo_ctl_queue_look.h"
#include "qo_ctl_queue_table.h"
#include "qo_ctl_service_queue.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_top.h"

namespace {

bool has_queue(const std::vector<QoCtlQueue>& queues, const std::string& name) {
    return std::any_of(
        queues.begin(), queues.end(), [&](const QoCtlQueue& queue) { return queue.name == name; });
}

class Queues : public QoCtlCommand {
public:
    Help help() const override {
        return {
            "queues", "Show how full the message queues are",
            "Needs no running service. Lists what the message queue file system shows, usually at /dev/mqueue, and\n"
            "which processes read the queues, as far as they can be looked into (see: pushpullctl who).\n"
            "With --watch also for how many seconds each queue has been seen full without a break: a component's\n"
            "queue that stays full for 120 restarts the device.\n\n"
            "Example:\n  pushpullctl queues --watch"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.flag("--watch", watch_, "show them again every second, until q or Ctrl-C");
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    bool watch_ = false;
};

QoCtlStatus Queues::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    if (watch_) return qo_ctl_run_top("", common, signals);
    signals.release();
    const std::string service = qo_ctl_service_queue_name(common.instance);
    const std::vector<QoCtlQueue> queues = qo_ctl_look_at_queues(service).queues;
    const bool service_seen = has_queue(queues, service);
    if (!service_seen) qo_ctl_say("the service's queue " + service + " is not there or cannot be opened");
    const QoCtlStatus status = service_seen ? QoCtlStatus::answered : QoCtlStatus::unreachable;
    const QoCtlStyle style = qo_ctl_stdout_style(common);
    return qo_ctl_print(style.formatted ? qo_ctl_queue_table(queues, service, std::string::npos, style.coloured)
                                        : qo_ctl_queue_lines(queues, service),
                        status);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_queues() { return std::make_unique<Queues>(); }
