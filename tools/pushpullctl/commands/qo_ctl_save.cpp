// save: lets the service save its tree.
#include "qo_ctl_commands.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_written_file.h"

namespace {

class Save : public QoCtlCommand {
public:
    Help help() const override {
        return {"save", "Save the data tree now",
                "Ends with 0 when the file is new, as seen from here, and with 1 when it is not: its reason is in\n"
                "the service's log. Where the service's files cannot be seen, --blind ends with 0 when the\n"
                "service has handled the request.\n\n"
                "Example:\n  pushpullctl save && reboot"};
    }
    void declare(QoCtlCommandLine& line) override { line.flag("--blind", blind_, "do not look at the file"); }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    bool blind_ = false;
};

QoCtlStatus Save::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    if (const QoCtlStatus status = session.open(); status != QoCtlStatus::answered) return status;
    const QoCtlWritten saved = qo_ctl_request_save(session);
    session.close();
    if (saved.status != QoCtlStatus::answered || saved.seen || blind_) return saved.status;
    qo_ctl_say(saved.file + ": is not new, as seen from here; if it could not be written, the service's log tells why");
    return QoCtlStatus::failed;
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_save() { return std::make_unique<Save>(); }
