// The request "sync".
#include <syslog.h>

#include <string>

#include "qo_pushpull.h"
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_send.h"
#include "qo_resource_mgr.h"

int PushPullData::comp_sync(eQO_CMP_IDs_ comp_id, eQO_CMP_IDs_ destination, const std::string& buffer) {
    const std::string text = "sync:" + std::to_string(comp_id) + ":" + buffer;
    const std::string queue_name = resource_mgr->get_resource_queuename(destination);
    const mqd_t descriptor = resource_mgr->getMsg_queue_descriptor(destination);
    if (!qo_is_queue(descriptor, queue_name)) return -1;
    const int result = qo_send_text(descriptor, text);
    if (result == -1) {
        syslog(LOG_ERR, "comp_sync() from pushpull to \"%s\" queue : mq_send: failed:, ERR_CODE : %d, msg size = %d",
               queue_name.c_str(), QO_ERR_QUEUE_SEND, static_cast<int>(text.length()));
    }
    return result;
}
