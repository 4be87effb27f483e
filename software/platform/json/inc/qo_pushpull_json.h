/// RAII guards and length-aware helpers over the flat JSON node interface, for use inside this system's
/// own code. Header only; every function is free of state and may be called from any thread, within the
/// rules of qo_json.h.
#ifndef QO_PUSHPULL_JSON_H
#define QO_PUSHPULL_JSON_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "qo_json.h"

struct QoJsonDelete {
    void operator()(JSONNODE* node) const { json_delete(node); }
};
/// Owns one node with everything below it; qo_json_push_back hands it to a parent.
using QoJsonNode = std::unique_ptr<JSONNODE, QoJsonDelete>;

struct QoJsonFree {
    void operator()(char* text) const { json_free(text); }
};
/// Owns one text returned by the JSON library.
using QoJsonText = std::unique_ptr<char, QoJsonFree>;

/// The children of a node for range-for; they may not be added or removed meanwhile.
class QoJsonChildren {
public:
    explicit QoJsonChildren(JSONNODE* node) : begin_(json_children(node, &count_)) {}
    JSONNODE_ITERATOR begin() const { return begin_; }
    JSONNODE_ITERATOR end() const { return begin_ + count_; }

private:
    size_t count_ = 0;
    JSONNODE_ITERATOR begin_;
};

/// The node's name; lives as long as the node and its name.
inline std::string_view qo_json_name(const JSONNODE* node) {
    size_t length = 0;
    const char* name = json_name_view(node, &length);
    return {name, length};
}

/// The value as text; lives as long as the node and its value.
inline std::string_view qo_json_string(const JSONNODE* node) {
    size_t length = 0;
    const char* text = json_string_view(node, &length);
    return {text, length};
}

/// The first child of that name, or null.
inline JSONNODE* qo_json_find(const JSONNODE* node, std::string_view name) {
    return json_find_n(node, name.data(), name.size());
}

/// Deletes every child for which `matches(child)` holds, in one pass. @return how many.
template <typename Matches>
size_t qo_json_erase_if(JSONNODE* parent, Matches matches) {
    const auto ask = [](const JSONNODE* child, void* context) {
        return (*static_cast<Matches*>(context))(child) ? 1 : 0;
    };
    return json_erase_if(parent, ask, &matches);
}

inline std::string qo_json_write(const JSONNODE* node) {
    size_t length = 0;
    const QoJsonText text(json_write_n(node, &length));
    return text ? std::string(text.get(), length) : std::string();
}

inline std::string qo_json_write_formatted(const JSONNODE* node) {
    size_t length = 0;
    const QoJsonText text(json_write_formatted_n(node, &length));
    return text ? std::string(text.get(), length) : std::string();
}

/// The json_writer that hands each piece to the `Take` in its context.
template <typename Take>
int qo_json_piece_taker(const char* bytes, size_t length, void* context) {
    return (*static_cast<Take*>(context))(std::string_view(bytes, length)) ? 1 : 0;
}

/// Hands the formatted text to `take(piece)` piece by piece. @return whether every call of it gave true.
template <typename Take>
bool qo_json_write_formatted_to(const JSONNODE* node, Take take) {
    return json_write_formatted_to(node, qo_json_piece_taker<Take>, &take) != 0;
}

/// Appends the formatted text of a path, see json_write_path_formatted_to.
inline void qo_json_append_path_formatted(std::string& text, std::span<JSONNODE* const> path) {
    const auto append = [](const char* bytes, size_t length, void* context) {
        static_cast<std::string*>(context)->append(bytes, length);
        return 1;
    };
    json_write_path_formatted_to(path.data(), path.size(), append, &text);
}

/// Null when the text is not valid JSON.
inline QoJsonNode qo_json_parse(std::string_view text) { return QoJsonNode(json_parse_n(text.data(), text.size())); }

