// exit: ends the service.
#include "qo_ctl_commands.h"
#include "qo_ctl_shared.h"
#include "qo_pushpull_conventions.h"

namespace {

class Exit : public QoCtlCommand {
public:
    Help help() const override {
        return {"exit", "End the service",
                "Every registered component is sent \"exit\". Changes that were not saved yet are lost.\n\n"
                "Example:\n  pushpullctl save && pushpullctl exit --yes"};
    }
    void declare(QoCtlCommandLine& line) override { line.flag("--yes", yes_, "do it; without it nothing is sent"); }
    std::string fault() override { return yes_ ? "" : "exit ends the service for every component; say --yes to do it"; }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    bool yes_ = false;
};

QoCtlStatus Exit::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    QoCtlStatus status = session.open();
    if (status != QoCtlStatus::answered) return status;
    status =
        session.send([](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.exit_request(id, QO_REQUEST_CONFIRMATION); },
                     QO_REQUEST_CONFIRMATION);
    if (status == QoCtlStatus::answered)
        status = qo_ctl_wait_for_text(session, signals, QO_EXIT_ANSWER, common.timeout);
    if (status != QoCtlStatus::answered) return status;
    // The service sends this to every component, without a limit in time, before it ends: to ours too.
    status = qo_ctl_wait_for_text(session, signals, QO_EXIT_NOTICE, common.timeout);
    if (status == QoCtlStatus::no_answer)
        qo_ctl_say("it said that it exits, but cannot tell every component: the queue of one may be full");
    session.close(true);
    return status;
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_exit() { return std::make_unique<Exit>(); }
