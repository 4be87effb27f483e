// restore: brings a tree back that was kept in a file.
#include <algorithm>

#include "qo_ctl_commands.h"
#include "qo_ctl_difference.h"
#include "qo_ctl_difference_print.h"
#include "qo_ctl_fragment.h"
#include "qo_ctl_live_tree.h"
#include "qo_ctl_source.h"

namespace {

class Restore : public QoCtlCommand {
public:
    Help help() const override {
        return {"restore", "Bring a tree back that was kept in a file",
                "Publishes every place that differs from FILE (a snapshot, a saved tree, or one of the names that\n"
                "\"diff\" takes), in pieces that fit in a message, and compares again. What was added since stays;\n"
                "with --exact it is deleted. Each place that could not be brought back is printed, and the exit\n"
                "status is 1 then: metadata (writeAccess, doNotPersist) cannot be published.\n\n"
                "Example:\n  pushpullctl restore before.json"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.word("FILE", name_, "the tree to bring back");
        line.flag("--exact", exact_, "delete what was added since");
    }
    std::string fault() override { return name_ == QO_CTL_LIVE ? "the live tree is what is restored" : ""; }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string name_;
    bool exact_ = false;
};

/// Which segments of a path are positions in arrays of the tree.
std::vector<bool> positions_in(JSONNODE* tree, const QoCtlPath& path) {
    std::vector<bool> positions;
    for (const std::string& segment : path) {
        const bool in_array = json_type(tree) == JSON_ARRAY;
        positions.push_back(in_array);
        tree = in_array ? json_at(tree, std::stoul(segment)) : qo_json_find(tree, segment);
    }
    return positions;
}

/// Publishes what is to stand at places of the wanted tree.
class Publisher {
public:
    Publisher(QoCtlSession& session, JSONNODE* wanted) : session_(session), wanted_(wanted) {}

    /// In pieces where it is longer than a message.
    QoCtlStatus publish(QoCtlPath& path, JSONNODE* value) {
        const QoJsonNode object = qo_ctl_fragment(path, positions_in(wanted_, path), QoJsonNode(json_duplicate(value)));
        const std::string text = qo_json_write(object.get());
        if (session_.fits(text) || !qo_json_is_container(value) || json_empty(value) == 1)
            return session_.send([&](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.publish(id, text); }, text);
        QoCtlStatus status = QoCtlStatus::answered;
        size_t position = 0;
        for (JSONNODE* child : QoJsonChildren(value)) {
            if (status != QoCtlStatus::answered) break;
            const bool in_array = json_type(value) == JSON_ARRAY;
            path.emplace_back(in_array ? std::to_string(position++) : std::string(qo_json_name(child)));
            status = publish(path, child);
            path.pop_back();
        }
        return status;
    }

private:
    QoCtlSession& session_;
    JSONNODE* wanted_;
};

bool is_surplus(const QoCtlDifference& difference) { return difference.after == nullptr; }

/// A container is not overwritten by a value, nor by a container of the other kind.
bool has_to_go_first(const QoCtlDifference& difference) {
    return difference.before != nullptr && difference.after != nullptr && qo_json_is_container(difference.before);
}

QoCtlStatus bring_back(QoCtlSession& session, const std::vector<QoCtlDifference>& differences, JSONNODE* wanted,
                       bool exact) {
    Publisher publisher(session, wanted);
    for (QoCtlDifference difference : differences) {
        QoCtlStatus status = QoCtlStatus::answered;
        if (exact && (is_surplus(difference) || has_to_go_first(difference))) {
            const std::string pointer = qo_ctl_pointer(difference.path);
            status = session.send([&](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.delete_node(id, pointer); },
                                  pointer);
        }
        if (status == QoCtlStatus::answered && !is_surplus(difference))
            status = publisher.publish(difference.path, difference.after);
        if (status != QoCtlStatus::answered) return status;
    }
    return session.fence();
}

QoCtlStatus Restore::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlStatus status = QoCtlStatus::answered;
    const QoJsonNode wanted = qo_ctl_take_tree(name_, common, signals, status);
    if (!wanted) return status;
    QoCtlSession session(qo_ctl_session_settings(common, exact_ ? qo_ctl_deleting_identities() : qo_ctl_identities()),
                         signals);
    status = session.open();
    if (status != QoCtlStatus::answered) return status;
    const QoJsonNode before = qo_ctl_read_live_tree(session, true, status);
    if (status != QoCtlStatus::answered) return status;
    status = bring_back(session, qo_ctl_differences(before.get(), wanted.get()), wanted.get(), exact_);
    if (status != QoCtlStatus::answered) return status;
    const QoJsonNode after = qo_ctl_read_live_tree(session, true, status);
    session.close();
    signals.release();
    if (status != QoCtlStatus::answered) return status;
    std::vector<QoCtlDifference> left = qo_ctl_differences(after.get(), wanted.get());
    if (!exact_) left.erase(std::remove_if(left.begin(), left.end(), is_surplus), left.end());
    if (left.empty()) return QoCtlStatus::answered;
    qo_ctl_say(qo_ctl_count(static_cast<long>(left.size()), "place") + " could not be brought back");
    return qo_ctl_print(
        common.json_lines ? qo_ctl_json_patch(left) : qo_ctl_difference_lines(left, qo_ctl_stdout_style(common)),
        QoCtlStatus::failed);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_restore() { return std::make_unique<Restore>(); }
