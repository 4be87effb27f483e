// A sequence of requests on a live store, one per line: a letter for the kind and then its text.
//   i, l, r  publish by an internal, a local, a remote component      s, o, u  subscribe, for changes only, unsubscribe
//   g, k     get, get packed with those before                        d, c     delete, clear
// After each of them the tree must still be what a tree has to be.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_store.h"

namespace {

constexpr char kDefaults[] =
    R"({"open":{"writeAccess":"openAll","x":1,"list":[{"id":0,"x":1}]},)"
    R"("local":{"writeAccess":"local","x":1},)"
    R"("sealed":{"writeAccess":"internal","x":1,"list":[{"id":0,"writeAccess":"internal","x":1}]},)"
    R"("zones":[{"id":0,"writeAccess":"openAll","maxItems":6,"doNotPersist":true,"t":0,"sub":{"y":1}}],)"
    R"("free":[{"id":0,"writeAccess":"remote","t":0}],"scalars":[1,"two",[3]],"cmpID":{"x":{}}})";

// What one input may cost: requests, and the tree text beyond which nothing more is asked for.
constexpr int kMaxRequests = 24;
constexpr size_t kMaxTreeText = 100000;
constexpr size_t kMaxComponents = 16;

size_t count_named(JSONNODE* node, std::string_view name) {
    size_t count = 0;
    for (JSONNODE* child : QoJsonChildren(node))
        count += (qo_json_name(child) == name ? 1U : 0U) + count_named(child, name);
    return count;
}

bool names_id_twice(JSONNODE* node) {
    const auto is_id = [](const JSONNODE* child) { return qo_json_name(child) == "id"; };
    const QoJsonChildren children(node);
    return std::count_if(children.begin(), children.end(), is_id) > 1 ||
           std::any_of(children.begin(), children.end(), names_id_twice);
}

/// Ids that are within the limits and yet make a tree of tens of thousands of nodes take too long for a fuzzer. Those
/// beyond the limits are refused and cost nothing.
bool asks_for_many_placeholders(JSONNODE* node) {
    const auto id = qo_json_int32(qo_json_find(node, "id"));
    const QoJsonChildren children(node);
    return (id && *id > 500 && *id <= 2 * QO_MAX_PLACEHOLDERS) ||
           std::any_of(children.begin(), children.end(), asks_for_many_placeholders);
}

void require_elements_at_their_ids(JSONNODE* node) {
    int32_t position = 0;
    for (JSONNODE* child : QoJsonChildren(node)) {
        const auto id = qo_json_int32(qo_json_find(child, "id"));
        qo_require(json_type(node) != JSON_ARRAY || !id || *id == position, "an array element stands at its id");
        require_elements_at_their_ids(child);
        ++position;
    }
}

class Session {
public:
    Session() : store_(qo_fuzz_store(kDefaults)), packed_(json_new(JSON_NODE)) {
        const QoJsonNode defaults = qo_json_parse(kDefaults);
        metadata_ = count_metadata(defaults.get());
        sealed_ = qo_json_write(qo_json_find(defaults.get(), "sealed"));
        local_ = qo_json_write(qo_json_find(defaults.get(), "local"));
    }

    void handle(char kind, const std::string& text) {
        switch (kind) {
            case 'i':
                return publish(text, QO_INTERNAL);
            case 'l':
                return publish(text, QO_LOCAL_CLIENT);
            case 'r':
                return publish(text, QO_REMOTE_CLIENT);
            case 'g':
            case 'k':
                return get(text, kind == 'k');
            case 'd':
            case 'c':
                trusted_writes_ = true;
                static_cast<void>(store_->DeleteNode(text, kind == 'c'));
                return;
            case 's':
            case 'o':
                static_cast<void>(store_->AddSubscriber(next_component(), text, kind == 'o'));
                return;
            case 'u':
                static_cast<void>(store_->RemoveSubscriber(next_component(), text));
                return;
            default:
                return;
        }
    }

