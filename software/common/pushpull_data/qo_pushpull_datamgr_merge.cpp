// Publishes: write authority, the merge, and what it notes for change-only subscribers.
#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_flag.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_mutex_lock.h"
#include "qo_pushpull_tree_weight.h"
#include "qo_pushpull_utilities.h"

namespace {

constexpr int64_t kUnlimitedBytes = std::numeric_limits<int64_t>::max() / 2;  // half: what is given back adds to it

/// For messages: held within the range of a long, which has 32 bits on the device.
long as_long(int64_t value) {
    return static_cast<long>(
        std::clamp<int64_t>(value, std::numeric_limits<long>::min(), std::numeric_limits<long>::max()));
}

bool is_write_rule(std::string_view name) { return name == "writeAccess" || name == "doNotPersist"; }

/// What a "writeAccess" value allows to a client; nothing when the value is unknown.
std::optional<eQO_PUBLISH_AUTHORITY_> authority_of(std::string_view write_access, bool is_remote) {
    if (write_access == "openAll") return QO_ALLOW_PUBLISH_THIS_NODE_AND_BELOW;
    if (write_access == "remote") return QO_ALLOW_PUBLISH_THIS_NODE;
    if (write_access == "local") return is_remote ? QO_NO_PUBLISH_THIS_NODE : QO_ALLOW_PUBLISH_THIS_NODE;
    if (write_access == "internal") return QO_NO_PUBLISH_THIS_NODE;
    return std::nullopt;
}

bool has_id_zero(JSONNODE* element) { return qo_json_int32(qo_json_find(element, "id")) == 0; }

/// The element that carries an array's metadata: the first with id 0; the array itself when there is none.
JSONNODE* metadata_holder(JSONNODE* array) {
    const QoJsonChildren elements(array);
    const auto found = std::find_if(elements.begin(), elements.end(), has_id_zero);
    return found == elements.end() ? array : *found;
}

/// What a client may do at a node by the node's own "writeAccess" members.
eQO_PUBLISH_AUTHORITY_ authority_among_members(JSONNODE* holder, eQO_COMPONENT_CLASS_ component_class) {
    const bool is_remote = component_class == QO_REMOTE_CLIENT;
    const JSONNODE* first = qo_json_find(holder, "writeAccess");
    if (const auto authority = authority_of(qo_json_string(first), is_remote); first == nullptr || authority)
        return authority.value_or(QO_NO_PUBLISH_THIS_NODE);
    // Only a first value that is unknown makes it necessary to look at all members for another one.
    for (const JSONNODE* member : QoJsonChildren(holder)) {
        if (qo_json_name(member) != "writeAccess") continue;
        if (const auto authority = authority_of(qo_json_string(member), is_remote)) return *authority;
    }
    return QO_NO_PUBLISH_THIS_NODE;
}

}  // namespace

// ---- write authority ----

eQO_PUBLISH_AUTHORITY_ DataMgr::GetPublishAuthorityForThisNode(JSONNODE* node, eQO_COMPONENT_CLASS_ component_class) {
    if (component_class == QO_INTERNAL) return QO_ALLOW_PUBLISH_THIS_NODE;
    if (node == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return QO_NO_PUBLISH_THIS_NODE;
    }
    return authority_among_members(json_type(node) == JSON_ARRAY ? metadata_holder(node) : node, component_class);
}

// ---- the publish ----

