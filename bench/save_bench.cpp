// What a publish waits for while the tree is saved, and what saving and loading take of the processor. The disk is
// slow: every flush takes 50 milliseconds. SlowestPublishDuringASave reports the slowest publish during one save; it
// should be that of taking a snapshot of the tree, whatever the disk does. "save" is how long the whole save took.
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
#include "qo_pushpull_initializer.h"
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

/// A tree of about `bytes` bytes.
std::string tree_of(int64_t bytes) {
    std::string tree = R"({"setting":0,"devices":[)";
    for (int id = 0; static_cast<int64_t>(tree.size()) < bytes - 2; ++id) {
        if (id > 0) tree += ',';
        tree += R"({"id":)" + std::to_string(id) + R"(,"name":"Zone sensor )" + std::to_string(id) +
                R"(","online":true,"temperature":{"value":)" + std::to_string(id % 400) + R"(.50,"unit":"degC"}})";
    }
    return tree + "]}";
}

/// A store of its own in a directory of its own, with a tree of about `bytes` bytes.
class Store {
public:
    explicit Store(int64_t bytes) {
        scratch_.write(QO_DEFAULTS_FILE, tree_of(bytes));
        load();
    }

    /// Anew, from what was saved and the defaults.
    void load() {
        store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
        if (store_->Init(nullptr) != 0) abort();
    }
    void unload() { store_.reset(); }
    void save() {
        if (store_->SaveDataTree(false) != 0) abort();
    }
    /// From now on only what was saved counts.
    void drop_defaults() { scratch_.write(QO_DEFAULTS_FILE, "{}"); }

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
            store.save();
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

void Snapshot(benchmark::State& state) {
    Store store(state.range(0));
    const QoJsonNode tree(json_new(JSON_NODE));
    long ignored = 0;
    if (store->ReadNode("/devices", tree.get(), false, ignored) != 0) abort();
    for ([[maybe_unused]] auto _ : state) {
        QoJsonSnapshot snapshot(tree.get(), Initializer::TakePersistent);
        state.PauseTiming();
        snapshot = {};
        state.ResumeTiming();
    }
}
BENCHMARK(Snapshot)->Arg(16 << 10)->Arg(1 << 20)->Arg(8 << 20)->Unit(benchmark::kMillisecond);

void Save(benchmark::State& state) {
    Store store(state.range(0));
    for ([[maybe_unused]] auto _ : state) store.save();
}
BENCHMARK(Save)->Arg(16 << 10)->Arg(1 << 20)->Arg(8 << 20)->Iterations(10)->Unit(benchmark::kMillisecond);

void Load(benchmark::State& state) {
    Store store(state.range(0));
    store.save();
    store.drop_defaults();
    for ([[maybe_unused]] auto _ : state) {
        state.PauseTiming();
        store.unload();
        state.ResumeTiming();
        store.load();
    }
}
BENCHMARK(Load)->Arg(16 << 10)->Arg(1 << 20)->Arg(8 << 20)->Unit(benchmark::kMillisecond);

}  // namespace
