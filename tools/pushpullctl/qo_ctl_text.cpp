// What a received text is, and what a pointer means in it.
#include "qo_ctl_text.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>

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

/// The bytes of the character that a text begins with; 0 when they are no UTF-8.
size_t character_length(std::string_view text) {
    struct Form {
        unsigned char first, last;              // of the first byte
        unsigned char second_low, second_high;  // no overlong form, no surrogate, nothing beyond U+10FFFF
        size_t length;
    };
    constexpr Form kForms[] = {{0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
                               {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
                               {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4}};
    const auto byte = [text](size_t index) { return static_cast<unsigned char>(text[index]); };
    if (byte(0) < 0x80) return 1;
    for (const Form& form : kForms) {
        if (byte(0) < form.first || byte(0) > form.last) continue;
        if (text.size() < form.length || byte(1) < form.second_low || byte(1) > form.second_high) return 0;
        const auto continues = [](char next) { return (static_cast<unsigned char>(next) & 0xC0) == 0x80; };
        return std::all_of(text.begin() + 2, text.begin() + static_cast<std::ptrdiff_t>(form.length), continues)
                   ? form.length
                   : 0;
    }
    return 0;
}

/// The number of a character that takes those bytes of UTF-8.
uint32_t character_number(std::string_view bytes) {
    constexpr unsigned kFirstByteBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};  // by the length
    uint32_t number = static_cast<unsigned char>(bytes[0]) & kFirstByteBits[bytes.size()];
    for (const char byte : bytes.substr(1)) number = number << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
    return number;
}

bool is_control(uint32_t character) { return character < 0x20 || (character >= 0x7F && character <= 0x9F); }

bool turns_text_around(uint32_t character) {
    return character == 0x061C || character == 0x200E || character == 0x200F ||
           (character >= 0x202A && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
}

std::string hexadecimal(const char* prefix, uint32_t number, int digits) {
    char text[16];
    return std::string(text,
                       static_cast<size_t>(std::snprintf(text, sizeof text, "%s%0*" PRIx32, prefix, digits, number)));
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

std::string qo_ctl_harmless(std::string_view text, std::string_view kept) {
    std::string harmless;
    while (!text.empty()) {
        const size_t length = character_length(text);
        const std::string_view character = text.substr(0, std::max<size_t>(length, 1));
        text.remove_prefix(character.size());
        const uint32_t number = length == 0 ? 0 : character_number(character);
        if (length == 0)
            harmless += hexadecimal("\\x", static_cast<unsigned char>(character[0]), 2);
        else if (turns_text_around(number) || (is_control(number) && kept.find(character) == std::string_view::npos))
            harmless += hexadecimal("\\u", number, 4);
        else
            harmless += character;
    }
    return harmless;
}
