// The subscription tree: a shadow of the default tree's containers with the subscribers' entries on it.
#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_utilities.h"

namespace {

constexpr char kEveryPublish[] = "cmpID";
constexpr char kChangesOnly[] = "notifyOnChangeOnly";

bool is_entry_of(const JSONNODE* member, eQO_CMP_IDs_ comp_id) {
    return qo_is_subscriber_entry(member) && qo_json_int32(member) == static_cast<int32_t>(comp_id);
}

/// Spares a look at every member of the many shadow nodes that nobody subscribed to. Of a defaults file that is one
/// array the root is an array, which cannot be searched.
bool may_have_entries(const JSONNODE* shadow) {
    return json_type(shadow) == JSON_ARRAY || json_find(shadow, kEveryPublish) != nullptr ||
           json_find(shadow, kChangesOnly) != nullptr;
}

/// The shadow nodes that a skeleton names, from the root; empty when there is no such path.
QoSubscriberIndex::Path follow(JSONNODE* root, const JSONNODE* skeleton) {
    QoSubscriberIndex::Path path{root};
    for (const JSONNODE* wanted = json_at(skeleton, 0); wanted != nullptr; wanted = json_at(wanted, 0)) {
        JSONNODE* shadow = qo_find_shadow(path.back(), qo_json_name(wanted));
        if (shadow == nullptr) return {};
        path.push_back(shadow);
    }
    return path;
}

/// What was met of one name in a subscriber list.
struct Namesakes {
    const JSONNODE* first;
    std::unordered_set<double> values;
};

}  // namespace

// ---- the shadow ----

int DataMgr::CreateSubscriptionTree(JSONNODE* default_tree) {
    if (default_tree == nullptr) {
        QO_LOG(LOG_CRIT, "Error in creating subscription tree");
        return -1;
    }
    subscriber_index_.clear();
    json_delete(std::exchange(subscription_tree_, json_new(json_type(default_tree))));
    if (subscription_tree_ == nullptr) {
        QO_LOG(LOG_ERR, "json_new/json_duplicate failed");
        return -1;
    }
    return GenerateShadowTree(subscription_tree_, default_tree);
}

// Recursive: as deep as the default tree, which was parsed.
int DataMgr::GenerateShadowTree(JSONNODE* destination, JSONNODE* source) {
    if (destination == nullptr || source == nullptr) {
        QO_LOG(LOG_ERR, "Cannot generate shadow tree withoutsource and/or destination tree");
        return -1;
    }
    for (JSONNODE* member : QoJsonChildren(source)) {
        if (!qo_json_is_container(member)) continue;
        JSONNODE* shadow = qo_json_append_named(destination, JSON_NODE, qo_json_name(member));
        if (shadow == nullptr) {
            QO_LOG(LOG_ERR, "json_new/json_duplicate failed");
            return -1;
        }
        const int result = ShadowContent(shadow, member);
        if (result != 0) return result;
    }
    return 0;
}

// All elements of an array share its shadow.
int DataMgr::ShadowContent(JSONNODE* shadow, JSONNODE* container) {
    if (json_type(container) == JSON_NODE) return GenerateShadowTree(shadow, container);
    for (JSONNODE* element : QoJsonChildren(container)) {
        const int result = GenerateShadowTree(shadow, element);
        if (result != 0) return result;
    }
    return 0;
}

// ---- adding and removing ----

int DataMgr::AddSubscriber(eQO_CMP_IDs_ comp_id, const std::string& pointer, bool notify_on_change_only) {
    const QoJsonNode skeleton(JsonPtrToNode(pointer));
    if (!skeleton) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    if (ValidateAndAddSubscription(skeleton.get(), comp_id, notify_on_change_only) == -1) {
        QO_LOG(LOG_WARNING, "Subscription failed");
        return -1;
    }
    return 0;
}

