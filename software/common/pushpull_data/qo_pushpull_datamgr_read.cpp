// Reads, deletes, and the joining of several reads into one response.
#include <charconv>
#include <exception>
#include <optional>
#include <string>

#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_initializer.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_mutex_lock.h"
#include "qo_pushpull_tree_weight.h"
#include "qo_pushpull_utilities.h"

namespace {

JSONNODE* first_child(const JSONNODE* node) { return json_at(node, 0); }

JSONNODE* find_namesake(const JSONNODE* data, const JSONNODE* wanted) {
    return qo_json_find(data, qo_json_name(wanted));
}

/// The position in `array` that the name of `wanted`, a pointer's segment, stands for; nothing when there is none.
/// @param operation whose line tells that the segment is no number
std::optional<size_t> array_position(const JSONNODE* wanted, const JSONNODE* array, const char* operation) {
    try {
        const long position = std::stol(std::string(qo_json_name(wanted)));
        if (position >= 0 && static_cast<size_t>(position) < json_size(array)) return static_cast<size_t>(position);
    } catch (const std::exception& error) {
        QO_LOG_IN(operation, LOG_ERR, "Exception %s", error.what());
    }
    return std::nullopt;
}

/// The element at the position that a pointer segment names; null also for positions that are not plain numbers.
JSONNODE* find_element(const JSONNODE* array, std::string_view segment) {
    size_t position = 0;
    const char* const end = segment.data() + segment.size();
    const auto [stop, error] = std::from_chars(segment.data(), end, position);
    return stop == end && error == std::errc() ? json_at(array, position) : nullptr;
}

/// Takes the element out if it is the last, else leaves a placeholder. @return the bytes that it gave back.
int64_t delete_element(JSONNODE* array, size_t position) {
    JSONNODE* element = json_at(array, position);
    const int64_t before = qo_tree_weight(element);
    if (position + 1 == json_size(array)) {
        json_delete(json_pop_back_at(array, position));
        return before;
    }
    json_set_n(element, qo_json_placeholder(position).get());
    return before - qo_tree_weight(element);
}

}  // namespace

// ---- read ----

