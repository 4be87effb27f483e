// diff: how two trees differ.
#include "qo_ctl_commands.h"
#include "qo_ctl_difference.h"
#include "qo_ctl_difference_print.h"
#include "qo_ctl_source.h"

namespace {

class Diff : public QoCtlCommand {
public:
    Help help() const override {
        return {"diff", "Show how two trees differ",
                "Each is live (what the service holds), saved, backup or dump (the service's files), defaults (what\n"
                "is built in), or a file. Only \"live\" needs a service. One line for each place: + what was added,\n"
                "- what was removed, ~ what changed. With --json a JSON Patch (RFC 6902). Ends with 0 when there is\n"
                "no difference, with 1 otherwise.\n\n"
                "Example:\n  pushpullctl diff before.json live\n  pushpullctl diff --json defaults saved"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.word("BEFORE", before_, "the tree from before");
        line.word("AFTER", after_, "the tree from afterwards");
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string before_;
    std::string after_;
};

QoCtlStatus Diff::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlStatus status = QoCtlStatus::answered;
    const QoJsonNode before = qo_ctl_take_tree(before_, common, signals, status);
    if (!before) return status;
    const QoJsonNode after = qo_ctl_take_tree(after_, common, signals, status);
    if (!after) return status;
    signals.release();
    const std::vector<QoCtlDifference> differences = qo_ctl_differences(before.get(), after.get());
    const std::string text = common.json_lines ? qo_ctl_json_patch(differences)
                                               : qo_ctl_difference_lines(differences, qo_ctl_stdout_style(common));
    return qo_ctl_print(text, differences.empty() ? QoCtlStatus::answered : QoCtlStatus::failed);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_diff() { return std::make_unique<Diff>(); }
