// Follows a path down a tree as a publish does.
#include "qo_ctl_rules.h"

#include <algorithm>
#include <string_view>

#include "qo_ctl_fragment.h"
#include "qo_pushpull_json.h"

namespace {

enum class Authority { none, here, here_and_below };

/// The element with "id" 0 speaks for an array.
JSONNODE* speaker(JSONNODE* node) {
    if (json_type(node) != JSON_ARRAY) return node;
    for (JSONNODE* element : QoJsonChildren(node)) {
        const JSONNODE* id = json_find(element, "id");
        if (id != nullptr && json_as_int(id) == 0) return element;
    }
    return node;
}

Authority authority_of(JSONNODE* node, eQO_COMPONENT_CLASS_ component_class) {
    if (component_class == QO_INTERNAL) return Authority::here;
    for (const JSONNODE* member : QoJsonChildren(speaker(node))) {
        if (qo_json_name(member) != "writeAccess" || json_type(member) != JSON_STRING) continue;
        const std::string_view access = qo_json_string(member);
        if (access == "openAll") return Authority::here_and_below;
        if (access == "remote") return Authority::here;
        if (access == "local") return component_class == QO_LOCAL_CLIENT ? Authority::here : Authority::none;
        if (access == "internal") return Authority::none;
    }
    return Authority::none;
}

Authority authority_below(Authority above, JSONNODE* node, eQO_COMPONENT_CLASS_ component_class) {
    return above == Authority::here_and_below ? above : authority_of(node, component_class);
}

JSONNODE* child_at(JSONNODE* node, const std::string& segment) {
    if (json_type(node) != JSON_ARRAY) return qo_json_find(node, segment);
    return qo_ctl_may_be_position(segment) ? json_at(node, std::stoul(segment)) : nullptr;
}

bool has_mark(const JSONNODE* node) {
    const JSONNODE* mark = json_find(node, "doNotPersist");
    return mark != nullptr && json_as_bool(mark) == 1;
}

/// An array is left out as a whole when one of its elements is.
bool is_left_out(JSONNODE* node) {
    const QoJsonChildren children(node);
    return json_type(node) == JSON_ARRAY ? std::any_of(children.begin(), children.end(), has_mark) : has_mark(node);
}

}  // namespace

QoCtlRules qo_ctl_rules(JSONNODE* tree, const QoCtlPath& path) {
    constexpr std::array<eQO_COMPONENT_CLASS_, 3> kClasses = {QO_INTERNAL, QO_LOCAL_CLIENT, QO_REMOTE_CLIENT};
    std::array<Authority, kClasses.size()> authority{};
    for (size_t i = 0; i < authority.size(); ++i) authority[i] = authority_of(tree, kClasses[i]);
    QoCtlRules rules;
    JSONNODE* node = tree;
    for (const std::string& segment : path) {
        JSONNODE* const child = child_at(node, segment);
        if (child == nullptr) return {};
        // An element is under the array's rule, which its own members do not change.
        JSONNODE* const ruler = json_type(node) == JSON_ARRAY ? json_at(node, 0) : child;
        if (qo_json_is_container(child) && json_empty(child) == 0)
            for (size_t i = 0; i < authority.size(); ++i)
                authority[i] = authority_below(authority[i], ruler, kClasses[i]);
        rules.persists = rules.persists && !is_left_out(child);
        node = child;
    }
    rules.node = node;
    for (size_t i = 0; i < authority.size(); ++i) rules.may_write[i] = authority[i] != Authority::none;
    if (json_type(node) == JSON_ARRAY) {
        int64_t most = 0;
        const JSONNODE* max_items = json_find(json_at(node, 0), "maxItems");
        if (max_items != nullptr && json_get_int(max_items, &most) != 0) rules.max_items = most;
    }
    return rules;
}
