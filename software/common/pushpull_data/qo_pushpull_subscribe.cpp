// The requests "subscribe" and "unsubscribe".
#include <syslog.h>

#include "qo_pushpull.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_pointer_list.h"
#include "qo_resource_mgr.h"

int PushPullData::comp_subscribe(eQO_CMP_IDs_ comp_id, const std::string& pointers, bool notify_on_change_only) {
    if (!resource_mgr->is_comp_registered(comp_id)) {
        syslog(LOG_ERR, "Component not Registered, ncomp_id=%d , sub_data = %s, ERR_CODE=%d", comp_id, pointers.c_str(),
               QO_ERR_NOT_REGISTERED);
        return -1;
    }
    int result = -1;
    bool overdue = false;
    for (QoPointerList list(pointers, clock_); !overdue && list.next();) {
        overdue = list.overdue();
        result = overdue ? -1 : data_mgr->AddSubscriber(comp_id, list.pointer(), notify_on_change_only);
        if (result == 0) {
            syslog(LOG_INFO, "comp_subscribe : Subscription Passed for \"%s\", comp_id = %d", list.pointer().c_str(),
                   comp_id);
        } else {
            syslog(LOG_WARNING,
                   "comp_subscribe : Subscription Failed for \"%s\", comp_id = %d, ret_val = %ld, ERR_CODE = %d",
                   list.pointer().c_str(), comp_id, static_cast<long>(result), QO_ERR_SUBSCRIBE);
        }
    }
    return result;
}

int PushPullData::comp_unsubscribe(eQO_CMP_IDs_ comp_id, const std::string& pointers) {
    if (!resource_mgr->is_comp_registered(comp_id)) {
        syslog(LOG_ERR, "Component not Registered, ncomp_id=%d , unsub_data = %s, ERR_CODE=%d", comp_id,
               pointers.c_str(), QO_ERR_NOT_REGISTERED);
        return -1;
    }
    int result = -1;
    bool overdue = false;
    for (QoPointerList list(pointers, clock_); !overdue && list.next();) {
        overdue = list.overdue();
        result = overdue ? -1 : data_mgr->RemoveSubscriber(comp_id, list.pointer());
        if (result != 0) {
            syslog(LOG_WARNING,
                   "comp_unsubscribe : Unsubscription Failed for \"%s\", comp_id = %d, ret_val = %ld, ERR_CODE = %d",
                   list.pointer().c_str(), comp_id, static_cast<long>(result), QO_ERR_UNSUBSCRIBE);
        }
    }
    return result;
}
