// The save timer's own thread: real timers, and a disk that the test can hold up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "qo_pushpull_files.h"
#include "qo_store_fixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Counts the flushes of files to the disk, and holds them up on request.
class Disk {
public:
    void flush() {
        std::unique_lock lock(mutex_);
        ++flushes_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return !held_; });
    }
    void done() {
        const std::lock_guard lock(mutex_);
        ++saves_;
        changed_.notify_all();
    }
    void hold() {
        const std::lock_guard lock(mutex_);
        held_ = true;
    }
    void let_go() {
        const std::lock_guard lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }
    bool wait_for_flush(int count) {
        return wait([this, count] { return flushes_ >= count; });
    }
    bool wait_for_save(int count) {
        return wait([this, count] { return saves_ >= count; });
    }
    int saves() {
        const std::lock_guard lock(mutex_);
        return saves_;
    }
    int flushes() {
        const std::lock_guard lock(mutex_);
        return flushes_;
    }

private:
    bool wait(const std::function<bool()>& reached) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, seconds(60), reached);
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    int flushes_ = 0;
    int saves_ = 0;
    bool held_ = false;
};

Disk* disk = nullptr;

}  // namespace

extern "C" {
int __real_fsync(int descriptor);
int __wrap_fsync(int descriptor) {
    if (disk != nullptr) disk->flush();
    return __real_fsync(descriptor);
}
// The last call of a save that succeeds; flushing the whole machine's disks is not what is tested.
void __wrap_sync() {
    if (disk != nullptr) disk->done();
}
}

namespace {

class SaveThread : public QoStoreTest {
protected:
    void SetUp() override {
        disk = &disk_;
        scratch_.write(QO_DEFAULTS_FILE, R"({"a":0})");
    }
    void TearDown() override {
        disk_.let_go();
        store_.reset();
        disk = nullptr;
    }

    std::unique_ptr<DataMgr> make_store(milliseconds first) {
        auto store =
            std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()}, QoSaveTimings{first, first, 6});
        EXPECT_EQ(store->Init(nullptr), 0);
        return store;
    }
    void start_with(milliseconds first) { store_ = make_store(first); }

    void change(int value) { ASSERT_EQ(publish(R"({"a":)" + std::to_string(value) + "}"), 0); }

    int64_t saved_value() const {
        const QoJsonNode file = qo_json_parse(scratch_.read(QO_SAVED_TREE_FILE));
        return file ? json_as_int(qo_json_find(file.get(), "a")) : -1;
    }

    Disk disk_;
};

TEST_F(SaveThread, SavesByItself) {
    start_with(milliseconds(10));
    change(1);
    ASSERT_TRUE(disk_.wait_for_save(1));
    EXPECT_EQ(saved_value(), 1);
}

/// Whether a thread of this process other than `except` could be interrupted by SIGTERM.
bool lets_sigterm_in(pid_t except) {
    constexpr uint64_t sigterm = uint64_t{1} << (SIGTERM - 1);
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);)
            if (line.starts_with("SigBlk:") && task.path().filename() != std::to_string(except) &&
                (std::stoull(line.substr(7), nullptr, 16) & sigterm) == 0)
                return true;
    }
    return false;
}

TEST_F(SaveThread, NoThreadOfTheTimerLetsSigtermIn) {
    const pid_t main_thread = getpid();
    ASSERT_TRUE(lets_sigterm_in(0)) << "this test blocks SIGTERM itself and could not fail";
    start_with(milliseconds(10));
    disk_.hold();
    change(1);
    ASSERT_TRUE(disk_.wait_for_flush(1));
    EXPECT_FALSE(lets_sigterm_in(main_thread));
}

TEST_F(SaveThread, PublishesAndReadsDoNotWaitForTheDisk) {
    start_with(milliseconds(10));
    disk_.hold();
    change(1);
    ASSERT_TRUE(disk_.wait_for_flush(1));
    // The disk stays away for as long as it takes: these would never return if they waited for it.
    for (int value = 2; value <= 100; ++value) {
        change(value);
        EXPECT_EQ(read("/a"), R"({"a":)" + std::to_string(value) + "}");
    }
    EXPECT_EQ(disk_.saves(), 0);
    disk_.let_go();
    ASSERT_TRUE(disk_.wait_for_save(2));
    EXPECT_EQ(saved_value(), 100);
    store_.reset();
    EXPECT_EQ(disk_.saves(), 2);
}

