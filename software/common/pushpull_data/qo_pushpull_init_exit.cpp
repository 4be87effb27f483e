// The requests "init", a reset in place, and "exit".
#include <stdio.h>
#include <syslog.h>

#include <memory>
#include <string>

#include "qo_pushpull.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_exception_text.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_set_aside.h"
#include "qo_resource_mgr.h"

int PushPullData::comp_init(eQO_CMP_IDs_ comp_id) {
    const int result = announce_reset(comp_id);
    // Deliberate: the reset is done in every case, also for an unregistered requester: it is the way out of a bad tree.
    // Test: InitRequest.FromAnUnregisteredComponentStillDeletesTheSavedTreeAndItsBackupAndRestarts
    try {
        reset();
    } catch (...) {
        // Half of a service is none.
        syslog(LOG_CRIT, "exception %s in a reset", qo_exception_text());
        end_with_failure();
    }
    return result;
}

void PushPullData::reset() {
    resource_mgr->terminate();
    data_mgr->Terminate();
    close_service_queue();
    const std::string saved_tree = std::string(QO_DATA_DIRECTORY) + QO_SAVED_TREE_FILE;
    for (const std::string& path : {saved_tree, saved_tree + QO_BACKUP_EXTENSION}) {
        if (remove(path.c_str()) != 0) syslog(LOG_INFO, "Error deleting file or file not exist %s\n", path.c_str());
        qo_remove_set_aside(path);
    }
    data_mgr = std::make_shared<DataMgr>();
    resource_mgr = std::make_shared<ResourceMgr>();
    init(queue_suffix_name);
}

int PushPullData::announce_reset(eQO_CMP_IDs_ comp_id) {
    int result = -1;
    if (resource_mgr->is_comp_registered(comp_id)) {
        const std::string text = QO_INIT_ANSWER;
        syslog(LOG_DEBUG, "comp_init : send_data %s", text.c_str());
        result = comp_notify(1, &comp_id, text);
        if (result == -1) syslog(LOG_ERR, " comp_init : comp_notify Failed");
    } else {
        syslog(LOG_ERR, "Component not Registered, comp_init : ncomp_id=%d , ERR_CODE=%d", comp_id,
               QO_ERR_NOT_REGISTERED);
    }
    if (result == -1) syslog(LOG_ERR, " comp_init : Incorrect Path or comp_notify Failed");
    return result;
}

int PushPullData::comp_exit(eQO_CMP_IDs_ comp_id) {
    if (!resource_mgr->is_comp_registered(comp_id)) {
        syslog(LOG_ERR, "Component not Registered, comp_exit : ncomp_id=%d , ERR_CODE=%d", comp_id,
               QO_ERR_NOT_REGISTERED);
        syslog(LOG_ERR, " comp_exit : Incorrect Path or comp_notify Failed");
        return -1;
    }
    const std::string text = QO_EXIT_ANSWER;
    syslog(LOG_DEBUG, "comp_exit : send_data %s", text.c_str());
    if (comp_notify(1, &comp_id, text) == -1) syslog(LOG_ERR, " comp_exit : comp_notify Failed");
    const int result = comp_notify_all(QO_EXIT_NOTICE);
    if (result == 0) return 0;
    syslog(LOG_ERR, " comp_exit : comp_notify_all Failed");
    if (result == -1) syslog(LOG_ERR, " comp_exit : Incorrect Path or comp_notify Failed");
    return result;
}
