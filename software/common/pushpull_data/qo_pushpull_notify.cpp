// How a text gets to the queues of components, and the soft watchdog of the remote gateway.
#include <syslog.h>

#include <iterator>

#include "qo_pushpull.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_life.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_pushpull_send.h"
#include "qo_pushpull_stats.h"
#include "qo_resource_mgr.h"
#include "qo_utilities_command.h"

namespace {

constexpr char kRestartGatewayCommand[] = "systemctl restart remote_gateway.service";

// The two of the remote gateway's components whose queues tell whether it is alive.
bool is_gateway_sign_of_life(eQO_CMP_IDs_ comp_id) {
    return comp_id == QO_CMPID_REMOTE_GATEWAY_CM || comp_id == QO_CMPID_REMOTE_GATEWAY_DM;
}

}  // namespace

int PushPullData::comp_notify(int count, const eQO_CMP_IDs_* comp_ids, const std::string& text) {
    int result = 0;
    notified_queues_.clear();
    for (int i = 0; i < count; ++i) {
        // Looked up one by one: the soft watchdog below may unregister components that come later in the list.
        const eQO_CMP_IDs_ comp_id = comp_ids[i];
        const std::string& queue_name = resource_mgr->get_resource_queuename(comp_id);
        const mqd_t descriptor = resource_mgr->getMsg_queue_descriptor(comp_id);
        if (!qo_is_queue(descriptor, queue_name)) continue;
        result = qo_send_text(descriptor, text);
        if (pushpull_stats) resource_mgr->monitor().incQueueStats(descriptor);
        if (result == -1) {
            syslog(LOG_ERR,
                   "Send message from pushpull to \"%s\" queue : mq_send: failed:, ERR_CODE : %d, msg size = %d",
                   queue_name.c_str(), QO_ERR_QUEUE_SEND, static_cast<int>(text.length()));
            if (is_gateway_sign_of_life(comp_id) && !rgw_restart_state) restart_remote_gateway();
            continue;
        }
        notified_queues_.append(queue_name).append(";");
        if (rgw_restart_state && is_gateway_sign_of_life(comp_id)) {
            syslog(LOG_INFO, "*********RGW recovered after soft watchdog***********");
            rgw_restart_state = false;
        }
    }
    if (result == 0) {
        syslog(LOG_DEBUG, "mq_send success: msg size = %d, queue list = \"%s\"", static_cast<int>(text.length()),
               notified_queues_.c_str());
    }
    return result;
}

// The soft watchdog of the remote gateway.
void PushPullData::restart_remote_gateway() {
    syslog(LOG_CRIT, "*********Soft watchdog - KILL and Restart Remotegateway process***********");
    constexpr eQO_CMP_IDs_ kGateway[] = {QO_CMPID_REMOTE_GATEWAY_DM, QO_CMPID_REMOTE_GATEWAY_CM,
                                         QO_CMPID_REMOTE_GATEWAY_RM};
    for (const eQO_CMP_IDs_ comp_id : kGateway) {
        // A failure is logged by the handler; the gateway is restarted all the same.
        [[maybe_unused]] const int result = comp_unregister(comp_id);
    }
    syslog(LOG_CRIT, "*********UNREGISTERING:RGW COMP_IDs***********");
    if (pushpull_stats) {
        // Deliberate: always three, so that a row tells of the watchdog, however many of them were registered.
        // Test: Counting.SoftWatchdogCountsThreeUnregistersHoweverManyOfTheGatewaysComponentsWereThere
        for (size_t i = 0; i < std::size(kGateway); ++i) pushpull_stats->inc_unregisters();
    }
    // Not waited for: it takes as long as the gateway's end and start, in which the gateway may wait for us. Whether it
    // works shows in the next send that succeeds.
    if (const int error = qo_start_command(kRestartGatewayCommand); error != 0)
        syslog(LOG_CRIT, "Command %s could not be started (error %d)", kRestartGatewayCommand, error);
    rgw_restart_state = true;
}

int PushPullData::comp_notify_all(const std::string& text) {
    const int32_t resources = resource_mgr->get_no_of_resources();
    int result = -1;
    for (int32_t slot = 0; slot < resources; ++slot) {
        const mqd_t descriptor = resource_mgr->getMsg_queue_descriptor(slot);
        if (descriptor == 0) continue;
        qo_report_life();
        result = mq_send(descriptor, text.c_str(), text.length() + 1, QO_MESSAGE_PRIORITY);
        if (result == -1) {
            syslog(LOG_ERR, " comp_notify_all : sending failed to %s.  String = %s.",
                   resource_mgr->get_queue_name(slot).c_str(), text.c_str());
        }
    }
    return result;
}