int DataMgr::ReadNode(const std::string& pointer, JSONNODE* response, bool want_array_size, long& array_size) {
    if (response == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    const QoJsonNode skeleton(JsonPtrToNode(pointer));
    if (!skeleton) {
        QO_LOG(LOG_ERR, "Cannot convert node to JSON ptr");
        QO_LOG(LOG_ERR, "Read failed");
        return -1;
    }
    if (json_empty(skeleton.get()) != 0) {
        QO_LOG(LOG_ERR, "Cannot read the entire tree");
        QO_LOG(LOG_ERR, "Read failed");
        return -1;
    }
    if (ValidateAndReadNode(skeleton.get(), data_tree_, response, want_array_size, array_size) != 0) {
        QO_LOG(LOG_ERR, "Read failed");
        json_clear(response);
        return -1;
    }
    return 0;
}

int DataMgr::ValidateAndReadNode(JSONNODE* skeleton, JSONNODE* data, JSONNODE* response, bool want_array_size,
                                 long& array_size) {
    if (skeleton == nullptr || data == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    JSONNODE* wanted = first_child(skeleton);
    if (wanted == nullptr) return 0;
    JSONNODE* found = find_namesake(data, wanted);
    const bool ends_here = json_empty(wanted) != 0;
    if (found == nullptr || (!ends_here && json_empty(found) != 0 && json_type(found) != JSON_ARRAY)) {
        QO_LOG(LOG_ERR, "Read path incorrect");
        return -1;
    }
    if (ends_here) {
        if (want_array_size && json_type(found) == JSON_ARRAY) array_size = static_cast<long>(json_size(found));
        return ReadWholeNode(found, response);
    }
    if (json_type(found) == JSON_ARRAY) return ReadArrayElement(wanted, found, response, want_array_size, array_size);
    return ReadBelow(wanted, found, response, want_array_size, array_size);
}

// Recursive with ValidateAndReadNode: ends where the data end, however long the pointer is.
int DataMgr::ReadBelow(JSONNODE* skeleton, JSONNODE* data, JSONNODE* response, bool want_array_size, long& array_size) {
    JSONNODE* copy = qo_json_append_named(response, json_type(data), qo_json_name(data));
    if (copy == nullptr) {
        QO_LOG_IN("ValidateAndReadNode", LOG_ERR, "json_new/json_duplicate failed");
        return -1;
    }
    if (ValidateAndReadNode(skeleton, data, copy, want_array_size, array_size) != 0) {
        QO_LOG_IN("ValidateAndReadNode", LOG_ERR, "Read path incorrect");
        return -1;
    }
    return 0;
}

// Deliberate: the response's array holds the addressed element alone; its own "id" tells where it stands.
// Test: ReadArrayElement.TheResponseHoldsOnlyThatElement
int DataMgr::ReadArrayElement(JSONNODE* skeleton, JSONNODE* array, JSONNODE* response, bool want_array_size,
                              long& array_size) {
    JSONNODE* wanted = first_child(skeleton);
    const std::optional<size_t> position = array_position(wanted, array, "ValidateAndReadNode");
    if (!position) {
        QO_LOG_IN("ValidateAndReadNode", LOG_ERR, "Read path incorrect");
        return -1;
    }
    JSONNODE* element = json_at(array, *position);
    JSONNODE* copy = qo_json_append_named(response, JSON_ARRAY, qo_json_name(array));
    if (copy == nullptr) {
        QO_LOG_IN("ValidateAndReadNode", LOG_ERR, "json_new/json_duplicate failed");
        return -1;
    }
    return json_empty(wanted) != 0 ? ReadWholeNode(element, copy)
                                   : ReadBelow(wanted, element, copy, want_array_size, array_size);
}

int DataMgr::ReadWholeNode(JSONNODE* data, JSONNODE* response) {
    JSONNODE* copy = qo_json_append_named(response, json_type(data), qo_json_name(data));
    if (copy == nullptr) {
        QO_LOG_IN("ValidateAndReadNode", LOG_ERR, "json_new/json_duplicate failed");
        return -1;
    }
    if (json_empty(data) == 0) return CopyNode(copy, data);
    json_set_n(copy, data);
    return 0;
}

bool DataMgr::AppendNodeText(std::string_view pointer, std::string& text) {
    path_read_.assign(1, data_tree_);
    bool is_element = true;  // the root is taken like one
    for (std::string_view rest = pointer; !rest.empty();) {
        if (rest.front() != '/') return false;
        rest.remove_prefix(1);
        const std::string_view segment = rest.substr(0, rest.find('/'));
        if (segment.empty()) return false;
        // What lies in an element goes by names alone.
        JSONNODE* container = path_read_.back();
        is_element = json_type(container) == JSON_ARRAY && !is_element;
        JSONNODE* found = is_element ? find_element(container, segment) : qo_json_find(container, segment);
        if (found == nullptr) return false;
        path_read_.push_back(found);
        rest.remove_prefix(segment.size());
    }
    if (path_read_.size() == 1) return false;
    qo_json_append_path_formatted(text, path_read_);
    return true;
}

int DataMgr::CopyNode(JSONNODE* destination, JSONNODE* source) {
    if (destination == nullptr || source == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    json_insert_multi(destination, json_begin(destination), json_begin(source), json_end(source));
    return 0;
}

int DataMgr::PackMultipleGetResponse(JSONNODE* combined, JSONNODE* response, eQO_COMPONENT_CLASS_ component_class) {
    return TreeMerge(combined, response, true, component_class, QO_ALLOW_PUBLISH_THIS_NODE_AND_BELOW);
}

// ---- delete ----

int DataMgr::DeleteNode(const std::string& pointer, bool restore_default) {
    const QoJsonNode skeleton(JsonPtrToNode(pointer));
    if (!skeleton) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    if (json_empty(skeleton.get()) != 0) {
        QO_LOG(LOG_ERR, "Cannot delete the entire tree");
        return -1;
    }
    QoJsonNode defaults(json_new(JSON_NODE));
    if (restore_default) {
        long unused_size = 0;
        if (ValidateAndReadNode(skeleton.get(), initializer_->default_tree(), defaults.get(), false, unused_size) != 0)
            json_clear(defaults.get());
        if (json_empty(defaults.get()) != 0)
            syslog(LOG_ERR, "Clear: Failed to read node(%s) from default tree.", pointer.c_str());
    }
    int result = 0;
    {
        const QoMutexLock lock(mutex_);
        result = ValidateAndDeleteNode(skeleton.get(), data_tree_);
    }
    if (result != 0) {
        QO_LOG(LOG_ERR, "Delete failed");
        return -1;
    }
    if (json_empty(defaults.get()) == 0 && RestoreDefault(defaults.get()) != 0) {
        QO_LOG(LOG_ERR, "Restoring the node after deletion has failed!");
        return -1;
    }
    if (CreateTimerToSaveTree() != 0) QO_LOG(LOG_ERR, "Timer creation to save tree failed");
    return 0;
}

int DataMgr::RestoreDefault(JSONNODE* defaults) {
    // Its own locked section: the save timer's thread may be copying the tree.
    const QoMutexLock lock(mutex_);
    return MergeDefaults(defaults, true);
}

// Recursive: ends where the data end, however long the pointer is.
int DataMgr::ValidateAndDeleteNode(JSONNODE* skeleton, JSONNODE* data) {
    if (skeleton == nullptr || data == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    JSONNODE* wanted = first_child(skeleton);
    if (wanted == nullptr) return 0;
    JSONNODE* found = find_namesake(data, wanted);
    if (found == nullptr) {
        QO_LOG(LOG_ERR, "Delete path incorrect");
        return -1;
    }
    if (json_empty(wanted) != 0) {
        tree_bytes_ -= qo_tree_weight(found);
        json_delete(found);
        return 0;
    }
    return json_type(found) == JSON_ARRAY ? DeleteInArray(wanted, found) : ValidateAndDeleteNode(wanted, found);
}

int DataMgr::DeleteInArray(JSONNODE* skeleton, JSONNODE* array) {
    JSONNODE* wanted = first_child(skeleton);
    const std::optional<size_t> position = array_position(wanted, array, "ValidateAndDeleteNode");
    if (!position) {
        QO_LOG_IN("ValidateAndDeleteNode", LOG_ERR, "Delete path incorrect");
        return -1;
    }
    if (json_empty(wanted) == 0) return ValidateAndDeleteNode(wanted, json_at(array, *position));
    tree_bytes_ -= delete_element(array, *position);
    return 0;
}
