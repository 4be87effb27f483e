// What a received text is, and what a pointer means in it.
#include "qo_ctl_text.h"

#include <algorithm>
#include <charconv>

#include "qo_pushpull_json.h"

namespace {

constexpr std::string_view kSenderIdPrefix = "sender_id:";

/// A position as the service reads it: blanks and a sign may lead, what follows the digits does not count.
std::optional<size_t> array_position(std::string_view segment) {
    const size_t first = segment.find_first_not_of(" \t\n\v\f\r");
    if (first == std::string_view::npos) return std::nullopt;
    segment.remove_prefix(first);
    if (segment.starts_with('+')) segment.remove_prefix(1);
    size_t position = 0;
    const auto result = std::from_chars(segment.data(), segment.data() + segment.size(), position);
    if (result.ec != std::errc()) return std::nullopt;
    return position;
}

/// Walks `pointer` down from `node`; `element` picks the child of an array for a position.
template <typename Element>
JSONNODE* walk(JSONNODE* node, std::string_view pointer, bool* passes_array, Element element) {
    if (passes_array != nullptr) *passes_array = false;
    for (const std::string_view segment : qo_ctl_segments(pointer)) {
        if (json_type(node) == JSON_ARRAY) {
            if (passes_array != nullptr) *passes_array = true;
            const std::optional<size_t> position = array_position(segment);
            node = position ? element(node, *position) : nullptr;
        } else {
            node = qo_json_find(node, segment);
        }
        if (node == nullptr) return nullptr;
    }
    return node;
}

}  // namespace

QoCtlReceived qo_ctl_received(std::string_view text) {
    if (!text.starts_with(kSenderIdPrefix)) return {std::nullopt, text};
    const size_t end = text.find(';');
    if (end == std::string_view::npos) return {std::nullopt, text};
    return {text.substr(kSenderIdPrefix.size(), end - kSenderIdPrefix.size()), text.substr(end + 1)};
}

QoCtlAnswer qo_ctl_answer(std::string_view pointer, std::string_view body) {
    const QoCtlAnswer json{QoCtlAnswerKind::json, 0};
    if (!body.starts_with(pointer) || body.size() <= pointer.size() || body[pointer.size()] != ':') return json;
    const std::string_view result = body.substr(pointer.size() + 1);
    if (result == "{}") return {QoCtlAnswerKind::missing, 0};
    int64_t size = 0;
    const auto [end, error] = std::from_chars(result.data(), result.data() + result.size(), size);
    if (error != std::errc() || end != result.data() + result.size()) return json;
    return {QoCtlAnswerKind::size, size};
}

std::vector<std::string_view> qo_ctl_segments(std::string_view pointer) {
    std::vector<std::string_view> segments;
    size_t begin = 0;
    while (begin < pointer.size()) {
        const size_t end = std::min(pointer.find('/', begin), pointer.size());
        if (end > begin) segments.push_back(pointer.substr(begin, end - begin));
        begin = end + 1;
    }
    return segments;
}

std::string qo_ctl_pointer_fault(std::string_view pointer) {
    if (!pointer.starts_with('/')) return "a pointer begins with \"/\"";
    if (pointer.find(';') != std::string_view::npos) return "a pointer cannot hold a \";\"";
    if (!QoJsonNode(json_new_a_n("", 0, pointer.data(), pointer.size()))) return "a pointer is valid UTF-8";
    return "";
}

JSONNODE* qo_ctl_addressed(JSONNODE* answer, std::string_view pointer, bool* passes_array) {
    return walk(
        answer, pointer, passes_array, [](JSONNODE* array, size_t) { return json_at(array, 0); });
}

bool qo_ctl_packed_holds(JSONNODE* packed, std::string_view pointer) {
    const auto at_position = [](JSONNODE* array, size_t position) { return json_at(array, position); };
    return walk(packed, pointer, nullptr, at_position) != nullptr;
}

bool qo_ctl_is_placeholder(JSONNODE* element) {
    return json_type(element) == JSON_NODE && json_size(element) == 1 && json_find(element, "id") != nullptr;
}
