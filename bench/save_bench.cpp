// What a publish waits for while the tree is saved. The disk is slow: every flush takes 50 milliseconds. The time
// reported is that of the slowest publish during one save; it should be that of copying the tree in memory, whatever
// the disk does. "save" is how long the whole save took.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_json.h"
#include "scratch_directory.h"

extern "C" {
int __wrap_fsync(int) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return 0;
}
void __wrap_sync() { std::this_thread::sleep_for(std::chrono::milliseconds(50)); }
}

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

/// A store of its own in a directory of its own, with a tree of about `bytes` bytes.
class Store {
public:
    explicit Store(int64_t bytes) {
        std::string tree = R"({"setting":0,"devices":[)";
        for (int id = 0; static_cast<int64_t>(tree.size()) < bytes - 2; ++id) {
            if (id > 0) tree += ',';
            tree += R"({"id":)" + std::to_string(id) + R"(,"name":"Zone sensor )" + std::to_string(id) +
                    R"(","online":true,"temperature":{"value":)" + std::to_string(id % 400) + R"(.50,"unit":"degC"}})";
        }
        scratch_.write(QO_DEFAULTS_FILE, tree + "]}");
        store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
        if (store_->Init(nullptr) != 0) abort();
    }

    DataMgr* operator->() { return store_.get(); }

private:
    const QoScratchDirectory scratch_;
    std::unique_ptr<DataMgr> store_;
};

void SlowestPublishDuringASave(benchmark::State& state) {
    Store store(state.range(0));
    const QoJsonNode published = qo_json_parse(R"({"setting":1})");
    double save_seconds = 0;
    for ([[maybe_unused]] auto _ : state) {
        std::atomic<bool> saved{false};
        std::thread saving([&] {
            const auto start = Clock::now();
            if (store->SaveDataTree(false) != 0) abort();
            save_seconds += seconds_since(start);
            saved = true;
        });
        double slowest = 0;
        while (!saved) {
            const auto start = Clock::now();
            bool scheduled = false;
            if (store->UpdateNode(published.get(), scheduled, QO_INTERNAL) != 0) abort();
            slowest = std::max(slowest, seconds_since(start));
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        saving.join();
        state.SetIterationTime(slowest);
    }
    state.counters["save"] = benchmark::Counter(save_seconds, benchmark::Counter::kAvgIterations);
}
BENCHMARK(SlowestPublishDuringASave)
    ->Arg(16 << 10)
    ->Arg(1 << 20)
    ->Arg(8 << 20)
    ->Iterations(10)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void CopyOfTheTree(benchmark::State& state) {
    Store store(state.range(0));
    const QoJsonNode response(json_new(JSON_NODE));
    long ignored = 0;
    if (store->ReadNode("/devices", response.get(), false, ignored) != 0) abort();
    for ([[maybe_unused]] auto _ : state) {
        JSONNODE* copy = json_duplicate(response.get());
        state.PauseTiming();
        json_delete(copy);
        state.ResumeTiming();
    }
}
BENCHMARK(CopyOfTheTree)->Arg(16 << 10)->Arg(1 << 20)->Arg(8 << 20)->Unit(benchmark::kMillisecond);

}  // namespace
