#include <syslog.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <utility>

#include "qo_json_object_checker.h"
#include "qo_pushpull.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_pointer_list.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_pushpull_send.h"
#include "qo_pushpull_stats.h"
#include "qo_resource_mgr.h"
#include "qo_utilities_command.h"

// ---- component classes -----------------------------------------------------------------------

namespace {

struct ClassRange {
    eQO_CMP_IDs_ first;
    eQO_CMP_IDs_ last;
    eQO_COMPONENT_CLASS_ component_class;
};

// Deliberate: the gateways' own identifiers and the Wi-Fi gateway's connections are internal, the _END markers are
// clients.
constexpr ClassRange kClients[] = {
    {QO_CMPID_WEBSERVER_GATEWAY_C0, QO_CMPID_WEBSERVER_GATEWAY_END, QO_LOCAL_CLIENT},
    {QO_CMPID_WEBSERVER_GATEWAY_REMOTE_C0, QO_CMPID_WEBSERVER_GATEWAY_REMOTE_END, QO_LOCAL_CLIENT},
    {QO_CMPID_REMOTE_GATEWAY_DM, QO_CMPID_REMOTE_GATEWAY_RM, QO_REMOTE_CLIENT},
};

}  // namespace

eQO_COMPONENT_CLASS_ PushPullData::get_comp_class(eQO_CMP_IDs_ comp_id) {
    const ClassRange* range = std::find_if(
        std::begin(kClients), std::end(kClients),
        [comp_id](const ClassRange& clients) { return comp_id >= clients.first && comp_id <= clients.last; });
    return range == std::end(kClients) ? QO_INTERNAL : range->component_class;
}

// ---- register and unregister -----------------------------------------------------------------

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
    if (data_mgr->RemoveSubscriber(comp_id, "/") != 0) {
        syslog(LOG_ERR, "comp_unregister : RemoveSubscriber Failed ncomp_id=%d", comp_id);
    }
    const int32_t result = resource_mgr->forget_resource(comp_id);
    if (result != 0) syslog(LOG_ERR, "comp_unregister : forget_resource Failed ncomp_id=%d", comp_id);
    return result;
}

// ---- subscribe and unsubscribe ---------------------------------------------------------------

