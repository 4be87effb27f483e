// Comparing nodes.
#include <utility>

#include "json_node.h"
#include "json_number.h"

namespace {

bool are_equal_numbers(const JSONNODE* a, const JSONNODE* b) {
    const std::string_view literal_a = a->text.view();
    const std::string_view literal_b = b->text.view();
    return literal_a == literal_b || qo_json::Decimal(literal_a) == qo_json::Decimal(literal_b);
}

/// Without their children, but with the number of them.
bool are_equal_singles(const JSONNODE* a, const JSONNODE* b) {
    if (a->type != b->type || qo_json::child_count(a) != qo_json::child_count(b)) return false;
    if (a->type == JSON_NUMBER) return are_equal_numbers(a, b);
    return a->boolean == b->boolean && a->text.view() == b->text.view();
}

}  // namespace

int json_equal(const JSONNODE* a, const JSONNODE* b) {
    if (a == b) return 1;
    if (a == nullptr || b == nullptr || !are_equal_singles(a, b)) return 0;

    std::vector<std::pair<const JSONNODE*, const JSONNODE*>> pending{{a, b}};
    while (!pending.empty()) {
        const auto [left, right] = pending.back();
        pending.pop_back();
        const bool are_named = left->type == JSON_NODE;
        for (size_t i = 0; i < qo_json::child_count(left); ++i) {
            const JSONNODE* left_child = left->children->items[i];
            const JSONNODE* right_child = right->children->items[i];
            if (are_named && left_child->name.view() != right_child->name.view()) return 0;
            if (!are_equal_singles(left_child, right_child)) return 0;
            if (left_child->children) pending.emplace_back(left_child, right_child);
        }
    }
    return 1;
}
