// dump: lets the service write its whole tree to a file.
#include "qo_ctl_commands.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_written_file.h"
#include "qo_pushpull_json.h"

namespace {

class Dump : public QoCtlCommand {
public:
    Help help() const override {
        return {"dump", "Let the service write its whole tree to a file",
                "Says where. \"seen\" tells whether the file was seen to be written from here; when it was not,\n"
                "dump ends with 1.\n\n"
                "Example:\n  pushpullctl dump"};
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;
};

QoCtlStatus Dump::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    if (const QoCtlStatus status = session.open(); status != QoCtlStatus::answered) return status;
    const QoCtlWritten dump = qo_ctl_request_dump(session);
    session.close();
    signals.release();
    if (dump.status != QoCtlStatus::answered) return dump.status;
    if (!dump.seen)
        qo_ctl_say("the file is not new, as seen from here; if it was not written, the service's log tells");
    const QoJsonNode answer(json_new(JSON_NODE));
    json_push_back(answer.get(), json_new_a("file", dump.file.c_str()));
    json_push_back(answer.get(), json_new_b("seen", dump.seen ? 1 : 0));
    if (dump.seen) json_push_back(answer.get(), json_new_i("bytes", dump.bytes));
    return qo_ctl_print(qo_ctl_render(answer.get(), qo_ctl_stdout_style(common)),
                        dump.seen ? QoCtlStatus::answered : QoCtlStatus::failed);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_dump() { return std::make_unique<Dump>(); }
