// Arbitrary bytes as a JSON pointer: turned into a skeleton and back, read and subscribed to on a live store, which
// must be the same afterwards.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_store.h"

namespace {

constexpr char kDefaults[] =
    R"({"system":{"name":"x","config":{"writeAccess":"openAll","temp":35.0},"empty":{},"none":[]},)"
    R"("zones":[{"id":0,"t":0,"sub":{"y":true}},{"id":1,"t":1},{"id":2}],"scalars":[10,"text",[7],null],)"
    R"("a":{"b":{"c":{"d":{"e":1}}}},"cmpID":{"notifyOnChangeOnly":{"x":1}},"":{"":2}})";

constexpr auto kComponent = QO_CMPID_DEMO;

/// The pointer without its empty segments.
std::string without_empty_segments(const std::string& pointer) {
    std::string result;
    for (const char character : pointer)
        if (character != '/' || result.empty() || result.back() != '/') result += character;
    if (!result.empty() && result.back() == '/') result.pop_back();
    return result;
}

void check_skeleton(DataMgr& store, const std::string& pointer) {
    const QoJsonNode skeleton(store.JsonPtrToNode(pointer));
    if (!skeleton) return;
    qo_require(pointer.front() == '/', "a pointer begins with a slash");
    qo_require(store.JsonNodeToPtr(skeleton.get()) == without_empty_segments(pointer), "a skeleton names its pointer");
}

void check_read(DataMgr& store, const std::string& pointer) {
    const QoJsonNode response(json_new(JSON_NODE));
    long size = -7;
    const int result = store.ReadNode(pointer, response.get(), true, size);
    qo_require(result == 0 || result == -1, "a read succeeds or fails");
    qo_require(json_size(response.get()) == (result == 0 ? 1U : 0U), "a read gives one path or nothing");
    qo_require(size == -7 || (result == 0 && size >= 0), "only a successful read gives a size");

    const QoJsonNode joined(json_new(JSON_NODE));
    store.PackMultipleGetResponse(joined.get(), response.get(), QO_REMOTE_CLIENT);
    qo_require(json_type(joined.get()) == JSON_NODE, "joined responses are an object");
}

void check_subscription(DataMgr& store, const std::string& pointer) {
    const QoJsonNode list(json_new(JSON_NODE));
    const bool subscribed = store.AddSubscriber(kComponent, pointer, pointer.size() % 2 == 0) == 0;
    const bool listed = store.GetSubscribersByJsonPtr(pointer, list.get()) == 0 && json_empty(list.get()) == 0;
    qo_require(listed == subscribed, "a subscriber is told of what it subscribed to");
    qo_require(!subscribed || store.RemoveSubscriber(kComponent, pointer) == 0, "a subscription can be removed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const auto store = qo_fuzz_store(kDefaults);
    static const std::string tree = qo_data_tree_text(*store);
    static const std::string subscriptions = qo_subscription_tree_text(*store);

    const std::string pointer(reinterpret_cast<const char*>(data), size);
    check_skeleton(*store, pointer);
    check_read(*store, pointer);
    check_subscription(*store, pointer);
    qo_require(qo_data_tree_text(*store) == tree, "reading changes nothing");
    qo_require(qo_subscription_tree_text(*store) == subscriptions, "unsubscribing leaves nothing behind");
    return 0;
}
