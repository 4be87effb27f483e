// tree: everything that the service holds.
#include "qo_ctl_commands.h"
#include "qo_ctl_live_tree.h"
#include "qo_ctl_shared.h"
#include "qo_pushpull_json.h"

namespace {

class Tree : public QoCtlCommand {
public:
    Help help() const override {
        return {"tree", "Show the whole data tree",
                "Lets the service write its debug dump and reads that, where the dump can be seen from here;\n"
                "otherwise, and with --no-dump, asks for the known top-level members one by one.\n\n"
                "Example:\n  pushpullctl tree --color always | less -R"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.flag("--no-dump", no_dump_, "ask for the known top-level members instead of a dump");
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    bool no_dump_ = false;
};

QoCtlStatus Tree::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlResult result;
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    result.status = session.open();
    if (result.status != QoCtlStatus::answered) return result.status;
    const QoJsonNode tree = qo_ctl_read_live_tree(session, !no_dump_, result.status);
    session.close();
    signals.release();
    if (!tree) return result.status;
    if (json_empty(tree.get()) == 1) {
        qo_ctl_say("the service holds none of the members known here");
        return QoCtlStatus::failed;
    }
    QoCtlStyle style = qo_ctl_stdout_style(common);
    // For people, in a pipe and a file too: the whole tree in one line is of use to nobody who did not ask for it.
    style.formatted = !common.json_lines;
    return qo_ctl_print(qo_ctl_render(tree.get(), style), result.status);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_tree() { return std::make_unique<Tree>(); }
