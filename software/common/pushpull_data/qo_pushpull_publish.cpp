// The request "publish": check, merge, and who is told.
#include <syslog.h>

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "qo_json_object_checker.h"
#include "qo_pushpull.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_resource_mgr.h"

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

/// Who of a publish's subscribers is sent it.
class Recipients {
public:
    Recipients(eQO_CMP_IDs_ publisher, bool include_changes_only)
        : publisher_(publisher), include_changes_only_(include_changes_only) {
        comp_ids_.fill(QO_CMPID_RESERVED);
    }

    void add(const QoSubscriber& subscriber) {
        if (subscriber.comp_id == publisher_ || (subscriber.changes_only && !include_changes_only_)) return;
        if (count_ == QO_MAX_SUBSCRIBERS)
            syslog(LOG_DEBUG, "cmpID array reached Max, no_ofSubscribers=%d", count_);
        else
            comp_ids_[static_cast<size_t>(count_++)] = subscriber.comp_id;
    }

    int count() const { return count_; }
    /// QO_MAX_SUBSCRIBERS places; those not used are QO_CMPID_RESERVED.
    const eQO_CMP_IDs_* comp_ids() const { return comp_ids_.data(); }

private:
    const eQO_CMP_IDs_ publisher_;
    const bool include_changes_only_;
    int count_ = 0;
    std::array<eQO_CMP_IDs_, QO_MAX_SUBSCRIBERS> comp_ids_;
};

}  // namespace

int PushPullData::comp_publish(eQO_CMP_IDs_ comp_id, const std::string& json) {
    if (!resource_mgr->is_comp_registered(comp_id)) {
        syslog(LOG_ERR, "Component not Registered, ncomp_id=%d , pub_data = %s, ERR_CODE=%d", comp_id, json.c_str(),
               QO_ERR_NOT_REGISTERED);
        return -1;
    }
    const eQO_COMPONENT_CLASS_ component_class = get_comp_class(comp_id);
    if (component_class == QO_INTERNAL) {
        const QoJsonDocument::Tree published = published_document_->read(json);
        return merge_and_notify(comp_id, json, published.get(), component_class);
    }
    QoJsonNode published = qo_json_parse(json);
    if (published && !check_object(published, comp_id)) return -1;
    return merge_and_notify(comp_id, json, published.get(), component_class);
}

int PushPullData::merge_and_notify(eQO_CMP_IDs_ comp_id, const std::string& json, JSONNODE* published,
                                   eQO_COMPONENT_CLASS_ component_class) {
    if (published == nullptr) {
        syslog(LOG_ERR, "Published JSON is invalid , published_data = %s", json.c_str());
        return -1;
    }
    bool modified = false;
    if (data_mgr->UpdateNode(published, modified, component_class) != 0) {
        syslog(LOG_ERR, "UpdateNode Failed : Published String : %s , ERR_CODE = %d", json.c_str(), QO_ERR_TREE_UPDATE);
        return -1;
    }
    if (modified && pushpull_stats) resource_mgr->monitor().incQueueSaves(comp_id);
    return notify_subscribers(comp_id, json);
}

// Subscribers are sent the text as it was published, not the checker's version.
int PushPullData::notify_subscribers(eQO_CMP_IDs_ comp_id, const std::string& json) {
    std::span<const QoSubscriber> subscribers;
    int result = data_mgr->SubscribersOfPublish(subscribers);
    if (result != 0) {
        syslog(LOG_WARNING, "comp_publish : subscribers_list is NULL or ret_val = %ld", static_cast<long>(result));
        return result;
    }
    Recipients recipients(comp_id, data_mgr->PublishToAllSubscribers());
    for (const QoSubscriber& subscriber : subscribers) recipients.add(subscriber);
    result = comp_notify(recipients.count(), recipients.comp_ids(), json);
    if (result == -1) syslog(LOG_ERR, "comp_publish : comp_notify ERROR");
    return result;
}

int PushPullData::parse_and_get_cmpIDs(JSONNODE* subscribers, eQO_CMP_IDs_ publisher, eQO_CMP_IDs_* comp_ids,
                                       bool include_on_change_only) {
    Recipients recipients(publisher, include_on_change_only);
    for (const JSONNODE* entry : QoJsonChildren(subscribers)) {
        if (entry == nullptr) {
            syslog(LOG_ERR, "Invalid JSON Node");
            break;
        }
        const std::string_view mode = qo_json_name(entry);
        const bool changes_only = mode == "notifyOnChangeOnly";
        if (mode == "cmpID" || changes_only)
            recipients.add({static_cast<eQO_CMP_IDs_>(json_as_int(entry)), changes_only});
    }
    std::copy_n(recipients.comp_ids(), QO_MAX_SUBSCRIBERS, comp_ids);
    return recipients.count();
}
