// publish: merges an object into the tree.
#include "qo_ctl_commands.h"
#include "qo_ctl_write.h"

namespace {

class Publish : public QoCtlCommand {
public:
    Help help() const override {
        return {"publish", "Merge a JSON object into the data tree",
                "0 means that the service has handled it. A refusal (no write authority, an id too large)\n"
                "does not show, but with --verify: it reads back what was published, lists the places that\n"
                "were not taken, and ends with 1 when there are any.\n\n"
                "Example:\n  pushpullctl publish '{\"system\":{\"config\":{\"name\":\"Shop\"}}}'\n"
                "  pushpullctl publish --verify --file change.json\n  generate | pushpullctl publish -"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.word("JSON", text_, "the JSON object to merge; - reads standard input", QoCtlCommandLine::Need::optional);
        line.text("--file", file_, "FILE", "read the JSON object from a file; - is standard input");
        line.flag("--verify", verify_, "read it back and tell what was not taken");
        line.not_together("--file", "JSON");
    }
    std::string fault() override { return qo_ctl_take_object(text_, file_); }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string text_;
    std::string file_;
    bool verify_ = false;
};

QoCtlStatus Publish::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    QoCtlResult result;
    result.status = session.open();
    if (result.status != QoCtlStatus::answered) return result.status;
    qo_ctl_publish_object(session, text_, verify_, qo_ctl_stdout_style(common), result);
    session.close();
    signals.release();
    if (result.status == QoCtlStatus::answered && !verify_)
        qo_ctl_tell_person("handled; a refusal would not show here: --verify reads back what was taken");
    return qo_ctl_print(result.text, result.status);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_publish() { return std::make_unique<Publish>(); }
