// init: sets the service back to factory data.
#include "qo_ctl_commands.h"
#include "qo_ctl_shared.h"
#include "qo_pushpull_conventions.h"

namespace {

class Init : public QoCtlCommand {
public:
    Help help() const override {
        return {"init", "Reset the service to factory data",
                "Deletes the saved tree and its backup and drops every registration and subscription: all\n"
                "components have to register again. Waits until the service is back.\n\n"
                "Example:\n  pushpullctl init --yes"};
    }
    void declare(QoCtlCommandLine& line) override { line.flag("--yes", yes_, "do it; without it nothing is sent"); }
    std::string fault() override {
        return yes_ ? "" : "init deletes the saved tree and drops every registration; say --yes to do it";
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    bool yes_ = false;
};

QoCtlStatus Init::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    QoCtlStatus status = session.open();
    if (status != QoCtlStatus::answered) return status;
    status =
        session.send([](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.init_request(id, QO_REQUEST_CONFIRMATION); },
                     QO_REQUEST_CONFIRMATION);
    if (status == QoCtlStatus::answered)
        status = qo_ctl_wait_for_text(session, signals, QO_INIT_ANSWER, common.timeout);
    if (status == QoCtlStatus::answered) status = session.join_again();
    if (status == QoCtlStatus::answered) qo_ctl_tell_person("the service is back with its default tree");
    return status;
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_init() { return std::make_unique<Init>(); }
