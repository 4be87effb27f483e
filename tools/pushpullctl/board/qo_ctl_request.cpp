// Reading requests, also what is left of one.
#include "qo_ctl_request.h"

#include <algorithm>

#include "qo_ctl_log_line.h"
#include "qo_pushpull_json.h"

namespace {

constexpr size_t kDeepest = 512;  // levels; JSON that is nested deeper is invalid

/// Where a text stands in the brackets and strings of JSON.
struct Place {
    std::string closing;  // the brackets that are open, the last first to be closed
    bool in_string = false;
    size_t string_begin = 0;    // of the last one
    size_t last_comma = 0;      // outside of strings; 0 for none
    std::string comma_closing;  // what was open there
};

Place read_to_the_end(std::string_view text) {
    Place place;
    for (size_t i = 0; i < text.size() && place.closing.size() <= kDeepest; ++i) {
        if (text[i] == '"') {
            place.in_string = !place.in_string;
            if (place.in_string) place.string_begin = i;
        } else if (place.in_string) {
            if (text[i] == '\\') ++i;
        } else if (text[i] == '{' || text[i] == '[') {
            place.closing += text[i] == '{' ? '}' : ']';
        } else if ((text[i] == '}' || text[i] == ']') && !place.closing.empty()) {
            place.closing.pop_back();
        } else if (text[i] == ',') {
            place.last_comma = i;
            place.comma_closing = place.closing;
        }
    }
    return place;
}

std::string closed(std::string_view text, std::string_view closing) {
    return std::string(text) + std::string(closing.rbegin(), closing.rend());
}

/// Ends a string that breaks off, without the escape or the character that it breaks off in.
std::string with_ended_string(std::string_view text, size_t begin) {
    const size_t escape = text.rfind('\\');
    constexpr size_t kLongestEscape = 6;  // "\u0041"
    // Also behind an escape that is whole: nothing is lost but a few characters of a text that is cut anyway.
    if (escape != std::string_view::npos && escape > begin && text.size() - escape <= kLongestEscape)
        text = text.substr(0, escape - (text[escape - 1] == '\\' ? 1 : 0));
    while (text.size() > begin + 1 && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) text.remove_suffix(1);
    if (text.size() > begin + 1 && static_cast<unsigned char>(text.back()) >= 0xC0) text.remove_suffix(1);
    return std::string(text) + "\"";
}

QoCtlRequest request_of(const JSONNODE* root, bool whole) {
    QoCtlRequest request;
    request.whole = whole;
    if (json_type(root) != JSON_NODE) return request;
    const JSONNODE* argument = qo_json_find(root, "arg");
    const auto text = [](const JSONNODE* node) { return node == nullptr ? "" : std::string(qo_json_string(node)); };
    const auto component = [argument](const char* name) {
        const JSONNODE* node = argument == nullptr ? nullptr : qo_json_find(argument, name);
        return node == nullptr ? QO_CMPID_RESERVED : static_cast<eQO_CMP_IDs_>(qo_json_int32(node).value_or(0));
    };
    request.kind = text(qo_json_find(root, "function"));
    request.sender = component("comp_id");
    request.destination = component("dst_comp_id");
    if (argument == nullptr) return request;
    request.buffer = text(qo_json_find(argument, "buffer"));
    const JSONNODE* changes = qo_json_find(argument, "notifyOnChangeOnly");
    request.changes_only = changes != nullptr && json_as_bool(changes) != 0;
    return request;
}

}  // namespace

std::string qo_ctl_closed_json(std::string_view cut) {
    const Place place = read_to_the_end(cut);
    if (place.closing.empty() || place.closing.size() > kDeepest) return "";
    const std::string text = place.in_string ? with_ended_string(cut, place.string_begin) : std::string(cut);
    if (std::string all = closed(text, place.closing); json_is_valid_n(all.data(), all.size()) != 0) return all;
    std::string most = closed(cut.substr(0, place.last_comma), place.comma_closing);
    return json_is_valid_n(most.data(), most.size()) != 0 ? most : "";
}

QoCtlRequest qo_ctl_read_request(std::string_view text) {
    if (const QoJsonNode node = qo_json_parse(text)) return request_of(node.get(), true);
    const std::string plain = qo_ctl_without_layout_escapes(text);
    if (const QoJsonNode node = qo_json_parse(plain)) return request_of(node.get(), true);
    if (const QoJsonNode node = qo_json_parse(qo_ctl_closed_json(plain))) return request_of(node.get(), false);
    return {};
}
