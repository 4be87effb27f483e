// sync: lets the service forward a text to another component.
#include "qo_ctl_commands.h"
#include "qo_ctl_components.h"
#include "qo_ctl_shared.h"
#include "qo_pushpull_json.h"

namespace {

class Sync : public QoCtlCommand {
public:
    Help help() const override {
        return {"sync", "Forward a text to another component",
                "The component is sent sync:ID:TEXT with the identifier of the sender. 0 means that the service\n"
                "has handled it; whether the component was there is in the service's log.\n\n"
                "Example:\n  pushpullctl sync SCHEDULER reload"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.word("DEST", destination_name_, "component, by name or number");
        line.word("TEXT", text_, "the text to forward");
    }
    std::string fault() override;
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string destination_name_;
    eQO_CMP_IDs_ destination_ = QO_CMPID_RESERVED;
    std::string text_;
};

std::string Sync::fault() {
    if (!QoJsonNode(json_new_a_n("", 0, text_.data(), text_.size()))) return "the text to forward is not valid UTF-8";
    return qo_ctl_take_component(destination_name_, destination_);
}

QoCtlStatus Sync::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    const auto forward = [this](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.comp_sync(id, destination_, text_); };
    const QoCtlStatus status = qo_ctl_handle(common, signals, forward, text_);
    if (status == QoCtlStatus::answered)
        qo_ctl_tell_person("handled; if the component could not be reached, the service's log tells");
    return status;
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_sync() { return std::make_unique<Sync>(); }