/// Reads many texts one after another without new memory for each. By one thread at a time.
class QoJsonDocument {
public:
    /// The tree of one text, or null when it is not valid JSON. Only for reading; ends before the next one begins.
    class Tree {
    public:
        Tree(JSONDOCUMENT* document, std::string_view text)
            : document_(document), root_(json_document_parse_n(document, text.data(), text.size())) {}
        ~Tree() { json_document_give_back(document_); }
        Tree(const Tree&) = delete;
        Tree& operator=(const Tree&) = delete;
        JSONNODE* get() const { return root_; }

    private:
        JSONDOCUMENT* document_;
        JSONNODE* root_;
    };

    Tree read(std::string_view text) const { return {document_.get(), text}; }

private:
    struct Delete {
        void operator()(JSONDOCUMENT* document) const { json_document_delete(document); }
    };
    std::unique_ptr<JSONDOCUMENT, Delete> document_{json_document_new()};
};

/// What a tree was at one moment; null until there is one.
class QoJsonSnapshot {
public:
    QoJsonSnapshot() = default;
    /// @param choose JSON_TAKE(const JSONNODE* node) for each node that has children; see json_snapshot_new
    template <typename Choose>
    QoJsonSnapshot(const JSONNODE* node, Choose choose) {
        const auto call = [](const JSONNODE* child, void* context) { return (*static_cast<Choose*>(context))(child); };
        snapshot_.reset(json_snapshot_new(node, call, &choose));
    }

    explicit operator bool() const { return snapshot_ != nullptr; }
    char type() const { return json_snapshot_type(snapshot_.get()); }
    /// As qo_json_write_formatted_to.
    template <typename Take>
    bool write_formatted_to(Take take) const {
        return json_snapshot_write_formatted_to(snapshot_.get(), qo_json_piece_taker<Take>, &take) != 0;
    }

private:
    struct Delete {
        void operator()(JSONSNAPSHOT* snapshot) const { json_snapshot_delete(snapshot); }
    };
    std::unique_ptr<JSONSNAPSHOT, Delete> snapshot_;
};

/// A number cut toward zero that fits 32 bits; nothing for any other node.
inline std::optional<int32_t> qo_json_int32(const JSONNODE* node) {
    int64_t value = 0;
    if (json_get_int(node, &value) == 0 || value < std::numeric_limits<int32_t>::min() ||
        value > std::numeric_limits<int32_t>::max())
        return std::nullopt;
    return static_cast<int32_t>(value);
}

/// Appends `child` to `parent`, which owns it from then on.
/// @return false when the parent cannot take it, or for a null node; the child is deleted then, as when this throws.
inline bool qo_json_push_back(JSONNODE* parent, QoJsonNode child) {
    if (json_push_back(parent, child.get()) == 0) return false;
    static_cast<void>(child.release());
    return true;
}

/// An empty node of that type and name; without the name when that is not UTF-8.
inline QoJsonNode qo_json_new_named(char type, std::string_view name) {
    QoJsonNode node(json_new(type));
    json_set_name_n(node.get(), name.data(), name.size());
    return node;
}

/// The same as the last child of `parent`. @return it; null when it could not be made or the parent cannot take it.
inline JSONNODE* qo_json_append_named(JSONNODE* parent, char type, std::string_view name) {
    QoJsonNode node = qo_json_new_named(type, name);
    JSONNODE* const added = node.get();
    return qo_json_push_back(parent, std::move(node)) ? added : nullptr;
}

/// An array element that holds nothing but its position, so that the elements behind it keep theirs.
inline QoJsonNode qo_json_placeholder(size_t position) {
    QoJsonNode placeholder(json_new(JSON_NODE));
    qo_json_push_back(placeholder.get(), QoJsonNode(json_new_i("id", static_cast<int64_t>(position))));
    return placeholder;
}

inline bool qo_json_is_container(const JSONNODE* node) {
    return json_type(node) == JSON_ARRAY || json_type(node) == JSON_NODE;
}

#endif
