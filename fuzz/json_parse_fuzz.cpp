// Arbitrary bytes as JSON text. A tree that was accepted must be written, copied, compared and searched consistently.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qo_json.h"

namespace {

struct DeleteJson {
    void operator()(JSONNODE* node) const { json_delete(node); }
};
using Json = std::unique_ptr<JSONNODE, DeleteJson>;

// Steps of changing and searching one container.
constexpr int kSteps = 64;

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

Json parse(std::string_view text) { return Json(json_parse_n(text.data(), text.size())); }

std::string take(char* text, size_t length) {
    require(text != nullptr && text[length] == '\0', "a written text ends in NUL");
    std::string bytes(text, length);
    json_free(text);
    return bytes;
}

std::string compact(const JSONNODE* node) {
    size_t length = 0;
    char* text = json_write_n(node, &length);
    return take(text, length);
}

std::string formatted(const JSONNODE* node) {
    size_t length = 0;
    char* text = json_write_formatted_n(node, &length);
    return take(text, length);
}

std::string_view name_of(const JSONNODE* node) {
    size_t length = 0;
    const char* name = json_name_view(node, &length);
    return {name, length};
}

JSONNODE* find_by_scan(JSONNODE* object, std::string_view name) {
    for (JSONNODE_ITERATOR it = json_begin(object); it != json_end(object); ++it)
        if (name_of(*it) == name) return *it;
    return nullptr;
}

void check_writing(const Json& tree) {
    const std::string text = compact(tree.get());
    const Json again = parse(text);
    require(again != nullptr, "a written text is valid");
    require(json_equal(tree.get(), again.get()) == 1, "a written text has the same value");
    require(compact(again.get()) == text, "a written text is written again unchanged");

    const std::string lines = formatted(tree.get());
    const Json from_lines = parse(lines);
    require(from_lines != nullptr, "a formatted text is valid");
    require(json_equal(tree.get(), from_lines.get()) == 1, "a formatted text has the same value");
    require(compact(from_lines.get()) == text, "a formatted text is written compactly unchanged");
    require(formatted(from_lines.get()) == lines, "a formatted text is written again unchanged");
}

void check_copying(const Json& tree) {
    const Json copy(json_duplicate(tree.get()));
    require(json_equal(tree.get(), copy.get()) == 1, "a copy is equal");
    require(compact(tree.get()) == compact(copy.get()), "a copy is written like its original");
    const Json other(json_new(JSON_NULL));
    json_set_n(other.get(), tree.get());
    require(json_equal(tree.get(), other.get()) == 1, "a node that was set is equal");
}

/// The container with the most children, and every number read on the way.
JSONNODE* widest_container(JSONNODE* root) {
    JSONNODE* widest = root;
    std::vector<JSONNODE*> pending{root};
    while (!pending.empty()) {
        JSONNODE* node = pending.back();
        pending.pop_back();
        if (json_size(node) > json_size(widest)) widest = node;
        int64_t integer = 0;
        if (json_get_int(node, &integer) == 1) require(integer == json_as_int(node), "both integers agree");
        require(json_type(node) == JSON_NUMBER || json_as_float(node) == 0.0, "only numbers have a value");
        pending.insert(pending.end(), json_begin(node), json_end(node));
    }
    return widest;
}

/// Changes a container as the bytes say, and compares every search with a scan.
void check_changing(JSONNODE* container, const uint8_t* data, size_t size) {
    std::vector<std::string> names{"", "n", "a name of more than fifteen bytes"};
    for (JSONNODE_ITERATOR it = json_begin(container); it != json_end(container); ++it)
        names.emplace_back(name_of(*it));

    size_t next = 0;
    const auto choose = [&](size_t limit) {
        ++next;
        return (data[next % size] * size_t{31} + next) % limit;
    };
    const auto some_name = [&]() -> const std::string& { return names[choose(names.size())]; };
    const auto some_node = [&] {
        const std::string& name = some_name();
        return json_new_a_n(name.data(), name.size(), "x", 1);
    };
    for (int step = 0; step < kSteps; ++step) {
        const size_t position = choose(json_size(container) + 1);
        const std::string& name = some_name();
        switch (choose(7)) {
            case 0:
                require(json_push_back(container, some_node()) == 1, "a container takes a child");
                break;
            case 1:
                require(json_insert(container, json_begin(container) + position, some_node()) != nullptr, "and here");
                break;
            case 2:
                json_erase(container, json_begin(container) + position);
                break;
            case 3:
                json_delete(json_pop_back(container, name.c_str()));
                break;
            case 4:
                json_set_name_n(json_at(container, position), name.data(), name.size());
                break;
            case 5:
                json_delete(json_at(container, position));
                break;
            default:
                json_delete(json_pop_back_at(container, position));
                break;
        }
        const std::string& wanted = some_name();
        JSONNODE* found = json_find_n(container, wanted.data(), wanted.size());
        JSONNODE* expected = json_type(container) == JSON_NODE ? find_by_scan(container, wanted) : nullptr;
        require(found == expected, "a search finds what a scan finds");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto* text = reinterpret_cast<const char*>(data);
    const Json tree = parse({text, size});
    require((tree != nullptr) == (json_is_valid_n(text, size) == 1), "valid is what can be parsed");
    if (tree == nullptr) return 0;

    check_writing(tree);
    check_copying(tree);
    JSONNODE* container = widest_container(tree.get());
    if (json_type(container) == JSON_ARRAY || json_type(container) == JSON_NODE) check_changing(container, data, size);
    check_writing(tree);
    return 0;
}
