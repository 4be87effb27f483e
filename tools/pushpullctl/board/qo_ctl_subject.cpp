// Telling what a request is about.
#include "qo_ctl_subject.h"

#include <algorithm>
#include <vector>

#include "qo_pushpull_conventions.h"
#include "qo_pushpull_json.h"

namespace {

constexpr size_t kMostNames = 4;      // members of a publish
constexpr size_t kLongestText = 120;  // bytes

std::string shortened(std::string text) {
    if (text.size() <= kLongestText) return text;
    text.resize(kLongestText);
    while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) text.pop_back();
    if (!text.empty() && static_cast<unsigned char>(text.back()) >= 0xC0) text.pop_back();
    return text + "...";
}

/// The segments of a pointer; empty ones do not count.
std::vector<std::string_view> segments_of(std::string_view pointer) {
    std::vector<std::string_view> segments;
    while (!pointer.empty()) {
        const size_t end = std::min(pointer.find('/'), pointer.size());
        if (end > 0) segments.push_back(pointer.substr(0, end));
        pointer.remove_prefix(std::min(end + 1, pointer.size()));
    }
    return segments;
}

std::string segment_of(const JSONNODE* child, size_t position, bool of_array) {
    if (!of_array) return std::string(qo_json_name(child));
    const JSONNODE* id = json_type(child) == JSON_NODE ? qo_json_find(child, "id") : nullptr;
    return id == nullptr ? std::to_string(position) : std::string(qo_json_string(id));
}

/// The child that is all that a node has, but for the "id" of an array's element; null when there are more or none.
JSONNODE* only_child(JSONNODE* node, bool of_array) {
    JSONNODE* only = nullptr;
    for (JSONNODE* child : QoJsonChildren(node)) {
        if (of_array && qo_json_name(child) == "id") continue;
        if (only != nullptr) return nullptr;
        only = child;
    }
    return only;
}

std::string names_in(JSONNODE* node) {
    std::string names;
    size_t count = 0;
    for (JSONNODE* child : QoJsonChildren(node)) {
        if (count < kMostNames)
            names += (count == 0 ? "" : ", ") + segment_of(child, count, json_type(node) == JSON_ARRAY);
        ++count;
    }
    return "{" + names + (count > kMostNames ? ", ..." : "") + "}";
}

QoJsonNode published(const QoCtlRequest& request) {
    QoJsonNode node = qo_json_parse(request.buffer);
    return node ? std::move(node) : qo_json_parse(qo_ctl_closed_json(request.buffer));
}

std::string subject_of_publish(const QoCtlRequest& request) {
    const QoJsonNode root = published(request);
    if (!root) return shortened(request.buffer);
    std::string way;
    JSONNODE* node = root.get();
    bool of_array = false;  // whether the node is an element
    while (qo_json_is_container(node)) {
        JSONNODE* const only = only_child(node, of_array);
        if (only == nullptr) break;
        of_array = json_type(node) == JSON_ARRAY;
        way += "/" + segment_of(only, 0, of_array);
        node = only;
    }
    if (way.empty()) way = "/";
    return shortened(qo_json_is_container(node) ? way + " " + names_in(node) : way);
}

JSONNODE* child_at(JSONNODE* node, std::string_view segment) {
    if (json_type(node) == JSON_NODE) return qo_json_find(node, segment);
    size_t position = 0;
    for (JSONNODE* child : QoJsonChildren(node))
        if (segment_of(child, position++, true) == segment) return child;
    return nullptr;
}

bool publish_concerns(const QoCtlRequest& request, std::string_view pointer) {
    const QoJsonNode root = published(request);
    JSONNODE* node = root.get();
    for (const std::string_view segment : segments_of(pointer)) {
        if (node == nullptr) return false;
        if (!qo_json_is_container(node)) return true;  // what stood there is gone
        node = child_at(node, segment);
    }
    return node != nullptr;
}

bool pointers_concern(std::string_view list, std::string_view pointer) {
    const std::vector<std::string_view> wanted = segments_of(pointer);
    while (!list.empty()) {
        const size_t end = std::min(list.find(';'), list.size());
        const std::vector<std::string_view> given = segments_of(list.substr(0, end));
        const auto shorter = static_cast<std::ptrdiff_t>(std::min(wanted.size(), given.size()));
        if (std::equal(wanted.begin(), wanted.begin() + shorter, given.begin())) return true;
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return false;
}

bool has_pointers(std::string_view kind) {
    return kind == QO_REQUEST_GET || kind == QO_REQUEST_SUBSCRIBE || kind == QO_REQUEST_UNSUBSCRIBE ||
           kind == QO_REQUEST_DELETE || kind == QO_REQUEST_CLEAR;
}

}  // namespace

std::string qo_ctl_subject(const QoCtlRequest& request) {
    return request.kind == QO_REQUEST_PUBLISH ? subject_of_publish(request) : shortened(request.buffer);
}

bool qo_ctl_concerns(const QoCtlRequest& request, std::string_view pointer) {
    if (request.kind == QO_REQUEST_PUBLISH) return publish_concerns(request, pointer);
    return has_pointers(request.kind) && pointers_concern(request.buffer, pointer);
}
