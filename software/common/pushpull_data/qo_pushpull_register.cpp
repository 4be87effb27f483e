// The requests "register" and "unregister".
#include <syslog.h>

#include <string_view>

#include "qo_pushpull.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_error_codes.h"
#include "qo_resource_mgr.h"

int PushPullData::comp_register(eQO_CMP_IDs_ comp_id, std::string queue_name, const mq_attr* attributes) {
    // What the service sent to its own queue would come back as a request that names nothing and so repeats the one
    // before it, without end; and at an exit it would wait for room in the queue that only it reads.
    const std::string_view opened_name = queue_name.c_str();  // the kernel reads up to the first NUL
    const bool is_own_queue = opened_name == QO_SERVICE_QUEUE_NAME + queue_suffix_name;
    const int32_t result =
        is_own_queue ? QO_ERR_QUEUE_OPEN : resource_mgr->comp_register(comp_id, queue_name, attributes);
    if (result != 0) {
        syslog(LOG_ERR, "comp_register fail: ncomp_id=%d , pqueue_name = %s , ret_val = %ld", comp_id,
               queue_name.c_str(), static_cast<long>(result));
    }
    return result;
}

int PushPullData::comp_unregister(eQO_CMP_IDs_ comp_id) {
    if (!resource_mgr->is_comp_registered(comp_id)) return 0;
    if (data_mgr->RemoveSubscriber(comp_id, "/") != 0)
        syslog(LOG_ERR, "comp_unregister : RemoveSubscriber Failed ncomp_id=%d", comp_id);
    const int32_t result = resource_mgr->forget_resource(comp_id);
    if (result != 0) syslog(LOG_ERR, "comp_unregister : forget_resource Failed ncomp_id=%d", comp_id);
    return result;
}
