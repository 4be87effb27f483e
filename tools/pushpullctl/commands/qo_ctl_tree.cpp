// tree: everything that the service holds.
#include "qo_ctl_commands.h"
#include "qo_ctl_harmless.h"
#include "qo_ctl_live_tree.h"
#include "qo_ctl_padded.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_sizes.h"
#include "qo_pushpull_json.h"

namespace {

std::string size_list(JSONNODE* tree, QoCtlStyle style) {
    constexpr size_t kWidth = 12;  // characters of a number
    std::string text;
    for (const QoCtlSize& part : qo_ctl_sizes(tree)) {
        if (style.formatted) {
            text +=
                qo_ctl_padded(std::to_string(part.bytes), kWidth, true) + "  " + qo_ctl_harmless(part.pointer) + "\n";
            continue;
        }
        const QoJsonNode line(json_new(JSON_NODE));
        qo_ctl_add_text(line.get(), "pointer", part.pointer);
        json_push_back(line.get(), json_new_i("bytes", static_cast<int64_t>(part.bytes)));
        json_push_back(line.get(), json_new_i("children", static_cast<int64_t>(part.children)));
        text += qo_ctl_render(line.get(), style);
    }
    return text;
}

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
        line.flag("--sizes", sizes_, "list objects and arrays with their sizes, the largest first");
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    bool no_dump_ = false;
    bool sizes_ = false;
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
    if (sizes_) return qo_ctl_print(size_list(tree.get(), style), result.status);
    // For people, in a pipe and a file too: the whole tree in one line is of use to nobody who did not ask for it.
    style.formatted = !common.json_lines;
    return qo_ctl_print(qo_ctl_render(tree.get(), style), result.status);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_tree() { return std::make_unique<Tree>(); }
