// The requests "save" and "save_debug".
#include <syslog.h>

#include "qo_pushpull.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_error_codes.h"
#include "qo_resource_mgr.h"

int PushPullData::comp_save(eQO_CMP_IDs_ comp_id) {
    if (!resource_mgr->is_comp_registered(comp_id)) {
        syslog(LOG_ERR, "Component not Registered, comp_save : ncomp_id=%d, ERR_CODE=%d", comp_id,
               QO_ERR_NOT_REGISTERED);
        return -1;
    }
    const int result = data_mgr->SaveDataTree(false);
    if (result == -1) {
        syslog(LOG_ERR, " comp_save : SaveDataTree return FAIL: %ld, ERR_CODE:%d", static_cast<long>(result),
               QO_ERR_TREE_SAVE);
    }
    return result;
}

int PushPullData::comp_save_debug(eQO_CMP_IDs_ comp_id) {
    if (!resource_mgr->is_comp_registered(comp_id)) {
        syslog(LOG_ERR, "Component not Registered, comp_save_debug : ncomp_id=%d", comp_id);
        return -1;
    }
    const int result = data_mgr->SaveActiveTreeForDebug();
    // Deliberate: the text names comp_save, by which logs are searched.
    // Test: Save.FailuresAreLoggedBothUnderTheNameOfSave
    if (result == -1)
        syslog(LOG_ERR, " comp_save : SaveActiveTreeForDebug return FAIL: %ld", static_cast<long>(result));
    return result;
}
