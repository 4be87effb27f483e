// A client's publish with and without the check of published objects: parse, check, merge, and release of a `system`
// object of that many bytes. Run both interleaved: --benchmark_enable_random_interleaving=true
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <syslog.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "qo_json_object_checker.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_json.h"
#include "scratch_directory.h"

namespace {

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

/// A store whose `system` everybody may write, and whose save timer is set to years.
std::unique_ptr<DataMgr> new_store() {
    setlogmask(LOG_UPTO(LOG_CRIT));
    const QoScratchDirectory scratch;
    scratch.write(QO_DEFAULTS_FILE, R"({"system":{"writeAccess":"openAll","clock":{"offset":0}}})");
    constexpr QoSaveTimings kNever{.first = std::chrono::hours(24 * 365), .extension = std::chrono::milliseconds(0)};
    auto store = std::make_unique<DataMgr>(QoStorePaths{scratch.path(), scratch.path()}, kNever);
    require(store->Init(nullptr) == 0, "the store starts");
    return store;
}

/// Exactly `bytes` long: what the zones leave is filled up by a note.
std::string system_object(size_t bytes, int offset) {
    constexpr size_t kRoomForNote = 100;  // more than a zone takes
    const std::string end = R"("}})";
    std::string text = R"({"system":{"clock":{"offset":)" + std::to_string(offset) + R"(,"tz":"NST"})";
    for (int i = 0; text.size() + kRoomForNote < bytes; ++i)
        text += ",\"zone" + std::to_string(i) + R"(":{"value":21.50,"unit":"degC","online":true})";
    text += R"(,"note":")";
    text.append(bytes - text.size() - end.size(), '.');
    return text + end;
}

enum class Check { kNone, kTree, kText };

void publish(DataMgr& store, const std::string& published, Check check) {
    std::string text = check == Check::kText ? published : std::string();
    if (check == Check::kText) require(qoCheckJson(text, jsonCheckNormal) == jsonObjectAcceptable, "accepted");
    JSONNODE* node = qo_json_parse(check == Check::kText ? text : published).release();
    if (check == Check::kTree) require(qoCheckJson(node, jsonCheckNormal) == jsonObjectAcceptable, "accepted");
    const QoJsonNode tree(node);
    bool modified = false;
    require(store.UpdateNode(tree.get(), modified, QO_REMOTE_CLIENT) == 0, "the publish succeeds");
}

template <Check kCheck>
void Publish(benchmark::State& state) {
    const auto store = new_store();
    const auto bytes = static_cast<size_t>(state.range(0));
    const std::string texts[] = {system_object(bytes, 3600), system_object(bytes, 7200)};
    require(texts[0].size() == bytes && texts[1].size() == bytes, "the texts have the length that is asked for");
    size_t turn = 0;
    for ([[maybe_unused]] auto _ : state) publish(*store, texts[++turn % 2], kCheck);
    state.counters["text"] = static_cast<double>(texts[0].size());
}

BENCHMARK(Publish<Check::kNone>)->Name("Unchecked")->Arg(200)->Arg(4 << 10)->Arg(64 << 10);
BENCHMARK(Publish<Check::kTree>)->Name("Checked")->Arg(200)->Arg(4 << 10)->Arg(64 << 10);
BENCHMARK(Publish<Check::kText>)->Name("CheckedAsText")->Arg(200)->Arg(4 << 10)->Arg(64 << 10);

}  // namespace
