// defaults: the tree that is built in.
#include "qo_ctl_commands.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_tree_file.h"

namespace {

class Defaults : public QoCtlCommand {
public:
    Help help() const override {
        return {"defaults", "Print the built-in default tree",
                "Needs no service. A site's starting point: a file /kivo/others/defaults.json replaces the built-in\n"
                "tree whole, so what is left out of it is not there at all.\n\n"
                "Example:\n  pushpullctl defaults > defaults.json"};
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override {
        signals.release();
        QoCtlStyle style = qo_ctl_stdout_style(common);
        style.formatted = !common.json_lines;  // a file that somebody edits
        return qo_ctl_print(qo_ctl_render(qo_ctl_built_in_defaults().get(), style), QoCtlStatus::answered);
    }
};

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_defaults() { return std::make_unique<Defaults>(); }
