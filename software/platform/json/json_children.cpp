// The list of children: iterating, searching, adding and taking out.
#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>

#include "json_node.h"

namespace {

using qo_json::child_count;
using qo_json::Children;
using qo_json::NameIndex;
using qo_json::Names;
using qo_json::NodePtr;

// Where the empty lists begin and end, so that an iterator is never null.
JSONNODE* no_children = nullptr;

// Levels that a search for an ancestor climbs before it also looks at the tree in question from above.
constexpr size_t kUsualDepth = 512;

/// Whether `node` is `top` or below it. Costs no more than twice the smaller of the node's depth and the number of
/// nodes in the tree of `top`, so that hanging many small trees deep down stays cheap.
bool is_within(const JSONNODE* node, const JSONNODE* top) {
    if (node == top) return true;
    if (child_count(top) == 0) return false;
    std::vector<const JSONNODE*> pending{top};
    size_t climbed = 0;
    for (const JSONNODE* above = node->parent; above != nullptr; above = above->parent) {
        if (above == top) return true;
        if (++climbed < kUsualDepth) continue;
        if (pending.empty()) return false;
        const JSONNODE* seen = pending.back();
        pending.pop_back();
        if (seen == node) return true;
        if (seen->children) pending.insert(pending.end(), seen->children->items.begin(), seen->children->items.end());
    }
    return false;
}

bool may_adopt(const JSONNODE* parent, const JSONNODE* child) {
    return qo_json::is_container(parent) && child != nullptr && child->parent == nullptr && !is_within(parent, child);
}

Children& children_of(JSONNODE* parent) {
    if (!parent->children) parent->children = std::make_unique<Children>();
    return *parent->children;
}

/// `position` counted from the first child; more than the number of children when it is not within the list.
size_t index_of(JSONNODE* parent, JSONNODE** position) {
    const auto begin = reinterpret_cast<uintptr_t>(json_begin(parent));
    const auto place = reinterpret_cast<uintptr_t>(position);
    if (position == nullptr || place < begin || (place - begin) % sizeof(JSONNODE*) != 0) return SIZE_MAX;
    return (place - begin) / sizeof(JSONNODE*);
}

JSONNODE* take_out(JSONNODE* parent, size_t index) {
    Children& children = *parent->children;
    JSONNODE* child = children.items[index];
    qo_json::update_index(children, [child](NameIndex& names) { names.remove(child); });
    children.items.erase(children.items.begin() + static_cast<std::ptrdiff_t>(index));
    children.last = Children::kNoPlace;
    child->parent = nullptr;
    if (children.items.empty())
        parent->children.reset();
    else if (children.items.size() < NameIndex::kWorthwhileSize / 2)
        children.index.reset();
    return child;
}

/// Behind the last child when there is none of that name.
size_t position_by_scan(const std::vector<JSONNODE*>& items, std::string_view name, size_t from = 0) {
    size_t position = from;
    while (position < items.size() && items[position]->name.view() != name) ++position;
    return position;
}

JSONNODE* find_by_scan(const std::vector<JSONNODE*>& items, std::string_view name) {
    const size_t position = position_by_scan(items, name);
    return position == items.size() ? nullptr : items[position];
}

void build_index(Children& children) {
    try {
        children.index = std::make_unique<NameIndex>(children.items);
    } catch (const std::bad_alloc&) {
        // A search without it only takes longer.
    }
}

bool is_large(const Children& children) { return children.items.size() >= NameIndex::kWorthwhileSize; }

bool has_namesakes(const Children& children) {
    if (children.index) return children.index->has_namesakes();
    for (size_t i = 1; i < children.items.size(); ++i)
        if (position_by_scan(children.items, children.items[i]->name.view()) != i) return true;
    return false;
}

/// For an object that is searched again and again.
void learn_names(Children& children) {
    if (is_large(children) && !children.index) build_index(children);
    if (children.names != Names::unknown || (is_large(children) && !children.index)) return;
    children.names = has_namesakes(children) ? Names::repeated : Names::unique;
    children.marks = 0;
    for (const JSONNODE* child : children.items) children.marks |= qo_json::mark_of(child->name.view());
}

JSONNODE* found_at(Children& children, size_t position) {
    children.last = static_cast<uint32_t>(position);
    return children.items[position];
}

/// Whoever looks for the members of an object mostly does so in their order, or for the same one again. The next one is
/// only known to be the first of its name where there are no namesakes.
JSONNODE* find_near(Children& children, std::string_view name) {
    const auto& items = children.items;
    const size_t last = children.last;
    if (children.names == Names::unique) {
        const size_t next = last + 1 < items.size() ? last + 1 : 0;
        if (items[next]->name.view() == name) return found_at(children, next);
    }
    return last < items.size() && items[last]->name.view() == name ? items[last] : nullptr;
}

JSONNODE* find_anywhere(Children& children, std::string_view name) {
    const auto& items = children.items;
    if (!children.index) {
        const size_t position = position_by_scan(items, name);
        return position == items.size() ? nullptr : found_at(children, position);
    }
    JSONNODE* found = children.index->find(name);
    if (found != nullptr && found->place < items.size() && items[found->place] == found) children.last = found->place;
    return found;
}

JSONNODE* find_member(const JSONNODE* object, std::string_view name) {
    if (object == nullptr || object->type != JSON_NODE || child_count(object) == 0) return nullptr;
    Children& children = *object->children;
    if (JSONNODE* near = find_near(children, name); near != nullptr) return near;
    // Many an object is searched once in its life.
    if (std::exchange(children.searched, true) && children.names != Names::unique) learn_names(children);
    if (children.names != Names::unknown && (children.marks & qo_json::mark_of(name)) == 0) return nullptr;
    return find_anywhere(children, name);
}

/// Before a child of that name is added behind the others.
void note_addition(Children& children, std::string_view name) {
    children.marks |= qo_json::mark_of(name);
    if (children.names != Names::unique) return;
    if (children.index)
        children.names = children.index->find(name) == nullptr ? Names::unique : Names::repeated;
    else if (find_by_scan(children.items, name) != nullptr)
        children.names = Names::repeated;
    else if (children.items.size() + 1 >= NameIndex::kWorthwhileSize)
        children.names = Names::unknown;  // the next search builds the index first
}

}  // namespace

