// clear: sets a node back to its default.
#include "qo_ctl_commands.h"
#include "qo_ctl_shared.h"

namespace {

class Clear : public QoCtlCommand {
public:
    Help help() const override {
        return {"clear", "Set a node back to its default",
                "The restored node is published to its subscribers. A node that the default tree does not have\n"
                "is deleted, and pushpullctl ends with 1.\n\n"
                "Example:\n  pushpullctl clear /logs"};
    }
    void declare(QoCtlCommandLine& line) override { line.word("POINTER", pointer_, "JSON pointer, as /system/config"); }
    std::string fault() override { return qo_ctl_node_fault(pointer_); }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string pointer_;
};

QoCtlStatus Clear::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    if (const QoCtlStatus status = session.open(); status != QoCtlStatus::answered) return status;
    const auto request = [this](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.clear(id, pointer_); };
    const QoCtlLook after = qo_ctl_change_node(session, pointer_, request);
    if (after.status != QoCtlStatus::answered) return after.status;
    if (after.there) return QoCtlStatus::answered;
    qo_ctl_say(pointer_ + ": not in the default tree, so it was deleted and not restored");
    return QoCtlStatus::failed;
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_clear() { return std::make_unique<Clear>(); }
