// subscribe: follows what is published.
#include <unistd.h>

#include "qo_ctl_commands.h"
#include "qo_ctl_follow.h"
#include "qo_ctl_recording.h"

namespace {

class Subscribe : public QoCtlCommand {
public:
    Help help() const override {
        return {"subscribe", "Follow what is published below pointers",
                "Prints each published text until Ctrl-C, or until --count of them. A text that is not JSON,\n"
                "as \"NODE DELETED: /x\", is printed as a JSON string. / follows the whole tree; other pointers\n"
                "have to name an object or an array of the service's default tree, no value. An array stands for its\n"
                "elements: /devices/device, and no position.\n\n"
                "Example:\n  pushpullctl subscribe /system/status /devices\n"
                "  pushpullctl subscribe --changes --count 1 /logs\n"
                "  pushpullctl subscribe --timestamps --for 60 /system"};
    }
    void declare(QoCtlCommandLine& line) override {
        following_.declare(line);
        line.flag("--timestamps", timestamps_, "each text with the time at which it was heard");
    }
    std::string fault() override { return qo_ctl_pointers_fault(following_.pointers); }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    QoCtlFollowing following_;
    bool timestamps_ = false;
};

QoCtlStatus Subscribe::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    const QoCtlStyle style = qo_ctl_stdout_style(common);
    return qo_ctl_follow(following_, common, signals, STDOUT_FILENO, "standard output", [&](const std::string& text) {
        return timestamps_ ? qo_ctl_recorded(qo_ctl_now(), following_.pointers, text, style)
                           : qo_ctl_render_text(text, style);
    });
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_subscribe() { return std::make_unique<Subscribe>(); }
