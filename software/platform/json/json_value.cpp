// Reading a node: type, name and value.
#include <limits>

#include "json_node.h"
#include "json_number.h"

namespace {

const char* show(std::string_view text, size_t* length) {
    if (length != nullptr) *length = text.size();
    return text.data();
}

const JSONNODE* as_number(const JSONNODE* node) {
    return node != nullptr && node->type == JSON_NUMBER ? node : nullptr;
}

/// Most numbers are whole and have few digits.
qo_json::TruncatedInteger truncated(std::string_view literal) {
    constexpr size_t kSurelyFits = std::numeric_limits<int64_t>::digits10;
    const bool negative = literal.front() == '-';
    const std::string_view digits = literal.substr(negative ? 1 : 0);
    if (digits.size() > kSurelyFits) return qo_json::Decimal(literal).truncated();
    int64_t value = 0;
    for (const char digit : digits) {
        if (digit < '0' || digit > '9') return qo_json::Decimal(literal).truncated();
        value = value * 10 + (digit - '0');
    }
    return {negative ? -value : value, true};
}

}  // namespace

std::string_view qo_json::value_text(const JSONNODE* node) {
    switch (node->type) {
        case JSON_NULL:
            return kNullText;
        case JSON_BOOL:
            return node->boolean ? kTrueText : kFalseText;
        default:
            return node->text.view();
    }
}

char json_type(const JSONNODE* node) { return node == nullptr ? JSON_NULL : node->type; }

char* json_name(const JSONNODE* node) { return node == nullptr ? nullptr : qo_json::copy_out(node->name.view()); }

const char* json_name_view(const JSONNODE* node, size_t* length) {
    return show(node == nullptr ? "" : node->name.view(), length);
}

char* json_as_string(const JSONNODE* node) {
    return node == nullptr ? nullptr : qo_json::copy_out(qo_json::value_text(node));
}

const char* json_string_view(const JSONNODE* node, size_t* length) {
    return show(node == nullptr ? "" : qo_json::value_text(node), length);
}

int64_t json_as_int(const JSONNODE* node) {
    return as_number(node) == nullptr ? 0 : truncated(node->text.view()).value;
}

int json_get_int(const JSONNODE* node, int64_t* value) {
    if (as_number(node) == nullptr || value == nullptr) return 0;
    const auto integer = truncated(node->text.view());
    if (!integer.in_range) return 0;
    *value = integer.value;
    return 1;
}

double json_as_float(const JSONNODE* node) {
    return as_number(node) == nullptr ? 0.0 : qo_json::nearest_double(node->text.view());
}

int json_as_bool(const JSONNODE* node) { return node != nullptr && node->type == JSON_BOOL && node->boolean ? 1 : 0; }
