/// The memory of trees that are read one after another.
#ifndef QO_JSON_DOCUMENT_H
#define QO_JSON_DOCUMENT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "json_node.h"

namespace qo_json {

/// Builds a tree from nodes that were used before, with their lists of children. What the nodes hold is borrowed from
/// the text as it was decoded. Called by a reader for each value of a text.
class DocumentBuilder {
public:
    /// What was built before is void.
    void restart();
    JSONNODE* root() const { return &nodes_.front()[0]; }
    /// How many nodes there are, used or not.
    size_t size() const { return nodes_.size() * kChunk; }

    bool Null() { return add(JSON_NULL, "") != nullptr; }
    bool Bool(bool value) {
        add(JSON_BOOL, "")->boolean = value;
        return true;
    }
    bool RawNumber(const char* literal, uint32_t length, bool) {
        return add(JSON_NUMBER, {literal, length}) != nullptr;
    }
    bool String(const char* bytes, uint32_t length, bool) { return add(JSON_STRING, {bytes, length}) != nullptr; }
    bool Key(const char* bytes, uint32_t length, bool) {
        name_ = {bytes, length};
        return true;
    }
    bool StartObject() { return open(JSON_NODE); }
    bool StartArray() { return open(JSON_ARRAY); }
    bool EndObject(uint32_t) { return close(); }
    bool EndArray(uint32_t) { return close(); }

private:
    static constexpr size_t kChunk = 64;  // nodes that are allocated together

    JSONNODE* add(char type, std::string_view text) {
        if (next_ == chunk_end_) take_chunk();
        JSONNODE* node = next_++;
        node->type = type;
        node->boolean = false;
        node->name.borrow(name_);
        node->text.borrow(text);
        node->parent = open_;
        if (node->children) node->children->clear();
        name_ = kNoName;
        if (open_ != nullptr) open_->children->items.push_back(node);
        return node;
    }

    bool open(char type);
    bool close() {
        open_ = open_->parent;
        return true;
    }

    void take_chunk();

    std::vector<std::unique_ptr<JSONNODE[]>> nodes_;
    size_t chunks_ = 0;  // in use
    JSONNODE* next_ = nullptr;
    JSONNODE* chunk_end_ = nullptr;
    JSONNODE* open_ = nullptr;             // the innermost container that is not closed yet
    static constexpr char kNoName[] = "";  // what is borrowed is followed by a NUL
    std::string_view name_ = kNoName;
};

}  // namespace qo_json

/// See json_document_parse_n.
struct JSONDOCUMENT {
    JSONNODE* parse(std::string_view text);
    void give_back();

private:
    qo_json::DocumentBuilder builder_;
    std::unique_ptr<char[]> space_;
    size_t space_size_ = 0;
    qo_json::NodePtr plain_;  // of a text that the fast reader does not know
};

#endif
