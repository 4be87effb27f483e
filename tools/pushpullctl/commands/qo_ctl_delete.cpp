// delete: removes a node of the tree.
#include "qo_ctl_commands.h"
#include "qo_ctl_shared.h"

namespace {

class Delete : public QoCtlCommand {
public:
    Help help() const override {
        return {"delete", "Remove a node of the data tree",
                "Only the identifiers HVAC_SYSCON_SUB to HVAC_SYSCON_END may delete; without --as it is one of them.\n"
                "An array element that is not the last leaves {\"id\": its position}.\n\n"
                "Example:\n  pushpullctl delete /devices/2"};
    }
    void declare(QoCtlCommandLine& line) override { line.word("POINTER", pointer_, "JSON pointer, as /system/config"); }
    std::string fault() override { return qo_ctl_node_fault(pointer_); }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string pointer_;
};

QoCtlStatus Delete::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    const QoCtlSessionSettings settings = qo_ctl_session_settings(common, qo_ctl_deleting_identities());
    if (QoPushpullApi(common.instance).check_delete_authority(settings.identities.front()) != 0) {
        qo_ctl_say("only HVAC_SYSCON_SUB to HVAC_SYSCON_END may delete; leave --as away, or choose one of them");
        return QoCtlStatus::failed;
    }
    QoCtlSession session(settings, signals);
    if (const QoCtlStatus status = session.open(); status != QoCtlStatus::answered) return status;
    const auto request = [this](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.delete_node(id, pointer_); };
    const QoCtlLook after = qo_ctl_change_node(session, pointer_, request);
    if (after.status != QoCtlStatus::answered) return after.status;
    if (!after.there || after.placeholder) return QoCtlStatus::answered;
    qo_ctl_say(pointer_ + ": still there; the service's log tells why");
    return QoCtlStatus::failed;
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_delete() { return std::make_unique<Delete>(); }