void qo_json::detach(JSONNODE* node) {
    const auto& items = node->parent->children->items;
    const auto found = std::find(items.begin(), items.end(), node);
    take_out(node->parent, static_cast<size_t>(found - items.begin()));
}

size_t json_size(const JSONNODE* node) { return node == nullptr ? 0 : child_count(node); }

int json_empty(const JSONNODE* node) { return json_size(node) == 0 ? 1 : 0; }

JSONNODE_ITERATOR json_begin(JSONNODE* node) {
    return json_size(node) == 0 ? &no_children : node->children->items.data();
}

JSONNODE_ITERATOR json_end(JSONNODE* node) { return json_begin(node) + json_size(node); }

JSONNODE_ITERATOR json_children(JSONNODE* node, size_t* count) {
    *count = json_size(node);
    return *count == 0 ? &no_children : node->children->items.data();
}

JSONNODE* json_find(const JSONNODE* node, const char* name) {
    return name == nullptr ? nullptr : find_member(node, name);
}

JSONNODE* json_find_n(const JSONNODE* node, const char* name, size_t length) {
    return name == nullptr ? nullptr : find_member(node, {name, length});
}

size_t json_scan_n(const JSONNODE* node, size_t from, const char* name, size_t length) {
    const size_t size = json_size(node);
    if (name == nullptr || from >= size) return size;
    return position_by_scan(node->children->items, {name, length}, from);
}

JSONNODE* json_at(const JSONNODE* node, size_t index) {
    return index < json_size(node) ? node->children->items[index] : nullptr;
}

int json_push_back(JSONNODE* parent, JSONNODE* child) {
    if (!may_adopt(parent, child)) return 0;
    Children& children = children_of(parent);
    note_addition(children, child->name.view());
    qo_json::append_child(children.items, child);
    child->parent = parent;
    qo_json::update_index(children, [child](NameIndex& names) { names.append(child); });
    return 1;
}

JSONNODE_ITERATOR json_insert(JSONNODE* parent, JSONNODE_ITERATOR position, JSONNODE* child) {
    const size_t index = index_of(parent, position);
    if (index > json_size(parent) || !may_adopt(parent, child)) return nullptr;
    Children& children = children_of(parent);
    children.items.insert(children.items.begin() + static_cast<std::ptrdiff_t>(index), child);
    child->parent = parent;
    qo_json::update_index(children, [&](NameIndex& names) { names.add(child, children.items); });
    qo_json::note_name(children, child->name.view());
    return json_begin(parent) + index;
}

JSONNODE_ITERATOR json_insert_multi(JSONNODE* parent, JSONNODE_ITERATOR position, JSONNODE_ITERATOR first,
                                    JSONNODE_ITERATOR last) {
    const size_t index = index_of(parent, position);
    if (!qo_json::is_container(parent) || index > json_size(parent)) return nullptr;
    if (first == nullptr || last == nullptr || last < first) return nullptr;
    if (first == last) return position;
    if (index_of(parent, first) < json_size(parent)) return nullptr;

    std::vector<NodePtr> copies;
    copies.reserve(static_cast<size_t>(last - first));
    for (; first != last; ++first)
        if (*first != nullptr) copies.emplace_back(json_duplicate(*first));
    Children& children = children_of(parent);
    // Makes room for all of them first, so that nothing can fail once a copy has changed hands.
    const auto place =
        children.items.insert(children.items.begin() + static_cast<std::ptrdiff_t>(index), copies.size(), nullptr);
    std::transform(copies.begin(), copies.end(), place, [parent](NodePtr& copy) {
        copy->parent = parent;
        return copy.release();
    });
    children.forget();  // finding a place for each of many namesakes would cost more than a new index
    return json_begin(parent) + index;
}

JSONNODE_ITERATOR json_erase(JSONNODE* parent, JSONNODE_ITERATOR position) {
    const size_t index = index_of(parent, position);
    if (index >= json_size(parent)) return nullptr;
    json_delete(take_out(parent, index));
    return json_begin(parent) + index;
}

size_t json_erase_if(JSONNODE* parent, int (*matches)(const JSONNODE* child, void* context), void* context) {
    if (json_empty(parent) != 0 || matches == nullptr) return 0;
    std::vector<JSONNODE*> kept;
    std::vector<JSONNODE*> erased;
    for (JSONNODE* child : parent->children->items) (matches(child, context) != 0 ? erased : kept).push_back(child);
    if (erased.empty()) return 0;

    parent->children->forget();
    parent->children->items = std::move(kept);
    if (parent->children->items.empty()) parent->children.reset();
    for (JSONNODE* child : erased) {
        child->parent = nullptr;
        json_delete(child);
    }
    return erased.size();
}

JSONNODE* json_pop_back(JSONNODE* parent, const char* name) {
    JSONNODE* child = json_find(parent, name);
    if (child != nullptr) qo_json::detach(child);
    return child;
}

JSONNODE* json_pop_back_at(JSONNODE* parent, size_t index) {
    return index < json_size(parent) ? take_out(parent, index) : nullptr;
}
