// Walks two trees side by side.
#include "qo_ctl_difference.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <string_view>

#include "qo_pushpull_json.h"

namespace {

/// The path and what has been found while walking.
struct Walk {
    QoCtlPath path;
    std::vector<QoCtlDifference> differences;

    void note(JSONNODE* before, JSONNODE* after) { differences.push_back({path, before, after}); }

    template <typename Below>
    void below(std::string_view segment, Below look) {
        path.emplace_back(segment);
        look();
        path.pop_back();
    }
};

/// Calls `look(name, child)` for the first child of each name.
template <typename Look>
void for_each_member(JSONNODE* object, Look look) {
    for (JSONNODE* child : QoJsonChildren(object)) {
        const std::string_view name = qo_json_name(child);
        if (qo_json_find(object, name) == child) look(name, child);
    }
}

void compare(JSONNODE* before, JSONNODE* after, Walk& walk);

void compare_objects(JSONNODE* before, JSONNODE* after, Walk& walk) {
    for_each_member(
        before,
        [&](std::string_view name, JSONNODE* child) {
            JSONNODE* other = qo_json_find(after, name);
            walk.below(
                name, [&] { other == nullptr ? walk.note(child, nullptr) : compare(child, other, walk); });
        });
    for_each_member(after, [&](std::string_view name, JSONNODE* child) {
        if (qo_json_find(before, name) == nullptr) walk.below(name, [&] { walk.note(nullptr, child); });
    });
}

void compare_arrays(JSONNODE* before, JSONNODE* after, Walk& walk) {
    const size_t common = std::min(json_size(before), json_size(after));
    for (size_t i = 0; i < common; ++i)
        walk.below(std::to_string(i), [&] { compare(json_at(before, i), json_at(after, i), walk); });
    for (size_t i = json_size(before); i > common; --i)
        walk.below(std::to_string(i - 1), [&] { walk.note(json_at(before, i - 1), nullptr); });
    for (size_t i = common; i < json_size(after); ++i)
        walk.below(std::to_string(i), [&] { walk.note(nullptr, json_at(after, i)); });
}

void compare(JSONNODE* before, JSONNODE* after, Walk& walk) {
    const bool alike = json_type(before) == json_type(after);
    if (alike && json_type(before) == JSON_NODE)
        compare_objects(before, after, walk);
    else if (alike && json_type(before) == JSON_ARRAY)
        compare_arrays(before, after, walk);
    else if (!alike || json_equal(before, after) == 0)
        walk.note(before, after);
}

// ---- what was published ----

/// The position that an element asks for.
std::optional<size_t> wanted_position(JSONNODE* element) {
    int64_t id = -1;
    const JSONNODE* node = json_find(element, "id");
    if (node == nullptr || json_get_int(node, &id) == 0 || id < 0) return std::nullopt;
    return static_cast<size_t>(id);
}

void look_for(JSONNODE* published, JSONNODE* tree, Walk& walk);

void look_for_elements(JSONNODE* published, JSONNODE* tree, Walk& walk) {
    for (JSONNODE* element : QoJsonChildren(published)) {
        const std::optional<size_t> position = wanted_position(element);
        JSONNODE* found = position && json_type(tree) == JSON_ARRAY ? json_at(tree, *position) : nullptr;
        walk.below(position ? std::to_string(*position) : "?", [&] { look_for(element, found, walk); });
    }
}

/// A container that holds nothing asks for nothing where a container stands.
void look_for(JSONNODE* published, JSONNODE* tree, Walk& walk) {
    const bool container = qo_json_is_container(published);
    if (tree == nullptr || container != qo_json_is_container(tree) ||
        (container && json_empty(published) == 0 && json_type(published) != json_type(tree)) ||
        (!container && json_equal(published, tree) == 0))
        walk.note(published, tree);
    else if (json_type(published) == JSON_ARRAY)
        look_for_elements(published, tree, walk);
    else if (container)
        for_each_member(published, [&](std::string_view name, JSONNODE* child) {
            walk.below(name, [&] { look_for(child, qo_json_find(tree, name), walk); });
        });
}

}  // namespace

std::string qo_ctl_pointer(const QoCtlPath& path) {
    std::string pointer;
    for (const std::string& segment : path) pointer += "/" + segment;
    return pointer.empty() ? "/" : pointer;
}

std::string qo_ctl_json_pointer(const QoCtlPath& path) {
    std::string pointer;
    for (const std::string& segment : path) {
        pointer += '/';
        for (const char character : segment)
            if (character == '~')
                pointer += "~0";
            else if (character == '/')
                pointer += "~1";
            else
                pointer += character;
    }
    return pointer;
}

bool qo_ctl_is_reachable(const QoCtlPath& path) {
    return std::none_of(
        path.begin(), path.end(),
        [](const std::string& segment) { return segment.empty() || segment.find_first_of("/;") != std::string::npos; });
}

std::vector<QoCtlDifference> qo_ctl_differences(JSONNODE* before, JSONNODE* after) {
    Walk walk;
    compare(before, after, walk);
    return std::move(walk.differences);
}

std::vector<QoCtlDifference> qo_ctl_not_taken(JSONNODE* published, JSONNODE* tree) {
    Walk walk;
    look_for(published, tree, walk);
    return std::move(walk.differences);
}