int PushPullData::comp_subscribe(eQO_CMP_IDs_ comp_id, const std::string& pointers, bool notify_on_change_only) {
    if (!resource_mgr->is_comp_registered(comp_id)) {
        syslog(LOG_ERR, "Component not Registered, ncomp_id=%d , sub_data = %s, ERR_CODE=%d", comp_id, pointers.c_str(),
               QO_ERR_NOT_REGISTERED);
        return -1;
    }
    int result = -1;
    bool overdue = false;
    for (QoPointerList list(pointers); !overdue && list.next();) {
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
    for (QoPointerList list(pointers); !overdue && list.next();) {
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

// ---- publish ---------------------------------------------------------------------------------

namespace {

// Passes what a client publishes through the object checker, which may replace it. False when it is refused.
bool check_object(QoJsonNode& published, eQO_CMP_IDs_ publisher) {
    const QoJsonCheckMode mode = publisher == QO_CMPID_REMOTE_GATEWAY_RM ? jsonCheckStrict : jsonCheckNormal;
    JSONNODE* tree = published.release();
    const QoJsonObjectCheckResult result = qoCheckJson(tree, mode);
    published.reset(tree);
    if (result == jsonObjectNotAcceptable) {
        syslog(LOG_ERR, "UpdateNode Failed: JSON object checker returned unacceptable.  Node was not published!");
        return false;
    }
    if (result == jsonObjectAcceptableModified) {
        syslog(LOG_INFO, "UpdateNode Warning: JSON object checker returned modified.  New node = %s",
               qo_json_write(published.get()).c_str());
    }
    return true;
}

}  // namespace

int PushPullData::comp_publish(eQO_CMP_IDs_ comp_id, const std::string& json) {
    if (!resource_mgr->is_comp_registered(comp_id)) {
        syslog(LOG_ERR, "Component not Registered, ncomp_id=%d , pub_data = %s, ERR_CODE=%d", comp_id, json.c_str(),
               QO_ERR_NOT_REGISTERED);
        return -1;
    }
    QoJsonNode published = qo_json_parse(json);
    if (!published) {
        syslog(LOG_ERR, "Published JSON is invalid , published_data = %s", json.c_str());
        return -1;
    }
    const eQO_COMPONENT_CLASS_ component_class = get_comp_class(comp_id);
    if (component_class != QO_INTERNAL && !check_object(published, comp_id)) return -1;
    bool modified = false;
    if (data_mgr->UpdateNode(published.get(), modified, component_class) != 0) {
        syslog(LOG_ERR, "UpdateNode Failed : Published String : %s , ERR_CODE = %d", json.c_str(), QO_ERR_TREE_UPDATE);
        return -1;
    }
    if (modified && pushpull_stats) resource_mgr->monitor().incQueueSaves(comp_id);
    return notify_subscribers(comp_id, json, published.get());
}

// Subscribers are sent the text as it was published, not the checker's version.
int PushPullData::notify_subscribers(eQO_CMP_IDs_ comp_id, const std::string& json, JSONNODE* published) {
    const QoJsonNode subscribers(json_new(JSON_NODE));
    int result = data_mgr->GetSubscribers(published, subscribers.get());
    if (!subscribers || result != 0) {
        syslog(LOG_WARNING, "comp_publish : subscribers_list is NULL or ret_val = %ld", static_cast<long>(result));
        return result;
    }
    std::array<eQO_CMP_IDs_, QO_MAX_SUBSCRIBERS> comp_ids{};
    const int count =
        parse_and_get_cmpIDs(subscribers.get(), comp_id, comp_ids.data(), data_mgr->PublishToAllSubscribers());
    result = comp_notify(count, comp_ids.data(), json);
    if (result == -1) syslog(LOG_ERR, "comp_publish : comp_notify ERROR");
    return result;
}

int PushPullData::parse_and_get_cmpIDs(JSONNODE* subscribers, eQO_CMP_IDs_ publisher, eQO_CMP_IDs_* comp_ids,
                                       bool include_on_change_only) {
    std::fill_n(comp_ids, QO_MAX_SUBSCRIBERS, QO_CMPID_RESERVED);
    int count = 0;
    for (const JSONNODE* entry : QoJsonChildren(subscribers)) {
        if (entry == nullptr) {
            syslog(LOG_ERR, "Invalid JSON Node");
            break;
        }
        const std::string_view mode = qo_json_name(entry);
        if (mode != "cmpID" && !(include_on_change_only && mode == "notifyOnChangeOnly")) continue;
        const auto comp_id = static_cast<eQO_CMP_IDs_>(json_as_int(entry));
        if (comp_id == publisher) continue;
        if (count == QO_MAX_SUBSCRIBERS) {
            syslog(LOG_DEBUG, "cmpID array reached Max, no_ofSubscribers=%d", count);
            continue;
        }
        comp_ids[count++] = comp_id;
    }
    return count;
}

// ---- delivery --------------------------------------------------------------------------------

namespace {

// The two of the remote gateway's components whose queues tell whether it is alive.
bool is_gateway_sign_of_life(eQO_CMP_IDs_ comp_id) {
    return comp_id == QO_CMPID_REMOTE_GATEWAY_CM || comp_id == QO_CMPID_REMOTE_GATEWAY_DM;
}

}  // namespace

int PushPullData::comp_notify(int count, const eQO_CMP_IDs_* comp_ids, std::string text) {
    int result = 0;
    std::string queue_list;
    for (int i = 0; i < count; ++i) {
        // Looked up one by one: the soft watchdog below may unregister components that come later in the list.
        const eQO_CMP_IDs_ comp_id = comp_ids[i];
        const std::string queue_name = resource_mgr->get_resource_queuename(comp_id);
        const mqd_t descriptor = resource_mgr->getMsg_queue_descriptor(comp_id);
        if (descriptor == -1) {
            syslog(LOG_ERR, "pushpull : MessageQueue: POST:Invalid Descriptor: %x ,\"%s\" ",
                   static_cast<unsigned>(descriptor), queue_name.c_str());
            continue;
        }
        result = qo_send_text(descriptor, text);
        if (pushpull_stats) resource_mgr->monitor().incQueueStats(descriptor);
        if (result == -1) {
            syslog(LOG_ERR,
                   "Send message from pushpull to \"%s\" queue : mq_send: failed:, ERR_CODE : %d, msg size = %d",
                   queue_name.c_str(), QO_ERR_QUEUE_SEND, static_cast<int>(text.length()));
            if (is_gateway_sign_of_life(comp_id) && !rgw_restart_state) restart_remote_gateway();
            continue;
        }
        queue_list += queue_name + ";";
        if (rgw_restart_state && is_gateway_sign_of_life(comp_id)) {
            syslog(LOG_INFO, "*********RGW recovered after soft watchdog***********");
            rgw_restart_state = false;
        }
    }
    if (result == 0) {
        syslog(LOG_DEBUG, "mq_send success: msg size = %d, queue list = \"%s\"", static_cast<int>(text.length()),
               queue_list.c_str());
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
        // Deliberate: always three, however many of them were registered.
        for (size_t i = 0; i < std::size(kGateway); ++i) pushpull_stats->inc_unregisters();
    }
    // Not waited for: it takes as long as the gateway's end and start, in which the gateway may wait for us. Whether it
    // works shows in the next send that succeeds.
    if (const int error = qo_start_command(QO_RESTART_GATEWAY_COMMAND); error != 0) {
        syslog(LOG_CRIT, "Command %s could not be started (error %d)", QO_RESTART_GATEWAY_COMMAND, error);
    }
    rgw_restart_state = true;
}