int DataMgr::UpdateNode(JSONNODE* published, bool& save_scheduled, eQO_COMPONENT_CLASS_ component_class) {
    if (published == nullptr || data_tree_ == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    save_scheduled = false;
    {
        const QoMutexLock lock(mutex_);
        const auto authority = GetPublishAuthorityForThisNode(data_tree_, component_class);
        UpdateModifiedNodeState(published);
        const int result = TreeMerge(data_tree_, published, true, component_class, authority);
        if (result != 0) return result;
    }
    bool persistent_change = false;
    bool decided = false;
    CheckForSavingDataTree(data_tree_, published, persistent_change, decided);
    if (!decided || persistent_change) {
        save_scheduled = true;
        if (CreateTimerToSaveTree() != 0) QO_LOG(LOG_ERR, "Timer creation to save tree failed");
    }
    return 0;
}

int DataMgr::UpdateModifiedNodeState(JSONNODE* published) {
    check_for_modified_node = false;
    node_was_modified = false;
    if (published == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    const auto subscribers = subscriber_index_.find(published, subscription_tree_);
    check_for_modified_node = std::any_of(subscribers.begin(), subscribers.end(),
                                          [](const QoSubscriber& subscriber) { return subscriber.changes_only; });
    std::span<const QoSubscriber> found;
    return SubscribersOfPublish(found);  // logs it when there is no subscription tree
}

bool DataMgr::PublishToAllSubscribers() const { return !check_for_modified_node || node_was_modified; }

int DataMgr::MergeToDataTree(JSONNODE* default_tree) {
    if (default_tree == nullptr) {
        QO_LOG(LOG_CRIT, "No default tree provided!");
        return -1;
    }
    if (data_tree_ == nullptr) {
        QO_LOG(LOG_INFO, "No saved configuration, using default tree as data tree");
    } else {
        if (MergeDefaults(default_tree, false) == 0) {
            QO_LOG(LOG_INFO, "Default and saved trees merged");
            return 0;
        }
        QO_LOG(LOG_CRIT, "Default and saved trees merge failed. Using default tree as data tree");
        json_delete(std::exchange(data_tree_, nullptr));
    }
    data_tree_ = json_duplicate(default_tree);
    if (data_tree_ == nullptr) {
        QO_LOG(LOG_ERR, "json_new/json_duplicate failed");
        return -1;
    }
    return 0;
}

int DataMgr::MergeDefaults(JSONNODE* defaults, bool update_leaves) {
    const QoFlagWhile merging(merging_default_tree);
    return TreeMerge(data_tree_, defaults, update_leaves, QO_INTERNAL, QO_ALLOW_PUBLISH_THIS_NODE);
}

// ---- the merge ----

int DataMgr::TreeMerge(JSONNODE* destination, JSONNODE* source, bool update_leaves,
                       eQO_COMPONENT_CLASS_ component_class, eQO_PUBLISH_AUTHORITY_ authority) {
    if (destination == nullptr || source == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    // What a whole merge goes into is the root of a tree, and that stays an object even when it is empty.
    if (qo_json_is_container(destination) && !qo_json_is_container(source)) return 0;
    if (json_type(destination) == JSON_NODE && json_type(source) == JSON_ARRAY && json_empty(source) == 0) {
        QO_LOG(LOG_ERR, "An array cannot be merged into an object. Tree NOT updated!");
        return -1;
    }
    const bool into_data_tree = destination == data_tree_;
    const bool is_bounded = into_data_tree && !merging_default_tree;
    const int64_t room = is_bounded ? max_tree_bytes_ - tree_bytes_ : kUnlimitedBytes;
    MergeRun run{.component_class = component_class,
                 .bytes_left = room,
                 .placeholder_bytes_left = max_tree_bytes_,
                 .limits = {},
                 .zero_elements = {},
                 .renumbered = {}};
    int result = -1;
    try {
        result = MergeNode(destination, source, {run, update_leaves, authority});
    } catch (...) {
        // Some of the room was taken for nodes that have not come about.
        if (into_data_tree) tree_bytes_ = qo_tree_weight(data_tree_);
        throw;
    }
    if (into_data_tree) tree_bytes_ += room - run.bytes_left;
    if (run.refusals_left_to_log < 0)
        QO_LOG_DENY(LOG_INFO, "Component not authorized to publish %d more nodes", -run.refusals_left_to_log);
    return result;
}

// The merge of one node into another. Recursive, like all that follows: as deep as the published text.
int DataMgr::MergeNode(JSONNODE* destination, JSONNODE* source, const MergeScope& scope) {
    const bool is_array = json_type(source) == JSON_ARRAY;
    if (json_empty(source) != 0) return is_array ? 0 : MergeLeaf(destination, source, scope);
    switch (FitDestination(destination, source, scope)) {
        case Fit::refused:
            return -1;
        case Fit::keep:
            return 0;
        case Fit::ready:
            break;
    }
    for (JSONNODE* child : QoJsonChildren(source)) {
        const int result = is_array ? MergeElement(destination, child, scope) : MergeMember(destination, child, scope);
        if (result != 0) return result;
    }
    return 0;
}

// Makes a value that is given members a container of their kind; containers with children keep theirs.
DataMgr::Fit DataMgr::FitDestination(JSONNODE* destination, JSONNODE* source, const MergeScope& scope) {
    if (json_type(destination) == json_type(source)) return Fit::ready;
    if (json_empty(destination) == 0) {
        QO_LOG_IN("TreeMerge", LOG_ERR, "Array and object cannot replace each other - %s. Node NOT updated!",
                  json_name_view(destination, nullptr));
        // A changed default must not cost the whole saved tree: what was saved is kept.
        return scope.update_leaves ? Fit::refused : Fit::keep;
    }
    if (!scope.update_leaves) return Fit::keep;
    if (scope.authority != QO_NO_PUBLISH_THIS_NODE) {
        const QoJsonNode container(json_new(json_type(source)));
        scope.run.bytes_left += qo_value_weight(destination);
        json_set_n(destination, container.get());
        scope.run.limits.erase(destination);
        NoteAddition();
    }
    return Fit::ready;  // without authority every single member is refused, with its own message
}

int DataMgr::MergeLeaf(JSONNODE* destination, JSONNODE* source, const MergeScope& scope) {
    if (!scope.update_leaves || json_empty(destination) == 0) return 0;
    if (scope.authority == QO_NO_PUBLISH_THIS_NODE) {
        if (LogsRefusal(scope)) {
            QO_LOG_DENY_IN("TreeMerge", LOG_INFO, "Component not authorized to update this node value - %s",
                           json_name_view(destination, nullptr));
        }
        return 0;
    }
    if (IsProtectedMetadata(source)) return 0;
    if (!TakeRoom(scope, qo_value_weight(source) - qo_value_weight(destination), destination)) return -1;
    if (!scope.run.limits.empty()) scope.run.limits.erase(destination);
    SetLeaf(destination, source);
    return 0;
}

int DataMgr::UpdateLeafValue(JSONNODE* destination, JSONNODE* source) {
    if (destination == nullptr || source == nullptr) {
        QO_LOG(LOG_ERR, "Destination/source leaf is NULL");
        return -1;
    }
    if (!IsProtectedMetadata(source)) SetLeaf(destination, source);
    return 0;
}

void DataMgr::SetLeaf(JSONNODE* destination, const JSONNODE* source) {
    if (!merging_default_tree && check_for_modified_node && json_equal(destination, source) == 0)
        node_was_modified = true;
    json_set_n(destination, source);
}

// ---- array elements ----

int DataMgr::MergeElement(JSONNODE* array, JSONNODE* element, const MergeScope& scope) {
    const JSONNODE* id = qo_json_find(element, "id");
    if (id == nullptr) {
        QO_LOG_IN("TreeMerge", LOG_ERR, "id indicating array index not found in source array element");
        return -1;
    }
    const auto index = qo_json_int32(id);
    if (!index || *index < 0) {
        QO_LOG_IN("TreeMerge", LOG_ERR, "Invalid id in array element");
        return -1;
    }
    if (json_type(array) == JSON_ARRAY) {
        if (IsBeyondMaxItems(array, *index, scope)) return -1;
        const auto position = static_cast<size_t>(*index);
        if (JSONNODE* present = json_at(array, position); present != nullptr) {
            const int result = MergeNode(present, element, ScopeBelow(json_at(array, 0), scope));
            if (scope.run.renumbered.erase(present) != 0) NoteElement(array, position, scope.run);
            return result;
        }
    }
    return AddElement(array, element, *index, scope);
}

bool DataMgr::IsBeyondMaxItems(JSONNODE* array, int32_t index, const MergeScope& scope) {
    const JSONNODE* max_items = qo_json_find(json_at(array, 0), "maxItems");
    if (max_items == nullptr) return false;
    const auto [limit, is_new] = scope.run.limits.try_emplace(max_items, 0);
    if (is_new) limit->second = json_as_int(max_items);
    if (index <= limit->second) return false;
    QO_LOG_IN("TreeMerge", LOG_ERR, "Array id %ld exceeded max items %ld. Tree NOT updated!", as_long(index),
              as_long(limit->second));
    return true;
}

int DataMgr::AddElement(JSONNODE* array, JSONNODE* element, int32_t index, const MergeScope& scope) {
    if (scope.authority == QO_NO_PUBLISH_THIS_NODE) {
        if (LogsRefusal(scope)) {
            QO_LOG_DENY_IN("TreeMerge", LOG_INFO, "Component not authorized to publish new array index");
            QO_LOG_DENY_IN("TreeMerge", LOG_INFO, "Skipping this array index - %ld", as_long(index));
        }
        return 0;
    }
    const auto size = static_cast<int64_t>(json_size(array));
    const int64_t highest_index = size + QO_MAX_PLACEHOLDERS;
    if (index > highest_index) {
        // No "maxItems" stands here: the limit named is the highest id that could be added.
        QO_LOG_IN("TreeMerge", LOG_ERR, "Array id %ld exceeded max items %ld. Tree NOT updated!", as_long(index),
                  as_long(highest_index));
        return -1;
    }
    QoJsonNode added(BuildNode(element, scope));
    if (!added) return -1;
    for (auto position = static_cast<size_t>(size); position < static_cast<size_t>(index); ++position) {
        QoJsonNode placeholder = qo_json_placeholder(position);
        if (!TakePlaceholderRoom(scope, qo_tree_weight(placeholder.get()), array)) {
            scope.run.bytes_left += qo_tree_weight(added.get());
            return -1;
        }
        qo_json_push_back(array, std::move(placeholder));
        NoteElement(array, position, scope.run);
    }
    qo_json_push_back(array, std::move(added));
    NoteElement(array, static_cast<size_t>(index), scope.run);
    NoteAddition();
    return 0;
}

// ---- members ----

int DataMgr::MergeMember(JSONNODE* object, JSONNODE* member, const MergeScope& scope) {
    const std::string_view name = qo_json_name(member);
    JSONNODE* found = qo_json_find(object, name);
    if (name == "id" && scope.authority != QO_NO_PUBLISH_THIS_NODE) scope.run.renumbered.insert(object);
    if (found == nullptr) return AddMember(object, member, scope);
    if (json_empty(member) != 0) return MergeLeaf(found, member, scope);
    if (IsProtectedMetadata(member)) return 0;
    return MergeNode(found, member, ScopeBelow(found, scope));
}

int DataMgr::AddMember(JSONNODE* object, JSONNODE* member, const MergeScope& scope) {
    if (scope.authority == QO_NO_PUBLISH_THIS_NODE) {
        if (LogsRefusal(scope)) {
            QO_LOG_DENY_IN("TreeMerge", LOG_ERR, "Component not authorized to publish new nodes");
            QO_LOG_DENY_IN("TreeMerge", LOG_ERR, "No node with name - %s - skipping this node",
                           json_name_view(member, nullptr));
        }
        return 0;
    }
    if (IsProtectedMetadata(member)) return 0;
    QoJsonNode added(BuildNode(member, scope));
    if (!added) return -1;
    qo_json_push_back(object, std::move(added));
    NoteAddition();
    return 0;
}

// A new node holds what a merge into an empty one of its kind leaves of the source: no metadata, every
// array element at its place. Null when that merge fails.
JSONNODE* DataMgr::BuildNode(JSONNODE* source, const MergeScope& scope) {
    const int64_t bytes_before = scope.run.bytes_left;
    if (!TakeRoom(scope, qo_node_weight(source), source)) return nullptr;
    if (json_empty(source) != 0) return json_duplicate(source);
    QoJsonNode node = qo_json_new_named(json_type(source), qo_json_name(source));
    if (MergeNode(node.get(), source, {scope.run, true, scope.authority}) == 0) return node.release();
    scope.run.bytes_left = bytes_before;
    return nullptr;
}

bool DataMgr::TakeRoom(const MergeScope& scope, int64_t bytes, const JSONNODE* node) const {
    if (bytes > 0 && bytes > scope.run.bytes_left) {
        QO_LOG_IN("TreeMerge", LOG_ERR, "Data tree exceeded max size %ld bytes - %s. Tree NOT updated!",
                  as_long(max_tree_bytes_), json_name_view(node, nullptr));
        return false;
    }
    scope.run.bytes_left -= bytes;
    return true;
}

bool DataMgr::TakePlaceholderRoom(const MergeScope& scope, int64_t bytes, const JSONNODE* array) const {
    if (bytes > scope.run.placeholder_bytes_left) {
        QO_LOG_IN("TreeMerge", LOG_ERR, "Data tree exceeded max size %ld bytes - %s. Tree NOT updated!",
                  as_long(max_tree_bytes_), json_name_view(array, nullptr));
        return false;
    }
    scope.run.placeholder_bytes_left -= bytes;
    return TakeRoom(scope, bytes, array);
}

DataMgr::MergeScope DataMgr::ScopeBelow(JSONNODE* node, const MergeScope& scope) {
    MergeRun& run = scope.run;
    if (scope.authority == QO_ALLOW_PUBLISH_THIS_NODE_AND_BELOW) return scope;
    if (json_type(node) != JSON_ARRAY || run.component_class == QO_INTERNAL)
        return {run, scope.update_leaves, GetPublishAuthorityForThisNode(node, run.component_class)};
    return {run, scope.update_leaves, authority_among_members(MetadataHolder(node, run), run.component_class)};
}

// Deliberate: asked anew each time that the array occurs in a publish, which may have changed the ids meanwhile.
// Test: ClientPublish.AnArrayIsAskedForItsAuthorityEachTimeThatItOccurs
JSONNODE* DataMgr::MetadataHolder(JSONNODE* array, MergeRun& run) {
    const auto [entry, is_new] = run.zero_elements.try_emplace(array);
    std::set<size_t>& zeros = entry->second;
    if (is_new) {
        size_t position = 0;
        for (JSONNODE* element : QoJsonChildren(array)) {
            if (has_id_zero(element)) zeros.insert(zeros.end(), position);
            ++position;
        }
    }
    return zeros.empty() ? array : json_at(array, *zeros.begin());
}

void DataMgr::NoteElement(JSONNODE* array, size_t position, MergeRun& run) {
    const auto asked = run.zero_elements.find(array);
    if (asked == run.zero_elements.end()) return;
    if (has_id_zero(json_at(array, position)))
        asked->second.insert(position);
    else
        asked->second.erase(position);
}

bool DataMgr::IsProtectedMetadata(const JSONNODE* node) const {
    return !merging_default_tree && is_write_rule(qo_json_name(node));
}

// One message can name fifty thousand nodes, and the system log would hold up the service for longer than components
// wait for it. The first ones tell what there is to tell.
bool DataMgr::LogsRefusal(const MergeScope& scope) { return scope.run.refusals_left_to_log-- > 0; }

// A node that was not there before is a change, whatever its value.
void DataMgr::NoteAddition() {
    if (check_for_modified_node) node_was_modified = true;
}
