/// What a tree takes of the memory and, saved, of the disk, near enough to bound its growth. Header only; for the
/// thread that may read the tree. The sums are exact in themselves: what a part adds is what its removal gives back.
#ifndef QO_PUSHPULL_TREE_WEIGHT_H
#define QO_PUSHPULL_TREE_WEIGHT_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "qo_pushpull_json.h"

/// Bytes of a node with short texts: the node, its place in its parent and in the parent's index of names.
inline constexpr int64_t kQoNodeBytes = 128;

/// Texts written with up to this length stand in the node itself, so that a number can change freely in a tree that is
/// full.
inline constexpr size_t kQoShortText = 15;  // bytes

/// Bytes of a name or value /// where it takes most, in a file: quotes, backslashes and control characters are escaped
/// there.
inline int64_t qo_text_weight(std::string_view text) {
    const size_t length = json_written_length(text.data(), text.size());
    return length > kQoShortText ? static_cast<int64_t>(length) : 0;
}

/// Bytes of a node's value.
inline int64_t qo_value_weight(const JSONNODE* node) {
    const std::string_view text = qo_json_string(node);
    if (json_type(node) == JSON_STRING) return qo_text_weight(text);
    return text.size() > kQoShortText ? static_cast<int64_t>(text.size()) : 0;  // nothing in it is escaped
}

/// Bytes of a node without its children.
inline int64_t qo_node_weight(const JSONNODE* node) {
    return kQoNodeBytes + qo_text_weight(qo_json_name(node)) + qo_value_weight(node);
}

/// Bytes of a node with everything below it. Recursive: as deep as a text can be.
inline int64_t qo_tree_weight(JSONNODE* node) {
    int64_t weight = qo_node_weight(node);
    for (JSONNODE* child : QoJsonChildren(node)) weight += qo_tree_weight(child);
    return weight;
}

#endif
