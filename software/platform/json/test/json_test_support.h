/// What the tests of the JSON node library share.
#ifndef QO_JSON_TEST_SUPPORT_H
#define QO_JSON_TEST_SUPPORT_H

#include <string>
#include <string_view>

#include "qo_pushpull_json.h"

using Json = QoJsonNode;

/// `inside` within `depth` levels of `open` and `close`.
inline std::string nested(int depth, std::string_view open, std::string_view inside, std::string_view close) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += open;
    text += inside;
    for (int i = 0; i < depth; ++i) text += close;
    return text;
}

inline Json parse(std::string_view text) { return qo_json_parse(text); }

/// The text that the library returned, which is freed.
inline std::string take(char* text) {
    std::string bytes = text == nullptr ? "(null)" : text;
    json_free(text);
    return bytes;
}

inline std::string compact(const JSONNODE* node) { return qo_json_write(node); }

inline std::string compact(const Json& node) { return compact(node.get()); }

inline std::string formatted(const JSONNODE* node) { return qo_json_write_formatted(node); }

inline std::string name_of(const JSONNODE* node) { return std::string(qo_json_name(node)); }

inline std::string text_of(const JSONNODE* node) { return std::string(qo_json_string(node)); }

#endif