int DataMgr::ValidateAndAddSubscription(JSONNODE* skeleton, eQO_CMP_IDs_ comp_id, bool notify_on_change_only) {
    if (skeleton == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    if (subscription_tree_ == nullptr) {
        QO_LOG(LOG_ERR, "No subscription tree");
        return -1;
    }
    const QoSubscriberIndex::Path path = follow(subscription_tree_, skeleton);
    if (path.empty()) return -1;
    JSONNODE* shadow = path.back();
    if (CheckIfSubscriberExists(shadow, comp_id)) {
        QO_LOG(LOG_WARNING, "Component already subscribed");
        return 0;
    }
    QoJsonNode entry(json_new_i(notify_on_change_only ? kChangesOnly : kEveryPublish, comp_id));
    subscriber_index_.make_room(path);
    if (!qo_json_push_back(shadow, std::move(entry))) {
        QO_LOG(LOG_ERR, "json_new/json_duplicate failed");
        return -1;
    }
    subscriber_index_.add(path, {comp_id, notify_on_change_only});
    return 0;
}

bool DataMgr::CheckIfSubscriberExists(JSONNODE* shadow, eQO_CMP_IDs_ comp_id) {
    if (shadow == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return true;
    }
    for (const JSONNODE* member : QoJsonChildren(shadow))
        if (is_entry_of(member, comp_id)) return true;
    return false;
}

int DataMgr::RemoveSubscriber(eQO_CMP_IDs_ comp_id, const std::string& pointer) {
    const QoJsonNode skeleton(JsonPtrToNode(pointer));
    if (!skeleton) return -1;
    if (subscription_tree_ == nullptr) {
        QO_LOG(LOG_ERR, "No subscription tree");
        return -1;
    }
    const QoSubscriberIndex::Path path = follow(subscription_tree_, skeleton.get());
    if (path.empty()) {
        QO_LOG(LOG_ERR, "Unsubscribe node not found ");
        return -1;
    }
    const int result = RemoveSubscriberInternal(comp_id, path.back());
    if (result == -1) QO_LOG(LOG_WARNING, "Issue in UnSubscribing");
    return result;
}

int DataMgr::RemoveSubscriberInternal(eQO_CMP_IDs_ comp_id, JSONNODE* shadow) {
    if (shadow == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    if (!subscriber_index_.has_entries_in(shadow)) return 0;
    qo_json_erase_if(shadow, [comp_id](const JSONNODE* member) { return is_entry_of(member, comp_id); });
    subscriber_index_.remove(shadow, comp_id);
    for (JSONNODE* member : QoJsonChildren(shadow)) RemoveSubscriberInternal(comp_id, member);
    return 0;
}

// ---- collecting ----

int DataMgr::GetSubscribers(JSONNODE* published, JSONNODE* list) {
    if (published == nullptr || list == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    // Whole-tree subscribers hear of every publish.
    ShadowSet collected;
    int result = CollectEntries(subscription_tree_, list, collected);
    if (result == 0) result = CollectSubscribers(published, list, subscription_tree_, collected);
    return result == 0 ? TrimDuplicates(list) : result;
}

int DataMgr::GetSubscribersInternal(JSONNODE* published, JSONNODE* list, JSONNODE* shadow) {
    if (published == nullptr || list == nullptr || shadow == nullptr) {
        QO_LOG(LOG_ERR, "node and/or subscriber_list and/or subscription_node is NULL");
        return -1;
    }
    ShadowSet collected;
    return CollectSubscribers(published, list, shadow, collected);
}

// Recursive: as deep as the shadow, also when the published tree is the skeleton of a long pointer.
int DataMgr::CollectSubscribers(JSONNODE* published, JSONNODE* list, JSONNODE* shadow, ShadowSet& collected) {
    if (json_empty(published) != 0) return CollectEntries(shadow, list, collected);
    for (JSONNODE* member : QoJsonChildren(published)) {
        JSONNODE* found = qo_find_shadow(shadow, qo_json_name(member));
        if (found == nullptr) continue;
        int result = CollectEntries(found, list, collected);
        if (result == 0 && json_empty(member) == 0) result = CollectBelow(member, list, found, collected);
        if (result != 0) return result;
    }
    return 0;
}

int DataMgr::CollectBelow(JSONNODE* container, JSONNODE* list, JSONNODE* shadow, ShadowSet& collected) {
    if (json_type(container) == JSON_NODE) return CollectSubscribers(container, list, shadow, collected);
    for (JSONNODE* element : QoJsonChildren(container)) {
        const int result = CollectSubscribers(element, list, shadow, collected);
        if (result != 0) return result;
    }
    return 0;
}

int DataMgr::CollectEntries(JSONNODE* shadow, JSONNODE* list, ShadowSet& collected) {
    if (shadow != nullptr && (!may_have_entries(shadow) || !collected.insert(shadow).second)) return 0;
    return GetNodeSubscriber(shadow, list);
}

int DataMgr::GetNodeSubscriber(JSONNODE* shadow, JSONNODE* list) {
    if (shadow == nullptr || list == nullptr) {
        QO_LOG(LOG_ERR, "node and/or subscriber_list and/or subscription_node is NULL");
        return -1;
    }
    for (const JSONNODE* member : QoJsonChildren(shadow)) {
        if (!qo_is_subscriber_entry(member)) continue;
        if (qo_json_name(member) == kChangesOnly) check_for_modified_node = true;
        if (!qo_json_push_back(list, QoJsonNode(json_duplicate(member)))) {
            QO_LOG(LOG_ERR, "json_new/json_duplicate failed");
            return -1;
        }
    }
    return 0;
}

int DataMgr::TrimDuplicates(JSONNODE* list) {
    if (list == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    if (json_type(list) != JSON_NODE) {
        QO_LOG(LOG_ERR, "Trim not supported on a non JSON_NODE node");
        return -1;
    }
    std::unordered_map<std::string_view, Namesakes> met;
    std::vector<bool> is_first_of_its_value;
    for (const JSONNODE* member : QoJsonChildren(list)) {
        const auto [entry, is_first] = met.try_emplace(qo_json_name(member), Namesakes{member, {}});
        auto& [first, values] = entry->second;
        if (!is_first && (json_empty(first) == 0 || json_empty(member) == 0)) {
            QO_LOG(LOG_ERR, "Cannot detect duplicates on non leaf nodes");
            return -1;
        }
        if (!is_first && (json_type(first) != JSON_NUMBER || json_type(member) != JSON_NUMBER)) {
            QO_LOG(LOG_ERR, "Cannot detect duplicates on non number nodes");
            return -1;
        }
        is_first_of_its_value.push_back(values.insert(json_as_float(member)).second);
    }
    size_t position = 0;
    qo_json_erase_if(list, [&](const JSONNODE*) { return !is_first_of_its_value[position++]; });
    return 0;
}

int DataMgr::GetSubscribersByJsonPtr(const std::string& pointer, JSONNODE* list) {
    if (pointer.empty() || list == nullptr) {
        QO_LOG(LOG_ERR, "JSON pointer and/or subscriber_list is NULL");
        return -1;
    }
    const QoJsonNode skeleton(JsonPtrToNode(pointer));
    if (!skeleton) {
        QO_LOG(LOG_ERR, "JSON pointer incorrect");
        return -1;
    }
    return GetSubscribers(skeleton.get(), list);
}

// ---- the subscribers of a publish ----

int DataMgr::SubscribersOfPublish(std::span<const QoSubscriber>& subscribers) const {
    if (subscription_tree_ == nullptr) {
        QO_LOG_IN("GetNodeSubscriber", LOG_ERR, "node and/or subscriber_list and/or subscription_node is NULL");
        return -1;
    }
    subscribers = subscriber_index_.found();
    return 0;
}
