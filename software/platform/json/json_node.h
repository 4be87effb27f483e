/// The node behind the flat interface, and what the sources of this library share.
#ifndef QO_JSON_NODE_H
#define QO_JSON_NODE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "json_index.h"
#include "json_text.h"
#include "qo_json.h"

namespace qo_json {

/// One of 64 marks. An object whose names do not have the mark of a name has no such member.
inline uint64_t mark_of(std::string_view name) {
    if (name.empty()) return 1;
    const auto letter = [name](size_t at) { return size_t{static_cast<unsigned char>(name[at])}; };
    return uint64_t{1} << ((name.size() * 5 + letter(0) * 3 + letter(name.size() / 2)) % 64);
}

/// What is known of the names of an object's children.
enum class Names : uint8_t { unknown, unique, repeated };

/// The children of one array or object. Present only while there are any.
struct Children {
    static constexpr uint32_t kNoPlace = UINT32_MAX;

    std::vector<JSONNODE*> items;      // owned by the node
    std::unique_ptr<NameIndex> index;  // built by the second search of a large object
    uint32_t last = kNoPlace;          // found by the last search that found one; the first child of its name
    uint64_t marks = 0;                // of all names, see mark_of(); of no use while these are unknown
    Names names = Names::unknown;
    bool searched = false;

    /// Nothing that was found out about the children holds any more.
    void forget() {
        index.reset();
        names = Names::unknown;
        last = kNoPlace;
        searched = false;
    }
    void clear() {
        items.clear();
        forget();
    }
};

/// After a child of that name has come to stand anywhere among the others, and the index knows of it.
inline void note_name(Children& children, std::string_view name) {
    children.last = Children::kNoPlace;
    children.marks |= mark_of(name);
    if (!children.index)
        children.names = Names::unknown;
    else
        children.names = children.index->has_namesakes() ? Names::repeated : Names::unique;
}

/// Keeps the index up, if there is one, by `update(index)`. Where memory is short the index is given up instead: the
/// next search builds it again, and the change that made the update necessary cannot fail any more.
template <typename Update>
void update_index(Children& children, Update update) noexcept {
    if (!children.index) return;
    try {
        update(*children.index);
    } catch (const std::bad_alloc&) {
        children.index.reset();
        children.names = Names::unknown;
    }
}

struct DeleteNode {
    void operator()(JSONNODE* node) const { json_delete(node); }
};
/// Owns a node that has no parent (yet).
using NodePtr = std::unique_ptr<JSONNODE, DeleteNode>;

}  // namespace qo_json

/// One message may become a hundred thousand of these, so it is kept small: texts are compact and a list of
/// children takes room only when there are any.
struct JSONNODE {
    JSONNODE() = default;
    explicit JSONNODE(char node_type) : type(node_type) {}

    JSONNODE* parent = nullptr;
    qo_json::Text name;
    qo_json::Text text;  // a string's bytes or a number's literal, else empty
    std::unique_ptr<qo_json::Children> children;
    char type = JSON_NULL;
    bool boolean = false;
    uint16_t place = 0;  // where it was appended to its siblings; it may have moved since
};

namespace qo_json {

inline bool is_container(const JSONNODE* node) {
    return node != nullptr && (node->type == JSON_ARRAY || node->type == JSON_NODE);
}

inline size_t child_count(const JSONNODE* node) { return node->children ? node->children->items.size() : 0; }

/// Behind the others, which have room for it or are given more.
inline void append_child(std::vector<JSONNODE*>& siblings, JSONNODE* child) {
    siblings.push_back(child);
    child->place = static_cast<uint16_t>(siblings.size() - 1);  // of no use in a list that is longer
}

/// A list without room to spare for `count` children, for a container that has none.
inline std::vector<JSONNODE*>& reserve_children(JSONNODE* container, size_t count) {
    container->children = std::make_unique<Children>();
    container->children->items.reserve(count);
    return container->children->items;
}

/// Takes a node out of the parent that it has; the caller owns it.
void detach(JSONNODE* node);

inline constexpr std::string_view kNullText = "null";
inline constexpr std::string_view kFalseText = "false";
inline constexpr std::string_view kTrueText = "true";

/// The value that a string view of the node shows: see json_string_view.
std::string_view value_text(const JSONNODE* node);

/// A NUL-terminated copy of `bytes` for json_free.
char* copy_out(std::string_view bytes);

}  // namespace qo_json

#endif
