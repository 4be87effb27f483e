// The JSON node library: whole trees of three sizes, and members of objects of three sizes. The cost per byte of a
// tree should not depend on its size, and the cost of finding or adding a member not on how many there are.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qo_json.h"

namespace {

struct DeleteJson {
    void operator()(JSONNODE* node) const { json_delete(node); }
};
using Json = std::unique_ptr<JSONNODE, DeleteJson>;

/// A tree of device records whose compact text has about `bytes` bytes.
std::string tree_text(int64_t bytes) {
    std::string text = R"({"version":{"schemaVersion":"1"},"devices":[)";
    for (int id = 0; static_cast<int64_t>(text.size()) < bytes - 2; ++id) {
        if (id > 0) text += ',';
        text += R"({"id":)" + std::to_string(id) + R"(,"name":"Zone sensor )" + std::to_string(id) +
                R"(","writeAccess":"local","online":true,"temperature":{"value":)" + std::to_string(id % 400) +
                R"(.50,"unit":"degC","limits":[-40,125]},"alerts":[],"note":null})";
    }
    return text + "]}";
}

Json parse(const std::string& text) { return Json(json_parse_n(text.data(), text.size())); }

Json tree_of(int64_t bytes) { return parse(tree_text(bytes)); }

std::string member(int64_t number) { return "member" + std::to_string(number); }

Json object_of(int64_t members) {
    Json object(json_new(JSON_NODE));
    for (int64_t i = 0; i < members; ++i) json_push_back(object.get(), json_new_i(member(i).c_str(), i));
    return object;
}

void count_bytes(benchmark::State& state) { state.SetBytesProcessed(state.iterations() * state.range(0)); }

void Parse(benchmark::State& state) {
    const std::string text = tree_text(state.range(0));
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(parse(text));
    count_bytes(state);
}

void IsValid(benchmark::State& state) {
    const std::string text = tree_text(state.range(0));
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(json_is_valid_n(text.data(), text.size()));
    count_bytes(state);
}

void Write(benchmark::State& state) {
    const Json tree = tree_of(state.range(0));
    for ([[maybe_unused]] auto _ : state) json_free(json_write(tree.get()));
    count_bytes(state);
}

void WriteFormatted(benchmark::State& state) {
    const Json tree = tree_of(state.range(0));
    for ([[maybe_unused]] auto _ : state) json_free(json_write_formatted(tree.get()));
    count_bytes(state);
}

void Duplicate(benchmark::State& state) {
    const Json tree = tree_of(state.range(0));
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(Json(json_duplicate(tree.get())));
    count_bytes(state);
}

void Equal(benchmark::State& state) {
    const Json tree = tree_of(state.range(0));
    const Json copy(json_duplicate(tree.get()));
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(json_equal(tree.get(), copy.get()));
    count_bytes(state);
}

/// Down to a value in the last record.
void FindInTree(benchmark::State& state) {
    const Json tree = tree_of(state.range(0));
    const size_t last = json_size(json_find(tree.get(), "devices")) - 1;
    for ([[maybe_unused]] auto _ : state) {
        JSONNODE* device = json_at(json_find(tree.get(), "devices"), last);
        benchmark::DoNotOptimize(json_find(json_find(device, "temperature"), "value"));
    }
}

/// One of many members, a different one each time.
void FindMember(benchmark::State& state) {
    const Json object = object_of(state.range(0));
    constexpr int64_t kStride = 7919;  // a prime, so that every member is asked for
    std::vector<std::string> names;
    for (int64_t i = 0; i < state.range(0); ++i) names.push_back(member(i * kStride % state.range(0)));
    size_t next = 0;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(json_find(object.get(), names[next].c_str()));
        if (++next == names.size()) next = 0;
    }
}

/// Looking for a member, adding it because it is new, and taking it out again.
void FindAndPushBack(benchmark::State& state) {
    const Json object = object_of(state.range(0));
    const size_t end = json_size(object.get());
    for ([[maybe_unused]] auto _ : state) {
        if (json_find(object.get(), "new") == nullptr) json_push_back(object.get(), json_new_i("new", 1));
        json_delete(json_pop_back_at(object.get(), end));
    }
}

void tree_sizes(benchmark::internal::Benchmark* bench) { bench->Arg(16 << 10)->Arg(1 << 20)->Arg(16 << 20); }

void member_counts(benchmark::internal::Benchmark* bench) { bench->Arg(10)->Arg(1'000)->Arg(100'000); }

BENCHMARK(Parse)->Apply(tree_sizes);
BENCHMARK(IsValid)->Apply(tree_sizes);
BENCHMARK(Write)->Apply(tree_sizes);
BENCHMARK(WriteFormatted)->Apply(tree_sizes);
BENCHMARK(Duplicate)->Apply(tree_sizes);
BENCHMARK(Equal)->Apply(tree_sizes);
BENCHMARK(FindInTree)->Apply(tree_sizes);
BENCHMARK(FindMember)->Apply(member_counts);
BENCHMARK(FindAndPushBack)->Apply(member_counts);

}  // namespace