/// A thread that runs an action and tells when it is done.
class Waiter {
public:
    explicit Waiter(const std::function<void()>& action)
        : thread_([this, action] {
              id_ = gettid();
              action();
              done_ = true;
          }) {}
    void join() { thread_.join(); }
    bool done() const { return done_; }

    /// Waits until the thread sleeps, as one does that waits for a lock, or is done. Bounded.
    bool wait_until_asleep() const {
        for (const auto end = std::chrono::steady_clock::now() + seconds(60); std::chrono::steady_clock::now() < end;) {
            if (done_ || state() == 'S') return true;
            std::this_thread::yield();
        }
        return false;
    }

private:
    char state() const {
        std::ifstream status("/proc/self/task/" + std::to_string(id_) + "/status");
        for (std::string line; std::getline(status, line);)
            if (line.starts_with("State:\t")) return line[7];
        return '?';
    }

    std::atomic<pid_t> id_{0};
    std::atomic<bool> done_{false};
    std::thread thread_;
};

TEST_F(SaveThread, AForcedSaveWaitsForTheOneUnderWay) {
    start_with(milliseconds(10));
    disk_.hold();
    change(1);
    ASSERT_TRUE(disk_.wait_for_flush(1));
    Waiter forcing([this] { EXPECT_EQ(store_->SaveDataTree(false), 0); });
    EXPECT_TRUE(forcing.wait_until_asleep());
    EXPECT_FALSE(forcing.done());
    EXPECT_EQ(disk_.flushes(), 1) << "the second save has reached the disk too";
    EXPECT_EQ(disk_.saves(), 0);
    disk_.let_go();
    forcing.join();
    EXPECT_EQ(disk_.saves(), 2);
    EXPECT_EQ(saved_value(), 1);
    EXPECT_EQ(scratch_.read("saved_tree.json.bak"), scratch_.read("saved_tree.json"));
}

TEST_F(SaveThread, TheDebugDumpIsFlushedToTheDiskToo) {
    start_with(milliseconds(10));
    EXPECT_EQ(store_->SaveActiveTreeForDebug(), 0);
    EXPECT_EQ(disk_.flushes(), 2) << "the file and its directory";
    EXPECT_EQ(disk_.saves(), 1) << "the file systems";
}

TEST_F(SaveThread, TerminateWaitsForTheSaveUnderWay) {
    start_with(milliseconds(10));
    disk_.hold();
    change(1);
    ASSERT_TRUE(disk_.wait_for_flush(1));
    Waiter terminating([this] { store_->Terminate(); });
    EXPECT_TRUE(terminating.wait_until_asleep());
    EXPECT_FALSE(terminating.done());
    disk_.let_go();
    terminating.join();
    EXPECT_EQ(saved_value(), 1);
}

// A callback may be on its way while its store ends and another takes the same place in memory.
TEST_F(SaveThread, StoresThatEndAroundTheirTimersExpiryAreNotTouchedAfterwards) {
    std::mt19937 random(17);
    std::uniform_int_distribution<int> microseconds(0, 2000);
    for (int round = 0; round < 400; ++round) {
        auto store = make_store(milliseconds(1));
        ASSERT_EQ(store->CreateTimerToSaveTree(), 0);
        usleep(static_cast<useconds_t>(microseconds(random)));
    }
}

TEST_F(SaveThread, SavesWhilePublishesPourInAreEachWhole) {
    start_with(milliseconds(1));
    const auto end = std::chrono::steady_clock::now() + seconds(60);
    int value = 0;
    int loads = 0;
    std::set<std::string> errors;
    while ((loads < 5 || disk_.saves() <= 10) && std::chrono::steady_clock::now() < end) {
        change(++value);
        for (const QoLogLine& line : log_.lines())
            if (line.level <= LOG_ERR) errors.insert(line.text);
        log_.clear();
        if (value % 64 == 0 && scratch_.has(QO_SAVED_TREE_FILE)) {
            const QoScratchDirectory elsewhere;
            elsewhere.write(QO_SAVED_TREE_FILE, scratch_.read(QO_SAVED_TREE_FILE));
            DataMgr loader(QoStorePaths{elsewhere.path(), elsewhere.path()});
            ASSERT_EQ(loader.CreateDataTree(), 0);
            ++loads;
        }
    }
    EXPECT_GE(loads, 5);
    EXPECT_GT(disk_.saves(), 10) << ::testing::PrintToString(errors);
    ASSERT_EQ(store_->SaveDataTree(false), 0);
    EXPECT_EQ(saved_value(), value);
}

}  // namespace
