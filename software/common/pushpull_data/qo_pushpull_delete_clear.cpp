// The requests "delete" and "clear".
#include <syslog.h>

#include <array>

#include "qo_pushpull.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_json.h"
#include "qo_resource_mgr.h"

int PushPullData::comp_delete(eQO_CMP_IDs_ comp_id, const std::string& pointer, bool clear) {
    if (!resource_mgr->is_comp_registered(comp_id)) {
        syslog(LOG_ERR, "Component -not Registered, comp_delete : ncomp_id=%d , del_data = %s, ERR_CODE=%d", comp_id,
               pointer.c_str(), QO_ERR_NOT_REGISTERED);
        return -1;
    }
    if (data_mgr->DeleteNode(pointer, clear) == -1) {
        syslog(LOG_ERR, " comp_delete : DeleteNode - ERROR, ncomp_id=%d, del_data = %s, ERR_CODE: %d", comp_id,
               pointer.c_str(), QO_ERR_TREE_DELETE);
        return -1;
    }
    if (!clear) return notify_deletion(comp_id, pointer);
    const int result = comp_get(comp_id, pointer, true, "", false);
    if (result == -1) syslog(LOG_ERR, "comp_delete : Publishing restored node failed: %s", pointer.c_str());
    return result;
}

int PushPullData::notify_deletion(eQO_CMP_IDs_ comp_id, const std::string& pointer) {
    const QoJsonNode subscribers(json_new(JSON_NODE));
    int result = data_mgr->GetSubscribersByJsonPtr(pointer, subscribers.get());
    if (!subscribers || result != 0) {
        syslog(LOG_ERR, " comp_delete : subscriber_list is NULL or ret_val = %ld", static_cast<long>(result));
        return result;
    }
    std::array<eQO_CMP_IDs_, QO_MAX_SUBSCRIBERS> comp_ids{};
    const int count = parse_and_get_cmpIDs(subscribers.get(), comp_id, comp_ids.data(), true);
    result = comp_notify(count, comp_ids.data(), "NODE DELETED: " + pointer);
    // Deliberate: the publish handler's text, by which logs are searched.
    // Test: Delete.FailedNoticeIsLoggedWithThePublishHandlersText
    if (result == -1) syslog(LOG_ERR, " comp_publish : comp_notify ERROR");
    return result;
}
