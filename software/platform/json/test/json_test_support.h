/// What the tests of the JSON node library share.
#ifndef QO_JSON_TEST_SUPPORT_H
#define QO_JSON_TEST_SUPPORT_H

#include <memory>
#include <string>
#include <string_view>

#include "qo_json.h"

struct DeleteJson {
    void operator()(JSONNODE* node) const { json_delete(node); }
};
using Json = std::unique_ptr<JSONNODE, DeleteJson>;

/// `inside` within `depth` levels of `open` and `close`.
inline std::string nested(int depth, std::string_view open, std::string_view inside, std::string_view close) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += open;
    text += inside;
    for (int i = 0; i < depth; ++i) text += close;
    return text;
}

inline Json parse(std::string_view text) { return Json(json_parse_n(text.data(), text.size())); }

/// The bytes of a text that the library returned, which is freed.
inline std::string take(char* text, size_t length) {
    std::string bytes = text == nullptr ? std::string("(null)") : std::string(text, length);
    json_free(text);
    return bytes;
}

inline std::string take(char* text) {
    std::string bytes = text == nullptr ? "(null)" : text;
    json_free(text);
    return bytes;
}

inline std::string compact(const JSONNODE* node) {
    size_t length = 0;
    char* text = json_write_n(node, &length);
    return take(text, length);
}

inline std::string compact(const Json& node) { return compact(node.get()); }

inline std::string formatted(const JSONNODE* node) {
    size_t length = 0;
    char* text = json_write_formatted_n(node, &length);
    return take(text, length);
}

inline std::string name_of(const JSONNODE* node) {
    size_t length = 0;
    const char* name = json_name_view(node, &length);
    return {name, length};
}

inline std::string text_of(const JSONNODE* node) {
    size_t length = 0;
    const char* text = json_string_view(node, &length);
    return {text, length};
}

#endif
