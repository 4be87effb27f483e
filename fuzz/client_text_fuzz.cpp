// A pointer in the first line and a published text behind it: whether a component's handler is called for the text,
// which a look without a JSON library decides, against what the text says when it is read.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_store.h"
#include "qo_pushpull_client_text.h"

namespace {

std::string_view name_of(const JSONNODE* node) {
    size_t length = 0;
    const char* const name = json_name_view(node, &length);
    return name == nullptr ? std::string_view() : std::string_view(name, length);
}

/// Whether the path of names leads to a node, or to an array in front of it. By levels, so that no text makes it
/// recurse.
bool reaches(JSONNODE* root, const std::vector<std::string>& names) {
    std::vector<JSONNODE*> level = {root};
    for (const std::string& name : names) {
        std::vector<JSONNODE*> next;
        for (JSONNODE* const node : level) {
            if (json_type(node) == JSON_ARRAY && node != root) return true;
            if (json_type(node) != JSON_NODE) continue;
            for (JSONNODE_ITERATOR child = json_begin(node); child != json_end(node); ++child)
                if (name_of(*child) == name) next.push_back(*child);
        }
        level = std::move(next);
    }
    return !level.empty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const size_t line_end = std::min(input.find('\n'), input.size());
    const std::string pointer(input.substr(0, line_end));
    const std::string text(input.substr(std::min(line_end + 1, size)));
    const std::vector<std::string> names = qo_pointer_names(pointer);
    const bool found = qo_text_reaches(text, pointer);
    if (names.empty()) qo_require(found, "the whole tree is reached by everything");

    const QoJsonNode root(json_parse_n(text.data(), text.size()));
    if (!root) return 0;
    const bool expected = reaches(root.get(), names);
    qo_require(found || !expected, "no text is kept from its handler");
    // Names with a backslash are taken for any.
    const bool exact = text.find('\\') == std::string::npos;
    qo_require(!exact || expected || !found, "no handler is called for what does not concern it");
    return 0;
}
