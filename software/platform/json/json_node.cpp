// The life of a node: creating, copying, clearing and releasing.
#include "json_node.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "json_allocator.h"

namespace {

using qo_json::child_count;
using qo_json::NameIndex;
using qo_json::NodePtr;
using qo_json::Text;

constexpr std::string_view kNewNumber = "0";

bool is_usable_text(std::string_view bytes) {
    return bytes.size() <= qo_json::kMaxTextLength && qo_json::is_utf8(bytes);
}

std::string_view view_of(const char* text) { return text == nullptr ? std::string_view() : std::string_view(text); }

std::string_view view_of(const char* bytes, size_t length) {
    return bytes == nullptr ? std::string_view() : std::string_view(bytes, length);
}

JSONNODE* new_string(std::string_view name, std::string_view value) {
    if (!is_usable_text(name) || !is_usable_text(value)) return nullptr;
    NodePtr node(new JSONNODE(JSON_STRING));
    node->name = Text(name);
    node->text = Text(value);
    return node.release();
}

/// Null when the name is not valid UTF-8.
NodePtr new_named(char type, const char* name) {
    if (!is_usable_text(view_of(name))) return nullptr;
    NodePtr node(json_new(type));
    node->name = Text(view_of(name));
    return node;
}

void rename_node(JSONNODE* node, std::string_view name) {
    if (node == nullptr || !is_usable_text(name)) return;
    Text renamed(name);  // first, because `name` may be a view of the old one
    auto* siblings = node->parent == nullptr ? nullptr : node->parent->children.get();
    if (siblings != nullptr) qo_json::update_index(*siblings, [node](NameIndex& names) { names.remove(node); });
    node->name = std::move(renamed);
    if (siblings == nullptr) return;
    qo_json::update_index(*siblings, [&](NameIndex& names) { names.add(node, siblings->items); });
    qo_json::note_name(*siblings, node->name.view());
}

/// Releases all nodes below `root`. Goes down by taking the last child off its list and up by the parent, so it
/// needs neither recursion nor memory.
void delete_below(JSONNODE* root) {
    for (JSONNODE* node = root;;) {
        if (node->children && !node->children->items.empty()) {
            JSONNODE* child = node->children->items.back();
            node->children->items.pop_back();
            node->children->forget();
            node = child;
        } else if (node == root) {
            node->children.reset();
            return;
        } else {
            JSONNODE* parent = node->parent;
            delete node;
            node = parent;
        }
    }
}

/// A copy of one node without its children.
NodePtr copy_single(const JSONNODE* source) {
    NodePtr copy(new JSONNODE(source->type));
    copy->name = Text(source->name.view());
    copy->text = Text(source->text.view());
    copy->boolean = source->boolean;
    return copy;
}

/// Appends copies of all nodes below `source` to `copy`, which has no children.
void copy_below(const JSONNODE* source, JSONNODE* copy) {
    struct Level {
        const JSONNODE* source;
        JSONNODE* copy;
    };
    std::vector<Level> pending{{source, copy}};
    while (!pending.empty()) {
        const Level level = pending.back();
        pending.pop_back();
        if (child_count(level.source) == 0) continue;
        auto& copies = qo_json::reserve_children(level.copy, child_count(level.source));
        for (const JSONNODE* child : level.source->children->items) {
            qo_json::append_child(copies, copy_single(child).release());
            copies.back()->parent = level.copy;
            if (child->children) pending.push_back({child, copies.back()});
        }
    }
}

/// Of two nodes without children.
void set_single(JSONNODE* destination, const JSONNODE* source) {
    if (destination == source) return;
    destination->text.assign(source->text.view());
    destination->type = source->type;
    destination->boolean = source->boolean;
}

bool is_below(const JSONNODE* node, const JSONNODE* top) {
    for (; node != nullptr; node = node->parent)
        if (node == top) return true;
    return false;
}

}  // namespace

JSONNODE* json_new(char type) {
    if (static_cast<unsigned char>(type) > static_cast<unsigned char>(JSON_NODE)) return nullptr;
    auto* node = new JSONNODE(type);
    if (type == JSON_NUMBER) node->text = Text(kNewNumber);
    return node;
}

JSONNODE* json_new_a(const char* name, const char* value) { return new_string(view_of(name), view_of(value)); }

JSONNODE* json_new_a_n(const char* name, size_t name_length, const char* value, size_t value_length) {
    return new_string(view_of(name, name_length), view_of(value, value_length));
}

JSONNODE* json_new_i(const char* name, int64_t value) {
    NodePtr node = new_named(JSON_NUMBER, name);
    if (node) node->text = Text(std::to_string(value));
    return node.release();
}

JSONNODE* json_new_b(const char* name, int value) {
    NodePtr node = new_named(JSON_BOOL, name);
    if (node) node->boolean = value != 0;
    return node.release();
}

JSONNODE* json_duplicate(const JSONNODE* node) {
    if (node == nullptr) return nullptr;
    NodePtr copy = copy_single(node);
    copy_below(node, copy.get());
    return copy.release();
}

JSONNODE* json_copy(const JSONNODE* node) { return json_duplicate(node); }

void json_delete(JSONNODE* node) {
    if (node == nullptr) return;
    if (node->parent != nullptr) qo_json::detach(node);
    delete_below(node);
    delete node;
}

void json_clear(JSONNODE* node) {
    if (node == nullptr) return;
    delete_below(node);
    node->text = Text(node->type == JSON_NUMBER ? kNewNumber : std::string_view());
    node->boolean = false;
}

void json_set_name(JSONNODE* node, const char* name) { rename_node(node, view_of(name)); }

void json_set_name_n(JSONNODE* node, const char* name, size_t length) { rename_node(node, view_of(name, length)); }

void json_set_n(JSONNODE* destination, const JSONNODE* source) {
    if (destination == nullptr || source == nullptr) return;
    if (child_count(destination) == 0 && child_count(source) == 0) return set_single(destination, source);
    if (is_below(source, destination)) return;
    const NodePtr copy(json_duplicate(source));
    delete_below(destination);
    destination->type = copy->type;
    destination->boolean = copy->boolean;
    destination->text = std::move(copy->text);
    destination->children = std::move(copy->children);
    if (!destination->children) return;
    for (JSONNODE* child : destination->children->items) child->parent = destination;
}

void json_free(void* text) { std::free(text); }

char* qo_json::copy_out(std::string_view bytes) {
    auto* copy = static_cast<char*>(reallocate(nullptr, bytes.size() + 1));
    if (!bytes.empty()) std::memcpy(copy, bytes.data(), bytes.size());
    copy[bytes.size()] = '\0';
    return copy;
}

int json_is_text_n(const char* text, size_t length) {
    return text != nullptr && is_usable_text({text, length}) ? 1 : 0;
}
