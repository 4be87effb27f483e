/// The little that the examples need of the JSON library.
#ifndef EXAMPLE_JSON_H
#define EXAMPLE_JSON_H

#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "qo_json.h"

struct ExampleJsonDelete {
    void operator()(JSONNODE* node) const { json_delete(node); }
};
using ExampleJson = std::unique_ptr<JSONNODE, ExampleJsonDelete>;

/// The value at the end of a path of member names, as text; nothing when the text is no JSON or lacks the path.
/// What arrives in a component's queue comes from other processes: look, never assume.
inline std::optional<std::string> value_at(const std::string& json, std::initializer_list<const char*> path) {
    const ExampleJson root(json_parse(json.c_str()));
    const JSONNODE* node = root.get();
    for (const char* name : path) node = json_find(node, name);
    if (node == nullptr) return std::nullopt;
    return json_string_view(node, nullptr);
}

/// A new object that owns `member`.
inline ExampleJson object_with(ExampleJson member) {
    ExampleJson object(json_new(JSON_NODE));
    json_push_back(object.get(), member.release());  // not refused: the member has no parent yet
    return object;
}

/// `member` inside the objects that `path` names, as compact JSON text: 78 named "b" inside {"a"} is {"a":{"b":78}}.
inline std::string text_inside(std::initializer_list<const char*> path, ExampleJson member) {
    for (auto name = path.end(); name != path.begin();) {
        member = object_with(std::move(member));
        json_set_name(member.get(), *--name);
    }
    const ExampleJson root = object_with(std::move(member));
    char* written = json_write(root.get());
    std::string text = written;
    json_free(written);
    return text;
}

#endif