    /// @return whether the tree is small enough to go on with.
    bool check() {
        const std::string text = qo_data_tree_text(*store_);
        const QoJsonNode tree = qo_json_parse(text);
        qo_require(json_type(tree.get()) == JSON_NODE, "the tree is an object");
        qo_require(qo_json_write_formatted(tree.get()) == text, "the tree's text parses back equal");
        qo_require(count_metadata(tree.get()) <= metadata_, "nobody adds metadata");
        if (!double_ids_) require_elements_at_their_ids(tree.get());
        if (!trusted_writes_) {
            qo_require(qo_json_write(qo_json_find(tree.get(), "sealed")) == sealed_,
                       "no client changes what is sealed");
        }
        if (!trusted_writes_ && !local_writes_) {
            qo_require(qo_json_write(qo_json_find(tree.get(), "local")) == local_,
                       "no remote client changes what is local");
        }
        return text.size() <= kMaxTreeText;
    }

private:
    static size_t count_metadata(JSONNODE* tree) {
        return count_named(tree, "writeAccess") + count_named(tree, "doNotPersist");
    }

    void publish(const std::string& text, eQO_COMPONENT_CLASS_ component_class) {
        trusted_writes_ = trusted_writes_ || component_class == QO_INTERNAL;
        local_writes_ = local_writes_ || component_class == QO_LOCAL_CLIENT;
        const QoJsonNode published = qo_json_parse(text);
        if (!published || asks_for_many_placeholders(published.get())) return;
        double_ids_ = double_ids_ || names_id_twice(published.get());
        const std::string before = qo_json_write(published.get());

        bool save_scheduled = false;
        const int result = store_->UpdateNode(published.get(), save_scheduled, component_class);
        qo_require(result == 0 || result == -1, "a publish succeeds or fails");
        const QoJsonNode list(json_new(JSON_NODE));
        qo_require(store_->GetSubscribers(published.get(), list.get()) == 0, "subscribers are found");
        check_subscribers(list.get());
        static_cast<void>(store_->PublishToAllSubscribers());
        qo_require(qo_json_write(published.get()) == before, "a publish leaves the published tree alone");
    }

    static void check_subscribers(JSONNODE* list) {
        qo_require(json_size(list) <= 2 * kMaxComponents, "each subscriber is listed once per mode");
        for (const JSONNODE* entry : QoJsonChildren(list))
            qo_require(json_type(entry) == JSON_NUMBER, "a subscriber is a number");
    }

    void get(const std::string& pointer, bool pack) {
        const QoJsonNode response(json_new(JSON_NODE));
        long size = 0;
        if (store_->ReadNode(pointer, response.get(), true, size) != 0) return;
        qo_require(json_size(response.get()) == 1, "a response is one path");
        if (!pack) return;
        static_cast<void>(store_->PackMultipleGetResponse(packed_.get(), response.get(), QO_REMOTE_CLIENT));
        qo_require(json_type(packed_.get()) == JSON_NODE, "packed responses are an object");
        qo_require(count_metadata(packed_.get()) == 0, "packed responses hold no metadata");
    }

    eQO_CMP_IDs_ next_component() { return static_cast<eQO_CMP_IDs_>(1 + component_++ % kMaxComponents); }

    std::unique_ptr<DataMgr> store_;
    QoJsonNode packed_;
    size_t metadata_ = 0;
    std::string sealed_;
    std::string local_;
    size_t component_ = 0;
    bool double_ids_ = false;      // a published object that names its id twice takes the last
    bool trusted_writes_ = false;  // by someone whom write authority does not hold back
    bool local_writes_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Session session;
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    for (int i = 0; i < kMaxRequests && !rest.empty(); ++i) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        if (line.empty()) continue;
        session.handle(line.front(), std::string(line.substr(1)));
        if (!session.check()) break;
    }
    return 0;
}
