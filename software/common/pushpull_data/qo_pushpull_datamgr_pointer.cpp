// Pointer texts and the trees that stand for them.
#include <stdexcept>
#include <string_view>

#include "qo_pushpull_constants.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_utilities.h"

namespace {

/// A new object of that name as the last child of `parent`; null when the name is not UTF-8.
JSONNODE* append_object(JSONNODE* parent, std::string_view name) {
    JSONNODE* object = qo_json_append_named(parent, JSON_NODE, name);
    return qo_json_name(object) == name ? object : nullptr;
}

bool is_leaf_value(const JSONNODE* node) { return json_empty(node) != 0 && !qo_json_is_container(node); }

}  // namespace

JSONNODE* DataMgr::JsonPtrToNode(const std::string& pointer) {
    if (pointer.find('/') != 0) {
        QO_LOG(LOG_ERR, "Incorrect JSON pointer, ptr should start with /");
        return nullptr;
    }
    QoJsonNode root(json_new(JSON_NODE));
    if (!root) {
        QO_LOG(LOG_ERR, "json_new failed");
        return nullptr;
    }
    JSONNODE* cursor = root.get();
    int empty_segments = 0;
    for (size_t slash = 0; slash != std::string::npos;) {
        const size_t next = pointer.find('/', slash + 1);
        const std::string_view segment = std::string_view(pointer).substr(slash + 1, next - slash - 1);
        slash = next;
        if (segment.empty()) {
            // One pointer may hold a quarter of a million empty segments, and the system log would hold up the service
            // for as many lines. The first ones tell what there is to tell.
            if (empty_segments++ < QO_MAX_SLASH_LINES)
                QO_LOG(LOG_DEBUG, "Root path or dangling / or back to back slashes //");
            continue;
        }
        cursor = append_object(cursor, segment);
        if (cursor == nullptr) {
            QO_LOG(LOG_ERR, "json_new failed");
            return nullptr;
        }
    }
    return root.release();
}

int DataMgr::GetJsonArrayIndex(JSONNODE* node, unsigned& index) {
    if (node == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    if (json_type(node) != JSON_ARRAY) {
        QO_LOG(LOG_ERR, "Cannot operate on a non JSON_ARRAY");
        return -1;
    }
    if (json_empty(node) != 0) {
        QO_LOG(LOG_ERR, "Cannot operate on an empty array");
        return -1;
    }
    bool selected = false;
    unsigned position = 0;
    for (const JSONNODE* element : QoJsonChildren(node)) {
        if (json_empty(element) == 0) {
            if (selected) return -1;
            selected = true;
            index = position;
        }
        ++position;
    }
    return selected ? 0 : -1;
}

std::string DataMgr::JsonNodeToPtr(JSONNODE* node) {
    if (node == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        // Deliberate: there is no text for null, and "" is the text of an empty tree.
        // Test: JsonNodeToPtr.NullRaisesALogicError
        throw std::logic_error("basic_string: construction from null is not valid");
    }
    std::string pointer;
    for (JSONNODE* cursor = node; json_size(cursor) == 1;) {
        JSONNODE* child = json_at(cursor, 0);
        if (is_leaf_value(child)) return pointer.empty() ? "/" : pointer;
        pointer.append("/").append(qo_json_name(child));
        if (json_type(child) == JSON_ARRAY) {
            unsigned index = 0;
            if (GetJsonArrayIndex(child, index) == 0) pointer.append("/").append(std::to_string(index));
            return pointer;
        }
        cursor = child;
    }
    return pointer;
}
