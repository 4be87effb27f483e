// The data tree store: a publish of about 200 bytes into trees and objects of very different sizes, and the search for
// the subscribers of a publish. Neither should depend on what lies beside the published path. The save timer is armed
// and put off as in the service; nothing is saved and nothing logged.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <syslog.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_json.h"
#include "scratch_directory.h"

namespace {

constexpr char kDefaults[] =
    R"({"devices":[{"id":0,"writeAccess":"openAll","temperature":{"limits":[]},"alerts":[]}],)"
    R"("wide":{"writeAccess":"openAll"},"system":{"config":{"writeAccess":"openAll","units":{}},"status":{}}})";

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

QoJsonNode parse(const std::string& text) {
    QoJsonNode node = qo_json_parse(text);
    require(node != nullptr, "the text is JSON");
    return node;
}

/// A store that starts from kDefaults and whose save timer is set to years.
std::unique_ptr<DataMgr> new_store() {
    setlogmask(LOG_UPTO(LOG_CRIT));
    const QoScratchDirectory scratch;
    scratch.write(QO_DEFAULTS_FILE, kDefaults);
    constexpr QoSaveTimings kNever{.first = std::chrono::hours(24 * 365), .extension = std::chrono::milliseconds(0)};
    constexpr int64_t kRoom = 1 << 30;  // bytes: a device has fewer for its tree
    auto store = std::make_unique<DataMgr>(QoStorePaths{scratch.path(), scratch.path()}, kNever, kRoom);
    require(store->Init(nullptr) == 0, "the store starts");
    return store;
}

void publish(DataMgr& store, JSONNODE* node, eQO_COMPONENT_CLASS_ component_class = QO_INTERNAL) {
    bool save_scheduled = false;
    require(store.UpdateNode(node, save_scheduled, component_class) == 0, "the publish succeeds");
}

std::string device(int64_t id, int temperature) {
    return R"({"id":)" + std::to_string(id) + R"(,"name":"Zone sensor","online":true,"temperature":{"value":)" +
           std::to_string(temperature) +
           R"(.50,"unit":"degC","note":"as measured at the return air duct","minimum":-40,)" +
           R"("maximum":125},"battery":{"percent":97,"low":false}})";
}

/// @return how many devices make a data tree of about `bytes` bytes of text.
int64_t devices_in(int64_t bytes) { return bytes / static_cast<int64_t>(device(1000, 20).size()); }

void fill_with_devices(DataMgr& store, int64_t count) {
    std::string text = R"({"devices":[)";
    for (int64_t id = 0; id < count; ++id) text += (id == 0 ? "" : ",") + device(id, 20);
    publish(store, parse(text + "]}").get());
}

void fill_with_members(DataMgr& store, int64_t count) {
    std::string text = R"({"wide":{)";
    for (int64_t i = 0; i < count; ++i)
        text += (i == 0 ? "\"member" : ",\"member") + std::to_string(i) + "\":" + device(i, 20);
    publish(store, parse(text + "}}").get());
}

/// Publishes two texts in turn, so that every publish changes values.
void publish_in_turn(benchmark::State& state, DataMgr& store, const std::string& one, const std::string& other,
                     eQO_COMPONENT_CLASS_ component_class) {
    const QoJsonNode first = parse(one);
    const QoJsonNode second = parse(other);
    bool is_first = true;
    for ([[maybe_unused]] auto _ : state) {
        publish(store, is_first ? first.get() : second.get(), component_class);
        is_first = !is_first;
    }
    state.counters["text"] = static_cast<double>(one.size());
}

/// Into the last device of a tree of that many bytes.
void PublishIntoTree(benchmark::State& state) {
    const auto store = new_store();
    const int64_t count = devices_in(state.range(0));
    fill_with_devices(*store, count);
    const auto text = [count](int temperature) { return R"({"devices":[)" + device(count - 1, temperature) + "]}"; };
    publish_in_turn(state, *store, text(21), text(22), QO_REMOTE_CLIENT);
}

/// Into one member of an object of that many.
void PublishIntoMember(benchmark::State& state) {
    const auto store = new_store();
    fill_with_members(*store, state.range(0));
    const std::string name = "member" + std::to_string(state.range(0) - 1);
    const auto text = [&name](int temperature) {
        return R"({"wide":{")" + name + "\":" + device(7, temperature) + "}}";
    };
    publish_in_turn(state, *store, text(21), text(22), QO_REMOTE_CLIENT);
}

