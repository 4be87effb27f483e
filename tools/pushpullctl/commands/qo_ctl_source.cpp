// Where trees come from.
#include "qo_ctl_source.h"

#include "qo_ctl_live_tree.h"
#include "qo_ctl_tree_file.h"
#include "qo_pushpull_files.h"

namespace {

std::string file_of(const std::string& name) {
    const std::string directory = QO_DATA_DIRECTORY;
    if (name == "saved") return directory + QO_SAVED_TREE_FILE;
    if (name == "backup") return directory + QO_SAVED_TREE_FILE + QO_BACKUP_EXTENSION;
    if (name == "dump") return directory + QO_ACTIVE_TREE_FILE;
    return name;
}

QoJsonNode take_live_tree(const QoCtlCommon& common, QoCtlSignals& signals, QoCtlStatus& status) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    status = session.open();
    if (status != QoCtlStatus::answered) return nullptr;
    QoJsonNode tree = qo_ctl_read_live_tree(session, true, status);
    // A part of the tree is no tree that something could be compared with.
    return status == QoCtlStatus::answered ? std::move(tree) : nullptr;
}

}  // namespace

QoJsonNode qo_ctl_take_tree(const std::string& name, const QoCtlCommon& common, QoCtlSignals& signals,
                            QoCtlStatus& status) {
    if (name == QO_CTL_LIVE) return take_live_tree(common, signals, status);
    if (name == "defaults") return qo_ctl_built_in_defaults();
    QoCtlTreeFile file = qo_ctl_read_tree_file(file_of(name));
    if (file.tree) return std::move(file.tree);
    qo_ctl_say(file_of(name) + ": " + file.fault);
    status = QoCtlStatus::failed;
    return nullptr;
}
