// One publish of a client: the first byte chooses the publisher (s strict, n normal remote, anything else local), the
// rest is the text. What the check lets through must be what it says it is, and merge into the built-in tree.
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "fuzz_store.h"
#include "qo_json_object_checker.h"
#include "qo_pushpull_initializer.h"

namespace {

std::string text_at(JSONNODE* tree, std::string_view member, std::string_view below) {
    return qo_json_write(qo_json_find(qo_json_find(qo_json_find(tree, "system"), member), below));
}

bool one_of(JSONNODE* node, std::initializer_list<std::string_view> texts) {
    for (const std::string_view text : texts)
        if (json_type(node) == JSON_STRING && qo_json_string(node) == text) return true;
    return false;
}

bool is_whole(JSONNODE* node, int64_t value) {
    const QoJsonNode whole(json_new_i(nullptr, value));
    return json_equal(node, whole.get()) != 0;
}

void require_clock_within_limits(JSONNODE* clock) {
    JSONNODE* offset = qo_json_find(clock, "offset");
    const auto seconds = qo_json_int32(offset);
    qo_require(seconds && *seconds >= -86400 && *seconds <= 86400 && is_whole(offset, *seconds), "offset in a day");
    JSONNODE* dst = qo_json_find(clock, "dstOffset");
    qo_require(is_whole(dst, 0) || is_whole(dst, 3600), "DST offset of none or an hour");
    qo_require(one_of(qo_json_find(clock, "tz"), {"Non-Standard", "NST", "AST", "EST", "CST", "MST", "PST", "AKST",
                                                  "HAST", "SST", "ChST", "WAKT"}),
               "a known time zone");
    qo_require(one_of(qo_json_find(clock, "format"), {"12hour", "24hour"}), "a known clock format");
}

void require_same_setters(JSONNODE* before, JSONNODE* after) {
    qo_require(qo_json_write(qo_json_find(qo_json_find(before, "system"), "time")) ==
                   qo_json_write(qo_json_find(qo_json_find(after, "system"), "time")),
               "a strict publisher leaves the time alone");
    for (const char* setter : {"setRtcTime", "localSetRtcTime"}) {
        qo_require(text_at(before, "clock", setter) == text_at(after, "clock", setter),
                   "a strict publisher leaves the real-time clock alone");
    }
}

void merge_and_check(JSONNODE* tree, bool strict, eQO_COMPONENT_CLASS_ component_class) {
    static const std::string defaults = [] {
        std::string text;
        getDefaultTree(text);
        return text;
    }();
    const auto store = qo_fuzz_store(defaults);
    const QoJsonNode before = qo_json_parse(qo_data_tree_text(*store));
    bool modified = false;
    // Fails only for arrays without ids or beyond their limits, and for containers of the other kind.
    const int result = store->UpdateNode(tree, modified, component_class);
    qo_require(result == 0 || result == -1, "a publish succeeds or fails");
    const QoJsonNode after = qo_json_parse(qo_data_tree_text(*store));
    qo_require(json_type(after.get()) == JSON_NODE, "the tree stays an object");
    require_clock_within_limits(qo_json_find(qo_json_find(after.get(), "system"), "clock"));
    if (strict) require_same_setters(before.get(), after.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool strict = data[0] == 's';
    const eQO_COMPONENT_CLASS_ component_class = strict || data[0] == 'n' ? QO_REMOTE_CLIENT : QO_LOCAL_CLIENT;
    const QoJsonCheckMode mode = strict ? jsonCheckStrict : jsonCheckNormal;
    const std::string published(reinterpret_cast<const char*>(data) + 1, size - 1);

    std::string text = published;
    const QoJsonObjectCheckResult result = qoCheckJson(text, mode);
    JSONNODE* node = qo_json_parse(published).release();
    qo_require(qoCheckJson(node, mode) == result, "text and tree are judged alike");
    const QoJsonNode tree(node);
    if (result == jsonObjectNotAcceptable) {
        qo_require(text == published && !tree, "a refused text is left as it was, a refused tree is gone");
        return 0;
    }
    qo_require(qo_json_write(tree.get()) == text, "text and tree are corrected alike");
    const bool as_published = qo_json_write(qo_json_parse(published).get()) == text;
    qo_require(as_published == (result == jsonObjectAcceptable), "modified is what lost a member, and nothing else");
    qo_require(json_size(qo_json_parse(text).get()) == 1, "an accepted text has exactly one member");
    merge_and_check(tree.get(), strict, component_class);
    return 0;
}