/// A new member of an object of that many, and its removal.
void PublishNewMember(benchmark::State& state) {
    const auto store = new_store();
    fill_with_members(*store, state.range(0));
    const QoJsonNode published = parse(R"({"wide":{"new":)" + device(7, 21) + "}}");
    for ([[maybe_unused]] auto _ : state) {
        publish(*store, published.get(), QO_REMOTE_CLIENT);
        require(store->DeleteNode("/wide/new", false) == 0, "the delete succeeds");
    }
}

/// One device out of a tree of that many bytes.
void ReadElement(benchmark::State& state) {
    const auto store = new_store();
    const int64_t count = devices_in(state.range(0));
    fill_with_devices(*store, count);
    const std::string pointer = "/devices/" + std::to_string(count - 1);
    for ([[maybe_unused]] auto _ : state) {
        const QoJsonNode response(json_new(JSON_NODE));
        long unused_size = 0;
        require(store->ReadNode(pointer, response.get(), false, unused_size) == 0, "the read succeeds");
    }
}

void subscribe(DataMgr& store, int64_t count, bool changes_only) {
    const char* const pointers[] = {"/", "/system", "/system/config", "/system/status"};
    for (int64_t i = 0; i < count; ++i) {
        require(store.AddSubscriber(static_cast<eQO_CMP_IDs_>(1 + i), pointers[i % 4], changes_only) == 0,
                "the subscription succeeds");
    }
}

const char kConfig[] =
    R"({"system":{"config":{"name":"Cold store 3","language":"english","units":{"temperature":"F"}}}})";

/// The walk alone; three quarters of the subscribers are on its path.
void CollectSubscribers(benchmark::State& state) {
    const auto store = new_store();
    subscribe(*store, state.range(0), false);
    const QoJsonNode published = parse(kConfig);
    for ([[maybe_unused]] auto _ : state) {
        const QoJsonNode list(json_new(JSON_NODE));
        require(store->GetSubscribers(published.get(), list.get()) == 0, "the walk succeeds");
    }
}

/// The publish that they are told of: it walks to them itself to know whether to look for changes.
void PublishToSubscribers(benchmark::State& state) {
    const auto store = new_store();
    subscribe(*store, state.range(0), true);
    const QoJsonNode published = parse(kConfig);
    for ([[maybe_unused]] auto _ : state) publish(*store, published.get());
}

/// One publish of that many array elements, all of which concern the same subscribers.
void CollectSubscribersOfElements(benchmark::State& state) {
    const auto store = new_store();
    for (int id = 1; id <= 128; ++id)
        require(store->AddSubscriber(static_cast<eQO_CMP_IDs_>(id), "/devices/temperature", false) == 0, "subscribed");
    std::string text = R"({"devices":[)";
    for (int64_t id = 0; id < state.range(0); ++id) text += (id == 0 ? "" : ",") + device(id, 20);
    const QoJsonNode published = parse(text + "]}");
    for ([[maybe_unused]] auto _ : state) {
        const QoJsonNode list(json_new(JSON_NODE));
        require(store->GetSubscribers(published.get(), list.get()) == 0, "the walk succeeds");
    }
}

BENCHMARK(PublishIntoTree)->Arg(16 << 10)->Arg(1 << 20)->Arg(16 << 20);
BENCHMARK(PublishIntoMember)->Arg(10)->Arg(1'000)->Arg(100'000);
BENCHMARK(PublishNewMember)->Arg(10)->Arg(1'000)->Arg(100'000);
BENCHMARK(ReadElement)->Arg(16 << 10)->Arg(1 << 20)->Arg(16 << 20);
BENCHMARK(CollectSubscribers)->Arg(0)->Arg(16)->Arg(128);
BENCHMARK(PublishToSubscribers)->Arg(0)->Arg(16)->Arg(128);
BENCHMARK(CollectSubscribersOfElements)->Arg(1)->Arg(1'000);

}  // namespace
